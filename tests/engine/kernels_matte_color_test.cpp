// Pixel tests of the mask, matte, colour, glow, grain, noise, LUT and keyer kernels. Every expected
// value is computed here on the CPU from the inputs as the textures store them (half floats).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "engine/kernel_runner.h"
#include "engine/shape_table.h"

namespace {

using ombrik::test::half;
using ombrik::test::Image;
using ombrik::test::KernelRunner;
using ombrik::test::Rgba;
using ombrik::test::storedPicture;

constexpr float kPi = 3.14159265358979f;
constexpr float kLuma[3] = {0.2126f, 0.7152f, 0.0722f};

using TexturePtr = decltype(std::declval<KernelRunner&>().blank(1, 1));

float clamp01(float v) { return std::clamp(v, 0.0f, 1.0f); }
float smooth(float e0, float e1, float x) {
  float t = clamp01((x - e0) / (e1 - e0));
  return t * t * (3.0f - 2.0f * t);
}
float mixf(float a, float b, float t) { return a + (b - a) * t; }
Rgba gray(float v) { return {v, v, v, 1.0f}; }

// Deterministic pseudo-random values, rounded to what a half-float texture holds.
struct Lcg {
  uint32_t s;
  explicit Lcg(uint32_t seed) : s(seed * 2654435761u + 1u) {}
  float next(float lo, float hi) {
    s = s * 1664525u + 1013904223u;
    return half(lo + (hi - lo) * float(s >> 8) / float(1u << 24));
  }
};

Image randomImage(int w, int h, uint32_t seed, float lo = 0.0f, float hi = 1.0f, float alo = 0.0f, float ahi = 1.0f) {
  Lcg r(seed);
  Image im(w, h);
  for (auto& p : im.px) {
    p.r = r.next(lo, hi);
    p.g = r.next(lo, hi);
    p.b = r.next(lo, hi);
    p.a = r.next(alo, ahi);
  }
  return im;
}

float tol(float expected) { return std::max(1e-3f, 1e-3f * std::fabs(expected)); }

// Compares every channel of every pixel; reports the first few misses and a count.
void expectPixels(const Image& got, const std::function<Rgba(int, int)>& expected, const std::string& what) {
  ASSERT_GT(got.w, 0) << what;
  int misses = 0;
  for (int y = 0; y < got.h; ++y)
    for (int x = 0; x < got.w; ++x) {
      Rgba e = expected(x, y);
      const Rgba& g = got.at(x, y);
      const float ev[4] = {e.r, e.g, e.b, e.a};
      const float gv[4] = {g.r, g.g, g.b, g.a};
      for (int c = 0; c < 4; ++c) {
        if (std::fabs(ev[c] - gv[c]) <= tol(ev[c])) continue;
        if (++misses <= 6)
          ADD_FAILURE() << what << ": pixel (" << x << ", " << y << ") channel " << "rgba"[c] << " is " << gv[c]
                        << ", expected " << ev[c];
      }
    }
  EXPECT_EQ(misses, 0) << what << ": channel values off";
}

// One pass over uploaded inputs into `outs` blank outputs of w by h; returns the outputs.
std::vector<Image> runKernel(const std::string& kernel, const std::vector<Image>& inputs, int w, int h,
                             const std::vector<float>& P, int outs = 1, const std::vector<float>& table = {}) {
  auto& runner = KernelRunner::shared();
  EXPECT_TRUE(runner.has(kernel)) << kernel << " has no pipeline";
  std::vector<TexturePtr> textures, outputs;
  for (const auto& im : inputs) textures.push_back(runner.upload(im));
  for (int i = 0; i < outs; ++i) {
    outputs.push_back(runner.blank(w, h));
    textures.push_back(outputs.back());
  }
  runner.run(kernel, textures, P, table);
  std::vector<Image> result;
  for (const auto& t : outputs) result.push_back(runner.read(t));
  return result;
}

Image run1(const std::string& kernel, const std::vector<Image>& inputs, int w, int h, const std::vector<float>& P,
           const std::vector<float>& table = {}) {
  return runKernel(kernel, inputs, w, h, P, 1, table)[0];
}

// Counts pixels of a matte output below lo, above hi and in between, so a test can check that
// its picture really crosses the interesting region rather than being flat.
struct Spread {
  int low = 0, mid = 0, high = 0;
};
Spread spreadOf(const Image& im, float lo = 0.001f, float hi = 0.999f) {
  Spread s;
  for (const auto& p : im.px) (p.r <= lo ? s.low : p.r >= hi ? s.high : s.mid)++;
  return s;
}

// ---------------------------------------------------------------------------------------------
// k_mask: soft ellipse

float ellipse(int x, int y, int w, int h, float cx, float cy, float rx, float ry, float rot, float feather,
              bool invert) {
  // The ellipse's own frame: rotate the offset by -rot.
  double dx = x + 0.5 - double(cx) * w, dy = y + 0.5 - double(cy) * h;
  double ax = std::max(1.0, double(rx) * w), ay = std::max(1.0, double(ry) * h);
  double c = std::cos(double(rot)), s = std::sin(double(rot));
  double u = (dx * c + dy * s) / ax, v = (-dx * s + dy * c) / ay;
  float dist = float(std::sqrt(u * u + v * v));
  float m = 1.0f - smooth(1.0f - feather, 1.0001f, dist);
  return invert ? 1.0f - m : m;
}

TEST(MaskKernel, CentredWithHugeRadiiIsWhiteEverywhere) {
  // This is how a bypassed mask node shows full white.
  Image out = run1("k_mask", {}, 64, 36, {0.5f, 0.5f, 10.0f, 10.0f, 0.0f, 0.35f, 0.0f, 0.0f});
  expectPixels(out, [](int, int) { return gray(1.0f); }, "bypass mask");
}

TEST(MaskKernel, EmptyMaskIsBlackOrWhiteInverted) {
  // Centre far off the picture and radii that floor at one pixel.
  Image out = run1("k_mask", {}, 32, 18, {-10.0f, -10.0f, 0.0001f, 0.0001f, 0.0f, 0.35f, 0.0f, 0.0f});
  expectPixels(out, [](int, int) { return gray(0.0f); }, "empty mask");
  out = run1("k_mask", {}, 32, 18, {-10.0f, -10.0f, 0.0001f, 0.0001f, 0.0f, 0.35f, 1.0f, 0.0f});
  expectPixels(out, [](int, int) { return gray(1.0f); }, "empty mask inverted");
}

TEST(MaskKernel, FeatheredRotatedEllipseMatchesTheFormula) {
  const int w = 64, h = 36;
  struct Case {
    float cx, cy, rx, ry, rot, feather, invert;
  };
  const Case cases[] = {
      {0.45f, 0.55f, 0.30f, 0.20f, 0.0f, 0.35f, 0.0f},
      {0.45f, 0.55f, 0.30f, 0.20f, 0.6f, 0.35f, 0.0f},  // rotated: the axes are not the picture's
      {0.45f, 0.55f, 0.30f, 0.20f, -1.1f, 0.8f, 0.0f},
      {0.60f, 0.40f, 0.25f, 0.35f, 0.6f, 0.35f, 1.0f},  // inverted
      {0.50f, 0.50f, 0.30f, 0.25f, 0.3f, 0.0f, 0.0f},   // hard edge
      {0.50f, 0.50f, 0.0001f, 0.30f, 0.0f, 0.5f, 0.0f}, // x radius floored at one pixel
  };
  for (const Case& k : cases) {
    std::string what = "mask rot " + std::to_string(k.rot) + " feather " + std::to_string(k.feather) + " inv " +
                       std::to_string(k.invert);
    Image out = run1("k_mask", {}, w, h, {k.cx, k.cy, k.rx, k.ry, k.rot, k.feather, k.invert, 0.0f});
    expectPixels(out, [&](int x, int y) {
      return gray(ellipse(x, y, w, h, k.cx, k.cy, k.rx, k.ry, k.rot, k.feather, k.invert > 0.5f));
    }, what);
    if (k.feather > 0.2f && k.rx > 0.1f) {
      Spread s = spreadOf(out);
      EXPECT_GT(s.low, 0) << what;
      EXPECT_GT(s.mid, 10) << what;
      EXPECT_GT(s.high, 0) << what;
    }
  }
}

TEST(MaskKernel, RotationTurnsTheEllipseTheRightWay) {
  // A long thin ellipse turned by a quarter turn lies along the other axis; turned by 45 degrees
  // its long axis runs along one diagonal, which says the direction of rot.
  const int w = 40, h = 40;
  Image q = run1("k_mask", {}, w, h, {0.5f, 0.5f, 0.4f, 0.05f, kPi / 2, 0.1f, 0.0f, 0.0f});
  EXPECT_GT(q.at(20, 8).r, 0.99f);
  EXPECT_LT(q.at(8, 20).r, 0.01f);
  Image d = run1("k_mask", {}, w, h, {0.5f, 0.5f, 0.4f, 0.05f, kPi / 4, 0.1f, 0.0f, 0.0f});
  // (x - c) cos + (y - c) sin is the long axis: it runs down-right in a picture with row 0 on top.
  EXPECT_GT(d.at(27, 27).r, 0.99f);
  EXPECT_GT(d.at(12, 12).r, 0.99f);
  EXPECT_LT(d.at(27, 12).r, 0.01f);
  EXPECT_LT(d.at(12, 27).r, 0.01f);
}

// ---------------------------------------------------------------------------------------------
// k_shape: polygon, non-zero winding, outward feather

struct Pt {
  double x, y;
};

// Winding number by summing the angles the polygon turns around p (independent of the crossing rule).
int windingByAngles(const std::vector<Pt>& poly, double px, double py) {
  double total = 0;
  for (size_t i = 0; i < poly.size(); ++i) {
    const Pt& a = poly[i];
    const Pt& b = poly[(i + 1) % poly.size()];
    double ax = a.x - px, ay = a.y - py, bx = b.x - px, by = b.y - py;
    total += std::atan2(ax * by - ay * bx, ax * bx + ay * by);
  }
  return int(std::lround(total / (2 * 3.14159265358979323846)));
}

double distToOutline(const std::vector<Pt>& poly, double px, double py) {
  double best = 1e30;
  for (size_t i = 0; i < poly.size(); ++i) {
    const Pt& a = poly[i];
    const Pt& b = poly[(i + 1) % poly.size()];
    double ex = b.x - a.x, ey = b.y - a.y;
    double len2 = std::max(ex * ex + ey * ey, 1e-6);
    double t = std::clamp(((px - a.x) * ex + (py - a.y) * ey) / len2, 0.0, 1.0);
    best = std::min(best, std::hypot(px - a.x - t * ex, py - a.y - t * ey));
  }
  return best;
}

// The table holds 32-bit floats: the expectation uses the same vertices.
std::vector<Pt> snapped(std::vector<Pt> poly) {
  for (Pt& p : poly) p = {double(float(p.x)), double(float(p.y))};
  return poly;
}

struct ShapeCase {
  std::vector<Pt> poly;
  float feather, invert;
  float x0, y0, x1, y1;
};

float shapeExpected(const ShapeCase& k, int x, int y) {
  double px = x + 0.5, py = y + 0.5;
  float m = 0.0f;
  if (px >= k.x0 && px <= k.x1 && py >= k.y0 && py <= k.y1) {
    const std::vector<Pt> poly = snapped(k.poly);
    // Within half a pixel of the outline the pixel's inside share counts; the feather the rest.
    const double d = distToOutline(poly, px, py);
    const double sd = windingByAngles(poly, px, py) != 0 ? -d : d;
    const float c = float(std::clamp(0.5 - sd, 0.0, 1.0));
    const float f = k.feather > 0 ? 1.0f - smooth(0.0f, k.feather, float(std::max(sd, 0.0))) : 0.0f;
    m = c + (1 - c) * f;
  }
  return k.invert > 0.5f ? 1.0f - m : m;
}

Image runShape(const ShapeCase& k, int w, int h) {
  std::vector<float> table;
  for (const Pt& p : k.poly) {
    table.push_back(float(p.x));
    table.push_back(float(p.y));
  }
  return run1("k_shape", {}, w, h, {k.feather, k.invert, k.x0, k.y0, k.x1, k.y1},
              ombrik::shapeTable(table, w, h, k.feather + 2));
}

TEST(ShapeMaskKernel, PolygonWithOutwardFeatherInsideItsBox) {
  const int w = 48, h = 32;
  // A concave outline; vertices off the pixel grid so no pixel centre lies on an edge, and one
  // point doubled, as a flattened curve can give, which makes an edge of length zero.
  std::vector<Pt> poly = {{8.3, 6.2},   {38.7, 5.1},  {30.4, 16.3}, {30.4, 16.3},
                          {40.2, 27.6}, {10.1, 25.3}, {18.7, 15.9}};
  for (float feather : {0.0f, 4.0f, 9.5f})
    for (float invert : {0.0f, 1.0f}) {
      ShapeCase k{poly, feather, invert, 8.3f - feather - 2, 5.1f - feather - 2, 40.2f + feather + 2,
                  27.6f + feather + 2};
      std::string what = "shape feather " + std::to_string(feather) + " invert " + std::to_string(invert);
      Image out = runShape(k, w, h);
      expectPixels(out, [&](int x, int y) { return gray(shapeExpected(k, x, y)); }, what);
      // Feather lies only outside: every pixel centre half a pixel inside the polygon is fully on.
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          if (windingByAngles(poly, x + 0.5, y + 0.5) != 0 && distToOutline(poly, x + 0.5, y + 0.5) >= 0.5) {
            ASSERT_NEAR(out.at(x, y).r, invert > 0.5f ? 0.0f : 1.0f, 1e-3) << what << " at " << x << "," << y;
          }
    }
}

TEST(ShapeMaskKernel, OutsideTheBoxIsZeroOrOneInverted) {
  const int w = 40, h = 30;
  // The box cuts the polygon in half: the part outside the box is not drawn, feather included.
  std::vector<Pt> poly = {{5.2, 5.3}, {34.6, 5.1}, {34.8, 24.7}, {5.1, 24.9}};
  for (float invert : {0.0f, 1.0f}) {
    ShapeCase k{poly, 6.0f, invert, 0.0f, 0.0f, 20.0f, 30.0f};
    Image out = runShape(k, w, h);
    std::string what = "box cut, invert " + std::to_string(invert);
    expectPixels(out, [&](int x, int y) { return gray(shapeExpected(k, x, y)); }, what);
    for (int y = 0; y < h; ++y)
      for (int x = 20; x < w; ++x) ASSERT_NEAR(out.at(x, y).r, invert, 1e-6) << what << " at " << x << "," << y;
    EXPECT_NEAR(out.at(10, 15).r, 1.0f - invert, 1e-6);
  }
}

TEST(ShapeMaskKernel, NonZeroWindingFillsOverlaps) {
  const int w = 40, h = 40;
  // A five-pointed star drawn in one stroke: its centre has winding 2, which the even-odd rule
  // would leave empty.
  std::vector<Pt> star;
  for (int i = 0; i < 5; ++i) {
    double a = -kPi / 2 + i * 4 * kPi / 5;
    star.push_back({20.13 + 17.0 * std::cos(a), 20.27 + 17.0 * std::sin(a)});
  }
  ShapeCase k{star, 0.0f, 0.0f, 0.0f, 0.0f, 40.0f, 40.0f};
  Image out = runShape(k, w, h);
  expectPixels(out, [&](int x, int y) { return gray(shapeExpected(k, x, y)); }, "star");
  EXPECT_EQ(std::abs(windingByAngles(star, 20.5, 20.5)), 2);
  EXPECT_NEAR(out.at(20, 20).r, 1.0f, 1e-6);

  // The same square traced twice winds twice; traced once the other way it still fills.
  std::vector<Pt> twice = {{6.2, 6.3}, {30.7, 6.1}, {30.6, 30.8}, {6.4, 30.5},
                           {6.2, 6.3}, {30.7, 6.1}, {30.6, 30.8}, {6.4, 30.5}};
  std::vector<Pt> reversed(twice.rbegin(), twice.rbegin() + 4);
  for (const auto& poly : {twice, reversed}) {
    ShapeCase s{poly, 0.0f, 0.0f, 0.0f, 0.0f, 40.0f, 40.0f};
    Image o = runShape(s, w, h);
    expectPixels(o, [&](int x, int y) { return gray(shapeExpected(s, x, y)); }, "square of " + std::to_string(poly.size()));
    EXPECT_NEAR(o.at(18, 18).r, 1.0f, 1e-6);
    EXPECT_NEAR(o.at(35, 18).r, 0.0f, 1e-6);
  }
}

// ---------------------------------------------------------------------------------------------
// Matte arithmetic

// A matte with red over 1 and under 0 in places, and green/blue that must be ignored.
Image matteA(int w, int h) {
  return storedPicture(w, h, [](int x, int y) {
    return Rgba{-0.25f + 0.11f * x + 0.07f * y, 0.3f, 0.9f, 0.5f};  // red runs from -0.25 to ~2.3
  });
}
Image matteB(int w, int h) {
  return storedPicture(w, h, [](int x, int y) {
    return Rgba{float((x * 7 + y * 3) % 11) / 8.0f - 0.125f, 0.7f, 0.1f, 0.25f};  // -0.125 .. 1.125
  });
}

TEST(MatteKernels, MatteOpMultipliesRedUnclamped) {
  const int w = 20, h = 8;
  Image a = matteA(w, h), b = matteB(w, h);
  for (float op : {0.0f, 1.0f, 2.0f}) {
    Image out = run1("k_matteop", {a, b}, w, h, {op, 0, 0, 0});
    expectPixels(out, [&](int x, int y) {
      float av = a.at(x, y).r, bv = b.at(x, y).r;
      return gray(op > 1.5f ? av * (1 - bv) : av * bv);
    }, "matteop " + std::to_string(op));
    float most = 0;
    for (const auto& p : out.px) most = std::max(most, p.r);
    EXPECT_GT(most, 1.5f) << "values over 1 must pass unclamped";
  }
}

TEST(MatteKernels, MaskBlendEveryOpClamped) {
  const int w = 20, h = 8;
  Image a = matteA(w, h), b = matteB(w, h);
  auto blend = [](int op, float x, float y) {
    switch (op) {
      case 1: return x * (1 - y);
      case 2: return x * y;
      case 3: return std::fabs(x - y);
      case 4: return std::max(x, y);
      case 5: return std::min(x, y);
      default: return x + y - x * y;
    }
  };
  // Ops are rounded; 9 is unknown and adds.
  const std::pair<float, int> ops[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {1.4f, 1}, {4.6f, 5}, {9, 0}};
  for (auto [p, op] : ops) {
    Image out = run1("k_maskblend", {a, b}, w, h, {p, 0, 0, 0});
    expectPixels(out, [&](int x, int y) { return gray(clamp01(blend(op, a.at(x, y).r, b.at(x, y).r))); },
                 "maskblend op " + std::to_string(p));
  }
}

TEST(MatteKernels, MatteCombineSaturatesInvertsAndOverrides) {
  const int w = 20, h = 8;
  Image a = matteA(w, h), b = matteB(w, h);
  auto expected = [&](float op, float inv, float single, int x, int y) {
    float av = clamp01(a.at(x, y).r), bv = clamp01(b.at(x, y).r);
    if (inv > 0.5f) av = 1 - av;
    float r = single > 0.5f ? av : std::max(av, bv);
    int o = int(std::lround(op));
    if (o == 1) r = av * (1 - bv);
    if (o == 2) r = av * bv;
    if (o == 3) r = clamp01(av + bv);
    if (o == 4) r = std::fabs(av - bv);
    return r;
  };
  for (float op : {0.0f, 1.0f, 2.0f, 3.0f, 4.0f})
    for (float inv : {0.0f, 1.0f})
      for (float single : {0.0f, 1.0f}) {
        Image out = run1("k_mattecombine", {a, b}, w, h, {op, inv, single, 0});
        expectPixels(out, [&](int x, int y) { return gray(expected(op, inv, single, x, y)); },
                     "mattecombine op " + std::to_string(op) + " inv " + std::to_string(inv) + " single " +
                         std::to_string(single));
      }
  // Single with invert a is an inverted copy of the saturated matte.
  Image inverted = run1("k_mattecombine", {a, a}, w, h, {0, 1, 1, 0});
  expectPixels(inverted, [&](int x, int y) { return gray(1 - clamp01(a.at(x, y).r)); }, "inverted copy");
}

TEST(MatteKernels, MatteMulMixPremultAndAlpha) {
  const int w = 16, h = 9;
  Image pic = randomImage(w, h, 11, -0.2f, 1.6f, 0.0f, 1.0f);
  Image other = randomImage(w, h, 12, 0.0f, 2.0f, 0.0f, 1.0f);
  Image m = matteB(w, h);

  Image mul = run1("k_mattemul", {pic, m}, w, h, {});
  expectPixels(mul, [&](int x, int y) {
    const Rgba& p = pic.at(x, y);
    float k = clamp01(m.at(x, y).r);
    return Rgba{p.r * k, p.g * k, p.b * k, 1};
  }, "mattemul");

  Image mixed = run1("k_mattemix", {pic, other, m}, w, h, {});
  expectPixels(mixed, [&](int x, int y) {
    const Rgba &p = pic.at(x, y), &o = other.at(x, y);
    float k = m.at(x, y).r;
    return Rgba{mixf(p.r, o.r, k), mixf(p.g, o.g, k), mixf(p.b, o.b, k), mixf(p.a, o.a, k)};
  }, "mattemix");

  Image pre = run1("k_premultmatte", {pic, m}, w, h, {});
  expectPixels(pre, [&](int x, int y) {
    const Rgba& p = pic.at(x, y);
    float k = clamp01(m.at(x, y).r);
    return Rgba{p.r * k, p.g * k, p.b * k, k};
  }, "premultmatte");

  Image gray_ = run1("k_alpha2gray", {pic}, w, h, {});
  expectPixels(gray_, [&](int x, int y) { return gray(pic.at(x, y).a); }, "alpha2gray");
}

TEST(MatteKernels, DiffMatteFindsChangesWhereOpaque) {
  const int w = 16, h = 8;
  Image p = randomImage(w, h, 21);
  // f differs from p by a growing amount in one channel that changes with x, with alpha over 1 in places.
  Image f = storedPicture(w, h, [&](int x, int y) {
    Rgba v = p.at(x, y);
    float d = 0.004f * x * (y % 2 ? 1.0f : -1.0f);
    if (x % 3 == 0) v.r += d;
    else if (x % 3 == 1) v.g += d;
    else v.b += d;
    v.a = 0.25f * (y % 6);
    return v;
  });
  for (auto [lo, hi] : {std::pair{0.006f, 0.03f}, std::pair{0.01f, 0.05f}}) {
    Image out = run1("k_diffmatte", {f, p}, w, h, {lo, hi});
    expectPixels(out, [&](int x, int y) {
      const Rgba &a = f.at(x, y), &b = p.at(x, y);
      float d = std::max({std::fabs(a.r - b.r), std::fabs(a.g - b.g), std::fabs(a.b - b.b)});
      return gray(smooth(lo, hi, d) * clamp01(a.a));
    }, "diffmatte " + std::to_string(lo));
  }
}

TEST(MatteChatterKernel, NeighboursWeighedByLocalSimilarity) {
  const int w = 12, h = 8;
  Image cur = randomImage(w, h, 31);
  // n0 is close to current, n1 differs strongly on the right half, n2 has weight 0 and n3 a
  // negative weight (both ignored), n4 and n5 are shifted copies.
  Image n0 = storedPicture(w, h, [&](int x, int y) {
    Rgba v = cur.at(x, y);
    return Rgba{v.r + 0.03f, v.g - 0.02f, v.b + 0.01f, v.a};
  });
  Image n1 = storedPicture(w, h, [&](int x, int y) {
    Rgba v = cur.at(x, y);
    float s = x >= w / 2 ? 0.4f : 0.05f;
    return Rgba{v.r - s, v.g + s, v.b, v.a};
  });
  Image n2 = randomImage(w, h, 32), n3 = randomImage(w, h, 33);
  Image n5 = storedPicture(w, h, [&](int x, int y) {
    Rgba v = cur.at(x, y);
    return Rgba{v.r + 0.01f * (x % 4), v.g, v.b - 0.06f, v.a};
  });
  Image n4 = storedPicture(w, h, [&](int x, int y) {
    Rgba v = cur.at(x, y);
    return Rgba{v.r, v.g + 0.02f * (y % 3), v.b, v.a};
  });
  const std::vector<Image> ns = {n0, n1, n2, n3, n4, n5};

  auto mean3 = [&](const Image& im, int x, int y, int st, int c) {
    float acc = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) {
        const Rgba& p = im.at(std::clamp(x + dx * st, 0, w - 1), std::clamp(y + dy * st, 0, h - 1));
        acc += c == 0 ? p.r : c == 1 ? p.g : p.b;
      }
    return acc / 9.0f;
  };
  auto chan = [](const Rgba& p, int c) { return c == 0 ? p.r : c == 1 ? p.g : p.b; };

