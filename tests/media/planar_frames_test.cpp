// Frames handed to the engine as the decoder's planes and converted on the device match the
// frames the CPU path converts, for the usual layouts, depths, ranges and matrices.
#include <cmath>
#include <cstdlib>

#include "../engine/engine_fixture.h"
#include "media/frame_reader.h"
#include "platform/temp_dir.h"

using namespace ombrik;
using namespace ombrik::test;
namespace fs = std::filesystem;

class PlanarFrames : public EngineTest {};

TEST_F(PlanarFrames, DeviceConversionMatchesTheCpuPath) {
  TempDir dir;
  struct Case {
    const char* name;
    const char* options;  // after the colourful source
    double worst;         // the largest difference allowed on a channel
    const char* size = "96x64";
  };
  // Where chroma has all its rows the two paths agree to the 16-bit rounding of the CPU one; with
  // half the rows they interpolate rows differently at the pattern's hard chroma edges.
  const Case cases[] = {
      {"h264.mp4", "-c:v libx264 -qp 0 -pix_fmt yuv420p", 0.4},                     // 4:2:0, SD: BT.601
      {"hd.mp4", "-c:v libx264 -qp 0 -pix_fmt yuv420p -vf scale=1280:720", 0.06},  // untagged HD: BT.709
      {"prores.mov", "-c:v prores_ks -profile:v 3 -pix_fmt yuv422p10le", 0.006},   // 10 bits in 16
      {"full.mov", "-c:v mjpeg -q:v 1 -pix_fmt yuvj444p", 0.006},                  // full range
      {"bt2020.mkv", "-c:v libx264 -qp 0 -pix_fmt yuv444p -colorspace bt2020nc", 0.006},
      // Rows that end partway through a thread's pixels, at both fits.
      {"odd.mp4", "-c:v libx264 -qp 0 -pix_fmt yuv420p", 0.4, "106x70"},
      {"odd.mov", "-c:v prores_ks -profile:v 3 -pix_fmt yuv422p10le", 0.006, "102x66"},
  };
  Engine& e = engine();
  for (const auto& c : cases) {
    const fs::path clip = dir.path / c.name;
    const std::string cmd = "ffmpeg -v error -y -f lavfi -i testsrc2=size=" + std::string(c.size) +
                            ":rate=25:duration=0.2 " + std::string(c.options) + " '" + clip.string() + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << c.name;
    auto cpu = FrameReader::open(clip), dev = FrameReader::open(clip);
    ASSERT_TRUE(cpu && dev) << c.name;
    dev->setPlanar(true);
    auto a = cpu->read(2), b = dev->read(2);
    ASSERT_TRUE(a && b) << c.name;
    ASSERT_TRUE(b->planar) << c.name << ": planes expected";
    ASSERT_FALSE(a->planar);
    // At the clip's size and at half of it (the playback preview).
    for (int div : {1, 2}) {
      e.setComp(a->width / div, a->height / div, true);
      const auto pa = e.readPixels(e.conformed(*a)), pb = e.readPixels(e.conformed(*b));
      ASSERT_EQ(pa.size(), pb.size()) << c.name;
      double sum = 0, worst = 0;
      for (std::size_t i = 0; i < pa.size(); ++i) {
        const double d = std::abs(pa[i] - pb[i]);
        sum += d;
        worst = std::max(worst, d);
      }
      const double mean = sum / double(pa.size());
      EXPECT_LT(mean, 0.012) << c.name << " at 1/" << div;
      EXPECT_LT(worst, c.worst) << c.name << " at 1/" << div;
    }
  }
}
