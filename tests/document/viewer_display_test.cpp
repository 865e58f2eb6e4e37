// What the viewer evaluates and which textures its display pass gets: lean renders keep the
// selection and the rush, channels show the feed, comparison and matte overlay pair the right
// pictures, Esc and \ step through the views; when renders are asked for, at what size, and a
// lost GPU device.
#include <gtest/gtest.h>

#include <fstream>

#include "temp_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "gpu/device.h"
#include "platform/user_defaults.h"

using namespace ombrik;

namespace {
// media → colour → output, with a blur and an AI matte on side branches of the media.
struct Desk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> m;
  Uuid output, media, color, blur, mask, mediaID = Uuid::generate();

  Desk() {
    m = std::make_unique<AppModel>(test::tempModelOptions(dir, clock));
    EXPECT_TRUE(m->engine) << m->_status;
    output = m->_nodes.front().id;
    m->engine->addSource(SampleImage::make(32, 18), mediaID);
    MediaItem item;
    item.id = mediaID, item.width = 32, item.height = 18;
    m->_media.push_back(item);
    media = m->addNode(NodeKind::media(), {0, 0});
    m->setMedia(media, mediaID);
    color = m->addNode(NodeKind::color(), {200, 0});
    blur = m->addNode(*NodeKind::find("blur"), {200, 200});
    mask = m->addNode(*NodeKind::find("magicmask"), {200, 400});  // an AI matte: black until computed
    m->connect(media, color, 0, 0);
    m->connect(color, output, 0, 0);
    m->connect(media, blur, 0, 0);
    m->connect(media, mask, 0, 0);
    m->select(std::nullopt);
    render();
  }
  void render() {
    m->requestRender();
    clock->runAll();  // the lean render only: the full one waits 0.8 s
  }
  bool evaluated(const Uuid& id) const { return m->engine->outputs.count(id) > 0; }
  Engine::Tex result(const Uuid& id) const { return m->engine->outputs.at(id); }
};
}  // namespace

TEST(ViewerDisplay, LeanRendersKeepWhatIsOnScreenAndTheFullRenderFollows) {
  Desk d;
  AppModel& m = *d.m;
  EXPECT_TRUE(d.evaluated(d.output));
  EXPECT_FALSE(d.evaluated(d.blur)) << "a side branch nobody looks at waits for the full render";
  m.select(d.blur);
  d.render();
  EXPECT_TRUE(d.evaluated(d.blur)) << "the selected node is on screen";
  EXPECT_EQ(m.viewerState().main, d.result(d.blur));
  m.select(std::nullopt);
  d.render();
  EXPECT_FALSE(d.evaluated(d.mask));
  const int thumbs = m.thumbsVersion;
  d.clock->advance(0.8);
  EXPECT_TRUE(d.evaluated(d.mask)) << "the whole graph, a moment after the last change";
  EXPECT_EQ(m.thumbsVersion, thumbs + 1) << "and the nodes' pictures with it";
  for (const Uuid& id : {d.media, d.color, d.blur, d.mask, d.output}) EXPECT_TRUE(m.nodeThumbs.count(id));

  // Full view evaluates the displayed node's tree only.
  m.select(d.color);
  m.flameView(4);
  d.render();
  EXPECT_TRUE(d.evaluated(d.color));
  EXPECT_FALSE(d.evaluated(d.blur));
  EXPECT_FALSE(d.evaluated(d.output));
}

TEST(ViewerDisplay, ChannelsShowTheFeedAndTheAlphaAndComparisonPairsTheResultWithItsRush) {
  Desk d;
  AppModel& m = *d.m;
  m.select(d.color);
  d.render();
  Engine::Tex result = d.result(d.color), rush = d.result(d.media);
  EXPECT_EQ(m.viewerState().main, result);
  m.flameView(1);
  d.render();
  EXPECT_EQ(m.viewerState().main, rush) << "F1: what feeds the node";
  m.flameView(2);
  d.render();
  EXPECT_EQ(m.viewerState().main, rush) << "no Back input: the source again";
  m.flameView(3);
  d.render();
  ASSERT_TRUE(m.engine->viewAlpha);
  EXPECT_EQ(m.viewerState().main, m.engine->viewAlpha);

  // Esc leaves full view first, then the channel.
  EXPECT_TRUE(m.escapeView());
  EXPECT_FALSE(m._viewerFull);
  EXPECT_EQ(m._viewChannel, 3);
  EXPECT_TRUE(m.escapeView());
  EXPECT_EQ(m._viewChannel, 4);
  EXPECT_FALSE(m.escapeView());
  d.render();
  EXPECT_EQ(m.viewerState().main, d.result(d.color));

  // A Back input takes channel 2 when wired.
  const Uuid merge = m.addNode(*NodeKind::find("merge"), {400, 0});
  m.connect(d.color, merge, 0, 0);
  m.connect(d.blur, merge, 1, 0);
  ASSERT_TRUE(m.channelSource(merge, 2));
  EXPECT_EQ(m.channelSource(merge, 2)->from, d.blur);
  EXPECT_EQ(m.channelSource(merge, 1)->from, d.color);
  m.select(merge);
  m.setViewChannel(2);
  d.render();
  EXPECT_EQ(m.viewerState().main, d.result(d.blur));

  // Comparison pairs the result with its rush.
  m.setViewChannel(4);
  m.select(d.color);
  d.render();
  result = d.result(d.color), rush = d.result(d.media);
  m.toggleBefore();  // the \ key
  EXPECT_TRUE(m.isCompare());
  EXPECT_EQ(m.viewerState().main, rush) << "toggle style, before side";
  m.toggleBefore();
  EXPECT_EQ(m.viewerState().main, result);

  m.setCompareStyle(1);
  AppModel::ViewerState wipe = m.viewerState();
  EXPECT_EQ(wipe.mode, 2);
  EXPECT_EQ(wipe.main, result);
  EXPECT_EQ(wipe.before, rush);
  m.setWipe(1.7);
  EXPECT_EQ(m._wipe, 1.0);
  m.setCompareStyle(2);
  EXPECT_EQ(m.viewerState().mode, 3);
  m.setCompareMode(false);
  EXPECT_EQ(m.viewerState().mode, 0);
  EXPECT_EQ(m.defaults().integer("compareStyle"), 2) << "the style is remembered";

  // A matte on screen is laid over its picture, unless the bare matte is asked for.
  m.select(d.mask);
  d.render();
  AppModel::ViewerState overlay = m.viewerState();
  EXPECT_EQ(overlay.mode, 1);
  EXPECT_EQ(overlay.main, d.result(d.mask));
  EXPECT_EQ(overlay.before, rush);
  m._showMatte = true;
  EXPECT_EQ(m.viewerState().mode, 0);
}

