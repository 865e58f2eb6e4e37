// Pixel tests of the geometry, compositing, motion-warp, paint-mask and beauty kernels. Each
// expectation is computed here on the CPU from the inputs as the half-float textures store them, and
// compared within one half-float step (reads through the sampler get kSampled).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "engine/kernel_table.h"

using namespace ombrik::test;
using namespace ombrik::test::kernels;

namespace {

constexpr double kPi = std::numbers::pi;

Image noise(int w, int h, std::uint32_t seed, float lo, float hi, float alphaLo = 1, float alphaHi = 1) {
  return noisyPicture(w, h, seed, lo, hi, alphaLo, alphaHi);
}

// Premultiplied colours with alpha in lo..hi.
Image premultiplied(int w, int h, std::uint32_t seed, float alphaLo, float alphaHi) {
  Lcg rng(seed);
  return storedPicture(w, h, [&](int, int) {
    float a = rng.next(alphaLo, alphaHi);
    return Rgba{rng.next(0, 1) * a, rng.next(0, 1) * a, rng.next(0, 1) * a, a};
  });
}

// Bilinear read at normalised (u, v), the position worked out in float; outside the picture
// transparent black when zero, else the nearest edge texel.
Rgba bilinear(const Image& im, float u, float v, bool zero) { return bilinearRgba<float>(im, u, v, zero); }

// Where the 2x3 matrix m (row-major) takes the centre of pixel (x, y).
void mapped(const float* m, int x, int y, float& sx, float& sy) {
  const float qx = x + 0.5f, qy = y + 0.5f;
  sx = m[0] * qx + m[1] * qy + m[2];
  sy = m[3] * qx + m[4] * qy + m[5];
}

// A brush dab: centre, radius (fraction of the width), tool, vector and force, normalised.
struct Dab {
  float cx, cy, radius, tool, vx, vy, force;
};
std::vector<float> dabTable(const std::vector<Dab>& dabs) {
  std::vector<float> t;
  for (const Dab& d : dabs) t.insert(t.end(), {d.cx, d.cy, d.radius, d.tool, d.vx, d.vy, d.force, 0.0f});
  return t;
}

// ---------------------------------------------------------------------------------------------
// Geometry

TEST(GeometryKernels, TransformStabiliserOverAndPatch) {
  // A white source shifted right by 2.5 px: the left columns are transparent, not the edge pixel
  // repeated; at the border the bilinear read blends with transparent black.
  EXPECT_TRUE(matches(run1("k_xform", {Image(8, 4, grey(1, 1))}, 8, 4, {1, 0, -2.5f, 0, 1, 0}),
                      expected(8, 4, [](int x, int) { return x < 2 ? grey(0) : x == 2 ? grey(0.5f, 0.5f) : grey(1, 1); })))
      << "shifted white";

  // A 10x8 source under a scaled, sheared and shifted matrix onto a 12x10 output.
  const Image src = noise(10, 8, 11, 0, 1, 0.3f, 1);
  const float m[6] = {0.9f, 0.25f, -1.75f, -0.2f, 1.1f, 0.8f};
  const Image got = run1("k_xform", {src}, 12, 10, {m[0], m[1], m[2], m[3], m[4], m[5]});
  int outside = 0, inside = 0;
  const Image want = expected(12, 10, [&](int x, int y) {
    float sx, sy;
    mapped(m, x, y, sx, sy);
    // Exactly on the border the GPU may round either way; that pixel is not compared.
    if (std::fabs(sx) < 1e-3f || std::fabs(sy) < 1e-3f || std::fabs(sx - src.w) < 1e-3f || std::fabs(sy - src.h) < 1e-3f)
      return got.at(x, y);
    const bool out = sx < 0 || sy < 0 || sx > src.w || sy > src.h;
    ++(out ? outside : inside);
    return out ? Rgba{} : bilinear(src, sx / src.w, sy / src.h, true);
  });
  ASSERT_TRUE(outside > 5 && inside > 40) << outside << " outside, " << inside << " inside";
  EXPECT_TRUE(matches(got, want)) << "matrix";

  // The stabiliser lays a premultiplied picture over the plate and is opaque.
  Image a = premultiplied(9, 6, 21, 0, 1);
  a.at(0, 0) = {0, 0, 0, 0};             // fully transparent: only the plate shows
  a.at(1, 0) = {0.5f, 0.25f, 0.75f, 1};  // opaque: the plate hidden
  // The patch's 5x4 texels cover a 10x8 pixel box at (3, 2), under a slight rotation; around it the
  // front passes unchanged, alpha included.
  const Image front = noise(16, 12, 31, 0, 1, 0.2f, 1), patch = premultiplied(5, 4, 32, 0.3f, 1);
  auto patchRead = [&](const std::vector<float>& P, int x, int y) {
    float sx, sy;
    mapped(P.data(), x, y, sx, sy);
    return bilinear(patch, (sx - P[6]) / P[8], (sy - P[7]) / P[9], true);
  };
  const std::vector<float> patchP = {0.98f, 0.17f, -0.6f, -0.17f, 0.98f, 1.3f, 3, 2, 10, 8};
  int covered = 0;
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 16; ++x) covered += patchRead(patchP, x, y).a > 0;
  ASSERT_TRUE(covered > 40 && covered < 16 * 12 - 40) << covered << " pixels under the patch";
  checkRows({
      {"k_stabover", {a, noise(9, 6, 22, 0, 1.5f, 0, 1)}, {{}}, [](const auto& in, const auto&, int x, int y) {
         const Rgba A = in[0].at(x, y);
         return withAlpha(A + in[1].at(x, y) * (1 - A.a), 1);
       }},
      {"k_patchover", {front, patch}, {patchP}, [&](const auto& in, const auto& P, int x, int y) {
         const Rgba c = patchRead(P, x, y), f = in[0].at(x, y);
         return withAlpha(c + f * (1 - c.a), f.a);
       }},
  });
}

