#include <gtest/gtest.h>

#include "engine/engine.h"
#include "engine/source_picture.h"
#include "temp_model.h"

using namespace ombrik;

TEST(KeyerSamples, PickedColoursFollowTheirRules) {
  test::ScriptedDesk d;
  AppModel& m = *d.m;
  ASSERT_TRUE(m.engine);
  // Left half green, right half grey.
  std::vector<float> px;
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) px.insert(px.end(), x < 10 ? std::initializer_list<float>{0.1f, 0.8f, 0.2f, 1}
                                                             : std::initializer_list<float>{0.5f, 0.5f, 0.5f, 1});
  const Uuid media = *m.addMedia(SourcePicture::fromFloats(20, 10, px), "plaque");
  m._media.back().width = 20, m._media.back().height = 10;
  const Uuid source = m.addNode(NodeKind::media(), {0, 0});
  m.setMedia(source, media);
  const Uuid keyer = m.addNode(*NodeKind::find("keyer3d"), {200, 0});
  m.connect(source, keyer, 0, 0);
  m.keyerAddSample(keyer, {0.25, 0.5}, false);
  EXPECT_TRUE(m.nodeByID(keyer)->keySamples.empty());  // nothing evaluated yet: no picture to read
  m.performRender(true);

  m.keyerAddSample(keyer, {0.25, 0.5}, false);
  auto* samples = &m.nodeByID(keyer)->keySamples;
  ASSERT_EQ(samples->size(), 1u);
  EXPECT_NEAR((*samples)[0][1], 0.8, 2e-3);  // the green, read around the point
  EXPECT_EQ((*samples)[0][3], 1);
  EXPECT_NEAR((*samples)[0][4], 25, 1e-9);
  m.keyerAddSample(keyer, {0.255, 0.505}, false);  // the same colour at the same place: not added
  EXPECT_EQ(samples->size(), 1u);
  m.keyerAddSample(keyer, {0.75, 0.5}, false);  // grey, elsewhere
  EXPECT_EQ(samples->size(), 2u);
  m.keyerAddSample(keyer, {0.3, 0.4}, true);  // removing the green takes the kept green away
  samples = &m.nodeByID(keyer)->keySamples;
  ASSERT_EQ(samples->size(), 2u);
  EXPECT_EQ((*samples)[0][0], 0.5);  // the grey stays
  EXPECT_EQ((*samples)[1][3], -1);

  // 130 more, each far enough from the others to count: the oldest twelve of all go.
  for (int i = 0; i < 130; ++i) m.keyerAddSample(keyer, {0.55 + 0.02 * (i % 20), 0.05 + 0.02 * (i / 20)}, false);
  samples = &m.nodeByID(keyer)->keySamples;
  ASSERT_EQ(samples->size(), 120u);
  EXPECT_NEAR((*samples)[0][4], 75, 1e-9);  // the eleventh of the new ones is now the oldest
  EXPECT_NEAR((*samples)[0][5], 5, 1e-9);
  m.keyerClear(keyer);
  EXPECT_TRUE(m.nodeByID(keyer)->keySamples.empty());
}
