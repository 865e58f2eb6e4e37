// AI mattes read from a job's folder and refined in an evaluation, and the matte commands run outside
// one. Every expected value is computed from the formula on the values the files and textures hold.
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

#include "../platform/temp_dir.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;
namespace fs = std::filesystem;

namespace {

constexpr int W = 64, H = 36;
using Params = std::map<std::string, double>;

// A W×H PNG of `channels` 8-bit channels, f(x, y, channel) giving each byte; frame() names a job's frame f < 100.
void writePng(const fs::path& path, int channels, const std::function<int(int, int, int)>& f) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < W * H * channels; ++i) bytes.push_back(std::uint8_t(f(i / channels % W, i / channels / W, i % channels)));
  auto out = OIIO::ImageOutput::create(path.string());
  ASSERT_TRUE(out && out->open(path.string(), OIIO::ImageSpec(W, H, channels, OIIO::TypeDesc::UINT8)));
  ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, bytes.data()) && out->close());
}
fs::path frame(const fs::path& dir, int f) { return dir / ((f < 10 ? "0000" : "000") + std::to_string(f) + ".png"); }
float stored(int byte) { return h16(byte / 255.0f); }  // a file's byte as the matte texture holds it
float shaper(float v, float contrast, float grow) { return std::clamp(v * contrast + (0.5f - (0.5f - grow) * contrast), 0.0f, 1.0f); }
Px grey(float v) { return {v, v, v, 1}; }

// The pixels of px (W×H, else -1) further than tol from want in colour, of another alpha, or not grey where want is.
int mismatches(const std::vector<float>& px, const std::function<Px(int, int)>& want, float tol) {
  if (px.size() != std::size_t(W) * H * 4) return -1;
  int bad = 0;
  for (int i = 0; i < W * H; ++i) {
    const float* p = &px[std::size_t(i) * 4];
    const Px q = want(i % W, i / W);
    bad += std::fabs(p[0] - q.r) > tol || std::fabs(p[1] - q.g) > tol || std::fabs(p[2] - q.b) > tol || p[3] != q.a ||
           (q.r == q.g && q.g == q.b && (p[1] != p[0] || p[2] != p[0]));
  }
  return bad;
}

class MatteRefineTest : public EngineTest {
protected:
  // A node of `kind` reading `folder` at frame `cur`, every refinement step off unless `params` says,
  // gives the grey want(x, y) within tol.
  void expectMatte(const char* kind, const fs::path& folder, int cur, const Params& params, float tol,
                   const std::function<float(int, int)>& want) {
    engine().setComp(W, H, true);
    Node n = node(kind);
    for (const auto& [k, v] : Params{{"chatter", 0}, {"smooth", 0}, {"expand", 0}, {"feather", 0}, {"grow", 0}, {"contrast", 1}}) n.params[k] = v;
    for (const auto& [k, v] : params) n.params[k] = v;
    n.magicDirPath = folder.string();
    n.magicCur = cur;
    engine().evaluate({n}, {}, 0);
    EXPECT_EQ(mismatches(pixels(n.id), [&](int x, int y) { return grey(want(x, y)); }, tol), 0)
        << kind << " " << folder.filename() << " frame " << cur << " " << ::testing::PrintToString(params);
  }
  static Engine::Tex upload(int w, int h, const std::function<Px(int, int)>& f) {
    std::vector<std::uint16_t> halves;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        for (float v : {f(x, y).r, f(x, y).g, f(x, y).b, f(x, y).a}) halves.push_back(floatToHalf(v));
    auto t = engine().device().createTexture(w, h, gpu::Format::rgba16Float);
    engine().device().write(t, halves.data(), halves.size() * 2);
    return t;
  }
};

}  // namespace