// ---------------------------------------------------------------------------------------------
// Warps

// The liquify displacement in pixels at (x, y), dabs walked in order.
void liquify(const std::vector<Dab>& dabs, float W, float H, float x, float y, float& dx, float& dy) {
  dx = dy = 0;
  for (const Dab& d : dabs) {
    float cx = d.cx * W, cy = d.cy * H;
    float r = std::max(1.0f, d.radius * W);
    float t = std::hypot(x - cx, y - cy) / r;
    if (t >= 1) continue;
    float w = (1 - t * t) * (1 - t * t);
    if (d.tool < -0.5f) {  // the eraser scales down what the dabs before it pushed
      dx *= 1 - w * sat(d.force);
      dy *= 1 - w * sat(d.force);
    } else if (d.tool == 0) {  // push along the dab's vector
      dx += d.vx * W * w;
      dy += d.vy * H * w;
    } else if (d.tool == 1 || d.tool == 2) {  // pull towards the centre, push away from it
      const float k = (d.tool == 1 ? -0.35f : 0.35f) * w * d.force;
      dx += (x - cx) * k;
      dy += (y - cy) * k;
    }
  }
}

// Two steps of inverting the displacement, then a clamped bilinear read.
Image liquified(const Image& src, const std::vector<Dab>& dabs, float amount) {
  const float W = float(src.w), H = float(src.h);
  return expected(src.w, src.h, [&](int x, int y) {
    float qx = x + 0.5f, qy = y + 0.5f, d1x, d1y, d2x, d2y;
    liquify(dabs, W, H, qx, qy, d1x, d1y);
    liquify(dabs, W, H, qx - d1x * amount, qy - d1y * amount, d2x, d2y);
    return bilinear(src, (qx - d2x * amount) / W, (qy - d2y * amount) / H, false);
  });
}

