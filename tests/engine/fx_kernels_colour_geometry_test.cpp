// Pixel tests of the effect kernels for colour, keying, geometry, compositing and light. Every
// expectation is computed here on the CPU (in double precision) from the inputs exactly as the
// half-float textures store them, and compared within about one half-float step; reads through
// the bilinear sampler get a little more, since drivers may quantise the filter weights.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "engine/fx_reference.h"
#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

using namespace ombrik::test;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr C kOpaqueBlack{0, 0, 0, 1};

Image noise(int w, int h, uint32_t seed, float lo, float hi, float alphaLo = 0, float alphaHi = 1) {
  return noisyPicture(w, h, seed, lo, hi, alphaLo, alphaHi);
}

// A smooth picture (gradients and a slow wave) with a varying alpha: bilinear reads of it stay
// accurate even where a driver filters with coarse weights.
Image smoothPicture(int w, int h) {
  return storedPicture(w, h, [&](int x, int y) {
    float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
    return Rgba{0.1f + 0.8f * u, 0.9f - 0.7f * v, 0.5f + 0.3f * std::sin(3.0f * u + 2.0f * v), 0.3f + 0.6f * u * v};
  });
}

// Compares with the reference (nullopt: a pixel that sits on a decision boundary and is not
// checked); half the pixels at least must be checked.
::testing::AssertionResult matches(const Image& got, const Expectation& want, double tol = kStep) {
  return ombrik::test::matches(got, want, tol, {1, 2});
}

// The HSV hue in degrees by sorting the channels: which one is largest picks the sector pair,
// which one is smallest picks the side.
double hsvHue(C c) {
  const double mx = std::max({c.r, c.g, c.b}), mn = std::min({c.r, c.g, c.b}), chroma = mx - mn;
  if (chroma < 0.00001) return 0;
  double h;
  if (mx == c.r) h = mn == c.b ? 60 * (c.g - c.b) / chroma : 360 - 60 * (c.b - c.g) / chroma;
  else if (mx == c.g) h = 120 + 60 * (c.b - c.r) / chroma;
  else h = 240 + 60 * (c.r - c.g) / chroma;
  return h >= 360 ? h - 360 : h;
}

