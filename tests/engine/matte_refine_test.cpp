// The AI mattes read from a job's folder and refined through an evaluation (channels, edge shaping,
// chatter, expand, the hair matte), and the matte commands run outside one. PNG files are written
// here; every expected value is computed from the formula on the values the files hold.
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "../platform/temp_dir.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;
namespace fs = std::filesystem;

namespace {

constexpr int W = 64, H = 36;

// An 8-bit PNG of `channels` channels; f gives each byte.
void writePng(const fs::path& path, int w, int h, int channels, const std::function<int(int, int, int)>& f) {
  std::vector<std::uint8_t> bytes(std::size_t(w) * h * channels);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < channels; ++c) bytes[(std::size_t(y) * w + x) * channels + c] = std::uint8_t(f(x, y, c));
  auto out = OIIO::ImageOutput::create(path.string());
  ASSERT_TRUE(out);
  ASSERT_TRUE(out->open(path.string(), OIIO::ImageSpec(w, h, channels, OIIO::TypeDesc::UINT8)));
  ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, bytes.data()));
  out->close();
}
fs::path frame(const TempDir& dir, int f) {
  char name[16];
  std::snprintf(name, sizeof name, "%05d.png", f);
  return dir.path / name;
}
float stored(int byte) { return h16(byte / 255.0f); }  // a file's byte as the matte texture holds it
float shaper(float v, float contrast, float grow) {
  return std::clamp(v * contrast + (0.5f - (0.5f - grow) * contrast), 0.0f, 1.0f);
}

class MatteRefineTest : public EngineTest {
protected:
  // A node of `kind` reading `dir` at `cur`, every refinement step off unless `params` says.
  std::vector<float> refine(const char* kind, const TempDir& dir, int cur, const std::map<std::string, double>& params) {
    Engine& e = engine();
    e.setComp(W, H, true);
    Node n = node(kind);
    for (const char* key : {"chatter", "smooth", "expand", "feather", "grow"}) n.params[key] = 0;
    n.params["contrast"] = 1;
    for (const auto& [k, v] : params) n.params[k] = v;
    n.magicDirPath = dir.path.string();
    n.magicCur = cur;
    e.evaluate({n}, {}, 0);
    return pixels(n.id);
  }
  static Engine::Tex upload(int w, int h, const std::function<Px(int, int)>& f) {
    std::vector<std::uint16_t> halves;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const Px p = f(x, y);
        for (float v : {p.r, p.g, p.b, p.a}) halves.push_back(floatToHalf(v));
      }
    auto t = engine().device().createTexture(w, h, gpu::Format::rgba16Float);
    engine().device().write(t, halves.data(), halves.size() * 2);
    return t;
  }
};

}  // namespace

TEST_F(MatteRefineTest, ColourFilesAreLayeredGreyOnesAreNot) {
  TempDir dir;
  for (int channels : {1, 2, 3, 4}) {
    const fs::path p = dir.path / (std::to_string(channels) + "ch.png");
    writePng(p, 4, 4, channels, [](int, int, int) { return 128; });
    EXPECT_EQ(Engine::isLayeredMatte(p), channels >= 3) << channels << " channels";
  }
  EXPECT_FALSE(Engine::isLayeredMatte(dir.path / "none.png"));
}

TEST_F(MatteRefineTest, EdgeShaperAndChannelAtEveryPixel) {
  struct Case {
    bool layered, invert;
    float contrast, grow, expectContrast;
  } cases[] = {{false, false, 3, 0, 3}, {false, false, 1, 0.2f, 1}, {true, false, 5, -0.3f, 5},
               {true, true, 2, 0.1f, 2}, {false, false, 0.5f, 0.1f, 1}};  // contrast is floored at 1
  for (const Case& c : cases) {
    TempDir dir;
    // The value is in green for a layered file; red and blue hold something else.
    auto value = [](int x, int y) { return (x * 4 + y * 3) % 256; };
    writePng(frame(dir, 2), W, H, c.layered ? 3 : 1,
             [&](int x, int y, int ch) { return ch == 1 || !c.layered ? value(x, y) : 255 - value(x, y); });
    const auto px = refine("bodymask", dir, 2, {{"contrast", c.contrast}, {"grow", c.grow}, {"invert", double(c.invert)}});
    ASSERT_EQ(px.size(), std::size_t(W * H * 4));
    int bad = 0;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        float want = shaper(stored(value(x, y)), c.expectContrast, c.grow);
        if (c.invert) want = 1 - want;
        const Px p = at(px, W, x, y);
        bad += std::fabs(p.r - want) > 2e-3f || p.g != p.r || p.a != 1.0f;
      }
    EXPECT_EQ(bad, 0) << "contrast " << c.contrast << " grow " << c.grow << (c.layered ? " layered" : " grey");
  }
}

