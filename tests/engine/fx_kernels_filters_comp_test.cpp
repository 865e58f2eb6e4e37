// Pixel tests of the filter effects (bilateral, skin texture, the blur family, chromatic
// aberration, edges, noise, pixelate), the composite and the colour-volume keyer. Expectations are
// computed here on the CPU from the inputs as the half-float textures store them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
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
// One half-float step of the output.
constexpr float kStep = 1e-3f;
// The sampler may weigh bilinear reads in fixed point; reads through it get twice the tolerance.
constexpr float kSampled = 2e-3f;

KernelRunner& gpu() { return KernelRunner::shared(); }

Image noisy(int w, int h, uint32_t seed, float lo, float hi, float alphaLo = 1, float alphaHi = 1) {
  return noisyPicture(w, h, seed, lo, hi, alphaLo, alphaHi);
}

// Bilinear read with clamp-to-edge at normalised (u, v), the position worked out in double.
Rgba bilinear(const Image& im, double u, double v) { return bilinearRgba<double>(im, u, v, false); }

// FX_END's limit by the matte: mix(s, o, m) on all four channels.
Rgba limited(Rgba s, Rgba o, const Image* matte, int x, int y) { return matte ? lerp(s, o, matte->at(x, y).r) : o; }

// ---------------------------------------------------------------------------------------------
// The filters

TEST(FxFilterKernels, BilateralWeighsDistanceAndColourOverNineByNineTaps) {
  const int w = 16, h = 12;
  Image random = noisy(w, h, 3, 0.0f, 1.0f, 0.2f, 1.0f);
  // A hard step: with a small tolerance the two sides must not bleed into each other.
  Image step = storedPicture(w, h, [](int x, int) { return x < 7 ? Rgba{0.1f, 0.15f, 0.2f, 1} : Rgba{0.9f, 0.8f, 0.7f, 1}; });
  struct Case {
    const Image* pic;
    float radius, tol, mix;
  };
  const Case cases[] = {{&random, 2.0f, 0.15f, 0.8f}, {&random, 5.0f, 0.5f, 1.0f}, {&step, 4.0f, 0.05f, 1.0f}};
  for (const auto& c : cases) {
    const Image& src = *c.pic;
    Image want = expected(w, h, [&](int x, int y) {
      Rgba s = src.at(x, y);
      double u = (x + 0.5) / w, v = (y + 0.5) / h;
      float r = 0, g = 0, b = 0, ws = 0;
      for (int j = -4; j <= 4; ++j)
        for (int i = -4; i <= 4; ++i) {
          float dx = i * c.radius / 4, dy = j * c.radius / 4;
          Rgba t = bilinear(src, u + dx / w, v + dy / h);
          float e2 = (t.r - s.r) * (t.r - s.r) + (t.g - s.g) * (t.g - s.g) + (t.b - s.b) * (t.b - s.b);
          float wt = std::exp(-(dx * dx + dy * dy) / (2 * c.radius * c.radius + 0.001f)) *
                     std::exp(-e2 / (2 * c.tol * c.tol));
          r += t.r * wt, g += t.g * wt, b += t.b * wt, ws += wt;
        }
      ws = std::max(ws, 0.0001f);
      return Rgba{lerp(s.r, r / ws, c.mix), lerp(s.g, g / ws, c.mix), lerp(s.b, b / ws, c.mix), s.a};
    });
    Image got = runFx("fx_bilateral", src, {c.radius, c.tol, c.mix});
    EXPECT_TRUE(matches(got, want, kSampled)) << "radius " << c.radius << " tol " << c.tol;
    if (c.pic == &step) {
      EXPECT_TRUE(matches(got, src, kSampled)) << "the step bled";
    }
  }
}

TEST(FxFilterKernels, BlurShowsAuxAndSharpenAddsTheDifferenceWithinTheMatte) {
  const int w = 12, h = 8;
  Image src = noisy(w, h, 5, 0.0f, 1.0f, 0.0f, 1.0f);
  Image blurred = noisy(w, h, 6, 0.0f, 1.0f, 0.0f, 1.0f);
  const Image matte = noisy(w, h, 7, 0.0f, 1.0f);
  for (const Image* m : {(const Image*)nullptr, &matte}) {
    // All four channels come from aux.
    Image got = runFx("fx_blur", src, {8.0f, 0.0f}, {.matte = m, .aux = &blurred});
    EXPECT_TRUE(matches(got, expected(w, h, [&](int x, int y) { return limited(src.at(x, y), blurred.at(x, y), m, x, y); })))
        << "blur, matte " << (m != nullptr);
    // Unsharp mask on rgb; alpha stays.
    got = runFx("fx_sharpen", src, {1.5f, 0.8f}, {.matte = m, .aux = &blurred});
    EXPECT_TRUE(matches(got, expected(w, h, [&](int x, int y) {
                          Rgba s = src.at(x, y), a = blurred.at(x, y);
                          Rgba o = s + (s - a) * 0.8f;
                          o.a = s.a;
                          return limited(s, o, m, x, y);
                        })))
        << "sharpen, matte " << (m != nullptr);
  }
}