// A geometry kernel's result at a source position: the sampled source inside, opaque black
// outside, and no verdict within a hair of the border, where float rounding may decide either way.
std::optional<C> sampledOrBlack(const Image& im, double u, double v) {
  constexpr double e = 1e-4;
  if (std::fabs(u) < e || std::fabs(u - 1) < e || std::fabs(v) < e || std::fabs(v - 1) < e) return std::nullopt;
  if (u < 0 || u > 1 || v < 0 || v > 1) return kOpaqueBlack;
  return bilinear(im, u, v);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Library

TEST(FxKernelLibrary, ColourKeyingGeometryAndLightKernelsAreBuilt) {
  // A compile error in any effect file leaves every effect without a pipeline.
  for (const char* k : {"fx_wheels", "fx_huesat", "fx_levels", "fx_contrast", "fx_mono", "fx_splittone", "fx_clamp",
                        "fx_posterize", "fx_threshold", "fx_lumakey", "fx_chromakey", "fx_matteedit", "fx_negative",
                        "fx_edgeblur", "fx_trackboost", "fx_transform", "fx_flip", "fx_crop", "fx_lensdistort",
                        "fx_merge", "fx_bloom", "fx_vignette"})
    EXPECT_TRUE(KernelRunner::shared().has(k)) << k;
}

// ---------------------------------------------------------------------------------------------
// Colour

TEST(FxColourKernels, WheelsLiftGainThenFlooredGamma) {
  const Image src = noise(16, 8, 1, -0.2f, 1.2f);
  checkPointwise("fx_wheels", src,
                 {
                     {0, 0, 0, 0, 0, 0, 1, 1, 1},  // neutral but for negatives, which go to 0
                     {0.1f, -0.05f, 0.2f, 0.3f, -0.2f, 0.45f, 1.2f, 0.8f, 1.5f},
                     // Gamma pulled to -1 and -0.96: the exponent stops at 1 / 0.05.
                     {0.02f, 0, -0.1f, -1.0f, -0.96f, 0.1f, 0.8f, 0.7f, 0.9f},
                 },
                 [](C s, const std::vector<float>& p) {
                   C o = s;
                   double* ch[3] = {&o.r, &o.g, &o.b};
                   for (int i = 0; i < 3; ++i) {
                     double c = (*ch[i] + p[i] * (1 - *ch[i])) * p[6 + i];
                     *ch[i] = std::pow(std::max(c, 0.0), 1 / std::max(1.0 + p[3 + i], 0.05));
                   }
                   return o;
                 });
}

TEST(FxColourKernels, HueTurnsAboutTheGreyAxis) {
  const Image src = noise(12, 8, 2, 0.0f, 1.0f);
  // A third of a turn carries red to green, green to blue and blue to red; two thirds the other way.
  Image third = runEffect("fx_huesat", src, params({120, 1, 0, 0}, src.w, src.h));
  EXPECT_TRUE(matches(third, [&](int x, int y) {
    C s = of(src.at(x, y));
    return std::optional<C>(C{s.b, s.r, s.g, s.a});
  }));
  Image twoThirds = runEffect("fx_huesat", src, params({-120, 1, 0, 0}, src.w, src.h));
  EXPECT_TRUE(matches(twoThirds, [&](int x, int y) {
    C s = of(src.at(x, y));
    return std::optional<C>(C{s.g, s.b, s.r, s.a});
  }));
}

TEST(FxColourKernels, HueSaturationVibranceAndLightness) {
  // Dull and vivid colours, so vibrance weighs them differently.
  const Image src = noise(16, 8, 3, 0.0f, 1.0f);
  checkPointwise("fx_huesat", src,
                 {
                     {0, 1, 0, 0},
                     {35, 1.4f, 0.5f, 0.1f},
                     {-77, 0.3f, -0.7f, -0.2f},
                     {180, 0, 1, 0.4f},  // no saturation: the luminance of the turned colour
                     {10, 2, 1, 0},
                 },
                 [](C s, const std::vector<float>& p) {
                   // The turn, done in the plane across the grey axis: an orthonormal pair u, v
                   // with u x v along grey, so a positive angle is right-handed about grey.
                   const double r2 = std::sqrt(2.0), r6 = std::sqrt(6.0);
                   const double mean = (s.r + s.g + s.b) / 3;
                   const double cu = (s.r - s.g) / r2, cv = (s.r + s.g - 2 * s.b) / r6;
                   const double t = p[0] * kPi / 180;
                   const double nu = cu * std::cos(t) - cv * std::sin(t), nv = cu * std::sin(t) + cv * std::cos(t);
                   C c{mean + nu / r2 + nv / r6, mean - nu / r2 + nv / r6, mean - 2 * nv / r6, s.a};
                   const double l = luma(c);
                   const double spread = std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b});
                   const double vib = 1 + p[2] * (1 - sat(2 * spread));
                   return perChannel(c, [&](double v) { return l + (v - l) * p[1] * vib + 0.5 * p[3]; });
                 });
}

TEST(FxColourKernels, LevelsWithFlooredRangeAndGamma) {
  const Image src = noise(16, 8, 4, -0.1f, 1.1f);
  checkPointwise("fx_levels", src,
                 {
                     {0, 1, 1, 0, 1},
                     {0.1f, 0.9f, 1.8f, 0.05f, 0.95f},
                     {0.3f, 1.4f, 0.4f, 0.2f, 0.6f},
                     {0.5f, 0.5f, 1, 0, 1},        // no input range: divides by 0.001
                     {0.55f, 0.5f, 1, 0.1f, 0.9f},  // crossed input range: also 0.001
                     {0, 1, 0, 0, 1},               // gamma 0: the exponent stops at 100
                 },
                 [](C s, const std::vector<float>& p) {
                   return perChannel(s, [&](double v) {
                     double c = (v - p[0]) / std::max(double(p[1]) - p[0], 0.001);
                     c = std::pow(std::max(c, 0.0), 1 / std::max(double(p[2]), 0.01));
                     return lerp(p[3], p[4], c);
                   });
                 });
}