TEST_F(MatteRefineTest, ExpandIsADiscMaximumOrMinimumWithEdgesRepeated) {
  TempDir dir;
  // A block touching the left edge and a small square: edge repetition and corners both show.
  auto inside = [](int x, int y) { return (x < 14 && y >= 8 && y < 22) || (x >= 36 && x < 44 && y >= 12 && y < 20); };
  writePng(frame(dir, 0), W, H, 1, [&](int x, int y, int) { return inside(x, y) ? 255 : 0; });
  for (float expand : {2.5f, 5.0f, 12.7f, 30.0f, -3.0f, -0.4f}) {
    const auto px = refine("magicmask", dir, 0, {{"expand", expand}});
    ASSERT_EQ(px.size(), std::size_t(W * H * 4));
    const double r = std::fabs(expand) >= 0.5f ? std::fabs(double(expand)) : 0;
    int bad = 0;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        bool any = false, all = true;
        for (int dy = -int(r); dy <= int(r); ++dy)
          for (int dx = -int(r); dx <= int(r); ++dx)
            if (dx * dx + dy * dy <= r * r) {
              const bool v = inside(std::clamp(x + dx, 0, W - 1), std::clamp(y + dy, 0, H - 1));
              any |= v, all &= v;
            }
        const float want = (expand > 0 ? any : all) ? 1.0f : 0.0f;
        bad += at(px, W, x, y).r != want;
      }
    EXPECT_EQ(bad, 0) << "expand " << expand;
  }
  // A point just inside and one just outside the grown corner of the square (corner 43, 19).
  const auto px = refine("magicmask", dir, 0, {{"expand", 5.0}});
  EXPECT_EQ(at(px, W, 43 + 3, 19 + 4).r, 1.0f);
  EXPECT_EQ(at(px, W, 43 + 4, 19 + 4).r, 0.0f);
}

TEST_F(MatteRefineTest, ChatterWeighsNeighbourFramesOnlyWhenAsked) {
  TempDir dir;
  const int bytes[] = {155, 128, 128, 100};  // flat frames 0..3; 4 and beyond are missing
  for (int f = 0; f < 4; ++f) writePng(frame(dir, f), W, H, 1, [&](int, int, int) { return bytes[f]; });
  struct Case {
    int cur;
    float chatter;
  } cases[] = {{1, 0}, {1, 0.3f}, {1, 0.34f}, {1, 0.7f}, {0, 1}, {3, 1}};
  for (const Case& c : cases) {
    const int n = std::min(3, int(c.chatter * 3));
    const float cur = stored(bytes[c.cur]);
    float sum = cur, wsum = 1;
    const double sigma = std::max(0.8, n / 1.5);
    for (int r = 1; r <= n; ++r)
      for (int f : {c.cur - r, c.cur + r}) {
        if (f < 0 || f > 3) continue;
        const float d = std::fabs(stored(bytes[f]) - cur) / 0.12f;
        const float k = float(std::exp(-r * r / (2 * sigma * sigma))) * std::exp(-d * d);
        sum += k * stored(bytes[f]), wsum += k;
      }
    const auto px = refine("objectmask", dir, c.cur, {{"chatter", c.chatter}});
    ASSERT_FALSE(px.empty());
    EXPECT_NEAR(at(px, W, 10, 10).r, sum / wsum, 1e-3f) << "frame " << c.cur << " chatter " << c.chatter;
    if (n == 0) {
      EXPECT_EQ(at(px, W, 10, 10).r, cur);
    }
  }
}