TEST(WarpKernels, FaceWarpPushPullEraserWithTwoInversionSteps) {
  // Red and green ramps tell where each pixel was read from; blue adds a diagonal.
  const Image src = storedPicture(32, 24, [](int x, int y) { return Rgba{x / 32.0f, y / 32.0f, 0.25f + (x + y) / 128.0f, 1}; });
  struct Case {
    const char* what;
    std::vector<Dab> dabs;
    float amount;
  };
  const std::vector<Case> cases = {
      {"push", {{0.5f, 0.5f, 0.25f, 0, 0.06f, -0.04f, 1}}, 1.0f},
      {"push at half mix", {{0.5f, 0.5f, 0.25f, 0, 0.06f, -0.04f, 1}}, 0.5f},
      {"pull in", {{0.4f, 0.45f, 0.3f, 1, 0, 0, 0.8f}}, 1.0f},
      {"push out", {{0.6f, 0.5f, 0.3f, 2, 0, 0, 1.0f}}, 1.0f},
      {"eraser after push", {{0.5f, 0.5f, 0.3f, 0, 0.08f, 0, 1}, {0.55f, 0.5f, 0.15f, -1, 0, 0, 0.7f}}, 1.0f},
      {"eraser before push does nothing", {{0.55f, 0.5f, 0.15f, -1, 0, 0, 0.7f}, {0.5f, 0.5f, 0.3f, 0, 0.08f, 0, 1}}, 1.0f},
      {"eraser force clamps to 1", {{0.5f, 0.5f, 0.3f, 0, 0.08f, 0.02f, 1}, {0.5f, 0.5f, 0.2f, -1, 0, 0, 1.6f}}, 1.0f},
      {"tiny radius floors at one pixel", {{0.5f, 0.5f, 0.001f, 0, 0.02f, 0, 1}}, 1.0f},
      {"strong push", {{0.5f, 0.5f, 0.25f, 0, 0.1f, 0, 1}}, 1.0f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Image got = run1("k_facewarp", {src}, 32, 24, {float(c.dabs.size()), c.amount}, dabTable(c.dabs));
    EXPECT_TRUE(matches(got, liquified(src, c.dabs, c.amount), kSampled));
  }
  // The second step matters: near the strong push a single inversion step reads elsewhere.
  const std::vector<Dab> push = cases.back().dabs;
  float dx, dy;
  liquify(push, 32, 24, 13.5f, 12.5f, dx, dy);
  EXPECT_GT(std::fabs(liquified(src, push, 1).at(13, 12).r - bilinear(src, (13.5f - dx) / 32, 12.5f / 24, false).r), 0.01f);
  // No dabs: the picture passes unchanged, whatever the table holds.
  EXPECT_TRUE(matches(run1("k_facewarp", {src}, 32, 24, {0, 1}, dabTable(push)), src, kSampled));
}

struct MotionInputs {
  Image retouch, plate, map;
};

// P: mix, hide lost areas, view, offsets. Returns the picture; alphaOut gets the alpha output.
Image motionWarped(const MotionInputs& in, const std::vector<float>& P, Image& alphaOut) {
  const int W = in.plate.w, H = in.plate.h;
  alphaOut = Image(W, H);
  return expected(W, H, [&](int x, int y) {
    float u = (x + 0.5f) / W, v = (y + 0.5f) / H;
    Rgba m = bilinear(in.map, u, v, false);
    float conf = lerp(1.0f, smooth(0.15f, 0.85f, m.b), sat(P[1]));
    if (P[3] > 0.5f) {
      m.r += u;
      m.g += v;
    }
    Rgba r = bilinear(in.retouch, m.r, m.g, true);
    float k = sat(P[0]) * conf;
    float a = r.a * k;
    Rgba plate = in.plate.at(x, y);
    Rgba c = plate * (1 - a) + r * k;
    if (P[2] > 2.5f) c = grey(conf);
    else if (P[2] > 1.5f) c = {0.5f + 8 * (m.r - u), 0.5f + 8 * (m.g - v), 0.5f, 0};
    else if (P[2] > 0.5f) c = r * k;
    alphaOut.at(x, y) = {a, a, a, 1};
    return withAlpha(c, std::max(plate.a, a));
  });
}

// A motion map of w x h: vectors (absolute positions, or offsets) and a confidence.
Image motionMap(int w, int h, bool offsets, float ax, float ay, float fx, float fy, float gx, float gy,
                std::function<float(int, int)> conf) {
  return storedPicture(w, h, [&](int x, int y) {
    float dx = ax * std::sin(fx * x + fy * y), dy = ay * std::cos(gx * x - gy * y);
    float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
    return offsets ? Rgba{dx, dy, conf(x, y), 1} : Rgba{u + dx, v + dy, conf(x, y), 1};
  });
}

TEST(WarpKernels, MotionWarpMapsMixesAndViews) {
  for (bool offsets : {false, true}) {
    SCOPED_TRACE(offsets ? "offset map" : "absolute map");
    const float off = offsets ? 1.0f : 0.0f;
    MotionInputs in{premultiplied(16, 12, 41, 0, 1), noise(16, 12, 42, 0, 1, 0, 1), {}};
    Lcg rng(43);
    // Vectors reach past the borders near the edges, where the retouch reads transparent black.
    in.map = motionMap(16, 12, offsets, 0.09f, 0.08f, 0.7f, 0.3f, 0.4f, 0.9f, [&](int, int) { return rng.next(0, 1); });
    // A map of half the resolution is read bilinearly at each output pixel.
    MotionInputs low = in;
    low.map = motionMap(8, 6, offsets, 0.05f, 0.04f, 0.5f, 0.3f, 0.4f, 0.6f,
                        [](int x, int y) { return 0.5f + 0.3f * std::sin(0.8f * x + 0.5f * y); });
    struct Case {
      const MotionInputs* in;
      std::vector<float> P;
    };
    const Case cases[] = {{&in, {0.8f, 1, 0, off}},   {&in, {1.7f, 0.4f, 0, off}}, {&in, {1, 0, 0, off}},
                          {&in, {0.6f, 1.6f, 0, off}}, {&low, {0.9f, 1, 0, off}},   {&in, {0.9f, 0.7f, 1, off}},
                          {&in, {0.9f, 0.7f, 2, off}},  {&in, {0.9f, 0.7f, 3, off}}};
    for (const Case& c : cases) {
      SCOPED_TRACE(describe("k_mvwarp", c.P));
      const auto outs = runPass("k_mvwarp", {c.in->retouch, c.in->plate, c.in->map}, 16, 12, c.P, {}, 2);
      Image wantAlpha;
      const Image want = motionWarped(*c.in, c.P, wantAlpha);
      // The views magnify (the vector view by 8); the low map is read through the sampler.
      const float tol = c.P[2] > 0.5f ? 2 * kStep : c.in == &low ? kSampled : kStep;
      EXPECT_TRUE(matches(outs[0], want, tol));
      EXPECT_TRUE(matches(outs[1], wantAlpha, c.in == &low ? kSampled : kStep));
    }
    // Reading the map as the other kind gives something else: the flag is honoured.
    Image unused;
    EXPECT_FALSE(matches(runPass("k_mvwarp", {in.retouch, in.plate, in.map}, 16, 12, {1, 0, 0, 1 - off}, {}, 2)[0],
                         motionWarped(in, {1, 0, 0, off}, unused)));
  }
}

TEST(WarpKernels, MotionVectorPremultiplyAndDivideBack) {
  Lcg rng(51);
  // Confidence beyond 0..1 is clamped for the weight but passed on as stored.
  const Image map = storedPicture(10, 6, [&](int, int) {
    return Rgba{rng.next(-0.3f, 0.3f), rng.next(-0.3f, 0.3f), rng.next(-0.2f, 1.2f), 1};
  });
  const Image weighted = run1("k_mvpremul", {map}, 10, 6, {});
  EXPECT_TRUE(matches(weighted, expected(10, 6, [&](int x, int y) {
    const Rgba m = map.at(x, y);
    const float w = sat(m.b) * sat(m.b) + 0.001f;
    return Rgba{m.r * w, m.g * w, m.b, w};
  })));
  // Dividing straight back (no blur between) restores the vectors.
  const Image back = run1("k_mvunpremul", {weighted, map}, 10, 6, {});
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) {
      const Rgba m = map.at(x, y), b = back.at(x, y);
      EXPECT_TRUE(std::fabs(b.r - m.r) <= 2 * kStep && std::fabs(b.g - m.g) <= 2 * kStep &&
                  std::fabs(b.b - m.b) <= kStep && b.a == 0)
          << "at " << x << "," << y;
    }
  // A blurred weight under 0.001 is floored there.
  Image blurred = noise(10, 6, 52, -0.2f, 0.2f, 0, 0.004f);
  blurred.at(0, 0).a = 0;
  checkRow({"k_mvunpremul", {blurred, map}, {{}}, [](const auto& in, const auto&, int x, int y) {
              const Rgba b = in[0].at(x, y);
              const float w = std::max(b.a, 0.001f);
              return Rgba{b.r / w, b.g / w, in[1].at(x, y).b, 0};
            }});
}