  struct Case {
    std::vector<float> weights;
    float tau, step;
  };
  const Case cases[] = {
      {{1.0f, 0.5f, 0.0f, -1.0f, 0.0f, 0.0f}, 0.12f, 2.0f},
      {{0.8f, 0.8f, 0.0f, 0.0f, 0.3f, 0.3f}, 0.05f, 1.0f},
      {{1.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f}, 0.001f, 0.4f},  // tau floored at 0.02, step at 1
  };
  for (const Case& k : cases) {
    std::vector<float> P = k.weights;
    P.push_back(k.tau);
    P.push_back(k.step);
    std::vector<Image> inputs = {cur};
    inputs.insert(inputs.end(), ns.begin(), ns.end());
    Image out = run1("k_mattechatter", inputs, w, h, P);
    const int st = std::max(1, int(std::lround(k.step)));
    const float tau = std::max(0.02f, k.tau);
    expectPixels(out, [&](int x, int y) {
      float o[3];
      for (int c = 0; c < 3; ++c) {
        float cm = mean3(cur, x, y, st, c);
        float sum = chan(cur.at(x, y), c), wsum = 1;
        for (int i = 0; i < 6; ++i) {
          if (!(k.weights[i] > 0)) continue;
          float d = std::fabs(mean3(ns[i], x, y, st, c) - cm) / tau;
          float kk = k.weights[i] * std::exp(-d * d);
          sum += kk * chan(ns[i].at(x, y), c);
          wsum += kk;
        }
        o[c] = sum / wsum;
      }
      return Rgba{o[0], o[1], o[2], 1};
    }, "mattechatter tau " + std::to_string(k.tau) + " step " + std::to_string(k.step));
  }
}

