#include <gtest/gtest.h>

#include "document/app_model.h"
#include "platform/scheduler.h"

using namespace ombrik;

TEST(AppModelStart, BlankFirstWorld) {
  AppModel model(AppModel::Options{.installed = false, .blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>()});
  ASSERT_EQ(model._batches.size(), 1u);
  const Batch& world = model._batches[0];
  EXPECT_EQ(world.name, "Batch_01");
  EXPECT_FALSE(world.placeholder);
  EXPECT_EQ(model._currentBatchID, world.id);
  ASSERT_EQ(model._nodes.size(), 1u);
  EXPECT_EQ(model._nodes[0].kind->id, "output");
  EXPECT_TRUE(model._edges.empty());
  EXPECT_EQ(model.layout.position(model._nodes[0].id), (Point{600, 140}));
  EXPECT_EQ(world.nodes, model._nodes);
  EXPECT_EQ(world.positions, model.layout.positions());
  EXPECT_EQ(model._fps, 25);
  EXPECT_EQ(model._previewScale, 1);
  EXPECT_TRUE(model._media.empty());
  EXPECT_TRUE(model._status.empty());
}

TEST(AppModelStart, InstalledBlankWorldIsAPlaceholder) {
  AppModel model(AppModel::Options{.installed = true, .blankStart = false, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>()});
  ASSERT_NE(model.currentBatch(), nullptr);
  EXPECT_TRUE(model.currentBatch()->placeholder);
}

TEST(AppModelStart, OpenWorldLagsItsBatchUntilSaved) {
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>()});
  model._nodes.push_back(Node(NodeKind::color()));
  model.layout.set(model._nodes.back().id, {100, 100});
  EXPECT_EQ(model.currentBatch()->nodes.size(), 1u);
  model.saveCurrentBatch();
  EXPECT_EQ(model.currentBatch()->nodes, model._nodes);
  EXPECT_EQ(model.currentBatch()->positions.size(), 2u);
}
