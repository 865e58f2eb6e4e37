// Pixel tests of the geometry, compositing, motion-warp and beauty kernels. Each expectation is
// computed here on the CPU from the inputs as the half-float textures store them, and compared
// within one half-float step (bilinear reads through the sampler get a little more, see kSampled).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "engine/kernel_runner.h"
#include "engine/rgba_reference.h"
#include "engine/test_pictures.h"

using namespace ombrik::test;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr float kStep = 1e-3f;
// Drivers may compute the sampler's bilinear weights in fixed point (sub-texel precision), so reads
// through sampleClamp() get twice the tolerance. Manual reads (sampleZero) are exact.
constexpr float kSampled = 2e-3f;
// An rgba8 output adds its own rounding to the nearest 1/255.
constexpr float kByte = 0.5f / 255.0f + kSampled;

KernelRunner& gpu() { return KernelRunner::shared(); }

Rgba grey(float v, float a = 0) { return {v, v, v, a}; }
Rgba withAlpha(Rgba c, float a) { return {c.r, c.g, c.b, a}; }

Image noise(int w, int h, uint32_t seed, float lo, float hi, float alphaLo = 1, float alphaHi = 1) {
  return noisyPicture(w, h, seed, lo, hi, alphaLo, alphaHi);
}

// Premultiplied colours with alpha in lo..hi.
Image premultiplied(int w, int h, uint32_t seed, float alphaLo, float alphaHi) {
  Lcg rng(seed);
  return storedPicture(w, h, [&](int, int) {
    float a = rng.next(alphaLo, alphaHi);
    return Rgba{rng.next(0, 1) * a, rng.next(0, 1) * a, rng.next(0, 1) * a, a};
  });
}

// Bilinear read at normalised (u, v), the position worked out in float; outside the picture
// transparent black when zero, else the nearest edge texel.
Rgba bilinear(const Image& im, float u, float v, bool zero) { return bilinearRgba<float>(im, u, v, zero); }

// Runs a kernel whose last texture is a fresh output of w x h, and reads that output back.
Image runInto(const std::string& kernel, std::vector<ombrik::gpu::TexturePtr> inputs, int w, int h,
              const std::vector<float>& P, const std::vector<float>& table = {}, bool rgba8 = false) {
  auto out = gpu().blank(w, h, rgba8);
  inputs.push_back(out);
  gpu().run(kernel, inputs, P, table);
  return gpu().read(out);
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

}  // namespace

// ---------------------------------------------------------------------------------------------
// Geometry

TEST(GeometryKernels, TransformReadsZeroOutsideSourceOfAnotherSize) {
  ASSERT_TRUE(gpu().has("k_xform"));

  // A white source shifted right by 2.5 px: the left columns are transparent, not the edge
  // pixel repeated; at the border the bilinear read blends with transparent black.
  {
    Image white(8, 4, Rgba{1, 1, 1, 1});
    Image got = runInto("k_xform", {gpu().upload(white)}, 8, 4, {1, 0, -2.5f, 0, 1, 0});
    for (int y = 0; y < 4; ++y) {
      EXPECT_NEAR(got.at(0, y).a, 0.0f, kStep);
      EXPECT_NEAR(got.at(1, y).r, 0.0f, kStep);
      EXPECT_NEAR(got.at(2, y).r, 0.5f, kStep);
      EXPECT_NEAR(got.at(2, y).a, 0.5f, kStep);
      EXPECT_NEAR(got.at(3, y).g, 1.0f, kStep);
      EXPECT_NEAR(got.at(7, y).b, 1.0f, kStep);
    }
  }

  // A 10x8 source under a scaled, sheared and shifted matrix onto a 12x10 output.
  Image src = noise(10, 8, 11, 0.0f, 1.0f, 0.3f, 1.0f);
  const float m[6] = {0.9f, 0.25f, -1.75f, -0.2f, 1.1f, 0.8f};
  Image got = runInto("k_xform", {gpu().upload(src)}, 12, 10, {m[0], m[1], m[2], m[3], m[4], m[5]});
  int outside = 0, inside = 0;
  Image want = expected(12, 10, [&](int x, int y) {
    float qx = x + 0.5f, qy = y + 0.5f;
    float sx = m[0] * qx + m[1] * qy + m[2], sy = m[3] * qx + m[4] * qy + m[5];
    // Exactly on the border the GPU may round either way; that pixel is not compared.
    if (std::fabs(sx) < 1e-3f || std::fabs(sy) < 1e-3f || std::fabs(sx - src.w) < 1e-3f || std::fabs(sy - src.h) < 1e-3f)
      return got.at(x, y);
    if (sx < 0 || sy < 0 || sx > src.w || sy > src.h) {
      ++outside;
      return Rgba{};
    }
    ++inside;
    return bilinear(src, sx / src.w, sy / src.h, true);
  });
  ASSERT_GT(outside, 5);
  ASSERT_GT(inside, 40);
  EXPECT_TRUE(matches(got, want));
}

TEST(GeometryKernels, StabiliserOverIsPremultipliedAndOpaque) {
  ASSERT_TRUE(gpu().has("k_stabover"));
  Image a = premultiplied(9, 6, 21, 0.0f, 1.0f);
  a.at(0, 0) = {0, 0, 0, 0};  // fully transparent: only b shows
  a.at(1, 0) = {0.5f, 0.25f, 0.75f, 1};  // opaque: b hidden
  Image b = noise(9, 6, 22, 0.0f, 1.5f, 0.0f, 1.0f);
  Image got = runInto("k_stabover", {gpu().upload(a), gpu().upload(b)}, 9, 6, {});
  Image want = expected(9, 6, [&](int x, int y) {
    Rgba A = a.at(x, y), B = b.at(x, y);
    return withAlpha(A + B * (1 - A.a), 1);
  });
  EXPECT_TRUE(matches(got, want));
  EXPECT_NEAR(got.at(0, 0).g, b.at(0, 0).g, kStep);
  EXPECT_NEAR(got.at(1, 0).b, 0.75f, kStep);
}

