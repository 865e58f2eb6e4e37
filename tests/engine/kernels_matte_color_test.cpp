// Pixel tests of the mask, matte, colour, glow, grain, noise, LUT and keyer kernels. Every expected
// value is computed here on the CPU from the inputs as the textures store them (half floats).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "engine/kernel_table.h"
#include "engine/shape_table.h"

using namespace ombrik::test;
using namespace ombrik::test::kernels;

namespace {

constexpr double kPi = 3.14159265358979323846;

Image noise(int w, int h, std::uint32_t seed, float lo = 0, float hi = 1, float alo = 0, float ahi = 1) {
  return noisyPicture(w, h, seed, lo, hi, alo, ahi);
}
Rgba white(float v) { return grey(v, 1); }  // a matte: the value in every channel, alpha 1

// ---------------------------------------------------------------------------------------------
// k_mask: soft ellipse

float ellipse(int x, int y, int w, int h, const std::vector<float>& P) {
  const auto [cx, cy, rx, ry, rot, feather, invert] = std::array{P[0], P[1], P[2], P[3], P[4], P[5], P[6]};
  // The ellipse's own frame: rotate the offset by -rot.
  double dx = x + 0.5 - double(cx) * w, dy = y + 0.5 - double(cy) * h;
  double ax = std::max(1.0, double(rx) * w), ay = std::max(1.0, double(ry) * h);
  double c = std::cos(double(rot)), s = std::sin(double(rot));
  double u = (dx * c + dy * s) / ax, v = (-dx * s + dy * c) / ay;
  float m = 1.0f - smooth(1.0f - feather, 1.0001f, float(std::sqrt(u * u + v * v)));
  return invert > 0.5f ? 1.0f - m : m;
}

TEST(MaskKernel, EllipseFormulaBypassAndTurn) {
  const int w = 64, h = 36;
  // cx, cy, rx, ry, rot, feather, invert
  checkRow({"k_mask", {}, {
      {0.45f, 0.55f, 0.30f, 0.20f, 0.0f, 0.35f, 0, 0},
      {0.45f, 0.55f, 0.30f, 0.20f, 0.6f, 0.35f, 0, 0},  // rotated: the axes are not the picture's
      {0.45f, 0.55f, 0.30f, 0.20f, -1.1f, 0.8f, 0, 0},
      {0.60f, 0.40f, 0.25f, 0.35f, 0.6f, 0.35f, 1, 0},  // inverted
      {0.50f, 0.50f, 0.30f, 0.25f, 0.3f, 0.0f, 0, 0},   // hard edge
      {0.50f, 0.50f, 0.0001f, 0.30f, 0.0f, 0.5f, 0, 0}, // x radius floored at one pixel
      {-10, -10, 0.0001f, 0.0001f, 0, 0.35f, 0, 0},     // off the picture: empty
      {-10, -10, 0.0001f, 0.0001f, 0, 0.35f, 1, 0},     // and inverted: full
  }, [&](const auto&, const auto& P, int x, int y) { return white(ellipse(x, y, w, h, P)); }, kStep, w, h});
  // The feathered picture crosses the soft edge: some pixels off, some on, many between.
  const Image soft = run1("k_mask", {}, w, h, {0.45f, 0.55f, 0.30f, 0.20f, 0.6f, 0.35f, 0, 0});
  int low = 0, mid = 0, high = 0;
  for (const Rgba& p : soft.px) (p.r <= 0.001f ? low : p.r >= 0.999f ? high : mid)++;
  EXPECT_TRUE(low > 0 && mid > 10 && high > 0) << low << " off, " << mid << " soft, " << high << " on";
  // A bypassed mask node is a centred ellipse with huge radii: full white.
  EXPECT_TRUE(matches(run1("k_mask", {}, w, h, {0.5f, 0.5f, 10, 10, 0, 0.35f, 0, 0}), Image(w, h, white(1))));

  // A thin ellipse turned by a quarter turn lies along the other axis; at 45 degrees its long axis
  // runs down-right (row 0 on top), which says the direction of rot.
  const Image q = run1("k_mask", {}, 40, 40, {0.5f, 0.5f, 0.4f, 0.05f, float(kPi / 2), 0.1f, 0, 0});
  EXPECT_GT(q.at(20, 8).r, 0.99f);
  EXPECT_LT(q.at(8, 20).r, 0.01f);
  const Image d = run1("k_mask", {}, 40, 40, {0.5f, 0.5f, 0.4f, 0.05f, float(kPi / 4), 0.1f, 0, 0});
  EXPECT_GT(std::min(d.at(27, 27).r, d.at(12, 12).r), 0.99f);
  EXPECT_LT(std::max(d.at(27, 12).r, d.at(12, 27).r), 0.01f);
}

// ---------------------------------------------------------------------------------------------
// k_shape: polygon, non-zero winding, outward feather

struct ShapeCase {
  std::vector<Pt> poly;
  float feather, invert;
  float x0, y0, x1, y1;
};

float shapeExpected(const ShapeCase& k, int x, int y) {
  double px = x + 0.5, py = y + 0.5;
  float m = 0.0f;
  if (px >= k.x0 && px <= k.x1 && py >= k.y0 && py <= k.y1) {
    std::vector<Pt> poly = k.poly;  // the table holds 32-bit floats: so do the expectation's vertices
    for (Pt& p : poly) p = {double(float(p.x)), double(float(p.y))};
    // Within half a pixel of the outline the pixel's inside share counts; the feather the rest.
    const double d = outlineDistance(poly, px, py);
    const double sd = winding(poly, px, py) != 0 ? -d : d;
    const float c = float(std::clamp(0.5 - sd, 0.0, 1.0));
    const float f = k.feather > 0 ? 1.0f - smooth(0.0f, k.feather, float(std::max(sd, 0.0))) : 0.0f;
    m = c + (1 - c) * f;
  }
  return k.invert > 0.5f ? 1.0f - m : m;
}

TEST(ShapeMaskKernel, NonZeroWindingOutwardFeatherInsideItsBox) {
  // A concave outline; vertices off the pixel grid so no pixel centre lies on an edge, and one
  // point doubled, as a flattened curve can give, which makes an edge of length zero.
  const std::vector<Pt> concave = {{8.3, 6.2}, {38.7, 5.1}, {30.4, 16.3}, {30.4, 16.3},
                                   {40.2, 27.6}, {10.1, 25.3}, {18.7, 15.9}};
  // A five-pointed star drawn in one stroke: its centre winds twice, which even-odd would leave empty.
  std::vector<Pt> star;
  for (int i = 0; i < 5; ++i) {
    double a = -kPi / 2 + i * 4 * kPi / 5;
    star.push_back({20.13 + 17.0 * std::cos(a), 20.27 + 17.0 * std::sin(a)});
  }
  ASSERT_EQ(std::abs(winding(star, 20.5, 20.5)), 2);
  // A square traced twice winds twice; traced once the other way it still fills.
  const std::vector<Pt> twice = {{6.2, 6.3}, {30.7, 6.1}, {30.6, 30.8}, {6.4, 30.5},
                                 {6.2, 6.3}, {30.7, 6.1}, {30.6, 30.8}, {6.4, 30.5}};
  const std::vector<Pt> quad = {{5.2, 5.3}, {34.6, 5.1}, {34.8, 24.7}, {5.1, 24.9}};
  struct Case {
    ShapeCase s;
    int w, h;
  };
  std::vector<Case> cases;
  for (float feather : {0.0f, 4.0f, 9.5f})
    for (float invert : {0.0f, 1.0f})
      cases.push_back({{concave, feather, invert, 8.3f - feather - 2, 5.1f - feather - 2, 40.2f + feather + 2,
                        27.6f + feather + 2}, 48, 32});
  // The box cuts the polygon in half: the part outside it is not drawn, feather included.
  for (float invert : {0.0f, 1.0f}) cases.push_back({{quad, 6.0f, invert, 0, 0, 20, 30}, 40, 30});
  cases.push_back({{star, 0, 0, 0, 0, 40, 40}, 40, 40});
  cases.push_back({{twice, 0, 0, 0, 0, 40, 40}, 40, 40});
  cases.push_back({{std::vector<Pt>(twice.rbegin(), twice.rbegin() + 4), 0, 0, 0, 0, 40, 40}, 40, 40});
  for (const Case& c : cases) {
    const ShapeCase& k = c.s;
    SCOPED_TRACE(testing::Message() << k.poly.size() << " points, feather " << k.feather << ", invert " << k.invert);
    std::vector<float> pts;
    for (const Pt& p : k.poly) pts.insert(pts.end(), {float(p.x), float(p.y)});
    const Image out = run1("k_shape", {}, c.w, c.h, {k.feather, k.invert, k.x0, k.y0, k.x1, k.y1},
                           ombrik::shapeTable(pts, c.w, c.h, k.feather + 2));
    EXPECT_TRUE(matches(out, expected(c.w, c.h, [&](int x, int y) { return white(shapeExpected(k, x, y)); })));
    // Feather lies only outside: every pixel centre half a pixel inside the polygon is fully on.
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < std::min(c.w, int(k.x1)); ++x)
        if (winding(k.poly, x + 0.5, y + 0.5) != 0 && outlineDistance(k.poly, x + 0.5, y + 0.5) >= 0.5) {
          ASSERT_NEAR(out.at(x, y).r, 1 - k.invert, 1e-3) << x << "," << y;
        }
    if (k.x1 == 20) {
      EXPECT_NEAR(out.at(30, 15).r, k.invert, 1e-6) << "drawn outside its box";
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Matte arithmetic and keyer mattes

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

float maskBlend(int op, float x, float y) {
  switch (op) {
    case 1: return x * (1 - y);
    case 2: return x * y;
    case 3: return std::fabs(x - y);
    case 4: return std::max(x, y);
    case 5: return std::min(x, y);
    default: return x + y - x * y;  // screen, also for an unknown op
  }
}

float matteCombine(const std::vector<float>& P, float a, float b) {
  float av = sat(a), bv = sat(b);
  if (P[1] > 0.5f) av = 1 - av;
  float r = P[2] > 0.5f ? av : std::max(av, bv);
  const long o = std::lround(P[0]);
  if (o == 1) r = av * (1 - bv);
  if (o == 2) r = av * bv;
  if (o == 3) r = sat(av + bv);
  if (o == 4) r = std::fabs(av - bv);
  return r;
}

// Neighbouring frames weighed by how alike their 3x3 means are to the current frame's.
Rgba matteChatter(const std::vector<Image>& in, const std::vector<float>& P, int x, int y) {
  const Image& cur = in[0];
  const int st = std::max(1, int(std::lround(P[7]))), w = cur.w, h = cur.h;
  const float tau = std::max(0.02f, P[6]);
  auto chan = [](const Rgba& p, int c) { return c == 0 ? p.r : c == 1 ? p.g : p.b; };
  auto mean3 = [&](const Image& im, int c) {
    float acc = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        acc += chan(im.at(std::clamp(x + dx * st, 0, w - 1), std::clamp(y + dy * st, 0, h - 1)), c);
    return acc / 9.0f;
  };
  float o[3];
  for (int c = 0; c < 3; ++c) {
    float cm = mean3(cur, c), sum = chan(cur.at(x, y), c), wsum = 1;
    for (int i = 0; i < 6; ++i) {
      if (!(P[i] > 0)) continue;
      float d = std::fabs(mean3(in[1 + i], c) - cm) / tau;
      float k = P[i] * std::exp(-d * d);
      sum += k * chan(in[1 + i].at(x, y), c);
      wsum += k;
    }
    o[c] = sum / wsum;
  }
  return {o[0], o[1], o[2], 1};
}

TEST(MatteKernels, EveryOpMatchesItsFormula) {
  const Image a = matteA(20, 8), b = matteB(20, 8);
  const Image pic = noise(16, 9, 11, -0.2f, 1.6f), other = noise(16, 9, 12, 0, 2), m = matteB(16, 9);
  // diffmatte: f differs from p by a growing amount in one channel that changes with x, alpha over 1 in places.
  const Image p = noise(16, 8, 21);
  const Image f = storedPicture(16, 8, [&](int x, int y) {
    Rgba v = p.at(x, y);
    float d = 0.004f * x * (y % 2 ? 1.0f : -1.0f);
    (x % 3 == 0 ? v.r : x % 3 == 1 ? v.g : v.b) += d;
    v.a = 0.25f * (y % 6);
    return v;
  });
  // mattechatter: n0 close to the current frame, n1 far on the right half, n2 and n3 weighed 0 and
  // below 0 (both ignored), n4 and n5 shifted copies.
  const Image cur = noise(12, 8, 31);
  auto near = [&](auto f) { return storedPicture(12, 8, [&](int x, int y) { return f(cur.at(x, y), x, y); }); };
  const std::vector<Image> chatter = {
      cur, near([](Rgba v, int, int) { return v + Rgba{0.03f, -0.02f, 0.01f, 0}; }),
      near([](Rgba v, int x, int) { float s = x >= 6 ? 0.4f : 0.05f; return v + Rgba{-s, s, 0, 0}; }),
      noise(12, 8, 32), noise(12, 8, 33), near([](Rgba v, int, int y) { return v + Rgba{0, 0.02f * (y % 3), 0, 0}; }),
      near([](Rgba v, int x, int) { return v + Rgba{0.01f * (x % 4), 0, -0.06f, 0}; })};
  const Image blurred = storedPicture(16, 8, [](int x, int) { return Rgba{x / 15.0f, 0.9f, 0.1f, 1}; });
  const Image garbage = storedPicture(16, 8, [](int, int y) { return Rgba{y / 7.0f, 0, 1, 0.5f}; });
  const Image alpha = storedPicture(16, 8, [](int x, int y) { return Rgba{x * y / 105.0f, 0.2f, 0.8f, 0.1f}; });

  std::vector<std::vector<float>> combine;
  for (float op : {0, 1, 2, 3, 4})
    for (float inv : {0, 1})
      for (float single : {0, 1}) combine.push_back({op, inv, single, 0});
  std::vector<std::vector<float>> grow;
  for (float sense : {1.0f, -1.0f, 0.0f, 0.4f})
    for (float garb : {0, 1}) grow.push_back({sense, garb});

  checkRows({
      // Red only, unclamped; op 2 is a times one minus b.
      {"k_matteop", {a, b}, {{0, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 0, 0}}, [](const auto& in, const auto& P, int x, int y) {
         float av = in[0].at(x, y).r, bv = in[1].at(x, y).r;
         return white(P[0] > 1.5f ? av * (1 - bv) : av * bv);
       }},
      // Ops are rounded; 9 is unknown and screens.
      {"k_maskblend", {a, b}, {{0}, {1}, {2}, {3}, {4}, {5}, {1.4f}, {4.6f}, {9}}, [](const auto& in, const auto& P, int x, int y) {
         return white(sat(maskBlend(int(std::lround(P[0])), in[0].at(x, y).r, in[1].at(x, y).r)));
       }},
      {"k_mattecombine", {a, b}, combine, [](const auto& in, const auto& P, int x, int y) {
         return white(matteCombine(P, in[0].at(x, y).r, in[1].at(x, y).r));
       }},
      // Single with invert is an inverted copy of the saturated matte.
      {"k_mattecombine", {a, a}, {{0, 1, 1, 0}}, [](const auto& in, const auto&, int x, int y) {
         return white(1 - sat(in[0].at(x, y).r));
       }},
      {"k_mattemul", {pic, m}, {{}}, [](const auto& in, const auto&, int x, int y) {
         return withAlpha(in[0].at(x, y) * sat(in[1].at(x, y).r), 1);
       }},
      {"k_mattemix", {pic, other, m}, {{}}, [](const auto& in, const auto&, int x, int y) {
         return lerp(in[0].at(x, y), in[1].at(x, y), in[2].at(x, y).r);
       }},
      {"k_premultmatte", {pic, m}, {{}}, [](const auto& in, const auto&, int x, int y) {
         const float k = sat(in[1].at(x, y).r);
         return withAlpha(in[0].at(x, y) * k, k);
       }},
      {"k_alpha2gray", {pic}, {{}}, [](const auto& in, const auto&, int x, int y) { return white(in[0].at(x, y).a); }},
      // Changes between two frames where the first is opaque.
      {"k_diffmatte", {f, p}, {{0.006f, 0.03f}, {0.01f, 0.05f}}, [](const auto& in, const auto& P, int x, int y) {
         const Rgba d = in[0].at(x, y) - in[1].at(x, y);
         return white(smooth(P[0], P[1], std::max({std::fabs(d.r), std::fabs(d.g), std::fabs(d.b)})) *
                      sat(in[0].at(x, y).a));
       }},
      // Six neighbour weights, tau, step; tau floors at 0.02 and the step at 1.
      {"k_mattechatter", chatter, {{1, 0.5f, 0, -1, 0, 0, 0.12f, 2}, {0.8f, 0.8f, 0, 0, 0.3f, 0.3f, 0.05f, 1},
                                   {1, 1, 0, 0, 0, 0, 0.001f, 0.4f}}, matteChatter},
      // The keyer's matte grown (sense 1), shrunk (-1) or kept, times the garbage matte.
      {"k_gkgrow", {blurred, garbage}, grow, [](const auto& in, const auto& P, int x, int y) {
         const float b = in[0].at(x, y).r;
         float v = P[0] > 0.5f ? sat(2 * b) : P[0] < -0.5f ? sat(2 * b - 1) : b;
         return white(P[1] > 0.5f ? v * in[1].at(x, y).r : v);
       }},
      {"k_gkpremult", {noise(16, 8, 91, 0, 1.2f), alpha}, {{}}, [](const auto& in, const auto&, int x, int y) {
         const float k = in[1].at(x, y).r;
         return withAlpha(in[0].at(x, y) * k, k);
       }},
  });
  // The matte op passes values over 1 unclamped.
  float most = 0;
  for (const Rgba& v : run1("k_matteop", {a, b}, 20, 8, {0, 0, 0, 0}).px) most = std::max(most, v.r);
  EXPECT_GT(most, 1.5f);
}

// ---------------------------------------------------------------------------------------------
// Colour, glow, grain and noise

TEST(ColorKernels, EveryPassMatchesItsFormula) {
  const Image in = noise(16, 9, 41, -0.1f, 1.4f);
  const Image mask = storedPicture(16, 9, [](int x, int y) { return Rgba{(x + y) / 23.0f, 1, 0, 0.3f}; });
  const Image bright = noise(16, 9, 51, 0, 1.5f, 0.2f, 0.9f), glow = noise(16, 9, 52, 0, 1.2f);
  const Image pic = noise(16, 9, 71), grain = noise(16, 9, 72, 0.4f, 0.6f);
  const Image original = noise(16, 9, 73), denoised = noise(16, 9, 74);
  const Image matte = storedPicture(16, 9, [](int x, int) { return Rgba{x / 10.0f - 0.2f, 0.5f, 0.5f, 1}; });
  // The noise passes: strength, use matte.
  auto limit = [](const auto& in, const auto& P, int x, int y) {
    return P[0] * (P[1] > 0.5f ? sat(in.back().at(x, y).r) : 1.0f);
  };
  checkRows({
      // exposure, lift, gamma, gain, saturation, temperature, use mask.
      {"k_color", {in, mask}, {{0.5f, 0.1f, 1.3f, 0.9f, 1.4f, 0.5f, 0, 0}, {-1, -0.05f, 0.7f, 1.2f, 0.3f, -0.8f, 0, 0},
                               {0.5f, 0.1f, 1.3f, 0.9f, 1.4f, 0.5f, 1, 0}, {0, 0, 1, 1, 0, 0, 1, 0}},  // last: luminance
       [](const auto& in, const auto& P, int x, int y) {
         const Rgba s = in[0].at(x, y);
         Rgba c = s;
         for (float* v : {&c.r, &c.g, &c.b}) {
           *v *= std::pow(2.0f, P[0]);
           *v += P[1] * (1 - *v);
           *v *= P[3];
           *v = std::pow(std::max(*v, 0.0f), 1.0f / P[2]);
         }
         c.r += P[5] * 0.06f;
         c.b -= P[5] * 0.06f;
         const float l = luma(c);
         c = grey(l, s.a) + (c - grey(l, s.a)) * P[4];
         return withAlpha(lerp(s, c, P[6] > 0.5f ? in[1].at(x, y).r : 1.0f), s.a);
       }},
      // Bright pass: threshold, (unused), warmth.
      {"k_bright", {bright}, {{0.6f, 0.8f, 0.5f, 0}, {0.2f, 0.8f, -1, 0}, {1.2f, 0.8f, 0, 0}},
       [](const auto& in, const auto& P, int x, int y) {
         const Rgba s = in[0].at(x, y);
         const float k = std::max(0.0f, (luma(s) - P[0]) / std::max(1 - P[0], 0.001f));
         return Rgba{s.r * k * (1 + 0.35f * P[2]), s.g * k, s.b * k * (1 - 0.45f * P[2]), 1};
       }},
      // Screen of the glow at an intensity, each side clamped.
      {"k_screen", {bright, glow}, {{0.5f, 0.7f, 0, 0}, {0.5f, 2.5f, 0, 0}}, [](const auto& in, const auto& P, int x, int y) {
         const Rgba s = in[0].at(x, y), g = in[1].at(x, y);
         auto scr = [&](float v, float gv) { return 1 - (1 - sat(v)) * (1 - sat(gv * P[1])); };
         return Rgba{scr(s.r, g.r), scr(s.g, g.g), scr(s.b, g.b), s.a};
       }},
      // Grain: amount, block size (floored, at least 1), seed (truncated): one hashed value a block.
      {"k_grain", {noise(20, 12, 61, 0.1f, 0.9f)}, {{0.2f, 3, 57, 0}, {0.05f, 1, 1234567, 0}, {0.3f, 0.4f, 7, 0},
                                                    {0.1f, 4.9f, 57.8f, 0}},
       [](const auto& in, const auto& P, int x, int y) {
         const auto sz = std::uint32_t(std::max(1, int(P[1])));
         const float n = (hash2(std::uint32_t(x) / sz, std::uint32_t(y) / sz, std::uint32_t(int(P[2]))) * 2 - 1) * P[0];
         return in[0].at(x, y) + grey(n);
       }},
      // Denoise takes the extracted grain (around 0.5) away; renoise puts original minus denoised back.
      {"k_denoise", {pic, grain, matte}, {{0.8f, 0}, {0.8f, 1}}, [&](const auto& in, const auto& P, int x, int y) {
         return in[0].at(x, y) - withAlpha(in[1].at(x, y) - grey(0.5f), 0) * limit(in, P, x, y);
       }},
      {"k_renoise", {pic, original, denoised, matte}, {{0.8f, 0}, {0.8f, 1}}, [&](const auto& in, const auto& P, int x, int y) {
         return in[0].at(x, y) + withAlpha(in[1].at(x, y) - in[2].at(x, y), 0) * limit(in, P, x, y);
       }},
  });
}

TEST(ColorKernels, LutTrilinearCubeMixedFromSource) {
  // A non-identity cube: each entry a smooth but curved function of its lattice position.
  auto makeCube = [](int n) {
    std::vector<Rgba> e(size_t(n) * n * n);
    for (int b = 0; b < n; ++b)
      for (int g = 0; g < n; ++g)
        for (int r = 0; r < n; ++r) {
          float fr = float(r) / (n - 1), fg = float(g) / (n - 1), fb = float(b) / (n - 1);
          e[r + size_t(n) * (g + size_t(n) * b)] = {half(0.1f + 0.6f * fg * fg + 0.2f * fb),
                                                    half(0.9f * fr - 0.3f * fb * fr + 0.05f),
                                                    half(0.3f + 0.4f * fb * fb - 0.2f * fg), 1.0f};
        }
    return e;
  };
  const Image in = noise(12, 8, 81, -0.2f, 1.2f);  // some channels outside 0..1, which are clamped
  auto& runner = KernelRunner::shared();
  ASSERT_TRUE(runner.has("k_lut3d"));
  for (int n : {2, 3, 5})
    for (float mix : {1.0f, 0.6f, 1.7f}) {
      SCOPED_TRACE(testing::Message() << "size " << n << ", mix " << mix);
      const auto entries = makeCube(n);
      auto out = runner.blank(12, 8);
      runner.run("k_lut3d", {runner.upload(in), runner.cube(n, entries), out}, {n == 2 ? 0.0f : float(n), mix});  // under 2 is 2
      EXPECT_TRUE(matches(runner.read(out), expected(12, 8, [&](int x, int y) {
        const Rgba s = in.at(x, y);
        // Lattice position of each channel, then the eight corners weighted.
        const float p[3] = {sat(s.r) * (n - 1), sat(s.g) * (n - 1), sat(s.b) * (n - 1)};
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
          acc = acc + entries[size_t(i0[0] + dr) + size_t(n) * ((i0[1] + dg) + size_t(n) * (i0[2] + db))] * wgt;
        }
        return withAlpha(lerp(s, acc, sat(mix)), s.a);
      })));
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
    SCOPED_TRACE(testing::Message() << (k.blue > 0.5f ? "blue" : "green") << " key gain " << k.gain << " clips "
                                    << k.clipb << ".." << k.clipw << " despill " << k.despill);
    // Pixels blending from the screen colour to various subjects.
    const Image in = storedPicture(w, h, [&](int x, int y) {
      const float t = float(x) / (w - 1);
      return Rgba{lerp(k.sr, 0.2f + 0.07f * y, t), lerp(k.sg, 0.6f - 0.05f * y, t), lerp(k.sb, 0.3f + 0.03f * y, t), 0.5f};
    });
    const auto outs = runPass("k_gkey", {in}, w, h, {k.sr, k.sg, k.sb, k.balance, k.gain, k.clipb, k.clipw, k.blue,
                                                     k.despill}, {}, 2);
    const bool blue = k.blue > 0.5f;
    Image wantAlpha(w, h);
    const Image want = expected(w, h, [&](int x, int y) {
      const Rgba c = in.at(x, y);
      const float wb = k.balance;
      const float sc = blue ? k.sb : k.sg, so = blue ? k.sr * wb + k.sg * (1 - wb) : k.sr * wb + k.sb * (1 - wb);
      const float cc = blue ? c.b : c.g, co = blue ? c.r * wb + c.g * (1 - wb) : c.r * wb + c.b * (1 - wb);
      const float d = (cc - co) / std::max(sc - so, 0.001f);
      const float a = 1 - std::clamp(d * k.gain, 0.0f, 1.0f);
      wantAlpha.at(x, y) = white(std::clamp((a - k.clipb) / std::max(k.clipw - k.clipb, 0.001f), 0.0f, 1.0f));
      Rgba o = withAlpha(c, 1);
      (blue ? o.b : o.g) = lerp(cc, std::min(cc, co), k.despill);
      return o;
    });
    EXPECT_TRUE(matches(outs[0], want)) << "picture";
    EXPECT_TRUE(matches(outs[1], wantAlpha)) << "alpha";
  }
  // Pure screen keys out fully and is despilled down to the mix of red and blue; a subject with no
  // screen lead stays.
  const Image in = storedPicture(2, 1, [](int x, int) { return x == 0 ? Rgba{0.15f, 0.75f, 0.2f, 1} : Rgba{0.8f, 0.3f, 0.6f, 1}; });
  const auto outs = runPass("k_gkey", {in}, 2, 1, {0.15f, 0.75f, 0.2f, 0.5f, 1, 0, 1, 0, 1}, {}, 2);
  EXPECT_NEAR(outs[1].at(0, 0).r, 0.0f, 1e-3);
  EXPECT_NEAR(outs[1].at(1, 0).r, 1.0f, 1e-3);
  EXPECT_NEAR(outs[0].at(0, 0).g, 0.175f, 1e-3);
}

}  // namespace