TEST_F(MatteRefineTest, HairMatteIsHairTimesZoneOrTheZoneAlone) {
  TempDir dir;
  auto hair = [](int x, int) { return x * 4; };
  auto zone = [](int, int y) { return y < 18 ? 255 : 102; };
  writePng(frame(dir, 5), W, H, 3, [&](int x, int y, int c) { return c == 0 ? hair(x, y) : c == 2 ? zone(x, y) : 17; });
  struct Case {
    float hcontrast, hzone, grow;
    bool view;
  } cases[] = {{1, 0, 0, false}, {2, -0.3f, 0.1f, false}, {1, 0.2f, 0, true}, {3, 0.0005f, 0.2f, true}};
  for (const Case& c : cases) {
    // In view mode expand and feather are set, and must be skipped.
    const auto px = refine("hairmatte", dir, 5,
                           {{"hcontrast", c.hcontrast}, {"hzone", c.hzone}, {"grow", c.grow}, {"hview", double(c.view)},
                            {"expand", c.view ? 6.0 : 0.0}, {"feather", c.view ? 3.0 : 0.0}});
    ASSERT_EQ(px.size(), std::size_t(W * H * 4));
    int bad = 0;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        float z = stored(zone(x, y));
        if (std::fabs(c.hzone) > 0.001f) z = std::clamp(z + c.hzone, 0.0f, 1.0f);
        const float want = c.view ? z : shaper(stored(hair(x, y)), c.hcontrast, c.grow) * z;
        bad += std::fabs(at(px, W, x, y).r - want) > 2e-3f;
      }
    EXPECT_EQ(bad, 0) << "hcontrast " << c.hcontrast << " hzone " << c.hzone << (c.view ? " view" : "");
  }
}

TEST_F(MatteRefineTest, NoMatteIsBlackOrWhiteInverted) {
  TempDir dir;  // an empty folder, then one that does not exist
  for (const fs::path& folder : {dir.path, dir.path / "gone"})
    for (bool invert : {false, true}) {
      Engine& e = engine();
      e.setComp(W, H, true);
      Node n = node("magicmask");
      n.params["invert"] = invert;
      n.magicDirPath = folder.string();
      e.evaluate({n}, {}, 0);
      const auto px = pixels(n.id);
      ASSERT_FALSE(px.empty());
      for (auto [x, y] : {std::pair{0, 0}, std::pair{31, 17}, std::pair{63, 35}}) EXPECT_EQ(at(px, W, x, y).r, invert ? 1.0f : 0.0f);
    }
}

TEST_F(MatteRefineTest, DiffMatteIsTheSoftenedChangeWhereOpaque) {
  Engine& e = engine();
  // Changes of 0.25 (full), 0.015625 (part way up the step) and 0.25 where half transparent.
  auto before = [](int, int) { return Px{0.5f, 0.5f, 0.5f, 1}; };
  auto after = [](int x, int y) {
    Px p{0.5f, 0.5f, 0.5f, y < 18 ? 1.0f : 0.5f};
    if (x >= 8 && x < 20) p.g += y < 9 ? 0.25f : 0.015625f;
    if (x >= 40 && x < 50) p.b -= 0.25f;
    return p;
  };
  auto d = [&](int x, int y) {
    const Px f = after(std::clamp(x, 0, W - 1), std::clamp(y, 0, H - 1));
    const float m = std::max({std::fabs(f.r - 0.5f), std::fabs(f.g - 0.5f), std::fabs(f.b - 0.5f)});
    const float t = std::clamp((m - 0.006f) / 0.024f, 0.0f, 1.0f);
    return t * t * (3 - 2 * t) * f.a;
  };
  const Engine::Tex out = e.diffMatte(upload(W, H, after), upload(W, H, before));
  ASSERT_TRUE(out);
  const auto px = e.readPixels(out);
  double wsum = 0;
  for (int i = -3; i <= 3; ++i) wsum += std::exp(-i * i / 2.0);
  int bad = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      double want = 0;
      for (int j = -3; j <= 3; ++j)
        for (int i = -3; i <= 3; ++i) want += std::exp(-(i * i + j * j) / 2.0) / (wsum * wsum) * d(x + i, y + j);
      bad += std::fabs(at(px, W, x, y).r - want) > 2e-3;
    }
  EXPECT_EQ(bad, 0);
  EXPECT_FALSE(e.diffMatte(upload(W, H, after), upload(W, H - 1, before)));  // sizes differ
}