TEST(FxFilterKernels, DirectionalBlurAveragesThirtyTwoTapsAlongTheAngle) {
  const int w = 24, h = 16;
  Image src = noisy(w, h, 11, 0.0f, 1.0f, 0.0f, 1.0f);
  for (float angle : {0.0f, 90.0f, 30.0f, -135.0f}) {
    const float len = 7.0f;
    const double a = angle * kPi / 180;
    Image want = expected(w, h, [&](int x, int y) {
      Rgba acc;
      for (int i = 0; i < 32; ++i) {
        double t = i / 31.0 - 0.5;
        acc = acc + bilinear(src, (x + 0.5 + std::cos(a) * len * t) / w, (y + 0.5 + std::sin(a) * len * t) / h);
      }
      return acc * (1.0f / 32);
    });
    EXPECT_TRUE(matches(runFx("fx_dirblur", src, {len, angle}), want, kSampled)) << "angle " << angle;
  }
  // No length: every tap is the pixel itself.
  EXPECT_TRUE(matches(runFx("fx_dirblur", src, {0.0f, 40.0f}), src));
}

TEST(FxFilterKernels, RadialBlurTapsTowardsTheCentre) {
  const int w = 20, h = 14;
  Image src = noisy(w, h, 13, 0.0f, 1.0f, 0.0f, 1.0f);
  struct Case {
    float amount, cx, cy;
  };
  for (const Case c : {Case{0.3f, 30.0f, 60.0f}, Case{0.08f, 50.0f, 50.0f}, Case{0.5f, 100.0f, 0.0f}}) {
    Image want = expected(w, h, [&](int x, int y) {
      double u = (x + 0.5) / w, v = (y + 0.5) / h, cu = c.cx / 100.0, cv = c.cy / 100.0;
      Rgba acc;
      for (int i = 0; i < 32; ++i) {
        double k = 1.0 - c.amount * i / 31.0;
        acc = acc + bilinear(src, cu + (u - cu) * k, cv + (v - cv) * k);
      }
      return acc * (1.0f / 32);
    });
    EXPECT_TRUE(matches(runFx("fx_radialblur", src, {c.amount, c.cx, c.cy}), want, kSampled))
        << "amount " << c.amount << " centre " << c.cx << "," << c.cy;
  }
  EXPECT_TRUE(matches(runFx("fx_radialblur", src, {0.0f, 20.0f, 70.0f}), src));
}

TEST(FxFilterKernels, DefocusGoldenSpiralWithBloomingHighlights) {
  const int w = 20, h = 16;
  // Values up to 1.6 so that some taps pass the 0.75 luminance knee.
  Image src = noisy(w, h, 17, 0.0f, 1.6f, 0.0f, 1.0f);
  for (float bloom : {0.0f, 2.0f}) {
    const float size = 4.5f;
    Image want = expected(w, h, [&](int x, int y) {
      Rgba acc;
      float ws = 0;
      for (int i = 0; i < 64; ++i) {
        double r = std::sqrt((i + 0.5) / 64.0) * size, a = 2.39996323 * i;
        Rgba t = bilinear(src, (x + 0.5 + r * std::cos(a)) / w, (y + 0.5 + r * std::sin(a)) / h);
        float wt = 1 + 8 * bloom * std::max(0.0f, luma(t) - 0.75f);
        acc = acc + t * wt;
        ws += wt;
      }
      return acc * (1 / ws);
    });
    EXPECT_TRUE(matches(runFx("fx_defocus", src, {size, bloom}), want, kSampled)) << "bloom " << bloom;
  }
}

TEST(FxFilterKernels, ChromaticAberrationMovesRedOutAndBlueIn) {
  const int w = 24, h = 16;
  Image src = noisy(w, h, 19, 0.0f, 1.0f, 0.0f, 1.0f);
  for (float falloff : {1.0f, 2.0f, 0.0f}) {
    const float amount = 3.0f;
    Image want = expected(w, h, [&](int x, int y) {
      double u = (x + 0.5) / w, v = (y + 0.5) / h, dx = u - 0.5, dy = v - 0.5;
      double len = std::sqrt(dx * dx + dy * dy);
      double f = std::pow(2 * len, falloff), k = amount * f / (len + 0.00001);
      double ox = dx * k / w, oy = dy * k / h;
      Rgba o = src.at(x, y);
      o.r = bilinear(src, u + ox, v + oy).r;
      o.b = bilinear(src, u - ox, v - oy).b;
      return o;
    });
    EXPECT_TRUE(matches(runFx("fx_chroma", src, {amount, falloff}), want, kSampled)) << "falloff " << falloff;
  }
}

