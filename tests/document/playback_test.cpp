// Playback on the evaluated path: the cache fills without skipping a frame, the clock then runs
// on its own, a change of the graph refills it, stopping lands on the frame shown. Sizes and
// budgets of the cache.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

#include "../media/test_clips.h"
#include "temp_model.h"
#include "document/play_state.h"
#include "engine/engine.h"

using namespace ombrik;

namespace {

struct Fixture {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> m = std::make_unique<AppModel>(test::tempModelOptions(dir, clock));
  // An H.264 clip on a media node wired to the output, through `between` when given; the media
  // node's id, or nothing when the clip couldn't be imported.
  std::optional<Uuid> clipOnOutput(std::optional<Uuid> between = std::nullopt,
                                   const char* codec = "-c:v libx264 -g 10 -pix_fmt yuv420p") {
    if (!m->importURL(test::writeClip(dir.path / "clip.mp4", codec))) return std::nullopt;
    const Uuid out = m->_nodes.front().id;
    const Uuid media = m->addNode(NodeKind::media(), {0, 0});
    m->setMedia(media, m->_media.back().id);
    m->connect(media, between ? *between : out, 0, 0);
    if (between) m->connect(*between, out, 0, 0);
    m->select(std::nullopt);
    clock->runAll();
    return media;
  }
};

// The frame an 8-bit cached texture shows, from its mean green.
int frameOf(AppModel& m, const gpu::TexturePtr& t) {
  return test::frameOfGrey(test::meanChannel(m.engine->readPixels(t), 1) * 255.0);
}

}  // namespace

TEST(Playback, CacheSizesAndBudgets) {
  EXPECT_DOUBLE_EQ(playCacheBytes(16e9, 0), 3.6e9);
  EXPECT_DOUBLE_EQ(playCacheBytes(8e9, 0), 1e9) << "never under 1 GB";
  EXPECT_DOUBLE_EQ(playCacheBytes(128e9, 50), 40e9) << "never over 40 GB";
  EXPECT_DOUBLE_EQ(playCacheBytes(32e9, 50), 10e9);
  // A short clip fits whole at the long-side limit.
  auto s = playCacheSize(3840, 2160, 100, 2048, 3.6e9);
  EXPECT_EQ(s.width, 2048);
  EXPECT_EQ(s.height, 1152);
  // A long one shrinks so that every frame fits, never under 16.
  s = playCacheSize(1920, 1080, 10000, 2048, 3.6e9);
  EXPECT_LE(double(s.width) * s.height * 4 * 10000, 3.6e9);
  EXPECT_LT(s.width, 1920 / 2);
  s = playCacheSize(1920, 1080, 100000000, 0, 1e9);
  EXPECT_EQ(s.width, 16);
  EXPECT_EQ(s.height, 16);
}

TEST(Playback, FillsInOrderThenRunsByTheClock) {
  Fixture t;
  AppModel& m = *t.m;
  ASSERT_TRUE(m.engine);
  // media → dot → output, a colour node aside; the dot keeps the path evaluated.
  const Uuid dot = m.addNode(*NodeKind::find("dot"), {100, 0}), color = m.addNode(NodeKind::color(), {200, 0});
  ASSERT_TRUE(t.clipOnOutput(dot, "-c:v libx264 -g 10 -bf 2 -pix_fmt yuv420p"));
  const Uuid out = m._nodes.front().id;
  ASSERT_EQ(m.pbFrames(), test::kClipFrames);
  EXPECT_FALSE(m.passthroughMedia(*m.playTarget())) << "effects stand between the clip and the output";

  m._currentFrame = test::kClipFrames - 1;  // play from the last frame starts at 0
  m.togglePlay();
  ASSERT_TRUE(m._isPlaying);
  EXPECT_EQ(m._currentFrame, 0);
  // Filling: each frame takes a turn of the loop; the clock never skips one.
  std::vector<int> shown;
  for (int i = 0; i < 400 && m._cachedFrames.size() < std::size_t(test::kClipFrames); ++i) {
    t.clock->advance(0.02);
    if (shown.empty() || shown.back() != m.play->displayFrame) shown.push_back(m.play->displayFrame);
  }
  ASSERT_EQ(m._cachedFrames.size(), std::size_t(test::kClipFrames));
  for (std::size_t i = 1; i < shown.size(); ++i) EXPECT_EQ(shown[i], shown[i - 1] + 1) << "no frame skipped";
  for (int f : {0, 7, 23, 39}) EXPECT_EQ(frameOf(m, m.play->cache.at(f)), f) << "cached frame " << f;
  EXPECT_LE(m.play->cacheW, m._compSize.width);

  // Full: the clock alone decides, 25 frames a second, looping.
  const int head = m.play->head;
  t.clock->advance(1.0);
  EXPECT_NEAR((m.play->head - head + test::kClipFrames) % test::kClipFrames, 25, 1);
  EXPECT_NE(m._status.find("i/s (vidéo 25 i/s)"), std::string::npos) << m._status;

  // A change of the graph empties the cache and fills again from the clock frame.
  m.intercalate(color, m._edges.back().id);  // colour between the dot and the output
  EXPECT_TRUE(m._cachedFrames.empty());
  t.clock->runAll();  // jobs follow one another within a turn of the manual loop
  EXPECT_EQ(m._cachedFrames.size(), std::size_t(test::kClipFrames));
  EXPECT_NE(frameOf(m, m.play->cache.at(7)), 7) << "frames made again through the colour node";

  m.togglePlay();
  EXPECT_FALSE(m._isPlaying);
  EXPECT_EQ(m._currentFrame, m.play->head) << "stopping lands on the frame shown";
  EXPECT_FALSE(m.playEvalScale);

  // Scrubbing over cached frames shows them at once; the evaluated frame replaces them.
  m.seekFrame(31);
  ASSERT_TRUE(m.scrubTex);
  EXPECT_EQ(m.viewerState().main, m.play->cache.at(31));
  for (int i = 0; i < 200 && m.scrubTex; ++i) {
    t.clock->waitForThreads(0.05);
    t.clock->advance(0.01);
  }
  EXPECT_FALSE(m.scrubTex);
  EXPECT_EQ(m.viewerState().main, m.engine->outputs.at(out));
  // Seeking while playing stops first.
  m.togglePlay();
  m.seekFrame(3);
  EXPECT_FALSE(m._isPlaying);
  EXPECT_EQ(m._currentFrame, 3);
}