TEST(GeometryKernels, PatchMappedThroughMatrixOriginAndSize) {
  ASSERT_TRUE(gpu().has("k_patchover"));
  Image front = noise(16, 12, 31, 0.0f, 1.0f, 0.2f, 1.0f);
  Image patch = premultiplied(5, 4, 32, 0.3f, 1.0f);
  // The patch's 5x4 texels cover a 10x8 pixel box at (3, 2), under a slight rotation.
  const float m[6] = {0.98f, 0.17f, -0.6f, -0.17f, 0.98f, 1.3f};
  const float ox = 3.0f, oy = 2.0f, sw = 10.0f, sh = 8.0f;
  Image got = runInto("k_patchover", {gpu().upload(front), gpu().upload(patch)}, 16, 12,
                      {m[0], m[1], m[2], m[3], m[4], m[5], ox, oy, sw, sh});
  int covered = 0;
  Image want = expected(16, 12, [&](int x, int y) {
    float qx = x + 0.5f, qy = y + 0.5f;
    float sx = m[0] * qx + m[1] * qy + m[2], sy = m[3] * qx + m[4] * qy + m[5];
    Rgba c = bilinear(patch, (sx - ox) / sw, (sy - oy) / sh, true);
    Rgba f = front.at(x, y);
    if (c.a > 0) ++covered;
    return withAlpha(c + f * (1 - c.a), f.a);
  });
  ASSERT_GT(covered, 40);
  ASSERT_LT(covered, 16 * 12 - 40);
  EXPECT_TRUE(matches(got, want));
  // Far from the patch the front passes unchanged, alpha included.
  EXPECT_NEAR(got.at(15, 11).r, front.at(15, 11).r, kStep);
  EXPECT_NEAR(got.at(15, 11).a, front.at(15, 11).a, kStep);
}

// ---------------------------------------------------------------------------------------------
// Warps

namespace {

// The liquify displacement in pixels at (x, y), dabs walked in order.
void liquify(const std::vector<Dab>& dabs, float W, float H, float x, float y, float& dx, float& dy) {
  dx = dy = 0;
  for (const Dab& d : dabs) {
    float cx = d.cx * W, cy = d.cy * H;
    float r = std::max(1.0f, d.radius * W);
    float t = std::hypot(x - cx, y - cy) / r;
    if (t >= 1) continue;
    float w = (1 - t * t) * (1 - t * t);
    if (d.tool < -0.5f) {
      dx *= 1 - w * sat(d.force);
      dy *= 1 - w * sat(d.force);
    } else if (d.tool == 0) {
      dx += d.vx * W * w;
      dy += d.vy * H * w;
    } else if (d.tool == 1) {
      dx += (cx - x) * w * d.force * 0.35f;
      dy += (cy - y) * w * d.force * 0.35f;
    } else if (d.tool == 2) {
      dx += (x - cx) * w * d.force * 0.35f;
      dy += (y - cy) * w * d.force * 0.35f;
    }
  }
}

Image liquified(const Image& src, const std::vector<Dab>& dabs, float amount) {
  const float W = float(src.w), H = float(src.h);
  return expected(src.w, src.h, [&](int x, int y) {
    float qx = x + 0.5f, qy = y + 0.5f, d1x, d1y, d2x, d2y;
    liquify(dabs, W, H, qx, qy, d1x, d1y);
    d1x *= amount;
    d1y *= amount;
    liquify(dabs, W, H, qx - d1x, qy - d1y, d2x, d2y);
    return bilinear(src, (qx - d2x * amount) / W, (qy - d2y * amount) / H, false);
  });
}

}  // namespace

TEST(WarpKernels, FaceWarpPushPullEraserWithTwoInversionSteps) {
  ASSERT_TRUE(gpu().has("k_facewarp"));
  // Red and green ramps tell where each pixel was read from; blue adds a diagonal.
  Image src = storedPicture(32, 24, [](int x, int y) {
    return Rgba{x / 32.0f, y / 32.0f, 0.25f + (x + y) / 128.0f, 1};
  });
  auto tex = gpu().upload(src);
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
      {"eraser before push does nothing", {{0.55f, 0.5f, 0.15f, -1, 0, 0, 0.7f}, {0.5f, 0.5f, 0.3f, 0, 0.08f, 0, 1}},
       1.0f},
      {"eraser force clamps to 1", {{0.5f, 0.5f, 0.3f, 0, 0.08f, 0.02f, 1}, {0.5f, 0.5f, 0.2f, -1, 0, 0, 1.6f}}, 1.0f},
      {"tiny radius floors at one pixel", {{0.5f, 0.5f, 0.001f, 0, 0.02f, 0, 1}}, 1.0f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Image got = runInto("k_facewarp", {tex}, 32, 24, {float(c.dabs.size()), c.amount}, dabTable(c.dabs));
    Image want = liquified(src, c.dabs, c.amount);
    EXPECT_TRUE(matches(got, want, kSampled));
  }

  // The second step matters: a single inversion step reads elsewhere near a strong push.
  {
    std::vector<Dab> push = {{0.5f, 0.5f, 0.25f, 0, 0.1f, 0, 1}};
    Image got = runInto("k_facewarp", {tex}, 32, 24, {1, 1}, dabTable(push));
    float qx = 13.5f, qy = 12.5f, dx, dy;
    liquify(push, 32, 24, qx, qy, dx, dy);
    float oneStep = bilinear(src, (qx - dx) / 32, qy / 24, false).r;
    EXPECT_GT(std::fabs(got.at(13, 12).r - oneStep), 0.01f);
    EXPECT_NEAR(got.at(13, 12).r, liquified(src, push, 1).at(13, 12).r, kSampled);
  }
  // No dabs: the picture passes unchanged.
  EXPECT_TRUE(matches(runInto("k_facewarp", {tex}, 32, 24, {0, 1}, dabTable({{0.5f, 0.5f, 0.3f, 0, 0.1f, 0, 1}})),
                      src, kSampled));
}