// ---------------------------------------------------------------------------------------------
// Compositing, resampling and the mask view

// The top (premultiplied) laid over the under picture in a mode at an opacity.
Rgba layered(Rgba b, Rgba t, float opacity, long mode) {
  const float a = sat(t.a) * opacity;
  const Rgba f = t.a > 0.0001f ? t * (1.0f / t.a) : Rgba{};
  Rgba r = f;
  if (mode == 1) r = b + f;
  if (mode == 2) r = grey(1) - (grey(1) - b) * (grey(1) - f);
  if (mode == 3) r = b * f;
  return withAlpha(lerp(b, r, a), std::max(b.a, a));
}

TEST(LayerKernels, MixLayerModesResampleAndMaskView) {
  const Image under = noise(9, 7, 71, 0, 1, 0, 1);
  Image top = premultiplied(9, 7, 72, 0.05f, 1);
  top.at(0, 0) = {0.25f, 0.125f, 0.0625f, 0.5f};  // straight colour (0.5, 0.25, 0.125)
  top.at(1, 0) = {0.75f, 0.375f, 1.5f, 1.5f};     // alpha over 1 covers as 1
  std::vector<std::vector<float>> layerCases;
  for (float mode : {0.0f, 0.9f, 2.2f, 3.0f})  // the mode is rounded: 0.9 is add and 2.2 is screen
    for (float opacity : {1.0f, 0.6f}) layerCases.push_back({opacity, mode});
  // Stray colour on alpha 0 or under 0.0001 must not be divided into a bright value.
  const Image faint = storedPicture(9, 7, [](int x, int y) { return Rgba{0.3f, 0.2f, 0.1f, (x + y) % 2 ? 0.0f : 0.00005f}; });

  Image src = noise(20, 14, 81, 0.2f, 0.8f, 0.5f, 1);
  src.at(0, 0) = {half(1.7f), -0.5f, 0.5f, 1};  // out-of-range values clamp when written as bytes
  auto resampled = [](const auto& in, const auto& P, int x, int y) {
    const Rgba c = bilinear(in[0], (x + 0.5f) / P[0], (y + 0.5f) / P[1], false);
    return P[2] > 0 ? Rgba{sat(c.r), sat(c.g), sat(c.b), sat(c.a)} : c;
  };
  Lcg rng(91);
  const Image mask = storedPicture(8, 6, [&](int x, int) { return grey(x < 2 ? 0.0f : x > 5 ? 1.0f : rng.next(0, 1), 1); });
  const Image pic = noise(16, 12, 92, 0, 1.3f);  // overbright parts saturate
  // The mask view keeps the picture where the mask is on, 35 % of it and a red tint where off.
  auto maskView = [](const auto& in, const auto&, int x, int y) {
    const float u = (x + 0.5f) / 16, v = (y + 0.5f) / 12, m = bilinear(in[0], u, v, false).r;
    const Rgba c = bilinear(in[1], u, v, false) * (m + (1 - m) * 0.35f) + Rgba{0.18f, 0.02f, 0.03f, 0} * (1 - m);
    return Rgba{sat(c.r), sat(c.g), sat(c.b), 1};
  };
  // The resample rows pass the output size and byte flag as parameters for the reference only.
  checkRows({
      {"k_mix2", {noise(8, 6, 61, -0.5f, 2, 0, 1), noise(8, 6, 62, 0, 1, 0, 1)}, {{0}, {0.3f}, {1}, {1.5f}},
       [](const auto& in, const auto& P, int x, int y) { return lerp(in[0].at(x, y), in[1].at(x, y), P[0]); }},
      {"k_layer", {under, top}, layerCases, [](const auto& in, const auto& P, int x, int y) {
         return layered(in[0].at(x, y), in[1].at(x, y), P[0], std::lround(P[1]));
       }},
      {"k_layer", {under, faint}, {{1, 0}, {1, 1}, {1, 2}, {1, 3}},
       [](const auto& in, const auto&, int x, int y) { return in[0].at(x, y); }},
      {"k_resample", {src}, {{7, 5, 1}}, resampled, kByte, 7, 5, true},
      {"k_resample", {src}, {{32, 20, 0}}, resampled, kSampled, 32, 20},
      {"k_resample", {src}, {{1, 1, 1}}, resampled, kByte, 1, 1, true},  // one pixel: the picture's centre
      {"k_maskview", {mask, pic}, {{}}, maskView, kByte, 16, 12, true},
      {"k_maskview", {mask, pic}, {{}}, maskView, kSampled, 16, 12},
  });
  // Hand-worked: normal at full opacity on a half-transparent top is half under, half the straight colour.
  const Rgba l = run1("k_layer", {under, top}, 9, 7, {1, 0}).at(0, 0), b = under.at(0, 0);
  EXPECT_NEAR(l.r, 0.5f * b.r + 0.5f * 0.5f, kStep);
  EXPECT_NEAR(l.b, 0.5f * b.b + 0.5f * 0.125f, kStep);
  EXPECT_NEAR(l.a, std::max(b.a, 0.5f), kStep);
  // The top-left corner of an enlargement holds the overbright texel.
  EXPECT_NEAR(run1("k_resample", {src}, 40, 28, {}).at(0, 0).r, half(1.7f), kStep);
  // Fully outside the mask: 35 % of the picture plus the red tint.
  EXPECT_NEAR(run1("k_maskview", {mask, pic}, 16, 12, {}).at(0, 5).r, sat(pic.at(0, 5).r * 0.35f + 0.18f), kSampled);
}

// ---------------------------------------------------------------------------------------------
// Beauty paint masks