// ---------------------------------------------------------------------------------------------
// Colour

TEST(ColorKernel, FullCorrectionWithAndWithoutMask) {
  const int w = 16, h = 9;
  Image in = randomImage(w, h, 41, -0.1f, 1.4f, 0.0f, 1.0f);
  Image mask = storedPicture(w, h, [](int x, int y) { return Rgba{float(x + y) / 23.0f, 1.0f, 0.0f, 0.3f}; });
  struct Case {
    float exposure, lift, gamma, gain, sat, temp, useMask;
  };
  const Case cases[] = {
      {0.5f, 0.1f, 1.3f, 0.9f, 1.4f, 0.5f, 0.0f},
      {-1.0f, -0.05f, 0.7f, 1.2f, 0.3f, -0.8f, 0.0f},
      {0.5f, 0.1f, 1.3f, 0.9f, 1.4f, 0.5f, 1.0f},
      {0.0f, 0.0f, 1.0f, 1.0f, 0.0f, 0.0f, 1.0f},  // desaturate to luminance
  };
  for (const Case& k : cases) {
    Image out = run1("k_color", {in, mask}, w, h, {k.exposure, k.lift, k.gamma, k.gain, k.sat, k.temp, k.useMask, 0});
    expectPixels(out, [&](int x, int y) {
      const Rgba& s = in.at(x, y);
      float c[3] = {s.r, s.g, s.b};
      for (float& v : c) {
        v *= std::pow(2.0f, k.exposure);
        v += k.lift * (1 - v);
        v *= k.gain;
        v = std::pow(std::max(v, 0.0f), 1.0f / k.gamma);
      }
      c[0] += k.temp * 0.06f;
      c[2] -= k.temp * 0.06f;
      float l = c[0] * kLuma[0] + c[1] * kLuma[1] + c[2] * kLuma[2];
      for (float& v : c) v = l + (v - l) * k.sat;
      float m = k.useMask > 0.5f ? mask.at(x, y).r : 1.0f;
      return Rgba{mixf(s.r, c[0], m), mixf(s.g, c[1], m), mixf(s.b, c[2], m), s.a};
    }, "color exposure " + std::to_string(k.exposure) + " mask " + std::to_string(k.useMask));
  }
}