TEST(Playback, TheFirstPassShowsEveryFrameWhenEachTakesLongerThanAFrame) {
  Fixture t;
  AppModel& m = *t.m;
  ASSERT_TRUE(t.clipOnOutput(m.addNode(*NodeKind::find("dot"), {100, 0})));
  // Each frame blocks the loop for 0.11 s, near three frame periods at 25 fps, while the
  // play clock runs on.
  t.clock->jobSeconds = 0.11;
  m.togglePlay();
  std::vector<int> shown, made;
  for (int i = 0; i < 2000 && m._cachedFrames.size() < std::size_t(test::kClipFrames); ++i) {
    t.clock->advance(0.01);
    if (m.play->display && (shown.empty() || shown.back() != m.play->displayFrame)) shown.push_back(m.play->displayFrame);
    for (int f : m._cachedFrames)
      if (std::find(made.begin(), made.end(), f) == made.end()) made.push_back(f);
  }
  ASSERT_EQ(m._cachedFrames.size(), std::size_t(test::kClipFrames));
  for (std::size_t i = 0; i < made.size(); ++i) EXPECT_EQ(made[i], int(i)) << "frames are made in order";
  for (int i = 0; i < 50; ++i) {  // and on by the clock, from the frame on screen
    t.clock->advance(0.01);
    if (shown.back() != m.play->displayFrame) shown.push_back(m.play->displayFrame);
  }
  ASSERT_GT(shown.size(), std::size_t(test::kClipFrames));
  for (std::size_t i = 1; i < shown.size(); ++i)
    EXPECT_EQ(shown[i], (shown[i - 1] + 1) % test::kClipFrames) << "no frame skipped";
  m.togglePlay();
}

TEST(Playback, AClipShownAsItIsPlaysFromItsOwnPlayerAndFallsBackWhenTooSlow) {
  Fixture t;
  AppModel& m = *t.m;
  const std::optional<Uuid> clip = t.clipOnOutput();
  ASSERT_TRUE(clip);
  const Uuid media = *clip, out = m._nodes.front().id;
  EXPECT_EQ(m.passthroughMedia(out), m._media.back().id) << "media → output plays without the graph";
  // Hands the player's frames to the viewer for `seconds`, the manual clock keeping pace with
  // the real one (the player runs by the real clock).
  auto settle = [&](double seconds) {
    std::set<int> shown;
    for (int i = 0; i < int(seconds * 120); ++i) {
      t.clock->waitForThreads(1.0 / 120);
      t.clock->advance(1.0 / 120);
      if (m.play->display) shown.insert(m.play->displayFrame);
    }
    return shown;
  };

  m.togglePlay();
  ASSERT_TRUE(m._isPlaying);
  ASSERT_TRUE(m.play->native) << "media → output: the native path";
  const std::set<int> shown = settle(1.3);
  EXPECT_GE(shown.size(), 8u);
  EXPECT_TRUE(m._isPlaying && m.play->native) << "a small clip keeps its rate";
  EXPECT_TRUE(m._cachedFrames.empty()) << "no cache on the native path";
  ASSERT_TRUE(m.viewerState().main);
  EXPECT_EQ(m.viewerState().main->width(), m.engine->compW);

  // An effect in the way: the native path stops.
  const Uuid color = m.addNode(NodeKind::color(), {100, 0});
  m.intercalate(color, m._edges.front().id);
  EXPECT_FALSE(m._isPlaying);
  EXPECT_FALSE(m.play->native);
  m.deleteNode(color);
  m.connect(media, out, 0, 0);
  ASSERT_TRUE(m.passthroughMedia(out));

  // A clip that can't keep 80 % of its rate for 2.5 s goes to the cache. The manual clock runs
  // three seconds in a few milliseconds of real time: the player can't have shown 50 frames.
  m.togglePlay();
  ASSERT_TRUE(m.play->native);
  for (int i = 0; i < 400 && m.play->nativeSeeking; ++i) settle(0.02);  // the rewind lands, the run starts
  ASSERT_FALSE(m.play->nativeSeeking);
  t.clock->advance(3.0);
  EXPECT_TRUE(m._isPlaying);
  EXPECT_FALSE(m.play->native);
  EXPECT_TRUE(m.play->noNative);
  m.togglePlay();
  EXPECT_FALSE(m._isPlaying);
  m.connect(m.addNode(NodeKind::media(), {0, 0}), out, 1, 0);
  EXPECT_FALSE(m.passthroughMedia(out)) << "a wire on port 1 of the output";
}