TEST_F(MatteRefineTest, JobMattesAreRefinedByTheirFormulaAtEveryPixel) {
  TempDir dir;
  // Flat frames 0..3 for chatter, those around them missing; a value in grey (10), grey with alpha (11), the green
  // of RGB (12) and RGBA (13); a block on the left edge and a small square (14) for expand; hair in red, zone in blue (16).
  const int flat[] = {155, 128, 128, 100};
  for (int f = 0; f < 4; ++f) writePng(frame(dir.path, f), 1, [&](int, int, int) { return flat[f]; });
  auto value = [](int x, int y) { return (x * 4 + y * 3) % 256; };
  for (int ch = 1; ch <= 4; ++ch)
    writePng(frame(dir.path, 9 + ch), ch, [&](int x, int y, int c) { return c == 1 || ch == 1 ? value(x, y) : 255 - value(x, y); });
  auto inside = [](int x, int y) { return (x < 14 && y >= 8 && y < 22) || (x >= 36 && x < 44 && y >= 12 && y < 20); };
  writePng(frame(dir.path, 14), 1, [&](int x, int y, int) { return inside(x, y) ? 255 : 0; });
  auto hair = [](int x, int) { return x * 4; };
  auto zone = [](int, int y) { return y < 18 ? 255 : 102; };
  writePng(frame(dir.path, 16), 3, [&](int x, int y, int c) { return c == 0 ? hair(x, y) : c == 2 ? zone(x, y) : 17; });
  // Colour files hold layers; grey ones, with alpha or not, are one matte.
  for (int f : {10, 11, 12, 13, 30}) EXPECT_EQ(Engine::isLayeredMatte(frame(dir.path, f)), f == 12 || f == 13) << f;

  // The channel of the file, its edge shaped with contrast floored at 1, maybe inverted.
  struct Shape { float contrast, grow; bool layered = false, invert = false; };
  for (Shape s : {Shape{3, 0}, {1, 0.2f}, {5, -0.3f, true}, {2, 0.1f, true, true}, {0.5f, 0.1f}})
    expectMatte("bodymask", dir.path, s.layered ? 12 : 10, {{"contrast", s.contrast}, {"grow", s.grow}, {"invert", s.invert}}, 2e-3f,
                [&](int x, int y) { return std::fabs(s.invert - shaper(stored(value(x, y)), std::max(1.0f, s.contrast), s.grow)); });
  // Expand: the maximum (or minimum) over the digital disc, nothing below a radius of 0.5.
  for (float expand : {2.5f, 5.0f, 12.7f, 30.0f, -3.0f, -0.4f})
    expectMatte("magicmask", dir.path, 14, {{"expand", expand}}, 0, [&](int x, int y) {
      const double r = std::fabs(expand) >= 0.5f ? std::fabs(double(expand)) : 0;
      bool seen[2] = {};  // seen[v]: a pixel of the disc, edges repeated, is v
      for (int dy = -int(r); dy <= int(r); ++dy)
        for (int dx = -int(r); dx <= int(r); ++dx)
          if (dx * dx + dy * dy <= r * r) seen[inside(std::clamp(x + dx, 0, W - 1), std::clamp(y + dy, 0, H - 1))] = true;
      return float(expand > 0 ? seen[1] : !seen[0]);
    });
  // Chatter: up to three frames each side, by a Gaussian of the distance and of the difference.
  struct Chatter { int cur; float chatter; };
  for (Chatter c : {Chatter{1, 0}, {1, 0.3f}, {1, 0.34f}, {1, 0.7f}, {0, 1}, {3, 1}}) {
    const int n = std::min(3, int(c.chatter * 3));
    const double sigma = std::max(0.8, n / 1.5);
    float sum = 0, wsum = 0;
    for (int f = std::max(0, c.cur - n); f <= std::min(3, c.cur + n); ++f) {  // the current frame too, of weight 1
      const float d = (stored(flat[f]) - stored(flat[c.cur])) / 0.12f;
      const float k = float(std::exp(-(f - c.cur) * (f - c.cur) / (2 * sigma * sigma))) * std::exp(-d * d);
      sum += k * stored(flat[f]), wsum += k;
    }
    expectMatte("objectmask", dir.path, c.cur, {{"chatter", c.chatter}}, 1e-3f, [&](int, int) { return sum / wsum; });
  }
  // Hair: the shaped hair times the zone (moved by hzone), or in view the zone alone, its expand and feather skipped.
  struct Hair { float hcontrast, hzone, grow; bool view; };
  for (Hair c : {Hair{1, 0, 0, false}, {2, -0.3f, 0.1f, false}, {1, 0.2f, 0, true}, {3, 0.0005f, 0.2f, true}})
    expectMatte("hairmatte", dir.path, 16, {{"hcontrast", c.hcontrast}, {"hzone", c.hzone}, {"grow", c.grow}, {"hview", c.view},
                {"expand", c.view * 6}, {"feather", c.view * 3}}, 2e-3f, [&](int x, int y) {
      float z = stored(zone(x, y));
      if (std::fabs(c.hzone) > 0.001f) z = std::clamp(z + c.hzone, 0.0f, 1.0f);
      return c.view ? z : shaper(stored(hair(x, y)), c.hcontrast, c.grow) * z;
    });
  // No file for the frame, or no folder: black, white inverted.
  for (const fs::path& folder : {dir.path, dir.path / "gone"})
    for (bool invert : {false, true}) expectMatte("magicmask", folder, 30, {{"invert", invert}}, 0, [&](int, int) { return float(invert); });
}

