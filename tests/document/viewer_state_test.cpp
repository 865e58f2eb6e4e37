// Which node the viewer shows, the channel keys, zoom about a point, the timecode.
#include <gtest/gtest.h>

#include "temp_model.h"

using namespace ombrik;

namespace {
// Where a picture point (in comp pixels) lands in the view.
Point onView(const AppModel& m, Point px, double w, double h) {
  const auto r = m.viewerRect(w, h);
  return {r.x + px.x / m._compSize.width * r.width, r.y + px.y / m._compSize.height * r.height};
}
}  // namespace

TEST(ViewerState, TheNodeOnScreenAndTheTimecode) {
  test::GraphDesk t;
  AppModel& m = t.m;
  const Uuid out = *m.outputNode();
  EXPECT_EQ(m.displayedNodeID(), out) << "nothing selected or viewed: the output";
  const Uuid color = t.add("color"), blur = t.add("blur");
  m.select(color);
  EXPECT_EQ(m.displayedNodeID(), color);
  m._viewedNode = blur;
  EXPECT_EQ(m.displayedNodeID(), blur) << "the viewed node comes before the selection";
  m._viewerFull = true;
  EXPECT_EQ(m.displayedNodeID(), color) << "in full view the selection comes first";
  m._viewLocked = true;
  EXPECT_EQ(m.displayedNodeID(), blur) << "locked";
  m._viewLocked = false;
  m._viewerFull = false;
  m.deleteNode(blur);
  EXPECT_EQ(m.displayedNodeID(), color) << "a viewed node that went is forgotten";

  // The timecode under it.
  m._fps = 24.976;  // rounded to 25
  m._frameCount = 100000;
  m._currentFrame = 25 * 3725 + 9;  // 1 h 2 min 5 s and 9 frames
  EXPECT_EQ(m.timecode(), "01:02:05:09   93134 / 100000");
  m._fps = 0;  // at least one frame a second
  m._currentFrame = 61;
  EXPECT_EQ(m.timecode(), "00:01:01:00   61 / 100000");
}

TEST(ViewerState, ChannelKeysAndTheLockedResult) {
  test::GraphDesk t;
  AppModel& m = t.m;
  const Uuid color = m.addNode(NodeKind::color(), {0, 0});

  // Nothing selected or viewed: a double F4 is two single presses.
  m.select(std::nullopt);
  m.flameView(4);
  EXPECT_TRUE(m._viewerFull);
  t.clock->advance(0.1);
  m.flameView(4);
  EXPECT_FALSE(m._viewerFull) << "the same key again returns";
  EXPECT_FALSE(m._fullContext);

  m.select(color);
  m.flameView(3);
  EXPECT_TRUE(m._viewerFull);
  EXPECT_EQ(m._viewChannel, 3);
  t.clock->advance(1);
  m.flameView(4);  // one press: full view of the result
  EXPECT_TRUE(m._viewerFull);
  EXPECT_EQ(m._viewChannel, 4);
  EXPECT_FALSE(m._fullContext);
  t.clock->advance(0.3);
  m.flameView(4);  // the second within 0.4 s: the result locked with its context
  EXPECT_TRUE(m._fullContext);
  EXPECT_EQ(m._viewedNode, color);
  EXPECT_EQ(m._status.rfind("Vue verrouillée : ", 0), 0u) << m._status;
  m.select(m.addNode(*NodeKind::find("blur"), {0, 0}));
  EXPECT_EQ(m.displayedNodeID(), color) << "other nodes can be selected, the result stays";
  t.clock->advance(0.1);
  m.flameView(4);  // a third press is a single one again: the time went back to the past
  EXPECT_FALSE(m._viewerFull);
  EXPECT_TRUE(m._status.empty());
}

TEST(ViewerState, ZoomIsClampedAndKeepsItsPivotStill) {
  test::GraphDesk t;
  AppModel& m = t.m;
  m._compSize = {1920, 1080};
  const double w = 1000, h = 700;
  const auto fit = m.viewerRect(w, h);
  EXPECT_NEAR(fit.x + fit.width / 2, 500, 1e-9);

  // The picture point under (700, 300) stays under it.
  const auto r0 = m.viewerRect(w, h);
  const Point px{(700 - r0.x) / r0.width * 1920, (300 - r0.y) / r0.height * 1080};
  m.zoomViewer(2.5, Point{700, 300}, w, h);
  const Point after = onView(m, px, w, h);
  EXPECT_NEAR(after.x, 700, 1e-6);
  EXPECT_NEAR(after.y, 300, 1e-6);
  // Without a point the centre of the view stays.
  const auto r1 = m.viewerRect(w, h);
  const Point centre{(500 - r1.x) / r1.width * 1920, (350 - r1.y) / r1.height * 1080};
  m.zoomViewer(0.7, std::nullopt, w, h);
  const Point c = onView(m, centre, w, h);
  EXPECT_NEAR(c.x, 500, 1e-6);
  EXPECT_NEAR(c.y, 350, 1e-6);

  for (int i = 0; i < 20; ++i) m.zoomViewer(3, Point{10, 10}, w, h);
  EXPECT_DOUBLE_EQ(m.viewZoom, 64);
  for (int i = 0; i < 20; ++i) m.zoomViewer(0.2, std::nullopt, w, h);
  EXPECT_DOUBLE_EQ(m.viewZoom, 0.1);

  m.fitViewer();
  m.actualPixels(w, h, 2);
  EXPECT_NEAR(m.viewerPixelRatio(w, h, 2), 1.0, 1e-9) << "one picture pixel a drawn pixel";
}