TEST(FxColourKernels, ContrastMonoAndClamp) {
  const Image src = noise(16, 8, 5, -0.3f, 1.4f);
  checkPointwise("fx_contrast", src, {{1, 0.45f, 0}, {2.2f, 0.3f, 0.1f}, {0, 0.6f, -0.2f}},
                 [](C s, const std::vector<float>& p) {
                   return perChannel(s, [&](double v) { return (v - p[1]) * p[0] + p[1] + p[2]; });
                 });
  checkPointwise("fx_mono", src,
                 {
                     {0.3f, 0.59f, 0.11f, 1},
                     {1, 0.5f, 0, 0.6f},
                     {0.0004f, 0, 0.0003f, 1},  // weights summing under 0.001: divided by 0.001
                     {0, 0, 0, 1},
                 },
                 [](C s, const std::vector<float>& p) {
                   const double sum = double(p[0]) + p[1] + p[2];
                   const double l = (s.r * p[0] + s.g * p[1] + s.b * p[2]) / std::max(sum, 0.001);
                   return perChannel(s, [&](double v) { return lerp(v, l, p[3]); });
                 });
  checkPointwise("fx_clamp", src, {{0, 1}, {-0.2f, 0.4f}, {0.5f, 1.7f}, {0.8f, 0.2f}},
                 [](C s, const std::vector<float>& p) {
                   // Crossed bounds: the maximum wins.
                   return perChannel(s, [&](double v) { return std::min(std::max(v, double(p[0])), double(p[1])); });
                 });
}

TEST(FxColourKernels, PosterizeLevelsAndThreshold) {
  const Image src = noise(16, 8, 6, -0.2f, 1.2f);
  // 1 level is raised to 2 (black or white); a fractional count is used as it is.
  checkPointwise("fx_posterize", src, {{6}, {2}, {1}, {4.5f}, {32}}, [](C s, const std::vector<float>& p) {
    const double n = std::max(double(p[0]), 2.0) - 1;
    return perChannel(s, [&](double v) { return std::floor(sat(v) * n + 0.5) / n; });
  });
  // Exact level values: 0.5 at 6 levels rounds up to 3 / 5.
  Image half5 = runEffect("fx_posterize", Image(8, 6, {0.5f, 0.1f, 0.95f, 0.25f}), params({6}, 8, 6));
  EXPECT_TRUE(matches(half5, [](int, int) { return std::optional<C>(C{0.6, 0.0, 1.0, 0.25}); }));

  checkPointwise("fx_threshold", src, {{0.5f, 0.02f}, {0.3f, 0}, {0.7f, 0.5f}}, [](C s, const std::vector<float>& p) {
    return withAlpha(grey(smooth(p[0] - p[1], p[0] + p[1] + 0.0001, luma(s))), s.a);
  });
}

TEST(FxColourKernels, SplitToneTintsShadowsAndHighlights) {
  // A ramp of greys and colours across the balance point.
  const Image src = storedPicture(16, 8, [](int x, int y) {
    float l = (x + 0.5f) / 16;
    return Rgba{l, l * (0.6f + 0.05f * y), l * (1.0f - 0.08f * y), 0.5f};
  });
  checkPointwise("fx_splittone", src,
                 {
                     {210, 0.2f, 35, 0.15f, 0},
                     {0, 1, 120, 1, 0.5f},
                     {300, 0.5f, 359, 0.7f, -1},
                     {720, 0.6f, 400, 0.4f, 0.2f},  // hues beyond a turn wrap around
                 },
                 [](C s, const std::vector<float>& p) {
                   const double bal = 0.5 + 0.4 * p[4];
                   const double wh = smooth(bal - 0.35, bal + 0.35, luma(s));
                   const C sh = hueColour(p[0]), hi = hueColour(p[2]);
                   const double shc[3] = {sh.r, sh.g, sh.b}, hic[3] = {hi.r, hi.g, hi.b};
                   C o = s;
                   double* ch[3] = {&o.r, &o.g, &o.b};
                   for (int i = 0; i < 3; ++i) *ch[i] += (shc[i] - 0.5) * p[1] * (1 - wh) + (hic[i] - 0.5) * p[3] * wh;
                   return o;
                 });
}

