// A real clip from a Debian package (opencv-doc's MPEG-4 sample clip), decoded end to end and
// compared with what the ffmpeg program decodes from the same file.
#include <gtest/gtest.h>

#include <cstdio>

#include "engine/half_float.h"
#include "media/frame_reader.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

const fs::path kSample = "/usr/share/doc/opencv-doc/examples/data/Megamind.avi";

// Frame `n` as the ffmpeg program decodes it, 16-bit RGB.
std::vector<std::uint16_t> ffmpegFrame(int n, int w, int h) {
  const std::string cmd = "ffmpeg -v error -i '" + kSample.string() + "' -vf 'select=eq(n\\," + std::to_string(n) +
                          ")' -frames:v 1 -f rawvideo -pix_fmt rgb48le -";
  std::vector<std::uint16_t> px(std::size_t(w) * h * 3);
  FILE* pipe = popen(cmd.c_str(), "r");
  if (!pipe) return {};
  const std::size_t got = fread(px.data(), 2, px.size(), pipe);
  pclose(pipe);
  if (got != px.size()) px.clear();
  return px;
}

// Mean absolute difference on 0..255 between our picture and the program's.
double meanDifference(const SourcePicture& ours, const std::vector<std::uint16_t>& theirs) {
  double sum = 0;
  const std::size_t n = std::size_t(ours.width) * ours.height;
  for (std::size_t i = 0; i < n; ++i)
    for (int c = 0; c < 3; ++c) sum += std::abs(halfToFloat((*ours.rgba)[i * 4 + c]) - theirs[i * 3 + c] / 65535.0f);
  return sum / double(n * 3) * 255.0;
}

}  // namespace

TEST(SampleClip, DecodesEndToEndLikeTheFfmpegProgram) {
  ASSERT_TRUE(fs::exists(kSample)) << "scripts/setup installs opencv-doc";
  std::string error;
  auto reader = FrameReader::open(kSample, &error);
  ASSERT_TRUE(reader) << error;
  const ClipInfo info = reader->info();
  EXPECT_EQ(info.width, 720);
  EXPECT_EQ(info.height, 528);
  EXPECT_EQ(info.frames, 270);
  EXPECT_NEAR(info.fps, 23.976, 0.001);

  // Every frame in order, then three again after seeks: a seek gives the very pixels of the walk.
  std::vector<SourcePicture> kept(3);
  const int probes[3] = {0, 135, 269};
  for (int f = 0; f < info.frames; ++f) {
    auto p = reader->read(f);
    ASSERT_TRUE(p) << "frame " << f;
    for (int k = 0; k < 3; ++k)
      if (probes[k] == f) kept[k] = *p;
  }
  EXPECT_EQ(reader->seeks(), 0);
  for (int k : {2, 0, 1}) {
    auto again = reader->read(probes[k]);
    ASSERT_TRUE(again);
    EXPECT_EQ(*again->rgba, *kept[k].rgba) << "frame " << probes[k] << " after a seek";
  }
  for (int k = 0; k < 3; ++k) {
    const auto theirs = ffmpegFrame(probes[k], info.width, info.height);
    ASSERT_FALSE(theirs.empty());
    // Same decoder, different YUV to RGB paths: within a level or so on average.
    EXPECT_LT(meanDifference(kept[k], theirs), 1.5) << "frame " << probes[k];
  }
}