TEST_F(MatteRefineTest, MatteBoxAddsItsMarginAndGivesUpOnFullMattes) {
  struct Case {
    int w, h, x0, y0, x1, y1;  // the square of 1 in a picture of 0.015 (too faint to count)
    bool fullOutside;          // 1 everywhere but the square instead
    std::optional<std::array<double, 4>> box;
  } cases[] = {
      // Sampled on even pixels: x 102..120, y 60..78; margin 48, the far side 2 more.
      {256, 144, 101, 60, 121, 80, false, std::array<double, 4>{54 / 256., 12 / 144., 116 / 256., 116 / 144.}},
      {256, 144, 0, 0, 10, 6, false, std::array<double, 4>{0, 0, 58 / 256., 54 / 144.}},
      // x 200..598 wide enough for a margin of 59.
      {1024, 576, 200, 100, 600, 300, false, std::array<double, 4>{141 / 1024., 41 / 576., 518 / 1024., 318 / 576.}},
      {256, 144, 0, 0, 4, 4, true, std::nullopt},
      {256, 144, 0, 0, 0, 0, false, std::nullopt},
  };
  Engine& e = engine();
  for (const Case& c : cases) {
    const auto box = e.matteBox(upload(c.w, c.h, [&](int x, int y) {
      const bool in = x >= c.x0 && x < c.x1 && y >= c.y0 && y < c.y1;
      const float v = in != c.fullOutside ? 1.0f : c.fullOutside ? 0.0f : 0.015f;
      return Px{v, v, v, 1};
    }));
    ASSERT_EQ(box.has_value(), c.box.has_value()) << c.w << " " << c.x0;
    for (int i = 0; box && i < 4; ++i) EXPECT_DOUBLE_EQ((*box)[i], (*c.box)[i]) << c.w << " " << c.x0 << " [" << i << "]";
  }
  EXPECT_FALSE(e.matteBox(e.device().createTexture(8, 8, gpu::Format::rgba8Unorm)));
}

TEST_F(MatteRefineTest, LayersGoOverTheBackgroundInOrder) {
  Engine& e = engine();
  e.setComp(W, H, true);
  // A half-transparent red over the left half; an added blue at half opacity everywhere but a
  // transparent band (rows 30 and below) that leaves what is under it.
  const Engine::Tex red = upload(W, H, [](int x, int) { return x < 32 ? Px{0.4f, 0, 0, 0.5f} : Px{}; });
  const Engine::Tex blue = upload(W, H, [](int, int y) { return y < 30 ? Px{0, 0.1f, 0.6f, 1} : Px{}; });
  const std::array<double, 3> bg{0.2, 0.3, 0.1};
  const Engine::Tex out = e.compositeLayers({{red, 1, 0}, {blue, 0.5f, 1}}, "layers-test", bg);
  ASSERT_TRUE(out);
  const auto px = e.readPixels(out);
  for (auto [x, y] : {std::pair{5, 5}, std::pair{50, 5}, std::pair{5, 33}, std::pair{50, 33}}) {
    float c[3] = {0.2f, 0.3f, 0.1f}, a = 1;
    if (x < 32)  // normal, alpha 0.5: halfway to the un-premultiplied 0.8
      c[0] = h16(0.2f + (0.8f - 0.2f) * 0.5f), c[1] = h16(0.3f * 0.5f), c[2] = h16(0.1f * 0.5f);
    if (y < 30) {  // add at opacity 0.5: half the top's colour is added
      const float top[3] = {0, 0.1f, 0.6f};
      for (int i = 0; i < 3; ++i) c[i] = c[i] + (c[i] + top[i] - c[i]) * 0.5f;
    }
    const Px p = at(px, W, x, y);
    EXPECT_NEAR(p.r, c[0], 2e-3f) << x << "," << y;
    EXPECT_NEAR(p.g, c[1], 2e-3f) << x << "," << y;
    EXPECT_NEAR(p.b, c[2], 2e-3f) << x << "," << y;
    EXPECT_EQ(p.a, a);
  }
  // No layers: the background itself.
  EXPECT_NEAR(at(e.readPixels(e.compositeLayers({}, "layers-test", bg)), W, 3, 3).g, 0.3f, 1e-3f);
}