TEST(GlowKernels, BrightPassAndScreen) {
  const int w = 16, h = 9;
  Image in = randomImage(w, h, 51, 0.0f, 1.5f, 0.2f, 0.9f);
  for (auto [thresh, warmth] : {std::pair{0.6f, 0.5f}, std::pair{0.2f, -1.0f}, std::pair{1.2f, 0.0f}}) {
    Image out = run1("k_bright", {in}, w, h, {thresh, 0.8f, warmth, 0});
    expectPixels(out, [&](int x, int y) {
      const Rgba& s = in.at(x, y);
      float l = s.r * kLuma[0] + s.g * kLuma[1] + s.b * kLuma[2];
      float k = std::max(0.0f, (l - thresh) / std::max(1 - thresh, 0.001f));
      return Rgba{s.r * k * (1 + 0.35f * warmth), s.g * k, s.b * k * (1 - 0.45f * warmth), 1};
    }, "bright thresh " + std::to_string(thresh));
  }

  Image glow = randomImage(w, h, 52, 0.0f, 1.2f);
  for (float intensity : {0.7f, 2.5f}) {
    Image out = run1("k_screen", {in, glow}, w, h, {0.5f, intensity, 0.0f, 0});
    expectPixels(out, [&](int x, int y) {
      const Rgba &s = in.at(x, y), &g = glow.at(x, y);
      auto scr = [&](float v, float gv) { return 1 - (1 - clamp01(v)) * (1 - clamp01(gv * intensity)); };
      return Rgba{scr(s.r, g.r), scr(s.g, g.g), scr(s.b, g.b), s.a};
    }, "screen intensity " + std::to_string(intensity));
  }
}

