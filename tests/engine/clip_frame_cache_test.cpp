// The memory caches of files read during an evaluation (clip frames, raw frames, stills) and the
// purges that make a rewritten file visible.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>

#include "../platform/temp_dir.h"
#include "../media/test_clips.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;
namespace fs = std::filesystem;

namespace {

constexpr int kW = test::kClipW, kH = test::kClipH, kFrames = 20;
int rising(int frame) { return 16 + 12 * frame; }    // 16..244
int falling(int frame) { return 244 - 12 * frame; }  // never equal to rising() at the same frame

// H.264 with B-frames, so that reading out of order has to seek and reorder.
bool encode(const fs::path& out, int (*level)(int)) {
  return !test::writeClip(out, "-c:v libx264 -g 10 -bf 2 -pix_fmt yuv420p", false, kFrames, level).empty();
}

// Mean of one channel over a whole texture, in 0..255.
double meanLevel(Engine& e, const Engine::Tex& t, int channel = 1) {
  const std::vector<float> px = e.readPixels(t);
  if (px.empty()) return -1;
  double sum = 0;
  for (std::size_t i = channel; i < px.size(); i += 4) sum += px[i];
  return sum / double(px.size() / 4) * 255.0;
}

// The frame of a clip written with `level` that a texture shows; -1 when it shows none of them.
int frameShown(Engine& e, const Engine::Tex& t, const std::function<int(int)>& level) {
  if (!t || t->width() != kW || t->height() != kH) return -1;
  const double grey = meanLevel(e, t);
  for (int f = 0; f < kFrames; ++f)
    if (std::abs(grey - level(f)) < 4.0) return f;  // the codec's error, well under the 12 between frames
  return -1;
}

class ClipFrameCacheTest : public EngineTest {
protected:
  void SetUp() override {
    EngineTest::SetUp();
    engine().setComp(kW, kH, true);
    engine().purgeVideoFrames();
  }
  TempDir dir;
};

}  // namespace