namespace {

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

MotionInputs motionInputs(bool offsets) {
  const int W = 16, H = 12;
  MotionInputs in;
  in.retouch = premultiplied(W, H, 41, 0.0f, 1.0f);
  in.plate = noise(W, H, 42, 0.0f, 1.0f, 0.0f, 1.0f);
  Lcg rng(43);
  // Vectors reach past the borders near the edges, where the retouch reads transparent black.
  in.map = storedPicture(W, H, [&](int x, int y) {
    float dx = 0.09f * std::sin(0.7f * x + 0.3f * y), dy = 0.08f * std::cos(0.4f * x - 0.9f * y);
    float u = (x + 0.5f) / W, v = (y + 0.5f) / H;
    return offsets ? Rgba{dx, dy, rng.next(0, 1), 1} : Rgba{u + dx, v + dy, rng.next(0, 1), 1};
  });
  return in;
}

}  // namespace

TEST(WarpKernels, MotionWarpAbsoluteAndOffsetMaps) {
  ASSERT_TRUE(gpu().has("k_mvwarp"));
  for (bool offsets : {false, true}) {
    SCOPED_TRACE(offsets ? "offset map" : "absolute map");
    MotionInputs in = motionInputs(offsets);
    auto retouch = gpu().upload(in.retouch), plate = gpu().upload(in.plate), map = gpu().upload(in.map);
    // Reading the map as the other kind must give something else: the flag is honoured.
    for (std::vector<float> P : {std::vector<float>{0.8f, 1.0f, 0, offsets ? 1.0f : 0.0f},
                                 std::vector<float>{1.7f, 0.4f, 0, offsets ? 1.0f : 0.0f},
                                 std::vector<float>{1.0f, 0.0f, 0, offsets ? 1.0f : 0.0f},
                                 std::vector<float>{0.6f, 1.6f, 0, offsets ? 1.0f : 0.0f}}) {
      SCOPED_TRACE("mix " + std::to_string(P[0]) + " hide " + std::to_string(P[1]));
      auto out = gpu().blank(16, 12), alpha = gpu().blank(16, 12);
      gpu().run("k_mvwarp", {retouch, plate, map, out, alpha}, P);
      Image wantAlpha;
      Image want = motionWarped(in, P, wantAlpha);
      EXPECT_TRUE(matches(gpu().read(out), want));
      EXPECT_TRUE(matches(gpu().read(alpha), wantAlpha));
    }
    // A motion map of half the resolution is read bilinearly at each output pixel.
    {
      MotionInputs low = in;
      low.map = storedPicture(8, 6, [&](int x, int y) {
        float dx = 0.05f * std::sin(0.5f * x + 0.3f * y), dy = 0.04f * std::cos(0.4f * x - 0.6f * y);
        float u = (x + 0.5f) / 8, v = (y + 0.5f) / 6;
        float conf = 0.5f + 0.3f * std::sin(0.8f * x + 0.5f * y);
        return offsets ? Rgba{dx, dy, conf, 1} : Rgba{u + dx, v + dy, conf, 1};
      });
      std::vector<float> P = {0.9f, 1.0f, 0, offsets ? 1.0f : 0.0f};
      auto out = gpu().blank(16, 12), alpha = gpu().blank(16, 12);
      gpu().run("k_mvwarp", {retouch, plate, gpu().upload(low.map), out, alpha}, P);
      Image wantAlpha;
      Image want = motionWarped(low, P, wantAlpha);
      EXPECT_TRUE(matches(gpu().read(out), want, kSampled));
      EXPECT_TRUE(matches(gpu().read(alpha), wantAlpha, kSampled));
    }
    std::vector<float> wrongKind = {1, 0, 0, offsets ? 0.0f : 1.0f};
    Image unused;
    Image right = motionWarped(in, {1, 0, 0, offsets ? 1.0f : 0.0f}, unused);
    auto out = gpu().blank(16, 12);
    gpu().run("k_mvwarp", {retouch, plate, map, out, gpu().blank(16, 12)}, wrongKind);
    EXPECT_FALSE(matches(gpu().read(out), right));
  }
}

TEST(WarpKernels, MotionWarpViews) {
  ASSERT_TRUE(gpu().has("k_mvwarp"));
  for (bool offsets : {false, true}) {
    MotionInputs in = motionInputs(offsets);
    auto retouch = gpu().upload(in.retouch), plate = gpu().upload(in.plate), map = gpu().upload(in.map);
    for (float view : {1.0f, 2.0f, 3.0f}) {
      SCOPED_TRACE(std::string(offsets ? "offset" : "absolute") + " map, view " + std::to_string(view));
      std::vector<float> P = {0.9f, 0.7f, view, offsets ? 1.0f : 0.0f};
      auto out = gpu().blank(16, 12), alpha = gpu().blank(16, 12);
      gpu().run("k_mvwarp", {retouch, plate, map, out, alpha}, P);
      Image wantAlpha;
      Image want = motionWarped(in, P, wantAlpha);
      EXPECT_TRUE(matches(gpu().read(out), want, 2 * kStep));  // the vector view magnifies by 8
      EXPECT_TRUE(matches(gpu().read(alpha), wantAlpha));
    }
  }
}

