// When the model asks for renders and at what size, and a lost GPU device. A blank world is
// enough: the scheduling, not the picture, is under test.
#include <gtest/gtest.h>

#include "document/app_model.h"
#include "engine/engine.h"
#include "gpu/device.h"
#include "platform/scheduler.h"

using namespace ombrik;

TEST(RenderRequest, ChangesCollapseIntoOneLeanEvaluationAndTheFullOneFollows) {
  auto scheduler = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = true, .scheduler = scheduler});
  ASSERT_TRUE(model.engine) << model._status;
  EXPECT_EQ(scheduler->pending(), 1u);  // the first render, asked at start
  scheduler->runAll();
  const int evaluations = model.engine->evalCount;
  EXPECT_EQ(model._frameID, 1);
  EXPECT_TRUE(model.engine->leanEval);
  for (int i = 0; i < 5; ++i) model.requestRender();  // five quick changes
  scheduler->runAll();
  EXPECT_EQ(model.engine->evalCount, evaluations + 1);
  EXPECT_EQ(model._frameID, 2);
  scheduler->advance(0.5);
  model.requestRender();  // a later change renders again, and puts the full render off
  scheduler->advance(0.7);
  EXPECT_EQ(model.engine->evalCount, evaluations + 2);
  scheduler->advance(0.2);  // 0.8 s after the last lean render: the whole graph
  EXPECT_EQ(model.engine->evalCount, evaluations + 3);
  EXPECT_FALSE(model.engine->leanEval);
  scheduler->advance(5);
  EXPECT_EQ(model.engine->evalCount, evaluations + 3);  // and nothing more
}

TEST(RenderRequest, CompSizeFollowsTheFirstPictureCappedAt4096) {
  EXPECT_EQ(AppModel::fullCompSize(6000, 4000), (CompSize{4096, 2730}));
  EXPECT_EQ(AppModel::fullCompSize(1920, 1080), (CompSize{1920, 1080}));
  EXPECT_EQ(AppModel::fullCompSize(4000, 9000), (CompSize{1820, 4096}));
  EXPECT_EQ(AppModel::fullCompSize(10000, 1), (CompSize{4096, 1}));

  auto scheduler = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = true, .scheduler = scheduler});
  ASSERT_TRUE(model.engine);
  MediaItem big;
  big.id = Uuid::generate();
  big.width = 6000;
  big.height = 4000;
  model._media.push_back(big);
  Node media(NodeKind::media());
  media.mediaID = big.id;
  model._nodes.push_back(media);
  model._previewScale = 0.5;
  model.recomputeComp();
  EXPECT_EQ(model._compSize, (CompSize{4096, 2730}));  // the full size, whatever the preview scale
  EXPECT_EQ(model.engine->compW, 2048);
  EXPECT_EQ(model.engine->compH, 1365);
  EXPECT_FLOAT_EQ(model.engine->pxScale, 0.5f);
}

TEST(RenderRequest, LostDeviceFallsBackToTheCpuKeepingTheDocument) {
  auto scheduler = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = true, .scheduler = scheduler});
  ASSERT_TRUE(model.engine);
  scheduler->runAll();
  const Uuid source = Uuid::generate();
  model.engine->addSource(SampleImage::make(32, 18), source);
  const auto nodes = model._nodes;
  const Engine* before = model.engine.get();

  model.engine->device().reportFailure("périphérique GPU perdu");
  model.requestRender();
  scheduler->runAll();  // the failed render, then the one on the new engine

  ASSERT_TRUE(model.engine);
  EXPECT_NE(model.engine.get(), before);
  EXPECT_TRUE(model.engine->device().info().cpu);
  EXPECT_FALSE(model.engine->device().failed());
  EXPECT_TRUE(model.engine->hasSource(source));
  EXPECT_EQ(model._nodes, nodes);
  EXPECT_EQ(model._status, "Erreur GPU (périphérique GPU perdu) : le rendu continue sur le processeur.");
  EXPECT_GT(model.engine->evalCount, 0);  // it rendered again
}