uint32_t hash2u(uint32_t x, uint32_t y, uint32_t s) {
  uint32_t h = x * 374761393u + y * 668265263u + s * 2246822519u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return h ^ (h >> 16);
}
float hash2(uint32_t x, uint32_t y, uint32_t s) { return float(hash2u(x, y, s)) * (1.0f / 4294967295.0f); }

TEST(GrainKernel, BlocksOfHashedNoise) {
  const int w = 20, h = 12;
  Image in = randomImage(w, h, 61, 0.1f, 0.9f);
  struct Case {
    float amount, size, seed;
  };
  const Case cases[] = {{0.2f, 3.0f, 57.0f}, {0.05f, 1.0f, 1234567.0f}, {0.3f, 0.4f, 7.0f}, {0.1f, 4.9f, 57.8f}};
  for (const Case& k : cases) {
    Image out = run1("k_grain", {in}, w, h, {k.amount, k.size, k.seed, 0});
    const uint32_t sz = uint32_t(std::max(1, int(k.size)));
    const uint32_t seed = uint32_t(int(k.seed));
    expectPixels(out, [&](int x, int y) {
      const Rgba& s = in.at(x, y);
      float n = (hash2(uint32_t(x) / sz, uint32_t(y) / sz, seed) * 2 - 1) * k.amount;
      return Rgba{s.r + n, s.g + n, s.b + n, s.a};
    }, "grain size " + std::to_string(k.size) + " seed " + std::to_string(k.seed));
  }
}