TEST(WarpKernels, MotionVectorPremultiplyAndDivideBack) {
  ASSERT_TRUE(gpu().has("k_mvpremul"));
  ASSERT_TRUE(gpu().has("k_mvunpremul"));
  Lcg rng(51);
  // Confidence beyond 0..1 is clamped for the weight but passed on as stored.
  Image map = storedPicture(10, 6, [&](int, int) { return Rgba{rng.next(-0.3f, 0.3f), rng.next(-0.3f, 0.3f), rng.next(-0.2f, 1.2f), 1}; });
  auto premul = gpu().blank(10, 6);
  gpu().run("k_mvpremul", {gpu().upload(map), premul}, {});
  Image weighted = gpu().read(premul);
  EXPECT_TRUE(matches(weighted, expected(10, 6, [&](int x, int y) {
                        Rgba m = map.at(x, y);
                        float c = sat(m.b), w = c * c + 0.001f;
                        return Rgba{m.r * w, m.g * w, m.b, w};
                      })));

  // Dividing straight back (no blur between) restores the vectors.
  Image back = runInto("k_mvunpremul", {premul, gpu().upload(map)}, 10, 6, {});
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) {
      const Rgba m = map.at(x, y), b = back.at(x, y);
      EXPECT_NEAR(b.r, m.r, 2 * kStep);
      EXPECT_NEAR(b.g, m.g, 2 * kStep);
      EXPECT_NEAR(b.b, m.b, kStep);
      EXPECT_EQ(b.a, 0.0f);
    }

  // A blurred weight under 0.001 is floored there.
  Image blurred = noise(10, 6, 52, -0.2f, 0.2f, 0.0f, 0.004f);
  blurred.at(0, 0).a = 0;
  Image got = runInto("k_mvunpremul", {gpu().upload(blurred), gpu().upload(map)}, 10, 6, {});
  EXPECT_TRUE(matches(got, expected(10, 6, [&](int x, int y) {
                        Rgba b = blurred.at(x, y);
                        float w = std::max(b.a, 0.001f);
                        return Rgba{b.r / w, b.g / w, map.at(x, y).b, 0};
                      })));
}

// ---------------------------------------------------------------------------------------------
// Compositing

TEST(LayerKernels, MixTwoOnAllChannels) {
  ASSERT_TRUE(gpu().has("k_mix2"));
  Image a = noise(8, 6, 61, -0.5f, 2.0f, 0.0f, 1.0f), b = noise(8, 6, 62, 0.0f, 1.0f, 0.0f, 1.0f);
  auto ta = gpu().upload(a), tb = gpu().upload(b);
  for (float t : {0.0f, 0.3f, 1.0f, 1.5f}) {
    SCOPED_TRACE(t);
    Image got = runInto("k_mix2", {ta, tb}, 8, 6, {t});
    EXPECT_TRUE(matches(got, expected(8, 6, [&](int x, int y) { return lerp(a.at(x, y), b.at(x, y), t); })));
  }
}

namespace {
Image layered(const Image& under, const Image& top, float opacity, int mode) {
  return expected(under.w, under.h, [&](int x, int y) {
    Rgba b = under.at(x, y), t = top.at(x, y);
    float a = sat(t.a) * opacity;
    Rgba f = t.a > 0.0001f ? t * (1.0f / t.a) : Rgba{};
    Rgba r = f;
    if (mode == 1) r = b + f;
    if (mode == 2) r = grey(1) - (grey(1) - b) * (grey(1) - f);
    if (mode == 3) r = b * f;
    return withAlpha(lerp(b, r, a), std::max(b.a, a));
  });
}
}  // namespace

TEST(LayerKernels, ModesOpacityAndUnpremultipliedTop) {
  ASSERT_TRUE(gpu().has("k_layer"));
  Image under = noise(9, 7, 71, 0.0f, 1.0f, 0.0f, 1.0f);
  Image top = premultiplied(9, 7, 72, 0.05f, 1.0f);
  top.at(0, 0) = {0.25f, 0.125f, 0.0625f, 0.5f};  // straight colour (0.5, 0.25, 0.125)
  top.at(1, 0) = {0.75f, 0.375f, 1.5f, 1.5f};     // alpha over 1 covers as 1
  auto tu = gpu().upload(under), tt = gpu().upload(top);
  // Mode is rounded: 0.9 is add and 2.2 is screen.
  const std::pair<float, int> modes[] = {{0.0f, 0}, {0.9f, 1}, {2.2f, 2}, {3.0f, 3}};
  for (auto [param, mode] : modes) {
    for (float opacity : {1.0f, 0.6f}) {
      SCOPED_TRACE("mode " + std::to_string(mode) + " opacity " + std::to_string(opacity));
      Image got = runInto("k_layer", {tu, tt}, 9, 7, {opacity, param});
      EXPECT_TRUE(matches(got, layered(under, top, opacity, mode)));
    }
  }
  // Normal at full opacity on a half-transparent top: half under, half the straight colour.
  Image got = runInto("k_layer", {tu, tt}, 9, 7, {1, 0});
  Rgba b = under.at(0, 0);
  EXPECT_NEAR(got.at(0, 0).r, 0.5f * b.r + 0.5f * 0.5f, kStep);
  EXPECT_NEAR(got.at(0, 0).b, 0.5f * b.b + 0.5f * 0.125f, kStep);
  EXPECT_NEAR(got.at(0, 0).a, std::max(b.a, 0.5f), kStep);
}

TEST(LayerKernels, NearlyTransparentTopLeavesUnder) {
  ASSERT_TRUE(gpu().has("k_layer"));
  Image under = noise(8, 6, 73, 0.0f, 1.0f, 0.2f, 1.0f);
  // Stray colour on alpha 0 or under 0.0001 must not be divided into a bright value.
  Image top = storedPicture(8, 6, [](int x, int y) { return Rgba{0.3f, 0.2f, 0.1f, (x + y) % 2 ? 0.0f : 0.00005f}; });
  auto tu = gpu().upload(under), tt = gpu().upload(top);
  for (int mode = 0; mode < 4; ++mode) {
    SCOPED_TRACE(mode);
    Image got = runInto("k_layer", {tu, tt}, 8, 6, {1, float(mode)});
    EXPECT_TRUE(matches(got, under));
  }
}

// ---------------------------------------------------------------------------------------------
// Resampling and mask view