TEST_F(MatteRefineTest, MatteCommandsOutsideAnEvaluation) {
  Engine& e = engine();
  // On grey 0.5, changes of 0.25 (full), 0.015625 (part way up the step) and 0.25 where half transparent.
  auto after = [](int x, int y) {
    return Px{0.5f, 0.5f + (x >= 8 && x < 20 ? (y < 9 ? 0.25f : 0.015625f) : 0), 0.5f - (x >= 40 && x < 50) * 0.25f, y < 18 ? 1.0f : 0.5f};
  };
  auto d = [&](int x, int y) {  // the largest change smoothstepped, times the opacity; edges repeated
    const Px f = after(std::clamp(x, 0, W - 1), std::clamp(y, 0, H - 1));
    const float m = std::max({std::fabs(f.r - 0.5f), std::fabs(f.g - 0.5f), std::fabs(f.b - 0.5f)});
    const float t = std::clamp((m - 0.006f) / 0.024f, 0.0f, 1.0f);
    return t * t * (3 - 2 * t) * f.a;
  };
  double g[7], norm = 0;  // then a Gaussian of sigma 1 over seven taps each way
  for (int i = 0; i < 7; ++i) norm += g[i] = std::exp(-(i - 3) * (i - 3) / 2.0);
  EXPECT_EQ(mismatches(e.readPixels(e.diffMatte(upload(W, H, after), upload(W, H, [](int, int) { return grey(0.5f); }))), [&](int x, int y) {
              double v = 0;
              for (int i = 0; i < 49; ++i) v += g[i % 7] * g[i / 7] / (norm * norm) * d(x + i % 7 - 3, y + i / 7 - 3);
              return grey(float(v));
            }, 2e-3f), 0);
  EXPECT_FALSE(e.diffMatte(upload(W, H, after), upload(W, H - 1, after)));  // sizes differ

  // The matte's box adds its margin and gives up on full mattes.
  using Box = std::optional<std::array<double, 4>>;
  // A square of 1 in a picture of 0.015 (too faint to count), or with fullOutside of 0 in one of 1.
  struct Case { int w, h, x0, y0, x1, y1; bool fullOutside; Box box; } cases[] = {
      // Sampled on even pixels: x 102..120, y 60..78; margin 48, the far side 2 more.
      {256, 144, 101, 60, 121, 80, false, Box{{54 / 256., 12 / 144., 116 / 256., 116 / 144.}}},
      {256, 144, 0, 0, 10, 6, false, Box{{0, 0, 58 / 256., 54 / 144.}}},
      {1024, 576, 200, 100, 600, 300, false, Box{{141 / 1024., 41 / 576., 518 / 1024., 318 / 576.}}},  // x 200..598: margin 59
      {256, 144, 0, 0, 4, 4, true, std::nullopt},
      {256, 144, 0, 0, 0, 0, false, std::nullopt},
  };
  for (const Case& c : cases)
    EXPECT_EQ(e.matteBox(upload(c.w, c.h, [&](int x, int y) {
                return grey((x >= c.x0 && x < c.x1 && y >= c.y0 && y < c.y1) != c.fullOutside ? 1.0f : c.fullOutside ? 0.0f : 0.015f);
              })), c.box) << c.w << " " << c.x0;
  EXPECT_FALSE(e.matteBox(e.device().createTexture(8, 8, gpu::Format::rgba8Unorm)));

  // Layers go over the background in order.
  e.setComp(W, H, true);
  // A half-transparent red (premultiplied) over the left half, then a blue added at opacity 0.5 but for
  // a transparent band (rows 30 and below) that leaves what is under it; with no layers, the background.
  const Engine::Tex red = upload(W, H, [](int x, int) { return x < 32 ? Px{0.4f, 0, 0, 0.5f} : Px{}; });
  const Engine::Tex blue = upload(W, H, [](int, int y) { return y < 30 ? Px{0, 0.1f, 0.6f, 1} : Px{}; });
  const Px bg{0.2f, 0.3f, 0.1f, 1};
  EXPECT_EQ(mismatches(e.readPixels(e.compositeLayers({{red, 1, 0}, {blue, 0.5f, 1}}, "layers-test", {bg.r, bg.g, bg.b})), [&](int x, int y) {
              Px c = x < 32 ? Px{h16(bg.r * 0.5f + 0.4f), h16(bg.g * 0.5f), h16(bg.b * 0.5f), 1} : bg;
              if (y < 30) c.g += 0.5f * 0.1f, c.b += 0.5f * 0.6f;
              return c;
            }, 2e-3f), 0);
  EXPECT_EQ(mismatches(e.readPixels(e.compositeLayers({}, "layers-test", {bg.r, bg.g, bg.b})), [&](int, int) { return bg; }, 1e-3f), 0);
}