TEST(FxColourKernels, MatteLimitsTheEffectOnlyWhenBound) {
  const int w = 16, h = 8;
  const Image src = noise(w, h, 7, 0.0f, 1.0f);
  // Only the red of the matte counts; the other channels are there to catch a wrong read.
  const Image matte = storedPicture(w, h, [&](int x, int y) {
    return Rgba{(x + 0.5f) / w, 1.0f - (y + 0.5f) / h, 0.3f, 0.1f};
  });
  const std::vector<float> p = {2.5f, 0.4f, 0.1f};
  auto full = [&](C s) { return perChannel(s, [&](double v) { return (v - p[1]) * p[0] + p[1] + p[2]; }); };

  Image limited = runEffect("fx_contrast", src, params(p, w, h, 1), &matte);
  EXPECT_TRUE(matches(limited, [&](int x, int y) {
    C s = of(src.at(x, y));
    return std::optional<C>(s + (full(s) - s) * matte.at(x, y).r);
  }));
  // Bound but not in use (useMatte 0), as the engine binds the source in its place.
  Image unlimited = runEffect("fx_contrast", src, params(p, w, h, 0), &matte);
  EXPECT_TRUE(matches(unlimited, [&](int x, int y) { return std::optional<C>(full(of(src.at(x, y)))); }));

  // A kernel that moves alpha too is limited on all four channels.
  Image flipped = runEffect("fx_flip", src, params({1, 0}, w, h, 1), &matte);
  EXPECT_TRUE(matches(flipped, [&](int x, int y) {
    C s = of(src.at(x, y));
    return std::optional<C>(s + (of(src.at(w - 1 - x, y)) - s) * matte.at(x, y).r);
  }));
}

// ---------------------------------------------------------------------------------------------
// Keying and mattes: opaque grey out, whatever the source's alpha

TEST(FxMatteKernels, LumaKeyRangeInvertAndCrossedBounds) {
  const Image src = noise(16, 8, 8, -0.1f, 1.1f);
  checkPointwise("fx_lumakey", src, {{0.2f, 0.8f, 0}, {0.2f, 0.8f, 1}, {0.6f, 0.3f, 0}, {0.5f, 0.5f, 1}},
                 [](C s, const std::vector<float>& p) {
                   double k = smooth(p[0], std::max(double(p[1]), p[0] + 0.001), luma(s));
                   return grey(p[2] > 0.5f ? 1 - k : k, 1);
                 });
}