TEST(ResampleKernels, BilinearIntoHalfAndByteTextures) {
  ASSERT_TRUE(gpu().has("k_resample"));
  Image src = noise(20, 14, 81, 0.2f, 0.8f, 0.5f, 1.0f);
  // Out-of-range values clamp when written as bytes.
  src.at(0, 0) = {half(1.7f), -0.5f, 0.5f, 1};
  auto tex = gpu().upload(src);
  auto want = [&](int w, int h, bool bytes) {
    return expected(w, h, [&, w, h, bytes](int x, int y) {
      Rgba c = bilinear(src, (x + 0.5f) / w, (y + 0.5f) / h, false);
      return bytes ? Rgba{sat(c.r), sat(c.g), sat(c.b), sat(c.a)} : c;
    });
  };
  EXPECT_TRUE(matches(runInto("k_resample", {tex}, 7, 5, {}, {}, true), want(7, 5, true), kByte));
  EXPECT_TRUE(matches(runInto("k_resample", {tex}, 32, 20, {}, {}, false), want(32, 20, false), kSampled));
  // One pixel: the whole picture's centre.
  EXPECT_TRUE(matches(runInto("k_resample", {tex}, 1, 1, {}, {}, true), want(1, 1, true), kByte));
  // The top-left corner of the enlargement holds the overbright texel.
  EXPECT_NEAR(runInto("k_resample", {tex}, 40, 28, {}).at(0, 0).r, half(1.7f), kStep);
}

TEST(ResampleKernels, MaskViewDarkensAndTintsOutside) {
  ASSERT_TRUE(gpu().has("k_maskview"));
  Lcg rng(91);
  Image mask = storedPicture(8, 6, [&](int x, int) { return grey(x < 2 ? 0.0f : x > 5 ? 1.0f : rng.next(0, 1), 1); });
  Image pic = noise(16, 12, 92, 0.0f, 1.3f);  // overbright parts saturate
  auto tm = gpu().upload(mask), tp = gpu().upload(pic);
  auto want = [&](int w, int h) {
    return expected(w, h, [&, w, h](int x, int y) {
      float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
      float m = bilinear(mask, u, v, false).r;
      Rgba b = bilinear(pic, u, v, false);
      Rgba c = b * (m + (1 - m) * 0.35f) + Rgba{0.18f, 0.02f, 0.03f, 0} * (1 - m);
      return Rgba{sat(c.r), sat(c.g), sat(c.b), 1};
    });
  };
  EXPECT_TRUE(matches(runInto("k_maskview", {tm, tp}, 16, 12, {}, {}, true), want(16, 12), kByte));
  EXPECT_TRUE(matches(runInto("k_maskview", {tm, tp}, 16, 12, {}, {}, false), want(16, 12), kSampled));
  // Fully outside: 35 % of the picture plus the red tint.
  Image got = runInto("k_maskview", {tm, tp}, 16, 12, {});
  EXPECT_NEAR(got.at(0, 5).r, sat(pic.at(0, 5).r * 0.35f + 0.18f), kSampled);
}

// ---------------------------------------------------------------------------------------------
// Beauty paint masks

namespace {
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
}  // namespace

TEST(PaintKernels, DabMaskOrderEraserSoftnessAndMatte) {
  ASSERT_TRUE(gpu().has("k_dabmask"));
  const int W = 32, H = 24;
  Image matte = noise(W, H, 101, -0.3f, 1.4f);
  auto tm = gpu().upload(matte);
  const std::vector<Dab> strokes = {
      {0.3f, 0.5f, 0.2f, 0, 0, 0, 0.8f},
      {0.45f, 0.5f, 0.15f, 1, 0, 0, 1.5f},   // force clamps to 1
      {0.4f, 0.4f, 0.1f, -1, 0, 0, 0.6f},    // eraser
      {0.42f, 0.42f, 0.05f, 0, 0, 0, 0.5f},  // repaints inside the erased spot
  };
  std::vector<Dab> reversed(strokes.rbegin(), strokes.rend());
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
    Image got = runInto("k_dabmask", {tm}, W, H, {float(c.dabs->size()), c.soft, c.useMatte ? 1.0f : 0.0f},
                        dabTable(*c.dabs));
    EXPECT_TRUE(matches(got, expected(W, H, [&](int x, int y) {
                          float m = dabMask(*c.dabs, c.soft, W, x + 0.5f, y + 0.5f, H);
                          if (c.useMatte) m *= sat(matte.at(x, y).r);
                          return Rgba{m, m, m, 1};
                        })));
  }
  // The order matters where the eraser and the strokes overlap.
  float forward = dabMask(strokes, 0.5f, W, 13.5f, 10.5f, H), backward = dabMask(reversed, 0.5f, W, 13.5f, 10.5f, H);
  EXPECT_GT(std::fabs(forward - backward), 0.05f);
  // Zero dabs paint nothing, whatever the table holds.
  Image none = runInto("k_dabmask", {tm}, W, H, {0, 0.5f, 0}, dabTable(strokes));
  EXPECT_TRUE(matches(none, Image(W, H, Rgba{0, 0, 0, 1})));
}

namespace {

struct Polygon {
  std::vector<std::pair<float, float>> pts;
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
    for (auto [x, y] : p.pts) d.insert(d.end(), {x, y});
  return d;
}

// Even-odd inside test through the winding number's parity (sum of the angles the edges subtend).
bool insideEvenOdd(const Polygon& p, float x, float y) {
  double total = 0;
  for (std::size_t i = 0; i < p.pts.size(); ++i) {
    auto [ax, ay] = p.pts[i];
    auto [bx, by] = p.pts[(i + 1) % p.pts.size()];
    double a1 = std::atan2(ay - y, ax - x), a2 = std::atan2(by - y, bx - x);
    double d = a2 - a1;
    while (d > kPi) d -= 2 * kPi;
    while (d < -kPi) d += 2 * kPi;
    total += d;
  }
  long winding = std::lround(total / (2 * kPi));
  return winding % 2 != 0;
}

float edgeDistance(const Polygon& p, float x, float y) {
  float best = 1e30f;
  for (std::size_t i = 0; i < p.pts.size(); ++i) {
    auto [ax, ay] = p.pts[i];
    auto [bx, by] = p.pts[(i + 1) % p.pts.size()];
    float ex = bx - ax, ey = by - ay;
    float t = sat(((x - ax) * ex + (y - ay) * ey) / std::max(ex * ex + ey * ey, 1e-6f));
    best = std::min(best, std::hypot(x - ax - ex * t, y - ay - ey * t));
  }
  return best;
}

Rgba polygonMask(const std::vector<Polygon>& polys, float x, float y) {
  float ch[3] = {0, 0, 0};
  for (const Polygon& p : polys) {
    if (x < p.box[0] || y < p.box[1] || x > p.box[2] || y > p.box[3]) continue;
    float d = edgeDistance(p, x, y);
    float fe = std::max(0.5f, p.soft);
    float v = smooth(-fe, 0, (insideEvenOdd(p, x, y) ? d : -d) + p.grow) * p.weight;
    int c = p.mode == 0 ? 0 : p.mode == 1 ? 1 : 2;
    ch[c] = std::max(ch[c], v);
  }
  return {ch[0], ch[1], ch[2], 1};
}

// A five-pointed star drawn in one stroke: its centre is outside by the even-odd rule.
Polygon star(float cx, float cy, float r) {
  Polygon p{{}, 0, 1.5f, 1, 0, {0, 0, 64, 36}};
  for (int i = 0; i < 5; ++i) {
    double a = -kPi / 2 + i * 4 * kPi / 5;
    p.pts.push_back({float(cx + r * std::cos(a)), float(cy + r * std::sin(a))});
  }
  return p;
}

}  // namespace