TEST(FxFilterKernels, EdgeIsTheSobelGradientOfLuminance) {
  const int w = 16, h = 12;
  Image src = noisy(w, h, 23, 0.0f, 1.0f, 0.3f, 1.0f);
  auto gradient = [&](int x, int y) {
    auto l = [&](int dx, int dy) { return luma(fetch(src, x + dx, y + dy)); };
    float gx = (l(1, -1) + 2 * l(1, 0) + l(1, 1)) - (l(-1, -1) + 2 * l(-1, 0) + l(-1, 1));
    float gy = (l(-1, 1) + 2 * l(0, 1) + l(1, 1)) - (l(-1, -1) + 2 * l(0, -1) + l(1, -1));
    return std::sqrt(gx * gx + gy * gy);
  };
  Image mono = expected(w, h, [&](int x, int y) {
    float e = gradient(x, y) * 0.5f;
    return Rgba{e, e, e, src.at(x, y).a};
  });
  EXPECT_TRUE(matches(runFx("fx_edge", src, {0.5f, 1.0f}), mono, kSampled)) << "grey";
  Image colour = expected(w, h, [&](int x, int y) {
    Rgba s = src.at(x, y);
    float e = gradient(x, y) * 1.5f;
    return Rgba{s.r * e, s.g * e, s.b * e, s.a};
  });
  EXPECT_TRUE(matches(runFx("fx_edge", src, {1.5f, 0.0f}), colour, kSampled)) << "colour";
  // A flat picture has no edge anywhere, borders included.
  Image flat(w, h, {0.6f, 0.3f, 0.2f, 1.0f});
  EXPECT_TRUE(matches(runFx("fx_edge", flat, {5.0f, 1.0f}), Image(w, h, {0, 0, 0, 1.0f})));
}

TEST(FxFilterKernels, NoiseHashesPixelSeedAndFrame) {
  const int w = 16, h = 10;
  Image src = noisy(w, h, 29, 0.2f, 0.8f, 0.0f, 1.0f);
  struct Case {
    float amount, mono, seed, time;
    uint32_t t;  // the seed plus 50 per second, each truncated
  };
  const Case cases[] = {{0.1f, 1, 3.7f, 0.37f, 3 + 18}, {0.2f, 0, 3.7f, 0.37f, 21}, {0.25f, 0, 0.0f, 2.0f, 100},
                        {0.05f, 1, 42.0f, 0.0f, 42}};
  for (const auto& c : cases) {
    Image want = expected(w, h, [&](int x, int y) {
      Rgba s = src.at(x, y);
      float nr = hash2(x, y, c.t) * 2 - 1;
      float ng = c.mono > 0.5f ? nr : hash2(x, y, c.t + 17) * 2 - 1;
      float nb = c.mono > 0.5f ? nr : hash2(x, y, c.t + 31) * 2 - 1;
      return Rgba{s.r + nr * c.amount, s.g + ng * c.amount, s.b + nb * c.amount, s.a};
    });
    EXPECT_TRUE(matches(runFx("fx_noise", src, {c.amount, c.mono, c.seed}, {.time = c.time}), want))
        << "seed " << c.seed << " time " << c.time << " mono " << c.mono;
  }
}

TEST(FxFilterKernels, PixelateSamplesEachBlockAtItsCentre) {
  const int w = 16, h = 12;
  Image src = noisy(w, h, 31, 0.0f, 1.0f, 0.0f, 1.0f);
  for (float size : {4.0f, 3.0f, 5.0f, 2.5f}) {
    Image want = expected(w, h, [&](int x, int y) {
      double px = (std::floor(x / size) + 0.5) * size, py = (std::floor(y / size) + 0.5) * size;
      return bilinear(src, px / w, py / h);
    });
    Image got = runFx("fx_pixelate", src, {size});
    EXPECT_TRUE(matches(got, want, kSampled)) << "size " << size;
    if (size == 4.0f) {
      // Whole blocks of 4 share one value: the mean of the 2 by 2 texels around the block's centre.
      Rgba c = (src.at(5, 9) + src.at(6, 9) + src.at(5, 10) + src.at(6, 10)) * 0.25f;
      EXPECT_NEAR(got.at(4, 8).g, c.g, kSampled);
      EXPECT_NEAR(got.at(7, 11).g, c.g, kSampled);
    }
  }
  // Below one pixel the block is the pixel.
  EXPECT_TRUE(matches(runFx("fx_pixelate", src, {0.5f}), src));
}