TEST(FxMatteKernels, ChromaKeyHueDistanceWrapsAroundTheCircle) {
  // Colours over the whole hue circle at several saturations and brightnesses, plus greys and black.
  const int w = 36, h = 8;
  const Image src = storedPicture(w, h, [&](int x, int y) {
    if (y == 7) {
      float g = x < 4 ? 0.0f : (x - 4) / 32.0f;
      return Rgba{g, g, g, 0.0f};
    }
    const double hue = x * 10.0 + 3.0 * y;
    const double s = 0.05 + 0.15 * y, v = 0.3 + 0.1 * (x % 7);
    C c = hueColour(hue);
    return Rgba{float(v * (1 - s * (1 - c.r))), float(v * (1 - s * (1 - c.g))), float(v * (1 - s * (1 - c.b))), 0.3f};
  });
  auto ref = [](C s, const std::vector<float>& p) {
    const double mx = std::max({s.r, s.g, s.b}), chroma = mx - std::min({s.r, s.g, s.b});
    const double saturation = mx > 0 ? chroma / mx : 0;
    const double d = std::fabs(hsvHue(s) - p[0]), dh = std::min(d, 360 - d);
    const double hueIn = 1 - smooth(p[1], p[1] * (1 + 4 * p[3]) + 0.001, dh);
    const double satIn = smooth(p[2] - p[3], p[2] + p[3] + 0.001, saturation);
    const double k = 1 - hueIn * satIn;
    return grey(p[4] > 0.5f ? 1 - k : k, 1);
  };
  checkPointwise("fx_chromakey", src,
                 {{120, 30, 0.2f, 0.1f, 0}, {355, 20, 0.3f, 0.05f, 0}, {5, 15, 0.4f, 0, 1}, {240, 60, 0.1f, 0.5f, 0}},
                 ref);

  // Keyed on 355 degrees, a saturated 5-degree red is removed and a 30-degree orange kept.
  const Image reds = storedPicture(8, 6, [](int x, int) {
    C c = hueColour(x < 4 ? 5 : 30);
    return Rgba{float(c.r), float(c.g), float(c.b), 1};
  });
  Image keyed = runEffect("fx_chromakey", reds, params({355, 20, 0.3f, 0.05f, 0}, 8, 6));
  EXPECT_LT(keyed.at(1, 2).r, 0.001f);
  EXPECT_GT(keyed.at(6, 2).r, 0.999f);
}

TEST(FxMatteKernels, MatteEditGrowGammaInvertReadTheBlurredMatte) {
  const int w = 16, h = 8;
  const Image src = noise(w, h, 9, 0.0f, 1.0f);
  // The pre-blurred matte arrives in aux; the source is bound too but not read.
  const Image blurred = noise(w, h, 10, -0.1f, 1.1f);
  for (const std::vector<float>& p : std::vector<std::vector<float>>{
           {2, 1, 0, 0}, {2, 2.2f, 0.2f, 0}, {2, 0.5f, -0.3f, 1}, {2, 0, 0.1f, 0} /* gamma 0: exponent 100 */}) {
    Image out = runEffect("fx_matteedit", src, params(p, w, h), nullptr, &blurred);
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      double a = std::pow(sat(blurred.at(x, y).r + p[2]), 1 / std::max(double(p[1]), 0.01));
      return std::optional<C>(grey(p[3] > 0.5f ? 1 - a : a, 1));
    })) << describe("fx_matteedit", p);
  }
}

TEST(FxMatteKernels, NegativeIsOpaqueAndSaturatesBeforeInverting) {
  const Image src = noise(16, 8, 11, -0.3f, 1.3f);
  checkPointwise("fx_negative", src, {{1}, {0.5f}, {0}}, [](C s, const std::vector<float>& p) {
    return withAlpha(perChannel(s, [&](double v) { return lerp(v, 1 - sat(v), p[0]); }), 1);
  });
}

TEST(FxMatteKernels, EdgeBlurInsideCentredAndOutside) {
  const int w = 16, h = 8;
  // A sharp matte (with some values outside 0..1) and a stand-in for its blur in aux.
  const Image sharp = storedPicture(w, h, [](int x, int y) {
    float v = (x * 7 + y * 3) % 5 == 0 ? 0.5f : (x + y) % 3 == 0 ? 1.2f : (x * y) % 4 == 1 ? -0.2f : (x < 8 ? 1.0f : 0.0f);
    return Rgba{v, 0.3f, 0.7f, 0.0f};
  });
  const Image blurred = noise(w, h, 12, -0.1f, 1.1f);
  for (const std::vector<float>& p : std::vector<std::vector<float>>{
           {8, 0, 1},
           {8, 1, 1},
           {8, 2, 1},
           {8, 0.4f, 2.0f},  // rounds to inside
           {8, 1.4f, 0.5f},  // rounds to centred
           {8, 1.6f, 1.3f},  // rounds to outside
           {8, 3, 1},        // anything else is centred
           {8, 2, 0},        // curve 0: the exponent stops at 100
       }) {
    Image out = runEffect("fx_edgeblur", sharp, params(p, w, h), nullptr, &blurred);
    const int mode = int(std::lround(p[1]));
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      const double a = sat(sharp.at(x, y).r), b = sat(blurred.at(x, y).r);
      double r = mode == 0 ? a * sat(2 * b) : mode == 2 ? std::max(a, sat(2 * b)) : b;
      r = std::pow(sat(r), 1 / std::max(double(p[2]), 0.01));
      return std::optional<C>(grey(r, 1));
    })) << describe("fx_edgeblur", p);
  }
}