TEST(PaintKernels, PolygonMaskEvenOddGrowAndChannels) {
  ASSERT_TRUE(gpu().has("k_polymask"));
  const int W = 64, H = 36;
  Polygon starZone = star(18.25f, 18.25f, 16);
  std::vector<Polygon> polys = {
      starZone,
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
  Image got = runInto("k_polymask", {}, W, H, {}, polygonTable(polys));
  EXPECT_TRUE(matches(got, expected(W, H, [&](int x, int y) { return polygonMask(polys, x + 0.5f, y + 0.5f); })));
  // The star's inner pentagon is a hole; its arms are full.
  EXPECT_NEAR(got.at(18, 18).r, 0.0f, kStep);
  EXPECT_NEAR(got.at(18, 5).r, 1.0f, kStep);
  // Pixels left of the last polygon's box get nothing from it.
  EXPECT_NEAR(got.at(42, 30).r, 0.0f, kStep);
  EXPECT_NEAR(got.at(50, 30).r, 0.9f, kStep);
  // Grown square: full at 1 px outside its edge (weight 0.7), not summed with the overlapping exclusion.
  EXPECT_NEAR(got.at(53, 8).g, 0.7f, kStep);
  EXPECT_NEAR(got.at(48, 10).g, 0.7f, kStep);
  // The second exclusion alone inside its box, nothing past it.
  EXPECT_NEAR(got.at(54, 17).g, 0.5f, kStep);
  EXPECT_NEAR(got.at(57, 17).g, 0.0f, kStep);
  EXPECT_NEAR(got.at(50, 20).g, 0.0f, kStep);
  // No polygons: black, alpha 1.
  EXPECT_TRUE(matches(runInto("k_polymask", {}, 8, 6, {}, {0.0f}), Image(8, 6, Rgba{0, 0, 0, 1})));
}

TEST(PaintKernels, MaskExclusionSourcesAndMatte) {
  ASSERT_TRUE(gpu().has("k_maskexcl"));
  Image painted = noise(10, 7, 111, 0.0f, 1.0f);
  Image polys = noise(10, 7, 112, 0.0f, 1.0f);
  Image matte = noise(10, 7, 113, -0.4f, 1.5f);
  auto tp = gpu().upload(painted), tq = gpu().upload(polys), tm = gpu().upload(matte);
  for (float source : {0.0f, 1.0f, 2.0f, 1.6f}) {
    for (float useMatte : {0.0f, 1.0f}) {
      SCOPED_TRACE("source " + std::to_string(source) + " matte " + std::to_string(useMatte));
      Image got = runInto("k_maskexcl", {tp, tq, tm}, 10, 7, {source, useMatte});
      EXPECT_TRUE(matches(got, expected(10, 7, [&](int x, int y) {
                            Rgba q = polys.at(x, y);
                            float base = source < 0.5f ? painted.at(x, y).r : source < 1.5f ? q.r : q.b;
                            float v = base * (1 - q.g);
                            if (useMatte > 0.5f) v *= sat(matte.at(x, y).r);
                            return Rgba{v, v, v, 1};
                          })));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Beauty retouch

namespace {

struct HollowInputs {
  Image beauty, origin, a, b, mask;
};

Rgba hollowLift(const HollowInputs& in, const std::vector<float>& P, int x, int y) {
  Rgba beauty = in.beauty.at(x, y), origin = in.origin.at(x, y), A = in.a.at(x, y), C = in.b.at(x, y);
  float mask = in.mask.at(x, y).r;
  float la = luma(A), lc = luma(C);
  float gain = std::clamp((lc + 0.004f) / (la + 0.004f), 1.0f, 2.2f);
  float hollow = sat(4 * (gain - 1));
  float k = sat(P[0]) * mask;
  Rgba o = beauty * lerp(1.0f, gain, k);
  o = o + ((C - grey(lc)) - (A - grey(la))) * (hollow * k * P[1]);
  if (P[2] > 2.5f) o = grey(hollow * mask);
  else if (P[2] > 1.5f) o = grey(0.5f) + (origin - o) * 4;
  else if (P[2] > 0.5f) o = lerp(origin * 0.35f, grey(1), 0.8f * mask);
  return withAlpha(o, beauty.a);
}

HollowInputs hollowInputs() {
  HollowInputs in;
  in.beauty = noise(12, 8, 121, 0.05f, 0.9f, 0.3f, 1.0f);
  in.origin = noise(12, 8, 122, 0.05f, 0.9f);
  in.a = noise(12, 8, 123, 0.05f, 0.8f);
  in.b = noise(12, 8, 124, 0.05f, 0.8f);
  in.mask = noise(12, 8, 125, 0.0f, 1.0f);
  return in;
}

}  // namespace

TEST(BeautyKernels, HollowLiftFormulaAndViews) {
  ASSERT_TRUE(gpu().has("k_hollowlift"));
  HollowInputs in = hollowInputs();
  std::vector<ombrik::gpu::TexturePtr> tex = {gpu().upload(in.beauty), gpu().upload(in.origin), gpu().upload(in.a),
                                              gpu().upload(in.b), gpu().upload(in.mask)};
  const std::vector<std::vector<float>> params = {
      {0.8f, 0.6f, 0}, {1.7f, 1.0f, 0}, {0.5f, 0.3f, 1}, {0.9f, 0.5f, 2}, {0.9f, 0.5f, 3}};
  for (const auto& P : params) {
    SCOPED_TRACE("intensity " + std::to_string(P[0]) + " view " + std::to_string(P[2]));
    Image got = runInto("k_hollowlift", tex, 12, 8, P);
    EXPECT_TRUE(matches(got, expected(12, 8, [&](int x, int y) { return hollowLift(in, P, x, y); })));
  }
}

TEST(BeautyKernels, HollowLiftNeverDarkens) {
  ASSERT_TRUE(gpu().has("k_hollowlift"));
  HollowInputs in = hollowInputs();
  Image got = runInto("k_hollowlift",
                      {gpu().upload(in.beauty), gpu().upload(in.origin), gpu().upload(in.a), gpu().upload(in.b),
                       gpu().upload(in.mask)},
                      12, 8, {1, 0, 0});
  int bumps = 0, hollows = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) {
      Rgba o = got.at(x, y), b = in.beauty.at(x, y);
      if (luma(in.b.at(x, y)) <= luma(in.a.at(x, y))) {
        // A bump (the wide blur darker than the narrow one) stays as it is.
        ++bumps;
        EXPECT_NEAR(o.r, b.r, kStep);
        EXPECT_NEAR(o.g, b.g, kStep);
        EXPECT_NEAR(o.b, b.b, kStep);
      } else {
        ++hollows;
        EXPECT_GE(o.r, b.r - kStep);
        EXPECT_GE(o.g, b.g - kStep);
        EXPECT_GE(o.b, b.b - kStep);
      }
      EXPECT_NEAR(o.a, b.a, kStep);
    }
  EXPECT_GT(bumps, 10);
  EXPECT_GT(hollows, 10);
}

namespace {

struct RetouchInputs {
  Image s, g1, g2, g3, g4, matte;
  std::vector<ombrik::gpu::TexturePtr> upload() const {
    return {gpu().upload(s), gpu().upload(g1), gpu().upload(g2), gpu().upload(g3), gpu().upload(g4), gpu().upload(matte)};
  }
};

// The retouch without grain. skinOut receives the skin mask.
Rgba retouch(const RetouchInputs& in, const std::vector<float>& P, int x, int y, float* skinOut = nullptr) {
  const int W = in.s.w, H = in.s.h;
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

  auto l2 = [&](int X, int Y) { return luma(in.g2.at(std::clamp(X, 0, W - 1), std::clamp(Y, 0, H - 1))); };
  float gx = l2(x + 2, y) - l2(x - 2, y), gy = l2(x, y + 2) - l2(x, y - 2);
  float protect = 1 - smooth(0.015f, 0.09f, std::hypot(gx, gy)) * P[9];

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

// Skin-toned pictures with detail in every band; the top two rows of g1 are blue, never skin,
// and its last two rows are skin so dark, then so bright, that the mask fades out.
RetouchInputs texturedSkin() {
  const Rgba tone{0.78f, 0.57f, 0.47f, 1};
  auto around = [&](uint32_t seed, float spread) {
    Lcg rng(seed);
    return storedPicture(14, 10, [&, spread](int, int) {
      return tone + Rgba{rng.next(-spread, spread), rng.next(-spread, spread), rng.next(-spread, spread), 0};
    });
  };
  RetouchInputs in;
  in.s = around(131, 0.12f);
  Lcg rng(132);
  for (Rgba& c : in.s.px) c.a = half(rng.next(0.4f, 1.0f));
  in.g1 = around(133, 0.06f);
  for (int x = 0; x < 14; ++x)
    for (int y = 0; y < 2; ++y) in.g1.at(x, y) = {half(0.2f), half(0.3f), half(0.8f), 1};
  for (int x = 0; x < 14; ++x) {
    float k = 0.96f + 0.005f * x;
    in.g1.at(x, 9) = {half(1.06f * k), half(0.99f * k), half(0.91f * k), 1};
    in.g1.at(x, 8) = {half(tone.r * (0.08f + 0.01f * x)), half(tone.g * (0.08f + 0.01f * x)),
                      half(tone.b * (0.08f + 0.01f * x)), 1};
  }
  in.g2 = around(134, 0.05f);
  in.g3 = around(135, 0.03f);
  in.g4 = around(136, 0.02f);
  in.matte = noise(14, 10, 137, 0.3f, 1.3f);
  return in;
}

}  // namespace

TEST(BeautyKernels, RetouchTexturedSkinFormula) {
  ASSERT_TRUE(gpu().has("k_beautypro"));
  RetouchInputs in = texturedSkin();
  auto tex = in.upload();
  std::vector<std::vector<float>> params = {retouchParams()};
  {
    // Skin detection off, matte off, an over-full mix, no edge protection, and a negative
    // redness, which must not let a negative small-band slider amplify the chroma.
    auto P = retouchParams();
    P[11] = 0, P[14] = 0, P[0] = 1.6f, P[7] = -0.5f, P[2] = -0.8f, P[9] = 0, P[1] = 0.9f, P[6] = 0;
    params.push_back(P);
    // Wider tolerance, everything at full strength, more shine.
    P = retouchParams();
    P[12] = 0.6f, P[0] = 1, P[2] = P[3] = P[4] = 1, P[8] = 1, P[5] = 1;
    params.push_back(P);
  }
  for (std::size_t i = 0; i < params.size(); ++i) {
    SCOPED_TRACE("parameter set " + std::to_string(i));
    const auto& P = params[i];
    Image got = runInto("k_beautypro", tex, 14, 10, P);
    EXPECT_TRUE(matches(got, expected(14, 10, [&](int x, int y) { return retouch(in, P, x, y); })));
  }

  // The test pictures exercise the soft parts of the skin mask and of the edge protection.
  int partialSkin = 0, partialEdge = 0;
  for (int y = 2; y < 10; ++y)
    for (int x = 0; x < 14; ++x) {
      float skin;
      retouch(in, retouchParams(), x, y, &skin);
      if (skin > 0.05f && skin < 0.95f) ++partialSkin;
      auto l2 = [&](int X, int Y) { return luma(in.g2.at(std::clamp(X, 0, 13), std::clamp(Y, 0, 9))); };
      float e = smooth(0.015f, 0.09f, std::hypot(l2(x + 2, y) - l2(x - 2, y), l2(x, y + 2) - l2(x, y - 2)));
      if (e > 0.05f && e < 0.95f) ++partialEdge;
    }
  EXPECT_GT(partialSkin, 5);
  EXPECT_GT(partialEdge, 5);

  // Where g1 is blue there is no skin: the source passes untouched.
  Image got = runInto("k_beautypro", tex, 14, 10, retouchParams());
  for (int x = 0; x < 14; ++x) {
    EXPECT_NEAR(got.at(x, 0).r, in.s.at(x, 0).r, kStep);
    EXPECT_NEAR(got.at(x, 1).g, in.s.at(x, 1).g, kStep);
  }
}

TEST(BeautyKernels, RetouchViewsShowSkinAndRemoval) {
  ASSERT_TRUE(gpu().has("k_beautypro"));
  RetouchInputs in = texturedSkin();
  for (Rgba& c : in.s.px) c.a = 1;
  auto tex = in.upload();
  for (float view : {1.0f, 2.0f}) {
    SCOPED_TRACE(view);
    auto P = retouchParams(view);
    Image got = runInto("k_beautypro", tex, 14, 10, P);
    // The removal view magnifies by 4.
    EXPECT_TRUE(matches(got, expected(14, 10, [&](int x, int y) { return retouch(in, P, x, y); }), 2 * kStep));
  }
  // The skin view is the mask itself: 0 on the blue rows, the matte's limit elsewhere.
  Image mask = runInto("k_beautypro", tex, 14, 10, retouchParams(1));
  EXPECT_NEAR(mask.at(3, 0).r, 0.0f, kStep);
  for (int y = 2; y < 10; ++y)
    for (int x = 0; x < 14; ++x) EXPECT_LE(mask.at(x, y).g, sat(in.matte.at(x, y).r) + kStep);
}

TEST(BeautyKernels, RetouchFlatPicture) {
  ASSERT_TRUE(gpu().has("k_beautypro"));
  for (Rgba tone : {Rgba{0.95f, 0.8f, 0.7f, 1}, Rgba{0.6f, 0.42f, 0.35f, 0.8f}, Rgba{0.2f, 0.3f, 0.8f, 1}}) {
    SCOPED_TRACE(std::to_string(tone.r) + "," + std::to_string(tone.g) + "," + std::to_string(tone.b));
    RetouchInputs in;
    Image flat = storedPicture(8, 6, [&](int, int) { return tone; });
    in.s = in.g1 = in.g2 = in.g3 = in.g4 = flat;
    in.matte = Image(8, 6, Rgba{1, 1, 1, 1});
    auto tex = in.upload();
    // Without shine a flat picture has no detail to remove, whatever the other sliders say.
    auto P = retouchParams();
    P[8] = 0;
    P[0] = P[2] = P[3] = P[4] = P[5] = P[6] = P[7] = 1;
    EXPECT_TRUE(matches(runInto("k_beautypro", tex, 8, 6, P), flat));
    // Shine compresses the highlights of bright skin only.
    P = retouchParams();
    P[8] = 1;
    P[0] = 1;
    Image got = runInto("k_beautypro", tex, 8, 6, P);
    EXPECT_TRUE(matches(got, expected(8, 6, [&](int x, int y) { return retouch(in, P, x, y); })));
    if (tone.r > 0.9f) {
      EXPECT_LT(got.at(4, 3).g, tone.g - 0.02f);
    }
  }
}

TEST(BeautyKernels, RetouchGrainIsGreyBoundedAndSeededByTime) {
  ASSERT_TRUE(gpu().has("k_beautypro"));
  // The grain's hash goes through sin() of large arguments, which GPUs round differently from
  // the CPU, so its values are checked by their properties rather than one by one.
  RetouchInputs in;
  Image flat = storedPicture(16, 12, [](int, int) { return Rgba{0.5f, 0.4f, 0.3f, 1}; });
  in.s = in.g1 = in.g2 = in.g3 = in.g4 = flat;
  in.matte = flat;
  auto tex = in.upload();
  auto P = retouchParams();
  P[0] = 1, P[8] = 0, P[10] = 0.2f, P[11] = 0, P[14] = 0, P[15] = 0.0f;
  Image a = runInto("k_beautypro", tex, 16, 12, P);
  P[15] = 1.5f;
  Image b = runInto("k_beautypro", tex, 16, 12, P);
  double sum = 0, sq = 0;
  int differ = 0;
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 16; ++x) {
      float n = a.at(x, y).r - 0.5f;
      EXPECT_NEAR(a.at(x, y).g - 0.4f, n, kStep);
      EXPECT_NEAR(a.at(x, y).b - 0.3f, n, kStep);
      EXPECT_LE(std::fabs(n), 0.1f + kStep);
      EXPECT_NEAR(a.at(x, y).a, 1.0f, kStep);
      sum += n;
      sq += n * n;
      if (std::fabs(b.at(x, y).r - a.at(x, y).r) > 0.01f) ++differ;
    }
  const double count = 16 * 12, mean = sum / count;
  EXPECT_LT(std::fabs(mean), 0.02);
  EXPECT_GT(std::sqrt(sq / count - mean * mean), 0.03);  // uniform over +-0.1 has 0.058
  EXPECT_GT(differ, int(count / 2));
}