// ---------------------------------------------------------------------------------------------
// Skin texture. Its hash is fract(sin(x) * 43758.5453) at arguments of thousands, where the GPU's
// sine and the CPU's differ in the digits that matter, so the texture itself can't be computed
// here. The tests take the texture from the kernel's own "texture only" output and check how it is
// laid on the picture, plus the properties that don't depend on its values.

// Defaults: amount, pore size, density, depth, fine, fine size, wrinkles, angle, relief, skin
// only, midtones, blend, seed.
std::vector<float> skinParams(float amount, float skinOnly, float midtones, float blend) {
  return {amount, 3.0f, 0.5f, 0.45f, 0.4f, 1.2f, 0.1f, 20.0f, 0.4f, skinOnly, midtones, blend, 7.0f};
}

float skinWeight(Rgba c) {
  float cb = 0.5f - 0.169f * c.r - 0.331f * c.g + 0.5f * c.b;
  float cr = 0.5f + 0.5f * c.r - 0.419f * c.g - 0.081f * c.b;
  return smooth(0.27f, 0.31f, cb) * (1 - smooth(0.49f, 0.53f, cb)) * smooth(0.51f, 0.55f, cr) *
         (1 - smooth(0.67f, 0.71f, cr));
}

TEST(FxSkinTextureKernel, TextureOnlyIsAVaryingOpaqueGrey) {
  const int w = 48, h = 32;
  Image src = noisy(w, h, 37, 0.3f, 0.8f, 0.0f, 1.0f);
  Image t = runFx("fx_skintexture", src, skinParams(0.3f, 0.8f, 0.6f, 3));
  float lo = 1, hi = 0;
  for (const auto& p : t.px) {
    EXPECT_EQ(p.r, p.g);
    EXPECT_EQ(p.r, p.b);
    EXPECT_EQ(p.a, 1.0f);
    lo = std::min(lo, p.r), hi = std::max(hi, p.r);
  }
  EXPECT_GE(lo, 0.0f);
  EXPECT_LE(hi, 1.0f);
  EXPECT_GT(hi - lo, 0.05f) << "no relief";
  // The texture doesn't depend on the picture.
  EXPECT_TRUE(matches(runFx("fx_skintexture", noisy(w, h, 38, 0.0f, 1.0f), skinParams(0.3f, 0.8f, 0.6f, 3)), t));
}