TEST(FxMatteKernels, TrackBoostAmplifiesLocalContrastInGrey) {
  const int w = 16, h = 8;
  const Image src = noise(w, h, 13, 0.0f, 1.0f);
  // A blurred picture close to the source, so a moderate gain stays inside 0..1.
  Lcg rng(14);
  const Image blurred = storedPicture(w, h, [&](int x, int y) {
    const Rgba& s = src.at(x, y);
    return Rgba{s.r + rng.next(-0.1f, 0.1f), s.g + rng.next(-0.1f, 0.1f), s.b + rng.next(-0.1f, 0.1f), 1};
  });
  for (float gain : {4.0f, 0.0f, 1.5f, 20.0f}) {
    Image out = runEffect("fx_trackboost", src, params({24, gain}, w, h), nullptr, &blurred);
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      auto y601 = [](C c) { return 0.299 * c.r + 0.587 * c.g + 0.114 * c.b; };
      return std::optional<C>(grey(sat(0.5 + gain * (y601(of(src.at(x, y))) - y601(of(blurred.at(x, y))))), 1));
    })) << "gain " << gain;
  }
}

// ---------------------------------------------------------------------------------------------
// Geometry: positions map back into the source, whose outside is opaque black

TEST(FxGeometryKernels, TransformMovesScalesAndTurnsAboutTheCentre) {
  const int w = 24, h = 16;
  const Image src = smoothPicture(w, h);
  struct Case {
    float tx, ty, scale, rot;
  };
  for (const Case& k : {Case{0, 0, 1, 0}, Case{25, 0, 1, 0}, Case{-12.5f, 20, 1.5f, 0}, Case{0, 0, 1, 90},
                        Case{10, -5, 0.7f, 33}, Case{-3, 4, 2.5f, -140}}) {
    Image out = runEffect("fx_transform", src, params({k.tx, k.ty, k.scale, k.rot}, w, h));
    const double aspect = double(w) / h, t = -k.rot * kPi / 180;
    EXPECT_TRUE(matches(
        out,
        [&](int x, int y) {
          double px = ((x + 0.5) / w - 0.5 - k.tx / 100.0) * aspect, py = (y + 0.5) / h - 0.5 - k.ty / 100.0;
          double rx = (px * std::cos(t) - py * std::sin(t)) / k.scale, ry = (px * std::sin(t) + py * std::cos(t)) / k.scale;
          return sampledOrBlack(src, rx / aspect + 0.5, ry + 0.5);
        },
        kSampled))
        << "transform " << k.tx << " " << k.ty << " " << k.scale << " " << k.rot;
  }
}

TEST(FxGeometryKernels, TransformTurnsClockwiseAndShiftsInWholePixels) {
  // On a square picture a quarter turn is a permutation of the pixels: a positive angle turns the
  // picture clockwise as shown (rows run downward), so the top-left corner lands top right.
  const Image square = noise(16, 16, 15, 0.0f, 1.0f);
  Image turned = runEffect("fx_transform", square, params({0, 0, 1, 90}, 16, 16));
  EXPECT_TRUE(matches(turned, [&](int x, int y) { return std::optional<C>(of(square.at(y, 15 - x))); }, kSampled));

  // A quarter of the width to the right: 4 columns of opaque black come in on the left.
  const Image src = noise(16, 8, 16, 0.0f, 1.0f);
  Image shifted = runEffect("fx_transform", src, params({25, -25, 1, 0}, 16, 8));
  EXPECT_TRUE(matches(shifted, [&](int x, int y) {
    return std::optional<C>(x < 4 || y >= 6 ? kOpaqueBlack : of(src.at(x - 4, y + 2)));
  }, kSampled));
}

