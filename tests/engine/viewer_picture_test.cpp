// The viewer's display pass: sampling at the output's size, and the comparison modes against the
// picture shown before, each against its formula on 8x4 pictures.
#include <algorithm>
#include <cmath>

#include "engine_fixture.h"
#include "test_pictures.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {

constexpr float kStep = 1.0f / 255;  // one step of the 8-bit output

// The values an engine texture holds, as an image.
Image imageOf(Engine& e, const Engine::Tex& t) {
  const std::vector<float> v = e.readPixels(t);
  Image im(t->width(), t->height());
  for (std::size_t i = 0; i < im.px.size(); ++i) im.px[i] = {v[i * 4], v[i * 4 + 1], v[i * 4 + 2], v[i * 4 + 3]};
  return im;
}

// An 8x4 comp-size texture from f(x, y), its alpha kept.
template <class F>
Engine::Tex picture(Engine& e, const std::string& key, F f) {
  e.setComp(8, 4, true);
  std::vector<float> v;
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) {
      const Rgba c = f(x, y);
      v.insert(v.end(), {c.r, c.g, c.b, c.a});
    }
  return e.fitTexture(SourcePicture::fromFloats(8, 4, v), key);
}

// Channels that change from texel to texel by more than many output steps, half transparent.
Engine::Tex after(Engine& e) {
  return picture(e, "viewer-after", [](int x, int y) {
    return Rgba{0.05f + 0.11f * x, 0.9f - 0.2f * y - (x % 2) * 0.3f, float((x + y) % 3) * 0.4f, 0.5f};
  });
}
Engine::Tex before(Engine& e) {
  return picture(e, "viewer-before", [](int x, int y) {
    return Rgba{0.7f - 0.08f * x, 0.1f + 0.25f * y, 0.3f + 0.05f * x * (y % 2), 1.0f};
  });
}

Rgba mix(const Rgba& a, const Rgba& b, float t) {
  return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t, a.a + (b.a - a.a) * t};
}
// Bilinear at texel-space position (px, py), clamped to the edges.
Rgba bilinear(const Image& im, float px, float py) {
  const int x0 = int(std::floor(px)), y0 = int(std::floor(py));
  const float fx = px - x0, fy = py - y0;
  return mix(mix(fetch(im, x0, y0), fetch(im, x0 + 1, y0), fx), mix(fetch(im, x0, y0 + 1), fetch(im, x0 + 1, y0 + 1), fx),
             fy);
}
Rgba opaque(Rgba c) {
  return {std::clamp(c.r, 0.0f, 1.0f), std::clamp(c.g, 0.0f, 1.0f), std::clamp(c.b, 0.0f, 1.0f), 1.0f};
}

}  // namespace