float dabMask(const std::vector<Dab>& dabs, float soft, int W, float x, float y, int H) {
  float m = 0;
  for (const Dab& d : dabs) {
    float r = std::max(1.0f, d.radius * W);
    float dist = std::hypot(x - d.cx * W, y - d.cy * H);
    if (dist >= r) continue;
    float e0 = r * (1 - soft);
    float w = (1 - (e0 < r ? smooth(e0, r, dist) : 0.0f)) * sat(d.force);
    m = d.tool < -0.5f ? m * (1 - w) : 1 - (1 - m) * (1 - w);
  }
  return m;
}

TEST(PaintKernels, DabMaskOrderEraserSoftnessAndMatte) {
  const int W = 32, H = 24;
  const Image matte = noise(W, H, 101, -0.3f, 1.4f);
  const std::vector<Dab> strokes = {
      {0.3f, 0.5f, 0.2f, 0, 0, 0, 0.8f},
      {0.45f, 0.5f, 0.15f, 1, 0, 0, 1.5f},   // force clamps to 1
      {0.4f, 0.4f, 0.1f, -1, 0, 0, 0.6f},    // eraser
      {0.42f, 0.42f, 0.05f, 0, 0, 0, 0.5f},  // repaints inside the erased spot
  };
  const std::vector<Dab> reversed(strokes.rbegin(), strokes.rend());
  // The order matters where the eraser and the strokes overlap.
  ASSERT_GT(std::fabs(dabMask(strokes, 0.5f, W, 13.5f, 10.5f, H) - dabMask(reversed, 0.5f, W, 13.5f, 10.5f, H)), 0.05f);
  struct Case {
    const char* what;
    const std::vector<Dab>* dabs;
    float soft;
    bool useMatte;
  };
  const Case cases[] = {{"soft", &strokes, 0.5f, false},
                        {"reversed order", &reversed, 0.5f, false},
                        {"hard brush", &strokes, 0.0f, false},
                        {"fully soft, matte on", &strokes, 1.0f, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Image got = run1("k_dabmask", {matte}, W, H, {float(c.dabs->size()), c.soft, c.useMatte ? 1.0f : 0.0f},
                           dabTable(*c.dabs));
    EXPECT_TRUE(matches(got, expected(W, H, [&](int x, int y) {
      const float m = dabMask(*c.dabs, c.soft, W, x + 0.5f, y + 0.5f, H) * (c.useMatte ? sat(matte.at(x, y).r) : 1.0f);
      return grey(m, 1);
    })));
  }
  // Zero dabs paint nothing, whatever the table holds.
  EXPECT_TRUE(matches(run1("k_dabmask", {matte}, W, H, {0, 0.5f, 0}, dabTable(strokes)), Image(W, H, grey(0, 1))));
}

struct Polygon {
  std::vector<Pt> pts;
  float grow, soft, weight, mode;
  float box[4];
};

std::vector<float> polygonTable(const std::vector<Polygon>& polys) {
  std::vector<float> d = {float(polys.size())};
  std::size_t start = 1 + 12 * polys.size();
  for (const Polygon& p : polys) {
    d.insert(d.end(), {float(start), float(p.pts.size()), p.grow, p.soft, p.weight, p.mode, p.box[0], p.box[1],
                       p.box[2], p.box[3], 0, 0});
    start += 2 * p.pts.size();
  }
  for (const Polygon& p : polys)
    for (const Pt& q : p.pts) d.insert(d.end(), {float(q.x), float(q.y)});
  return d;
}

// Each polygon inside its box goes to red (mode 0), green (1) or blue (other), keeping the greater value.
Rgba polygonMask(const std::vector<Polygon>& polys, float x, float y) {
  float ch[3] = {0, 0, 0};
  for (const Polygon& p : polys) {
    if (x < p.box[0] || y < p.box[1] || x > p.box[2] || y > p.box[3]) continue;
    const float d = float(outlineDistance(p.pts, x, y));  // even-odd: odd winding is inside
    const float v = smooth(-std::max(0.5f, p.soft), 0, (winding(p.pts, x, y) % 2 ? d : -d) + p.grow) * p.weight;
    float& c = ch[p.mode == 0 ? 0 : p.mode == 1 ? 1 : 2];
    c = std::max(c, v);
  }
  return {ch[0], ch[1], ch[2], 1};
}

TEST(PaintKernels, PolygonMaskEvenOddGrowChannelsAndExclusion) {
  const int W = 64, H = 36;
  // A five-pointed star drawn in one stroke: its centre is outside by the even-odd rule.
  Polygon star{{}, 0, 1.5f, 1, 0, {0, 0, 64, 36}};
  for (int i = 0; i < 5; ++i) {
    double a = -kPi / 2 + i * 4 * kPi / 5;
    star.pts.push_back({float(18.25f + 16 * std::cos(a)), float(18.25f + 16 * std::sin(a))});  // as the table holds them
  }
  const std::vector<Polygon> polys = {
      star,
      // Exclusion square grown by 2 px, weight 0.7, wide outward softness.
      {{{40.25f, 4.25f}, {52.25f, 4.25f}, {52.25f, 14.25f}, {40.25f, 14.25f}}, 2, 3, 0.7f, 1, {30, 0, 64, 24}},
      // A second exclusion overlapping it (green keeps the greater value), its box cutting it at x 56, y 20.
      {{{44.25f, 8.25f}, {60.25f, 8.25f}, {60.25f, 21.25f}, {44.25f, 21.25f}}, 0, 1, 0.5f, 1, {30, 0, 56, 20}},
      // Hollow triangle shrunk by 1.5 px, softness floored at 0.5 px; mode 5 still goes to blue.
      {{{36.25f, 20.25f}, {60.25f, 22.25f}, {44.25f, 34.25f}}, -1.5f, 0, 1, 5, {30, 16, 64, 36}},
      // A weaker zone over part of the star: red keeps the greater value.
      {{{4.25f, 26.25f}, {30.25f, 26.25f}, {30.25f, 35.25f}, {4.25f, 35.25f}}, 0, 2, 0.5f, 0, {0, 0, 64, 36}},
      // A zone cut by its box: nothing outside x 46..64, y 24..36 though the shape spreads wider.
      {{{40.25f, 25.25f}, {63.25f, 25.25f}, {63.25f, 35.25f}, {40.25f, 35.25f}}, 0, 1, 0.9f, 0, {46, 24, 64, 36}},
  };
  const Image got = run1("k_polymask", {}, W, H, {}, polygonTable(polys));
  EXPECT_TRUE(matches(got, expected(W, H, [&](int x, int y) { return polygonMask(polys, x + 0.5f, y + 0.5f); })));
  // Hand-worked: the star's inner pentagon is a hole, its arms full; nothing left of the last box;
  // the grown square full 1 px outside its edge and not summed with the overlapping exclusion; the
  // second exclusion alone inside its box, nothing past it.
  struct Spot {
    int x, y, channel;
    float value;
  };
  for (const Spot s : {Spot{18, 18, 0, 0}, {18, 5, 0, 1}, {42, 30, 0, 0}, {50, 30, 0, 0.9f}, {53, 8, 1, 0.7f},
                       {48, 10, 1, 0.7f}, {54, 17, 1, 0.5f}, {57, 17, 1, 0}, {50, 20, 1, 0}}) {
    const Rgba p = got.at(s.x, s.y);
    EXPECT_NEAR(s.channel ? p.g : p.r, s.value, kStep) << "at " << s.x << "," << s.y;
  }
  // No polygons: black, alpha 1.
  EXPECT_TRUE(matches(run1("k_polymask", {}, 8, 6, {}, {0.0f}), Image(8, 6, grey(0, 1))));

  // The exclusion pass: the painted mask (source 0), the polygons' red (1) or blue (2), less their
  // green, times the matte when asked.
  std::vector<std::vector<float>> cases;
  for (float source : {0.0f, 1.0f, 2.0f, 1.6f})
    for (float useMatte : {0, 1}) cases.push_back({source, useMatte});
  checkRow({"k_maskexcl", {noise(10, 7, 111, 0, 1), noise(10, 7, 112, 0, 1), noise(10, 7, 113, -0.4f, 1.5f)}, cases,
            [](const auto& in, const auto& P, int x, int y) {
              const Rgba q = in[1].at(x, y);
              float v = (P[0] < 0.5f ? in[0].at(x, y).r : P[0] < 1.5f ? q.r : q.b) * (1 - q.g);
              if (P[1] > 0.5f) v *= sat(in[2].at(x, y).r);
              return grey(v, 1);
            }});
}

// ---------------------------------------------------------------------------------------------
// Beauty retouch

// Lifts hollows (where the wide blur b is brighter than the narrow one a) by the luminance gain
// and their colour shift. in: beauty, origin, a, b, mask. P: intensity, colour, view.
Rgba hollowLift(const std::vector<Image>& in, const std::vector<float>& P, int x, int y) {
  const Rgba beauty = in[0].at(x, y), origin = in[1].at(x, y), A = in[2].at(x, y), C = in[3].at(x, y);
  const float mask = in[4].at(x, y).r, la = luma(A), lc = luma(C);
  const float gain = std::clamp((lc + 0.004f) / (la + 0.004f), 1.0f, 2.2f);
  const float hollow = sat(4 * (gain - 1)), k = sat(P[0]) * mask;
  Rgba o = beauty * lerp(1.0f, gain, k);
  o = o + ((C - grey(lc)) - (A - grey(la))) * (hollow * k * P[1]);
  if (P[2] > 2.5f) o = grey(hollow * mask);
  else if (P[2] > 1.5f) o = grey(0.5f) + (origin - o) * 4;
  else if (P[2] > 0.5f) o = lerp(origin * 0.35f, grey(1), 0.8f * mask);
  return withAlpha(o, beauty.a);
}

TEST(BeautyKernels, HollowLiftFormulaViewsAndNeverDarkens) {
  const std::vector<Image> in = {noise(12, 8, 121, 0.05f, 0.9f, 0.3f, 1), noise(12, 8, 122, 0.05f, 0.9f),
                                 noise(12, 8, 123, 0.05f, 0.8f), noise(12, 8, 124, 0.05f, 0.8f),
                                 noise(12, 8, 125, 0, 1)};
  checkRow({"k_hollowlift", in, {{0.8f, 0.6f, 0}, {1.7f, 1, 0}, {0.5f, 0.3f, 1}, {0.9f, 0.5f, 2}, {0.9f, 0.5f, 3}},
            hollowLift});
  // Whatever the formula says: a bump (the wide blur darker) stays as it is, a hollow only brightens.
  const Image got = run1("k_hollowlift", in, 12, 8, {1, 0, 0});
  int bumps = 0, hollows = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) {
      const Rgba o = got.at(x, y), b = in[0].at(x, y);
      const bool bump = luma(in[3].at(x, y)) <= luma(in[2].at(x, y));
      ++(bump ? bumps : hollows);
      const float least = std::min({o.r - b.r, o.g - b.g, o.b - b.b});
      const float most = std::max({std::fabs(o.r - b.r), std::fabs(o.g - b.g), std::fabs(o.b - b.b)});
      EXPECT_TRUE(least >= -kStep && (!bump || most <= kStep) && std::fabs(o.a - b.a) <= kStep)
          << (bump ? "bump" : "hollow") << " changed at " << x << "," << y;
    }
  EXPECT_TRUE(bumps > 10 && hollows > 10) << bumps << " bumps, " << hollows << " hollows";
}