TEST(FxGeometryKernels, TransformScaleZeroDividesByOneHundredth) {
  // On an odd-sized picture the centre pixel sits on the centre, so an offset of a few
  // thousandths, divided by the scale's floor of 0.01, reads a known source position; every
  // other pixel maps far outside. A scale floored any lower would send the centre outside too.
  const int w = 25, h = 15;
  const Image src = noise(w, h, 17, 0.0f, 1.0f, 0.2f, 0.9f);
  Image out = runEffect("fx_transform", src, params({0.2f, -0.1f, 0, 0}, w, h));
  EXPECT_TRUE(matches(out, [&](int x, int y) -> std::optional<C> {
    if (x != 12 || y != 7) return kOpaqueBlack;
    // Source (0.5 - 0.2, 0.5 + 0.1): column 7.0, halfway between rows 8 and 9.
    return (of(src.at(7, 8)) + of(src.at(7, 9))) * 0.5;
  }, kSampled));
}

TEST(FxGeometryKernels, FlipMirrorsEitherAxisWithAlpha) {
  const int w = 13, h = 7;
  const Image src = noise(w, h, 18, -0.2f, 1.2f);
  for (int fx = 0; fx < 2; ++fx)
    for (int fy = 0; fy < 2; ++fy) {
      Image out = runEffect("fx_flip", src, params({fx ? 0.51f : 0.5f, fy ? 1.0f : 0.5f}, w, h));
      EXPECT_TRUE(matches(out, [&](int x, int y) {
        return std::optional<C>(of(src.at(fx ? w - 1 - x : x, fy ? h - 1 - y : y)));
      })) << "flop " << fx << " flip " << fy;
    }
}

TEST(FxGeometryKernels, CropKeepsPixelsOnTheBoundsAndBlacksOutTheRest) {
  // On 32 by 16 pixel centres fall on exact percentages: column 3 at 10.9375, column 28 at
  // 89.0625, row 2 at 15.625 and row 13 at 84.375.
  const int w = 32, h = 16;
  const Image src = noise(w, h, 19, 0.0f, 1.0f, 0.0f, 0.5f);
  struct Case {
    float l, r, t, b;
    int x0, x1, y0, y1;  // the kept pixels, inclusive
  };
  for (const Case& k : {Case{0, 0, 0, 0, 0, 31, 0, 15}, Case{10.9375f, 10.9375f, 15.625f, 15.625f, 3, 28, 2, 13},
                        Case{10.95f, 10.95f, 15.63f, 15.63f, 4, 27, 3, 12}, Case{50, 50, 0, 0, 0, -1, 0, 15}}) {
    Image out = runEffect("fx_crop", src, params({k.l, k.r, k.t, k.b}, w, h));
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      const bool kept = x >= k.x0 && x <= k.x1 && y >= k.y0 && y <= k.y1;
      return std::optional<C>(kept ? of(src.at(x, y)) : kOpaqueBlack);
    })) << "crop " << k.l << " " << k.r << " " << k.t << " " << k.b;
  }
}