TEST(FxSkinTextureKernel, BlendsOnLuminanceOnlyWithSkinAndMidtoneWeights) {
  const int w = 32, h = 24;
  // Skin tones on the left half, foliage greens on the right.
  Lcg rng(41);
  Image src = storedPicture(w, h, [&](int x, int) {
    float j = rng.next(-0.05f, 0.05f);
    return x < w / 2 ? Rgba{0.78f + j, 0.58f + j, 0.48f + j, rng.next(0.0f, 1.0f)}
                     : Rgba{0.15f + j, 0.55f + j, 0.2f + j, rng.next(0.0f, 1.0f)};
  });
  ASSERT_GT(skinWeight(src.at(0, 0)), 0.99f);
  ASSERT_LT(skinWeight(src.at(w - 1, 0)), 0.01f);
  const Image t = runFx("fx_skintexture", src, skinParams(1, 0, 0, 3));

  // The amount 0 leaves the picture.
  EXPECT_TRUE(matches(runFx("fx_skintexture", src, skinParams(0, 0, 0, 0)), src));

  struct Case {
    float amount, skinOnly, midtones, blend;
  };
  const Case cases[] = {{1, 0, 0, 0}, {0.7f, 0, 0.6f, 0}, {1, 0, 0, 1}, {0.5f, 0, 0, 2}, {1, 1, 0, 0}, {0.8f, 0.5f, 0.3f, 1}};
  for (const auto& c : cases) {
    Image want = expected(w, h, [&](int x, int y) {
      Rgba s = src.at(x, y);
      float L = luma(s), tv = t.at(x, y).r, L2;
      if (c.blend == 1) L2 = L < 0.5f ? 2 * L * tv : 1 - 2 * (1 - L) * (1 - tv);
      else if (c.blend == 2) L2 = L + 2 * tv - 1;
      else L2 = (1 - 2 * tv) * L * L + 2 * tv * L;
      float md = sat(2 * std::fabs(L - 0.5f));
      float k = c.amount * lerp(1, skinWeight(s), c.skinOnly) * (1 - c.midtones * md * md);
      float d = lerp(L, L2, k) - L;
      return Rgba{s.r + d, s.g + d, s.b + d, s.a};
    });
    Image got = runFx("fx_skintexture", src, skinParams(c.amount, c.skinOnly, c.midtones, c.blend));
    EXPECT_TRUE(matches(got, want)) << "amount " << c.amount << " skin " << c.skinOnly << " mid " << c.midtones
                                    << " blend " << c.blend;
    // The same offset on every channel: the colour doesn't move.
    float moved = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        Rgba d = got.at(x, y) - src.at(x, y);
        EXPECT_NEAR(d.r, d.g, kStep);
        EXPECT_NEAR(d.r, d.b, kStep);
        EXPECT_EQ(d.a, 0.0f);
        moved = std::max(moved, std::fabs(d.r));
      }
    EXPECT_GT(moved, 0.01f) << "nothing was laid on the picture, blend " << c.blend;
    if (c.skinOnly == 1) {
      // Skin only: the greens keep their values.
      for (int y = 0; y < h; ++y)
        for (int x = w / 2; x < w; ++x) EXPECT_NEAR(got.at(x, y).g, src.at(x, y).g, kStep) << x << "," << y;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Composite

struct CompSettings {
  int mode = 0;
  float opacity = 1;
  int prem1 = 0, prem2 = 0, matte1 = 1, compo = 0;
  bool clamp = false, outprem = true, noBack = false;
  std::vector<float> params() const {
    std::vector<float> p(16, 0.0f);
    p[0] = float(mode), p[1] = opacity, p[6] = 1, p[7] = float(prem1), p[8] = float(prem2), p[9] = float(matte1);
    p[10] = float(compo), p[11] = clamp ? 1.0f : 0.0f, p[12] = outprem ? 1.0f : 0.0f, p[15] = noBack ? 1.0f : 0.0f;
    return p;
  }
};

float blendOf(int mode, float b, float f) {
  switch (mode) {
    case 1: return b + f;
    case 2: return 1 - (1 - b) * (1 - f);
    case 3: return b * f;
    case 4: return b < 0.5f ? 2 * b * f : 1 - 2 * (1 - b) * (1 - f);
    case 5: return std::fabs(b - f);
    case 6: return std::max(b, f);
    case 7: return std::min(b, f);
    case 8: return std::max(b - f, 0.0f);
    case 9: return std::max(f - b, 0.0f);
    default: return f;
  }
}

Rgba compOf(const CompSettings& c, Rgba s, Rgba back, const float* matte) {
  float fa = sat(s.a);
  float f[3] = {s.r, s.g, s.b};
  if (c.prem1 == 0)
    for (float& v : f) v = fa > 0.0001f ? v / fa : 0.0f;
  float a1 = fa;
  if (c.matte1 == 1 && matte) a1 = *matte * fa;
  if (c.matte1 == 2 && matte) a1 = *matte;
  a1 *= c.opacity;
  float a2 = 0, b[3] = {0, 0, 0};
  if (!c.noBack) {
    float bs[3] = {back.r, back.g, back.b};
    a2 = c.prem2 == 0 ? 1.0f : sat(back.a);
    for (int i = 0; i < 3; ++i) b[i] = c.prem2 == 1 ? (a2 < 0.0001f ? 0.0f : bs[i] / a2) : bs[i];
  }
  float w1 = a1 * (1 - a2), w2 = a2 * (1 - a1), w3 = a1 * a2;
  float sA = 1, sB = 1, sC = 1;
  if (c.compo == 2) sA = sB = 0;
  if (c.compo == 3) sB = sC = 0;
  if (c.compo == 4) sA = 0;
  float al = sA * w1 + sB * w2 + sC * w3;
  float out[3];
  for (int i = 0; i < 3; ++i) {
    float both = c.compo == 1 ? b[i] : blendOf(c.mode, b[i], f[i]);
    float rp = sA * w1 * f[i] + sB * w2 * b[i] + sC * w3 * both;
    out[i] = c.outprem ? rp : (al > 0.0001f ? rp / al : 0.0f);
    if (c.clamp) out[i] = sat(out[i]);
  }
  return {out[0], out[1], out[2], c.clamp ? sat(al) : al};
}

struct CompInputs {
  Image front, back, matte;
};
CompInputs compInputs(int w, int h, uint32_t seed, float hi = 1.0f) {
  CompInputs in{noisy(w, h, seed, 0.0f, hi, 0.0f, 1.0f), noisy(w, h, seed + 1, 0.0f, hi, 0.0f, 1.0f),
                noisy(w, h, seed + 2, 0.0f, hi)};
  // Fully transparent pixels exercise the division guards.
  for (int x = 0; x < w; x += 3) in.front.at(x, 0).a = 0, in.back.at(x, 1).a = 0;
  return in;
}

Image runComp(const CompInputs& in, const CompSettings& c, bool withMatte) {
  return runFx("fx_comp", in.front, c.params(), {.matte = withMatte ? &in.matte : nullptr, .aux = &in.back});
}

Image compExpected(const CompInputs& in, const CompSettings& c, bool withMatte) {
  return expected(in.front.w, in.front.h, [&](int x, int y) {
    float m = in.matte.at(x, y).r;
    return compOf(c, in.front.at(x, y), in.back.at(x, y), withMatte ? &m : nullptr);
  });
}

TEST(FxCompKernel, PremultipliedOverIsTheClassicFormula) {
  // Front premultiplied, Back opaque: out = F + B (1 - aF), alpha 1.
  Image front = storedPicture(8, 6, [](int x, int y) {
    float a = (x + 1) / 9.0f;
    return Rgba{0.8f * a, 0.3f * a, (y + 1) / 7.0f * a, a};
  });
  Image back = storedPicture(8, 6, [](int x, int y) { return Rgba{0.2f, 0.4f + 0.05f * y, 0.1f * x, 0.3f}; });
  CompSettings c;
  Image got = runFx("fx_comp", front, c.params(), {.aux = &back});
  Image want = expected(8, 6, [&](int x, int y) {
    Rgba f = front.at(x, y), b = back.at(x, y);
    Rgba o = f + b * (1 - f.a);
    o.a = 1;
    return o;
  });
  EXPECT_TRUE(matches(got, want));
}

TEST(FxCompKernel, EveryBlendModeOnPremultipliedInputs) {
  CompInputs in = compInputs(12, 8, 101);
  for (int mode = 0; mode <= 9; ++mode)
    for (int prem2 : {0, 1}) {
      CompSettings c;
      c.mode = mode, c.prem2 = prem2;
      EXPECT_TRUE(matches(runComp(in, c, true), compExpected(in, c, true))) << "mode " << mode << " prem2 " << prem2;
    }
}

TEST(FxCompKernel, CompositionsWithEachPremultipliedState) {
  CompInputs in = compInputs(12, 8, 202);
  for (int compo = 0; compo <= 4; ++compo)
    for (int prem1 : {0, 1})
      for (int prem2 : {0, 1, 2})
        for (int mode : {0, 4}) {
          CompSettings c;
          c.compo = compo, c.prem1 = prem1, c.prem2 = prem2, c.mode = mode, c.opacity = 0.75f;
          c.outprem = (compo + prem2) % 2 == 0;
          EXPECT_TRUE(matches(runComp(in, c, false), compExpected(in, c, false)))
              << "compo " << compo << " prem1 " << prem1 << " prem2 " << prem2 << " mode " << mode;
        }
  // "1 in 2" over a fully transparent Back leaves nothing at all.
  CompSettings in2;
  in2.compo = 2, in2.prem2 = 1;
  Image got = runComp(in, in2, false);
  for (int x = 0; x < 12; x += 3) EXPECT_EQ(got.at(x, 1).a, 0.0f) << x;
}

TEST(FxCompKernel, MatteModesOnFrontsAlpha) {
  CompInputs in = compInputs(12, 8, 303);
  for (int matte1 : {0, 1, 2})
    for (bool bound : {true, false}) {
      CompSettings c;
      c.matte1 = matte1, c.prem2 = 1, c.outprem = false;
      EXPECT_TRUE(matches(runComp(in, c, bound), compExpected(in, c, bound))) << "matte1 " << matte1 << " bound " << bound;
    }
  // Replace with no matte bound keeps Front's alpha: the same as the matte switched off.
  CompSettings replace, off;
  replace.matte1 = 2, off.matte1 = 0;
  EXPECT_TRUE(matches(runComp(in, replace, false), runComp(in, off, false)));
  // Replace with a matte: Front's alpha no longer counts, over an empty Back the alpha is the matte.
  replace.noBack = true;
  Image got = runComp(in, replace, true);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) EXPECT_NEAR(got.at(x, y).a, in.matte.at(x, y).r, kStep) << x << "," << y;
}

TEST(FxCompKernel, ClampAndOutputPremultiplication) {
  // Values above 1 and the Add mode push colour past white; a matte above 1 replacing Front's
  // alpha pushes the alpha past 1.
  CompInputs in = compInputs(12, 8, 404, 2.0f);
  for (bool clamp : {false, true})
    for (bool outprem : {false, true}) {
      CompSettings c;
      c.mode = 1, c.prem1 = 1, c.prem2 = 2, c.matte1 = 2, c.clamp = clamp, c.outprem = outprem;
      Image got = runComp(in, c, true);
      EXPECT_TRUE(matches(got, compExpected(in, c, true))) << "clamp " << clamp << " outprem " << outprem;
      float top = 0, topAlpha = 0;
      for (const auto& p : got.px) top = std::max({top, p.r, p.g, p.b}), topAlpha = std::max(topAlpha, p.a);
      if (clamp) {
        EXPECT_LE(top, 1.0f);
        EXPECT_LE(topAlpha, 1.0f);
      } else {
        EXPECT_GT(top, 1.0f);
        EXPECT_GT(topAlpha, 1.0f);
      }
    }
}

TEST(FxCompKernel, WithoutBackFrontLiesOnTransparentBlack) {
  CompInputs in = compInputs(12, 8, 505);
  for (bool outprem : {true, false})
    for (int prem1 : {0, 1}) {
      CompSettings c;
      c.noBack = true, c.outprem = outprem, c.prem1 = prem1, c.prem2 = 0;  // an opaque Back would hide Front
      Image want = expected(12, 8, [&](int x, int y) {
        Rgba s = in.front.at(x, y);
        float fa = sat(s.a), a1 = in.matte.at(x, y).r * fa;
        Rgba f = prem1 ? s : (fa > 0.0001f ? s * (1 / fa) : Rgba{});
        if (outprem) f = f * a1;
        if (!outprem && a1 <= 0.0001f) f = {};
        return Rgba{f.r, f.g, f.b, a1};
      });
      // aux holds a picture that must not show.
      EXPECT_TRUE(matches(runComp(in, c, true), want)) << "outprem " << outprem << " prem1 " << prem1;
      EXPECT_TRUE(matches(runComp(in, c, true), compExpected(in, c, true)));
    }
}

// ---------------------------------------------------------------------------------------------
// Colour-volume keyer

struct KeySample {
  float r, g, b, sign, x, y;
};

std::array<float, 3> ycOf(float r, float g, float b) {
  float y = 0.2126f * r + 0.7152f * g + 0.0722f * b;
  return {y, (b - y) * 0.5f, (r - y) * 0.65f};
}

struct KeyerSettings {
  float tolY = 0.04f, tolC = 0.02f, soft = 0.4f, invert = 0, reach = 0, view = 0;
};

Image runKeyer(const Image& front, const KeyerSettings& k, const std::vector<KeySample>& samples) {
  EXPECT_TRUE(gpu().has("fx_keyer3d"));
  std::vector<float> P(16, 0.0f), table;
  P[0] = k.tolY, P[1] = k.tolC, P[2] = k.soft, P[3] = k.invert, P[4] = k.reach, P[5] = k.view;
  P[15] = float(samples.size());
  for (const auto& s : samples) table.insert(table.end(), {s.r, s.g, s.b, s.sign, s.x, s.y, 0, 0});
  if (table.empty()) table.assign(8, 0.0f);  // as the engine binds it
  auto in = gpu().upload(front);
  auto out = gpu().blank(front.w, front.h);
  gpu().run("fx_keyer3d", {in, out}, P, table);
  return gpu().read(out);
}

Image keyerExpected(const Image& front, const KeyerSettings& k, const std::vector<KeySample>& samples) {
  const int w = front.w, h = front.h;
  return expected(w, h, [&](int x, int y) {
    Rgba c = front.at(x, y);
    auto a = ycOf(c.r, c.g, c.b);
    const float tol[3] = {std::max(k.tolY, 0.002f), std::max(k.tolC, 0.002f), std::max(k.tolC, 0.002f)};
    const float reach = k.reach * 0.01f;
    float kAdd = 0, kSub = 0;
    for (const auto& s : samples) {
      auto q = ycOf(s.r, s.g, s.b);
      float d2 = 0;
      for (int i = 0; i < 3; ++i) d2 += (a[i] - q[i]) * (a[i] - q[i]) / (tol[i] * tol[i]);
      float kk = 1 - smooth(1, 1 + 3 * k.soft + 0.0001f, std::sqrt(d2));
      if (reach > 0) {
        float dx = ((x + 0.5f) / w - s.x * 0.01f) * (float(w) / h), dy = (y + 0.5f) / h - s.y * 0.01f;
        kk *= 1 - smooth(reach, 1.5f * reach, std::sqrt(dx * dx + dy * dy));
      }
      (s.sign > 0 ? kAdd : kSub) = std::max(s.sign > 0 ? kAdd : kSub, kk);
    }
    float key = kAdd * (1 - kSub);
    if (k.invert > 0.5f) key = 1 - key;
    if (k.view > 0.5f || samples.empty()) {
      float f = lerp(0.22f, 1, key);
      return Rgba{c.r * f, c.g * f, c.b * f, 1};
    }
    return Rgba{key, key, key, 1};
  });
}

// Pixels scattered around a few key colours, a tolerance or two away, so keys cross their soft
// edge; one corner holds colours far from all of them.
Image keyerPicture(int w, int h, uint32_t seed) {
  const Rgba bases[] = {{0.1f, 0.7f, 0.2f, 1}, {0.15f, 0.2f, 0.8f, 1}, {0.6f, 0.45f, 0.35f, 1}, {0.9f, 0.1f, 0.5f, 1}};
  Lcg rng(seed);
  return storedPicture(w, h, [&](int x, int y) {
    Rgba b = bases[(x / 6 + 2 * (y / 8)) % 4];
    float j = rng.next(0.0f, 0.12f) * (x % 3);
    return Rgba{b.r + rng.next(-j, j), b.g + rng.next(-j, j), b.b + rng.next(-j, j), rng.next(0.0f, 1.0f)};
  });
}

TEST(FxKeyer3dKernel, NoSamplesShowsThePictureDimmedOrWholeWhenInverted) {
  Image front = keyerPicture(16, 12, 7);
  for (float view : {0.0f, 1.0f}) {
    KeyerSettings k;
    k.view = view;
    EXPECT_TRUE(matches(runKeyer(front, k, {}), expected(16, 12, [&](int x, int y) {
                          Rgba c = front.at(x, y);
                          return Rgba{c.r * 0.22f, c.g * 0.22f, c.b * 0.22f, 1};
                        })))
        << "view " << view;
    k.invert = 1;
    EXPECT_TRUE(matches(runKeyer(front, k, {}), expected(16, 12, [&](int x, int y) {
                          Rgba c = front.at(x, y);
                          return Rgba{c.r, c.g, c.b, 1};
                        })))
        << "inverted, view " << view;
  }
}

TEST(FxKeyer3dKernel, AddedAndSubtractedColoursMakeTheKey) {
  const int w = 24, h = 16;
  Image front = keyerPicture(w, h, 9);
  const std::vector<KeySample> samples = {{0.1f, 0.7f, 0.2f, 1, 10, 10},
                                          {0.15f, 0.2f, 0.8f, 1, 80, 20},
                                          {0.13f, 0.72f, 0.22f, -1, 50, 50},
                                          {0.6f, 0.45f, 0.35f, -1, 30, 90}};
  struct Case {
    KeyerSettings k;
    const char* what;
  };
  std::vector<Case> cases(4);
  cases[0].what = "defaults";
  cases[1].k.tolY = 0.1f, cases[1].k.tolC = 0.06f, cases[1].k.soft = 1, cases[1].what = "wide";
  cases[2].k.invert = 1, cases[2].what = "inverted";
  cases[3].k.view = 1, cases[3].k.tolC = 0.001f, cases[3].what = "preview, tolerance floored";
  for (const auto& c : cases) {
    Image got = runKeyer(front, c.k, samples);
    EXPECT_TRUE(matches(got, keyerExpected(front, c.k, samples))) << c.what;
    if (c.k.view == 0) {
      int lo = 0, mid = 0, hi = 0;
      for (const auto& p : got.px) (p.r < 0.001f ? lo : p.r > 0.999f ? hi : mid)++;
      EXPECT_GT(lo, 0) << c.what;
      EXPECT_GT(hi, 0) << c.what;
      EXPECT_GT(mid, 0) << c.what;
    }
  }
  // Only added samples: the sample's own colour is fully in, a subtracting twin takes it out.
  Image flat = storedPicture(8, 6, [](int, int) { return Rgba{0.1f, 0.7f, 0.2f, 1}; });
  EXPECT_TRUE(matches(runKeyer(flat, {}, {samples[0]}), Image(8, 6, {1, 1, 1, 1})));
  EXPECT_TRUE(matches(runKeyer(flat, {}, {samples[0], {0.1f, 0.7f, 0.2f, -1, 0, 0}}), Image(8, 6, {0, 0, 0, 1})));
}

TEST(FxKeyer3dKernel, ReachLimitsEachSampleAroundWhereItWasPicked) {
  const int w = 48, h = 32;
  Image front = keyerPicture(w, h, 11);
  const std::vector<KeySample> samples = {{0.1f, 0.7f, 0.2f, 1, 20, 30},
                                          {0.15f, 0.2f, 0.8f, 1, 75, 60},
                                          {0.6f, 0.45f, 0.35f, 1, 50, 50},
                                          {0.9f, 0.1f, 0.5f, -1, 60, 40}};
  for (float reach : {15.0f, 40.0f}) {
    KeyerSettings k;
    k.reach = reach, k.tolY = 0.15f, k.tolC = 0.1f;
    Image got = runKeyer(front, k, samples);
    EXPECT_TRUE(matches(got, keyerExpected(front, k, samples))) << "reach " << reach;
    // Without reach the same colour far from every pick is keyed; with it, it isn't.
    k.reach = 0;
    Image all = runKeyer(front, k, samples);
    int lost = 0;
    for (std::size_t i = 0; i < got.px.size(); ++i) lost += all.px[i].r > 0.999f && got.px[i].r < 0.001f;
    EXPECT_GT(lost, 0) << "reach " << reach;
  }
}

}  // namespace