TEST_F(EngineTest, ViewerPictureSamplesAndComparesWithThePictureBefore) {
  Engine& e = engine();
  const auto img = after(e);
  const Image in = imageOf(e, img);
  // The display picture at w x h against f(x, y), to one step of the 8-bit output.
  const auto shows = [&](Engine::ViewP p, int w, int h, auto f) {
    return matches(imageOf(e, e.viewerPicture(img, nullptr, p, w, h)), expected(w, h, f), kStep);
  };
  // At the same size: the picture made opaque.
  const auto out = e.viewerPicture(img, nullptr, {}, 8, 4);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->format(), gpu::Format::rgba8Unorm);
  EXPECT_TRUE(shows({}, 8, 4, [&](int x, int y) { return opaque(in.at(x, y)); }));
  EXPECT_EQ(e.viewerPicture(nullptr, img, {}, 8, 4), nullptr);
  EXPECT_EQ(e.viewerPicture(img, nullptr, {}, 0, 4), nullptr);

  const Engine::ViewP nearest{.nearest = 1};
  // Enlarged twice: nearest repeats each texel as a 2x2 block.
  EXPECT_TRUE(shows(nearest, 16, 8, [&](int x, int y) { return opaque(in.at(x / 2, y / 2)); }));
  // Bilinear: output pixel centres fall a quarter of a texel from the input's, clamped at the edges.
  EXPECT_TRUE(shows({}, 16, 8, [&](int x, int y) { return opaque(bilinear(in, (x + 0.5f) / 2 - 0.5f, (y + 0.5f) / 2 - 0.5f)); }));
  // Pixel 1 of row 0 is three quarters of texel 0 and one of texel 1 (the second row clamps).
  const Image smooth = imageOf(e, e.viewerPicture(img, nullptr, {}, 16, 8));
  EXPECT_NEAR(smooth.at(1, 0).r, 0.75f * in.at(0, 0).r + 0.25f * in.at(1, 0).r, kStep);

  // Halved: bilinear lands between four texels and averages them; nearest takes one of them.
  const Image half = imageOf(e, e.viewerPicture(img, nullptr, {}, 4, 2));
  const Image picked = imageOf(e, e.viewerPicture(img, nullptr, nearest, 4, 2));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) {
      const Rgba a = in.at(2 * x, 2 * y), b = in.at(2 * x + 1, 2 * y), c = in.at(2 * x, 2 * y + 1),
                 d = in.at(2 * x + 1, 2 * y + 1);
      EXPECT_NEAR(half.at(x, y).g, (a.g + b.g + c.g + d.g) / 4, kStep) << x << "," << y;
      EXPECT_NEAR(picked.at(x, y).g, d.g, kStep) << x << "," << y;
    }

  // Against the picture shown before: the matte tinted over it, the difference, a wipe.
  const auto old = before(e);
  const Image& a = in;
  const Image b = imageOf(e, old);
  const auto compares = [&](const Engine::Tex& before, Engine::ViewP p, int w, int h, auto f) {
    return matches(imageOf(e, e.viewerPicture(img, before, p, w, h)), expected(w, h, f), kStep);
  };
  // The picture's red is the matte: inside shows `over`, outside is darkened and tinted red.
  auto tinted = [](const Rgba& matte, const Rgba& over) {
    const float m = matte.r, keep = m + (1 - m) * 0.35f;
    return opaque({over.r * keep + (1 - m) * 0.18f, over.g * keep + (1 - m) * 0.02f, over.b * keep + (1 - m) * 0.03f, 1});
  };
  EXPECT_TRUE(compares(old, {.mode = 1}, 8, 4, [&](int x, int y) { return tinted(a.at(x, y), b.at(x, y)); }));
  // With nothing before, the matte tints itself.
  EXPECT_TRUE(compares(nullptr, {.mode = 1}, 8, 4, [&](int x, int y) { return tinted(a.at(x, y), a.at(x, y)); }));
  // Difference, four times, saturated.
  EXPECT_TRUE(compares(old, {.mode = 3}, 8, 4, [&](int x, int y) {
    const Rgba p = a.at(x, y), q = b.at(x, y);
    return opaque({std::fabs(p.r - q.r) * 4, std::fabs(p.g - q.g) * 4, std::fabs(p.b - q.b) * 4, 1});
  }));
  // Wipe and difference need a picture before: without one they show the picture.
  const Image plain = imageOf(e, e.viewerPicture(img, nullptr, {}, 8, 4));
  for (float mode : {2.0f, 3.0f})
    EXPECT_TRUE(matches(imageOf(e, e.viewerPicture(img, nullptr, {.mode = mode}, 8, 4)), plain, 0)) << mode;

  // Wipe from before to after with a line. Column centres at u = 0.0625, 0.1875, ...: columns 3
  // and 4 lie within 0.1 of the wipe at 0.5.
  const Rgba line{0.94f, 0.71f, 0.29f, 1};
  EXPECT_TRUE(compares(old, {.mode = 2, .wipe = 0.5f, .lineW = 0.1f}, 8, 4, [&](int x, int y) {
    return x == 3 || x == 4 ? line : opaque(x < 3 ? b.at(x, y) : a.at(x, y));
  }));
  // No line, wipe a quarter in, at twice the size: the four left columns (u < 0.25) show before.
  EXPECT_TRUE(compares(old, {.mode = 2, .wipe = 0.25f, .nearest = 1}, 16, 8,
                    [&](int x, int y) { return opaque((x < 4 ? b : a).at(x / 2, y / 2)); }));
}