TEST(FxGeometryKernels, LensDistortBarrelPincushionAndZoomFloor) {
  const int w = 25, h = 15;
  const Image src = smoothPicture(w, h);
  // Zoom 0 is floored at 0.01: only the centre and, pulled back in by a strong negative k, the
  // pixels right around it read the source.
  for (const std::vector<float>& p : std::vector<std::vector<float>>{
           {0, 1}, {0.08f, 1}, {-0.3f, 1.2f}, {0.5f, 0.7f}, {-220, 0}}) {
    Image out = runEffect("fx_lensdistort", src, params(p, w, h));
    const double aspect = double(w) / h;
    EXPECT_TRUE(matches(
        out,
        [&](int x, int y) {
          const double dx = ((x + 0.5) / w - 0.5) * aspect, dy = (y + 0.5) / h - 0.5;
          const double f = (1 + p[0] * (dx * dx + dy * dy)) / std::max(double(p[1]), 0.01);
          return sampledOrBlack(src, dx * f / aspect + 0.5, dy * f + 0.5);
        },
        kSampled))
        << describe("fx_lensdistort", p);
  }
  // k 0 at zoom 1 is the picture itself.
  Image same = runEffect("fx_lensdistort", src, params({0, 1}, w, h));
  EXPECT_TRUE(matches(same, [&](int x, int y) { return std::optional<C>(of(src.at(x, y))); }, kSampled));
}

// ---------------------------------------------------------------------------------------------
// Compositing and light

TEST(FxCompositeKernels, MergeDissolvesColourAndKeepsFrontAlpha) {
  const int w = 16, h = 8;
  const Image front = noise(w, h, 20, 0.0f, 1.0f);
  const Image back = noise(w, h, 21, -0.2f, 1.5f);
  for (float amount : {0.0f, 0.3f, 1.0f}) {
    Image out = runEffect("fx_merge", front, params({amount}, w, h), nullptr, &back);
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      C f = of(front.at(x, y)), b = of(back.at(x, y));
      return std::optional<C>(withAlpha(f + (b - f) * amount, f.a));
    })) << "amount " << amount;
  }
}

TEST(FxLightKernels, BloomAddsTheBlurAboveTheThreshold) {
  const int w = 16, h = 8;
  const Image src = noise(w, h, 22, 0.0f, 1.2f);
  const Image blurred = noise(w, h, 23, 0.0f, 1.5f);
  for (const std::vector<float>& p : std::vector<std::vector<float>>{{0.7f, 40, 0.5f}, {0, 40, 2}, {1.2f, 3, 1}}) {
    Image out = runEffect("fx_bloom", src, params(p, w, h), nullptr, &blurred);
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      C s = of(src.at(x, y)), b = of(blurred.at(x, y));
      return std::optional<C>(C{s.r + std::max(b.r - p[0], 0.0) * p[2], s.g + std::max(b.g - p[0], 0.0) * p[2],
                                s.b + std::max(b.b - p[0], 0.0) * p[2], s.a});
    })) << describe("fx_bloom", p);
  }
}

TEST(FxLightKernels, VignetteIsRoundWhateverTheAspect) {
  const int w = 48, h = 24;
  const Image src = noise(w, h, 24, 0.0f, 1.2f);
  for (const std::vector<float>& p : std::vector<std::vector<float>>{
           {0.4f, 0.8f, 0.5f}, {1, 0.3f, 0.2f}, {0.7f, 0.6f, 1}, {0, 0.3f, 0.2f}}) {
    Image out = runEffect("fx_vignette", src, params(p, w, h));
    EXPECT_TRUE(matches(out, [&](int x, int y) {
      const double dx = ((x + 0.5) / w - 0.5) * 2, dy = (y + 0.5) / h - 0.5;
      const double v = 1 - smooth(p[1] - p[2] / 2, p[1] + p[2] / 2, std::hypot(dx, dy));
      return std::optional<C>(perChannel(of(src.at(x, y)), [&](double c) { return c * lerp(1, v, p[0]); }));
    })) << describe("fx_vignette", p);
  }
  // Hard and full: the corners go black, the centre stays, and points at the same distance
  // across and down (in heights) match.
  Image hard = runEffect("fx_vignette", Image(w, h, {1, 1, 1, 1}), params({1, 0.35f, 0.1f}, w, h));
  EXPECT_LT(hard.at(0, 0).r, 0.001f);
  EXPECT_GT(hard.at(24, 12).r, 0.999f);
  EXPECT_NEAR(hard.at(24 + 8, 12).r, hard.at(24, 12 + 8).r, 1e-3f);
}