struct RetouchInputs {
  Image s, g1, g2, g3, g4, matte;
  std::vector<Image> all() const { return {s, g1, g2, g3, g4, matte}; }
};

// The edge protection from the gradient of g2's luminance, taps two pixels apart.
float edgeAt(const Image& g2, int x, int y) {
  auto l2 = [&](int X, int Y) { return luma(fetch(g2, X, Y)); };
  return smooth(0.015f, 0.09f, std::hypot(l2(x + 2, y) - l2(x - 2, y), l2(x, y + 2) - l2(x, y - 2)));
}

// The retouch without grain. skinOut receives the skin mask.
Rgba retouch(const RetouchInputs& in, const std::vector<float>& P, int x, int y, float* skinOut = nullptr) {
  Rgba s = in.s.at(x, y), g1 = in.g1.at(x, y), g2 = in.g2.at(x, y), g3 = in.g3.at(x, y), g4 = in.g4.at(x, y);
  float skin = 1;
  if (P[11] > 0.5f) {
    float yy = luma(g1);
    float cb = (g1.b - yy) * 0.564f, cr = (g1.r - yy) * 0.713f;
    float d = std::hypot((cr - 0.075f) / 0.07f, (cb + 0.05f) / 0.06f);
    float tol = 0.6f + 1.6f * P[12];
    skin = (1 - smooth(tol, tol + 0.8f, d)) * smooth(0.04f, 0.12f, yy) * (1 - smooth(0.97f, 1.0f, yy));
  }
  if (P[14] > 0.5f) skin *= sat(in.matte.at(x, y).r);
  if (skinOut) *skinOut = skin;
  const float protect = 1 - edgeAt(in.g2, x, y) * P[9];

  Rgba B[4] = {s - g1, g1 - g2, g2 - g3, g3 - g4};
  float Y[4];
  Rgba C[4];
  for (int i = 0; i < 4; ++i) {
    Y[i] = luma(B[i]);
    C[i] = B[i] - grey(Y[i]);
  }
  float k1 = 1 - P[2] * protect, k2 = 1 - P[3] * protect, k3 = 1 - P[4] * protect;
  float kc = 1 - std::max(P[7], 0.0f) * protect;
  float dark = std::min(0.0f, Y[1] + Y[2]);
  float yb = Y[1] * k1 + Y[2] * k2 - dark * P[6] * protect * 0.9f;
  float y0k = Y[0] * (1 - P[1]) * P[5];
  Rgba r = g4 + grey(y0k + yb + Y[3] * k3) + C[0] * (1 - P[1]) + C[1] * std::min(k1, kc) + C[2] * std::min(k2, kc) +
           C[3] * std::min(k3, kc);
  float ry = luma(r);
  float hi = smooth(0.65f, 1.0f, ry) * P[8];
  r = r - grey(ry - lerp(ry, 0.65f + (ry - 0.65f) * 0.35f, hi));

  Rgba o = lerp(s, r, sat(P[0] * skin));
  if (P[13] > 1.5f) o = grey(0.5f) + (s - o) * 4;
  else if (P[13] > 0.5f) o = grey(skin);
  return withAlpha(o, s.a);
}