TEST(NoiseKernels, DenoiseAndRenoise) {
  const int w = 16, h = 9;
  Image pic = randomImage(w, h, 71);
  Image noise = randomImage(w, h, 72, 0.4f, 0.6f);
  Image original = randomImage(w, h, 73);
  Image denoised = randomImage(w, h, 74);
  Image matte = storedPicture(w, h, [](int x, int) { return Rgba{float(x) / 10.0f - 0.2f, 0.5f, 0.5f, 1.0f}; });
  for (float useMatte : {0.0f, 1.0f}) {
    const float strength = 0.8f;
    auto k = [&](int x, int y) { return strength * (useMatte > 0.5f ? clamp01(matte.at(x, y).r) : 1.0f); };
    Image dn = run1("k_denoise", {pic, noise, matte}, w, h, {strength, useMatte});
    expectPixels(dn, [&](int x, int y) {
      const Rgba &s = pic.at(x, y), &n = noise.at(x, y);
      float kk = k(x, y);
      return Rgba{s.r - (n.r - 0.5f) * kk, s.g - (n.g - 0.5f) * kk, s.b - (n.b - 0.5f) * kk, s.a};
    }, "denoise matte " + std::to_string(useMatte));
    Image rn = run1("k_renoise", {pic, original, denoised, matte}, w, h, {strength, useMatte});
    expectPixels(rn, [&](int x, int y) {
      const Rgba &s = pic.at(x, y), &o = original.at(x, y), &d = denoised.at(x, y);
      float kk = k(x, y);
      return Rgba{s.r + (o.r - d.r) * kk, s.g + (o.g - d.g) * kk, s.b + (o.b - d.b) * kk, s.a};
    }, "renoise matte " + std::to_string(useMatte));
  }
}

