// Clips written by the test itself, each frame a flat grey of its own level, read back in any order.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <tuple>

#include "../platform/temp_dir.h"
#include "test_clips.h"
#include "engine/half_float.h"
#include "media/frame_reader.h"

using namespace ombrik;
namespace fs = std::filesystem;

using test::frameShown;
constexpr int kW = test::kClipW, kH = test::kClipH, kFrames = test::kClipFrames;

TEST(FrameReader, ClipsAndSequencesAreFrameExact) {
  TempDir dir;
  const std::pair<const char*, const char*> cases[] = {
      {"clip.mp4", "-c:v libx264 -g 10 -bf 2 -pix_fmt yuv420p"},  // H.264 with B-frames
      {"clip.mov", "-c:v prores_ks -profile:v 3"},
      {"plate_%04d.png", "-f image2 -start_number 0"},  // a numbered sequence opens by its pattern
  };
  for (const auto& [name, codec] : cases) {
    SCOPED_TRACE(name);
    const fs::path clip = test::writeClip(dir.path / name, codec);
    ASSERT_FALSE(clip.empty()) << "the ffmpeg program could not write the clip";
    std::string error;
    auto reader = FrameReader::open(clip, &error);
    ASSERT_TRUE(reader) << error;
    const ClipInfo info = reader->info();
    EXPECT_EQ(std::tuple(info.width, info.height, info.fps, info.frames), std::tuple(kW, kH, 25.0, kFrames));
    const auto shown = [&](int f) { auto p = reader->read(f); return p ? frameShown(*p) : -2; };  // -2: no picture
    for (int f = 0; f < kFrames; ++f) EXPECT_EQ(shown(f), f) << "sequential " << f;
    EXPECT_LE(reader->seeks(), 0);  // reading on never seeks
    for (int f : {17, 3, 39, 0, 25, 25, 26, 9, 38, 12, 11, 30, 1}) EXPECT_EQ(shown(f), f) << "after a seek to " << f;
    EXPECT_EQ(shown(500), kFrames - 1) << "past the end: the last frame";
  }
}

TEST(FrameReader, RotationIsAppliedForDisplay) {
  TempDir dir;
  // The display matrix is written when the tag is set on a remux, as phones' clips carry it.
  const fs::path plain = test::writeClip(dir.path / "plain.mp4", "-c:v libx264 -pix_fmt yuv420p -crf 0", true);
  const fs::path clip = dir.path / "turned.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -i '" + plain.string() + "' -c copy -metadata:s:v:0 rotate=90 '" +
                         clip.string() + "'").c_str()), 0);
  auto reader = FrameReader::open(clip);
  ASSERT_TRUE(reader);
  EXPECT_TRUE(reader->info().rotation == 90 || reader->info().rotation == 270) << reader->info().rotation;
  EXPECT_EQ(reader->info().width, kH);  // shown upright
  EXPECT_EQ(reader->info().height, kW);
  auto p = reader->read(5);
  ASSERT_TRUE(p);
  ASSERT_EQ(p->width, kH);
  // The ffmpeg program turns clips for display by itself: our picture must be its picture.
  // (Every frame of this clip is the same ramp, so the first one the program decodes will do.)
  FILE* pipe = popen(("ffmpeg -v error -i '" + clip.string() + "' -frames:v 1 -f rawvideo -pix_fmt gray -").c_str(), "r");
  ASSERT_TRUE(pipe);
  std::vector<unsigned char> want(kW * kH);
  const std::size_t got = fread(want.data(), 1, want.size(), pipe);
  pclose(pipe);
  ASSERT_EQ(got, want.size());
  int off = 0;
  for (int i = 0; i < kW * kH; ++i)
    off += std::abs(halfToFloat((*p->rgba)[std::size_t(i) * 4 + 1]) * 255.0f - want[i]) > 4.0f;
  EXPECT_LE(off, kW * kH / 50) << "orientation differs from the ffmpeg program's";

  // A size limit is for the picture as displayed, the aspect kept, and the held frame follows it.
  reader->setSizeLimit(100, 32);
  auto small = reader->read(5);
  ASSERT_TRUE(small);
  EXPECT_EQ(small->width, kH * 32 / kW);
  EXPECT_EQ(small->height, 32);
}

TEST(FrameReader, BadFilesFailCleanly) {
  TempDir dir;
  std::string error;
  std::ofstream(dir.path / "empty.mp4").close();
  EXPECT_FALSE(FrameReader::open(dir.path / "empty.mp4", &error));
  EXPECT_EQ(error, "Vidéo illisible : empty.mp4 (fichier vide)");
  std::ofstream(dir.path / "noise.mov") << std::string(5000, '\x5a');
  EXPECT_FALSE(FrameReader::open(dir.path / "noise.mov", &error));
  EXPECT_FALSE(FrameReader::open(dir.path / "absent.mov", &error));

  // A clip cut in half still opens; reading it never crashes, and what it gives is a true frame.
  const fs::path clip = test::writeClip(dir.path / "cut.mp4", "-c:v libx264 -g 10 -pix_fmt yuv420p -movflags +faststart");
  ASSERT_FALSE(clip.empty());
  fs::resize_file(clip, fs::file_size(clip) / 2);
  if (auto reader = FrameReader::open(clip)) {
    for (int f : {0, 5, 39, 20})
      if (auto p = reader->read(f)) {
        EXPECT_GE(frameShown(*p), 0) << f;
      }
  }
}

TEST(FrameReader, FarSeeksAndSizeLimitsInALongClipAreFrameExact) {
  TempDir dir;
  // 80 frames of levels 10 + 3 i, encoded losslessly so that three apart is plenty.
  const auto level = [](int i) { return 10 + 3 * i; };
  auto reader =
      FrameReader::open(test::writeClip(dir.path / "long.mp4", "-c:v libx264 -qp 0 -g 10 -bf 3 -pix_fmt yuvj420p", false, 80, level));
  ASSERT_TRUE(reader);
  ASSERT_EQ(reader->info().frames, 80);
  // Far jumps both ways seek; short steps forward read on; the same frame again is free.
  const int order[] = {70, 17, 79, 20, 21, 25, 24, 79, 30, 3, 78, 60, 60, 9, 55};
  int seeksBefore = 0;
  for (int f : order) {
    seeksBefore = reader->seeks();
    auto p = reader->read(f);
    ASSERT_TRUE(p) << f;
    EXPECT_NEAR(test::meanGrey(*p), level(f), 1.2) << f;
  }
  EXPECT_EQ(reader->seeks(), seeksBefore) << "reading frame 55 after 9 reads on";
  EXPECT_GE(reader->seeks(), 8);

  // A size limit keeps the frames and shrinks the pictures, never enlarging them.
  reader->setSizeLimit(kW / 2, kH);  // width decides
  for (int f : {3, 4, 20, 9}) {
    auto p = reader->read(f);
    ASSERT_TRUE(p);
    EXPECT_EQ(std::pair(p->width, p->height), std::pair(kW / 2, kH / 2));
    EXPECT_NEAR(test::meanGrey(*p), level(f), 1.2) << f;
  }
  reader->setSizeLimit(0, 0);
  EXPECT_EQ(reader->read(9)->width, kW) << "the same frame again, at full size";
  reader->setSizeLimit(4 * kW, 4 * kH);
  EXPECT_EQ(reader->read(10)->width, kW) << "never enlarged";
}