// P: mix, fine, small, medium, large, texture, blemish, redness, shine, edges, grain, skin auto,
// tolerance, view, use matte, time.
std::vector<float> retouchParams(float view = 0) {
  return {0.85f, 0.4f, 0.7f, 0.6f, 0.5f, 0.3f, 0.8f, 0.9f, 0.5f, 0.7f, 0.0f, 1.0f, 0.1f, view, 1.0f, 0.0f};
}
// retouchParams() with some sliders set: {index, value} pairs.
std::vector<float> retouchParams(std::initializer_list<std::pair<int, float>> set) {
  auto P = retouchParams();
  for (auto [i, v] : set) P[i] = v;
  return P;
}

// Skin-toned pictures with detail in every band; the top two rows of g1 are blue, never skin,
// and its last two rows are skin so dark, then so bright, that the mask fades out.
RetouchInputs texturedSkin() {
  const Rgba tone{0.78f, 0.57f, 0.47f, 1};
  auto around = [&](std::uint32_t seed, float spread) {
    Lcg rng(seed);
    return storedPicture(14, 10, [&, spread](int, int) {
      return tone + Rgba{rng.next(-spread, spread), rng.next(-spread, spread), rng.next(-spread, spread), 0};
    });
  };
  RetouchInputs in{around(131, 0.12f), around(133, 0.06f), around(134, 0.05f), around(135, 0.03f), around(136, 0.02f),
                   noise(14, 10, 137, 0.3f, 1.3f)};
  Lcg rng(132);
  for (Rgba& c : in.s.px) c.a = half(rng.next(0.4f, 1.0f));
  for (int x = 0; x < 14; ++x) {
    in.g1.at(x, 0) = in.g1.at(x, 1) = {half(0.2f), half(0.3f), half(0.8f), 1};
    const float k = 0.96f + 0.005f * x, dark = 0.08f + 0.01f * x;
    in.g1.at(x, 9) = {half(1.06f * k), half(0.99f * k), half(0.91f * k), 1};
    in.g1.at(x, 8) = {half(tone.r * dark), half(tone.g * dark), half(tone.b * dark), 1};
  }
  return in;
}