// ---------------------------------------------------------------------------------------------
// 3D LUT

TEST(LutKernel, TrilinearCubeMixedFromSource) {
  const int w = 12, h = 8;
  // A non-identity cube: each entry a smooth but curved function of its lattice position.
  auto makeCube = [](int n) {
    std::vector<Rgba> e(size_t(n) * n * n);
    for (int b = 0; b < n; ++b)
      for (int g = 0; g < n; ++g)
        for (int r = 0; r < n; ++r) {
          float fr = float(r) / (n - 1), fg = float(g) / (n - 1), fb = float(b) / (n - 1);
          e[size_t(r) + size_t(n) * (g + size_t(n) * b)] = {half(0.1f + 0.6f * fg * fg + 0.2f * fb),
                                                           half(0.9f * fr - 0.3f * fb * fr + 0.05f),
                                                           half(0.3f + 0.4f * fb * fb - 0.2f * fg), 1.0f};
        }
    return e;
  };
  Image in = randomImage(w, h, 81, -0.2f, 1.2f);  // some channels outside 0..1, which are clamped
  for (int n : {2, 3, 5})
    for (float mixv : {1.0f, 0.6f, 1.7f}) {
      auto entries = makeCube(n);
      auto& runner = KernelRunner::shared();
      ASSERT_TRUE(runner.has("k_lut3d"));
      auto src = runner.upload(in);
      auto lut = runner.cube(n, entries);
      auto out = runner.blank(w, h);
      // A size under 2 is treated as 2.
      runner.run("k_lut3d", {src, lut, out}, {n == 2 ? 0.0f : float(n), mixv});
      Image got = runner.read(out);
      expectPixels(got, [&](int x, int y) {
        const Rgba& s = in.at(x, y);
        // Lattice position of each channel, then the eight corners weighted.
        float p[3] = {clamp01(s.r) * (n - 1), clamp01(s.g) * (n - 1), clamp01(s.b) * (n - 1)};
        int i0[3];
        float f[3];
        for (int c = 0; c < 3; ++c) {
          i0[c] = std::min(int(std::floor(p[c])), n - 2);
          f[c] = p[c] - i0[c];
        }
        Rgba acc{};
        for (int corner = 0; corner < 8; ++corner) {
          int dr = corner & 1, dg = (corner >> 1) & 1, db = (corner >> 2) & 1;
          float wgt = (dr ? f[0] : 1 - f[0]) * (dg ? f[1] : 1 - f[1]) * (db ? f[2] : 1 - f[2]);
          const Rgba& e = entries[size_t(i0[0] + dr) + size_t(n) * ((i0[1] + dg) + size_t(n) * (i0[2] + db))];
          acc.r += wgt * e.r;
          acc.g += wgt * e.g;
          acc.b += wgt * e.b;
        }
        float m = clamp01(mixv);
        return Rgba{mixf(s.r, acc.r, m), mixf(s.g, acc.g, m), mixf(s.b, acc.b, m), s.a};
      }, "lut n " + std::to_string(n) + " mix " + std::to_string(mixv));
    }
}

// ---------------------------------------------------------------------------------------------
// Keyer