TEST_F(ClipFrameCacheTest, FramesAreExactInAnyOrderKeptTwelvePurgedAndNoneFromBadFiles) {
  Engine& e = engine();
  const fs::path clip = dir.path / "clip.mp4";
  ASSERT_TRUE(encode(clip, rising)) << "the ffmpeg program could not write the clip";

  // Forward, as in playback: every frame after the first comes from the one read ahead.
  for (int f = 0; f < kFrames; ++f) EXPECT_EQ(frameShown(e, e.videoFrame(clip, f), rising), f) << "forward " << f;

  // Out of order, each frame new to the cache: reads that seek, restart, and read on.
  e.purgeVideoFrames();
  // Jumps both ways, steps on after a jump, a step back; every frame once.
  const int order[] = {13, 14, 15, 3, 9, 10, 0, 19, 18, 7, 8, 17, 1, 2, 11, 5, 16, 4, 12, 6};
  for (int f : order) EXPECT_EQ(frameShown(e, e.videoFrame(clip, f), rising), f) << "out of order " << f;

  // A frame asked again is the same texture; past the ends are the end frames under their keys.
  const auto last = e.videoFrame(clip, kFrames - 1), first = e.videoFrame(clip, 0);
  ASSERT_TRUE(last && first);
  EXPECT_EQ(e.videoFrame(clip, kFrames - 1), last);
  EXPECT_EQ(e.videoFrame(clip, kFrames + 500), last);
  EXPECT_EQ(e.videoFrame(clip, -3), first);
  e.purgeVideoFrames();
  EXPECT_EQ(frameShown(e, e.videoFrame(clip, 1000), rising), kFrames - 1);
  EXPECT_EQ(frameShown(e, e.videoFrame(clip, -1), rising), 0);

  // Twelve frames are kept, the oldest leaving first.
  e.purgeVideoFrames();
  std::vector<Engine::Tex> held;
  for (int f = 0; f < 13; ++f) held.push_back(e.videoFrame(clip, f));
  EXPECT_EQ(e.videoFrameCount(), 12u);
  // Kept: the same texture again. Not the first: read and conformed anew, still the right frame.
  EXPECT_EQ(e.videoFrame(clip, 12), held[12]);
  EXPECT_EQ(e.videoFrame(clip, 1), held[1]);
  const auto again = e.videoFrame(clip, 0);
  EXPECT_NE(again, held[0]);
  EXPECT_EQ(frameShown(e, again, rising), 0);
  EXPECT_EQ(e.videoFrameCount(), 12u);
  // Frames leave in the order they came, whatever was asked since: 1 went for 0, 2 is still there.
  EXPECT_EQ(e.videoFrame(clip, 2), held[2]);
  const auto reread = e.videoFrame(clip, 1);
  EXPECT_NE(reread, held[1]);
  EXPECT_EQ(frameShown(e, reread, rising), 1);

  // Purged, the clip is read again from its file, rewritten meanwhile.
  e.purgeVideoFrames();
  const auto before = e.videoFrame(clip, 4);
  EXPECT_EQ(frameShown(e, before, rising), 4);
  e.videoFrame(clip, 5);  // leaves a reader and a frame read ahead behind
  e.purgeVideoFrames();
  EXPECT_EQ(e.videoFrameCount(), 0u);

  ASSERT_TRUE(encode(clip, falling));
  for (int f : {4, 5, 6, 7, 0, 19}) EXPECT_EQ(frameShown(e, e.videoFrame(clip, f), falling), f) << f;
  EXPECT_NE(e.videoFrame(clip, 4), before);

  // The frame is conformed to the comp: at another size it is another texture of that size.
  e.setComp(32, 32, false);
  const auto square = e.videoFrame(clip, 3);
  ASSERT_TRUE(square);
  EXPECT_EQ(std::pair(square->width(), square->height()), std::pair(32, 32));
  EXPECT_NEAR(meanLevel(e, square), falling(3) * 18.0 / 32.0, 4.0);  // letterboxed: 18 of 32 rows

  // Unreadable clips give nothing, and the engine goes on.
  e.purgeVideoFrames();
  std::ofstream(dir.path / "x.mp4", std::ios::binary) << std::string(1024, '\x47');
  std::ofstream(dir.path / "empty.mp4").close();
  fs::create_directories(dir.path / "folder.mp4");
  for (const char* name : {"x.mp4", "empty.mp4", "absent.mp4", "folder.mp4", ""})
    EXPECT_EQ(e.videoFrame(dir.path / name, 0), nullptr) << name;
  EXPECT_EQ(e.videoFrame(dir.path / "x.mp4", 5), nullptr);  // asked again: still nothing
  EXPECT_EQ(e.videoFrameCount(), 0u);

  e.setComp(0, 0, true);  // no comp: nothing to conform to
  EXPECT_EQ(e.videoFrame(clip, 2), nullptr);
  e.setComp(kW, kH, true);
  EXPECT_EQ(frameShown(e, e.videoFrame(clip, 2), falling), 2);
}