// The world's LUT reaches the viewer's pictures, and rendered frames only when the world asks for
// it at render; the graph's results keep their colours. A cube that rotates the channels (exact
// under trilinear lookup, being linear) turns the output's (r, g, b) into (g, b, r).
TEST(ViewerDisplay, TheWorldsLutColoursTheViewerAndRendersWhenAsked) {
  Desk d;
  AppModel& m = *d.m;
  const auto cube = d.dir.path / "rotation.cube";
  {
    std::ofstream out(cube);
    out << "LUT_3D_SIZE 2\n";
    for (int b = 0; b < 2; ++b)
      for (int g = 0; g < 2; ++g)
        for (int r = 0; r < 2; ++r) out << g << ' ' << b << ' ' << r << '\n';
  }
  m.select(d.output);
  d.render();
  const auto plain = m.engine->readPixels(m.viewerState().main);
  m.setWorldLUT(*m._currentBatchID, cube.string());
  d.render();
  const AppModel::ViewerState shown = m.viewerPictures();
  ASSERT_TRUE(shown.main && shown.main != d.result(d.output));
  const auto graded = m.engine->readPixels(shown.main);
  ASSERT_EQ(graded.size(), plain.size());
  for (std::size_t i = 0; i < plain.size(); i += 4 * 37)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(graded[i + c], plain[i + (c + 1) % 3], 2e-3) << i << " " << c;
  EXPECT_EQ(m.engine->readPixels(d.result(d.output)), plain) << "the graph's own result keeps its colours";
  EXPECT_EQ(m.deliveredPicture(d.result(d.output)), d.result(d.output)) << "not at render unless asked";
  m.toggleWorldLUTRender(*m._currentBatchID);
  EXPECT_EQ(m.engine->readPixels(m.deliveredPicture(d.result(d.output))), graded);
  m.setWorldLUT(*m._currentBatchID, "");
  EXPECT_EQ(m.viewerPictures().main, m.viewerState().main);

  // The world's LUT goes with the view, except on an alpha or a matte overlay.
  EXPECT_FALSE(m.viewerState().lut);
  for (auto& b : m._batches) b.lut = "auto:slog3";
  EXPECT_EQ(m.viewerState().lut, std::optional<std::string>("auto:slog3"));
  m.setViewChannel(3);
  EXPECT_FALSE(m.viewerState().lut) << "an alpha is shown as it is";
  m.setViewChannel(4);
  m.select(d.mask);
  d.render();
  EXPECT_FALSE(m.viewerState().lut) << "nor a matte overlay";
}

TEST(RenderRequest, ChangesCollapseIntoOneLeanEvaluationTheFullOneFollowsAndTheCompIsCapped) {
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

  // The comp takes the first picture's size, capped at 4096, whatever the preview scale.
  EXPECT_EQ(AppModel::fullCompSize(6000, 4000), (CompSize{4096, 2730}));
  EXPECT_EQ(AppModel::fullCompSize(1920, 1080), (CompSize{1920, 1080}));
  EXPECT_EQ(AppModel::fullCompSize(4000, 9000), (CompSize{1820, 4096}));
  EXPECT_EQ(AppModel::fullCompSize(10000, 1), (CompSize{4096, 1})) << "never under a pixel";
  MediaItem big;
  big.id = Uuid::generate(), big.width = 6000, big.height = 4000;
  model._media.push_back(big);
  Node media(NodeKind::media());
  media.mediaID = big.id;
  model._nodes.push_back(media);
  model._previewScale = 0.5;
  model.recomputeComp();
  EXPECT_EQ(model._compSize, (CompSize{4096, 2730}));
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