TEST(KeyKernels, GreenAndBlueScreenKeysWithClipsAndDespill) {
  const int w = 16, h = 10;
  struct Case {
    float sr, sg, sb, balance, gain, clipb, clipw, blue, despill;
  };
  const Case cases[] = {
      {0.15f, 0.75f, 0.20f, 0.5f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f},
      {0.15f, 0.75f, 0.20f, 0.3f, 1.6f, 0.1f, 0.85f, 0.0f, 0.5f},
      {0.10f, 0.25f, 0.80f, 0.5f, 1.2f, 0.05f, 0.9f, 1.0f, 1.0f},
      {0.10f, 0.25f, 0.80f, 0.8f, 1.0f, 0.3f, 0.3f, 1.0f, 0.0f},  // equal clips: floor of 0.001
      {0.15f, 0.75f, 0.20f, 0.5f, 1.0f, 0.5f, 0.2f, 0.0f, 1.0f},  // crossed clips: the floor, not a flip
      {0.5f, 0.5f, 0.5f, 0.5f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f},     // grey screen: difference floored
      {0.6f, 0.3f, 0.5f, 0.5f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f},     // screen channel under the others
  };
  for (const Case& k : cases) {
    // Pixels blending from the screen colour to various subjects.
    Image in = storedPicture(w, h, [&](int x, int y) {
      float t = float(x) / (w - 1);
      float subj[3] = {0.2f + 0.07f * y, 0.6f - 0.05f * y, 0.3f + 0.03f * y};
      return Rgba{mixf(k.sr, subj[0], t), mixf(k.sg, subj[1], t), mixf(k.sb, subj[2], t), 0.5f};
    });
    auto outs = runKernel("k_gkey", {in}, w, h, {k.sr, k.sg, k.sb, k.balance, k.gain, k.clipb, k.clipw, k.blue,
                                                 k.despill}, 2);
    const bool blue = k.blue > 0.5f;
    auto key = [&](int x, int y, float* rgb) {
      const Rgba& c = in.at(x, y);
      float wb = k.balance;
      float sc = blue ? k.sb : k.sg, so = blue ? k.sr * wb + k.sg * (1 - wb) : k.sr * wb + k.sb * (1 - wb);
      float cc = blue ? c.b : c.g, co = blue ? c.r * wb + c.g * (1 - wb) : c.r * wb + c.b * (1 - wb);
      float d = (cc - co) / std::max(sc - so, 0.001f);
      float a = 1 - std::clamp(d * k.gain, 0.0f, 1.0f);
      a = std::clamp((a - k.clipb) / std::max(k.clipw - k.clipb, 0.001f), 0.0f, 1.0f);
      rgb[0] = c.r;
      rgb[1] = c.g;
      rgb[2] = c.b;
      rgb[blue ? 2 : 1] = mixf(cc, std::min(cc, co), k.despill);
      return a;
    };
    std::string what = std::string(blue ? "blue" : "green") + " key gain " + std::to_string(k.gain) +
                       " despill " + std::to_string(k.despill);
    expectPixels(outs[0], [&](int x, int y) {
      float rgb[3];
      key(x, y, rgb);
      return Rgba{rgb[0], rgb[1], rgb[2], 1};
    }, what + " (picture)");
    expectPixels(outs[1], [&](int x, int y) {
      float rgb[3];
      return gray(key(x, y, rgb));
    }, what + " (alpha)");
  }
  // Pure screen keys out fully; a subject with no screen lead stays.
  Image in = storedPicture(2, 1, [](int x, int) { return x == 0 ? Rgba{0.15f, 0.75f, 0.2f, 1} : Rgba{0.8f, 0.3f, 0.6f, 1}; });
  auto outs = runKernel("k_gkey", {in}, 2, 1, {0.15f, 0.75f, 0.2f, 0.5f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f}, 2);
  EXPECT_NEAR(outs[1].at(0, 0).r, 0.0f, 1e-3);
  EXPECT_NEAR(outs[1].at(1, 0).r, 1.0f, 1e-3);
  EXPECT_NEAR(outs[0].at(0, 0).g, 0.175f, 1e-3);  // despilled down to the mix of red and blue
}

TEST(KeyKernels, GrowShrinkGarbageAndPremultiply) {
  const int w = 16, h = 8;
  Image blurred = storedPicture(w, h, [](int x, int) { return Rgba{float(x) / 15.0f, 0.9f, 0.1f, 1.0f}; });
  Image garbage = storedPicture(w, h, [](int, int y) { return Rgba{float(y) / 7.0f, 0.0f, 1.0f, 0.5f}; });
  for (float sense : {1.0f, -1.0f, 0.0f, 0.4f})
    for (float garb : {0.0f, 1.0f}) {
      Image out = run1("k_gkgrow", {blurred, garbage}, w, h, {sense, garb});
      expectPixels(out, [&](int x, int y) {
        float b = blurred.at(x, y).r;
        float v = sense > 0.5f ? clamp01(2 * b) : sense < -0.5f ? clamp01(2 * b - 1) : b;
        if (garb > 0.5f) v *= garbage.at(x, y).r;
        return gray(v);
      }, "gkgrow sense " + std::to_string(sense) + " garbage " + std::to_string(garb));
    }

  Image rgb = randomImage(w, h, 91, 0.0f, 1.2f);
  Image alpha = storedPicture(w, h, [](int x, int y) { return Rgba{float(x * y) / 105.0f, 0.2f, 0.8f, 0.1f}; });
  Image out = run1("k_gkpremult", {rgb, alpha}, w, h, {});
  expectPixels(out, [&](int x, int y) {
    const Rgba& c = rgb.at(x, y);
    float a = alpha.at(x, y).r;
    return Rgba{c.r * a, c.g * a, c.b * a, a};
  }, "gkpremult");
}

}  // namespace