TEST_F(ClipFrameCacheTest, RawAndStillCachesKeepTheirFilesUntilPurged) {
  Engine& e = engine();
  auto writeFlat = [&](const fs::path& path, float grey) {
    const auto t = e.conformed(flat(kW, kH, {grey, grey, grey, 1}));
    return t && e.writeRaw(t, path);
  };
  // "shot2" begins like "shot": the folder's own separator keeps it out of the purge.
  for (const char* folder : {"shot", "shot2"}) fs::create_directories(dir.path / folder);
  const fs::path a = dir.path / "shot" / "00001.dn", b = dir.path / "shot2" / "00001.dn";
  ASSERT_TRUE(writeFlat(a, 0.25f));
  ASSERT_TRUE(writeFlat(b, 0.75f));
  const auto aFull = e.rawNoise(a, false), aCapped = e.rawNoise(a, true), bFull = e.rawNoise(b, false);
  ASSERT_TRUE(aFull && aCapped && bFull);
  EXPECT_NEAR(meanLevel(e, aFull), 0.25 * 255, 0.5);

  // Rewritten without a purge: the cache still answers.
  ASSERT_TRUE(writeFlat(a, 0.5f));
  EXPECT_EQ(e.rawNoise(a, false), aFull);

  e.purgeRaw((dir.path / "shot").string() + "/");
  const auto aNew = e.rawNoise(a, false), aNewCapped = e.rawNoise(a, true);
  ASSERT_TRUE(aNew && aNewCapped);
  EXPECT_NE(aNew, aFull);
  EXPECT_NE(aNewCapped, aCapped);
  EXPECT_NEAR(meanLevel(e, aNew), 0.5 * 255, 0.5);
  EXPECT_NEAR(meanLevel(e, aNewCapped), 0.5 * 255, 0.5);
  EXPECT_EQ(e.rawNoise(b, false), bFull);

  e.purgeRaw("no such prefix");
  EXPECT_EQ(e.rawNoise(b, false), bFull);
  EXPECT_EQ(e.rawNoise(a, false), aNew);

  // The still cache keeps one size per file and sees new dates.
  e.purgeImageCache();
  EXPECT_EQ(e.imageCacheBytes(), 0u);
  const fs::path still = dir.path / "still.png";
  ASSERT_TRUE(e.export_(e.conformed(flat(kW, kH, {0.2f, 0.2f, 0.2f, 1})), still));

  const auto big = e.cachedImage(still, 8, 6);
  ASSERT_TRUE(big);
  EXPECT_EQ(std::pair(big->width(), big->height()), std::pair(8, 6));
  EXPECT_NEAR(meanLevel(e, big), 51, 1.0);  // 0.2 of 255, through an 8-bit file
  EXPECT_EQ(e.imageCacheBytes(), 8u * 6 * 8);
  EXPECT_EQ(e.cachedImage(still, 8, 6), big);
  const auto small = e.cachedImage(still, 3, 2);
  ASSERT_TRUE(small);
  EXPECT_EQ(e.imageCacheBytes(), 3u * 2 * 8);  // the first size went
  EXPECT_NE(e.cachedImage(still, 8, 6), big);   // and is loaded again
  EXPECT_EQ(e.imageCacheBytes(), 8u * 6 * 8);

  // Rewritten: seen through its date, not its content.
  const auto current = e.cachedImage(still, 8, 6);
  const auto date = fs::last_write_time(still);
  ASSERT_TRUE(e.export_(e.conformed(flat(kW, kH, {0.6f, 0.6f, 0.6f, 1})), still));
  fs::last_write_time(still, date);
  EXPECT_EQ(e.cachedImage(still, 8, 6), current);
  fs::last_write_time(still, date + std::chrono::hours(1));
  const auto fresh = e.cachedImage(still, 8, 6);
  ASSERT_TRUE(fresh);
  EXPECT_NE(fresh, current);
  EXPECT_NEAR(meanLevel(e, fresh), 153, 1.0);
  EXPECT_EQ(e.imageCacheBytes(), 8u * 6 * 8);

  // The purge empties the stills, the pool and the raw frames.
  const fs::path raw = dir.path / "00001.dn";
  ASSERT_TRUE(e.writeRaw(fresh, raw));
  const auto rawBefore = e.rawNoise(raw, false);
  e.tex(Uuid::generate(), 0);
  EXPECT_GT(e.poolSize(), 0u);
  e.purgeImageCache();
  EXPECT_EQ(e.imageCacheBytes(), 0u);
  EXPECT_EQ(e.poolSize(), 0u);
  EXPECT_NE(e.cachedImage(still, 8, 6), fresh);
  EXPECT_NE(e.rawNoise(raw, false), rawBefore);
}