TEST(BeautyKernels, RetouchFormulaViewsAndFlatPictures) {
  const RetouchInputs in = texturedSkin();
  // The test pictures exercise the soft parts of the skin mask and of the edge protection.
  int partialSkin = 0, partialEdge = 0;
  for (int y = 2; y < 10; ++y)
    for (int x = 0; x < 14; ++x) {
      float skin, e = edgeAt(in.g2, x, y);
      retouch(in, retouchParams(), x, y, &skin);
      partialSkin += skin > 0.05f && skin < 0.95f;
      partialEdge += e > 0.05f && e < 0.95f;
    }
  ASSERT_TRUE(partialSkin > 5 && partialEdge > 5) << partialSkin << " soft skin, " << partialEdge << " soft edges";
  auto ref = [&](const auto&, const auto& P, int x, int y) { return retouch(in, P, x, y); };
  checkRows({
      {"k_beautypro", in.all(), {
          retouchParams(),
          // Skin detection off, matte off, an over-full mix, no edge protection, and a negative redness,
          // which must not let a negative small-band slider amplify the chroma.
          retouchParams({{11, 0}, {14, 0}, {0, 1.6f}, {7, -0.5f}, {2, -0.8f}, {9, 0}, {1, 0.9f}, {6, 0}}),
          // Wider tolerance, everything at full strength, more shine.
          retouchParams({{12, 0.6f}, {0, 1}, {2, 1}, {3, 1}, {4, 1}, {8, 1}, {5, 1}})}, ref},
      // The skin and removal views; the removal view magnifies by 4.
      {"k_beautypro", in.all(), {retouchParams(1), retouchParams(2)}, ref, 2 * kStep},
  });
  // Where g1 is blue there is no skin: the source passes untouched; the skin view there is 0, and
  // elsewhere never over the matte's limit.
  const Image got = run1("k_beautypro", in.all(), 14, 10, retouchParams());
  const Image mask = run1("k_beautypro", in.all(), 14, 10, retouchParams(1));
  for (int x = 0; x < 14; ++x) {
    EXPECT_NEAR(got.at(x, 0).r, in.s.at(x, 0).r, kStep);
    EXPECT_NEAR(got.at(x, 1).g, in.s.at(x, 1).g, kStep);
    EXPECT_NEAR(mask.at(x, 0).r, 0.0f, kStep);
    for (int y = 2; y < 10; ++y) EXPECT_LE(mask.at(x, y).g, sat(in.matte.at(x, y).r) + kStep) << x << "," << y;
  }

  for (Rgba tone : {Rgba{0.95f, 0.8f, 0.7f, 1}, Rgba{0.6f, 0.42f, 0.35f, 0.8f}, Rgba{0.2f, 0.3f, 0.8f, 1}}) {
    SCOPED_TRACE(testing::Message() << "flat " << tone.r << "," << tone.g << "," << tone.b);
    const Image flat = storedPicture(8, 6, [&](int, int) { return tone; });
    const RetouchInputs f{flat, flat, flat, flat, flat, Image(8, 6, grey(1, 1))};
    // Without shine a flat picture has no detail to remove, whatever the other sliders say.
    EXPECT_TRUE(matches(run1("k_beautypro", f.all(), 8, 6,
                             retouchParams({{8, 0}, {0, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {6, 1}, {7, 1}})),
                        flat));
    // Shine compresses the highlights of bright skin only.
    const auto P = retouchParams({{8, 1}, {0, 1}});
    const Image shone = run1("k_beautypro", f.all(), 8, 6, P);
    EXPECT_TRUE(matches(shone, expected(8, 6, [&](int x, int y) { return retouch(f, P, x, y); })));
    if (tone.r > 0.9f) {
      EXPECT_LT(shone.at(4, 3).g, tone.g - 0.02f);
    }
  }
}

TEST(BeautyKernels, RetouchGrainIsGreyBoundedAndSeededByTime) {
  // The grain's hash goes through sin() of large arguments, which GPUs round differently from
  // the CPU, so its values are checked by their properties rather than one by one.
  const Image flat = storedPicture(16, 12, [](int, int) { return Rgba{0.5f, 0.4f, 0.3f, 1}; });
  const std::vector<Image> in = {flat, flat, flat, flat, flat, flat};
  const Image a = run1("k_beautypro", in, 16, 12, retouchParams({{0, 1}, {8, 0}, {10, 0.2f}, {11, 0}, {14, 0}, {15, 0}}));
  const Image b = run1("k_beautypro", in, 16, 12, retouchParams({{0, 1}, {8, 0}, {10, 0.2f}, {11, 0}, {14, 0}, {15, 1.5f}}));
  double sum = 0, sq = 0;
  int differ = 0;
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 16; ++x) {
      const Rgba p = a.at(x, y);
      const float n = p.r - 0.5f;
      EXPECT_TRUE(std::fabs(p.g - 0.4f - n) <= kStep && std::fabs(p.b - 0.3f - n) <= kStep &&
                  std::fabs(n) <= 0.1f + kStep && std::fabs(p.a - 1) <= kStep)
          << "grain not grey, over 0.1 or touching alpha at " << x << "," << y;
      sum += n;
      sq += n * n;
      differ += std::fabs(b.at(x, y).r - p.r) > 0.01f;
    }
  const double count = 16 * 12, mean = sum / count;
  EXPECT_LT(std::fabs(mean), 0.02);
  EXPECT_GT(std::sqrt(sq / count - mean * mean), 0.03);  // uniform over +-0.1 has 0.058
  EXPECT_GT(differ, int(count / 2));
}

}  // namespace
