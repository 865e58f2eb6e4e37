// Pixel tests of the effect kernels for colour, keying, geometry, compositing and light, run from
// tables: each row a kernel, its pictures, parameter sets and reference, computed in double from
// the inputs exactly as the half-float textures store them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "engine/fx_reference.h"
#include "engine/fx_table.h"
#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

using namespace ombrik::test;

namespace {

using Ps = std::vector<float>;
constexpr C kOpaqueBlack{0, 0, 0, 1};

Image noise(int w, int h, uint32_t seed, float lo, float hi) { return noisyPicture(w, h, seed, lo, hi, 0, 1); }

// A geometry kernel's result at a source position: the sampled source inside, opaque black
// outside, and no verdict within a hair of the border, where float rounding may decide either way.
std::optional<C> sampledOrBlack(const Image& im, double u, double v) {
  constexpr double e = 1e-4;
  if (std::fabs(u) < e || std::fabs(u - 1) < e || std::fabs(v) < e || std::fabs(v - 1) < e) return std::nullopt;
  if (u < 0 || u > 1 || v < 0 || v > 1) return kOpaqueBlack;
  return bilinear(im, u, v);
}
// A reference of the pixel's position alone, and one of the source pixel and the aux pixel.
PixelRef fromSource(std::function<std::optional<C>(const Image&, const Ps&, int, int)> f) {
  return [f](const FxInputs& in, const Ps& P, float, int x, int y) { return f(in.src, P, x, y); };
}
PixelRef withAux(std::function<C(C, C, const Ps&)> f) {
  return [f](const FxInputs& in, const Ps& P, float, int x, int y) {
    return std::optional<C>(f(of(in.src.at(x, y)), of(in.aux.at(x, y)), P));
  };
}
// The effect limited by the matte's red: mix(source, effect, m) on all four channels.
PixelRef inMatte(PixelRef effect) {
  return [effect](const FxInputs& in, const Ps& P, float t, int x, int y) {
    const C s = of(in.src.at(x, y));
    return std::optional<C>(lerp(s, *effect(in, P, t, x, y), in.matte->at(x, y).r));
  };
}

C contrastRef(C s, const Ps& p) { return perChannel(s, [&](double v) { return (v - p[1]) * p[0] + p[1] + p[2]; }); }
C flipRef(const Image& src, const Ps& p, int x, int y) {
  return of(src.at(p[0] > 0.5f ? src.w - 1 - x : x, p[1] > 0.5f ? src.h - 1 - y : y));
}

std::vector<FxRow> colourRows() {
  const Image matte = storedPicture(16, 8, [](int x, int y) {  // only red counts; the rest catches a wrong read
    return Rgba{(x + 0.5f) / 16, 1.0f - (y + 0.5f) / 8, 0.3f, 0.1f};
  });
  return {
      {"wheels", "fx_wheels", noise(16, 8, 1, -0.2f, 1.2f), {}, {},
       {{0, 0, 0, 0, 0, 0, 1, 1, 1} /* neutral but for negatives, which go to 0 */,
        {0.1f, -0.05f, 0.2f, 0.3f, -0.2f, 0.45f, 1.2f, 0.8f, 1.5f},
        {0.02f, 0, -0.1f, -1.0f, -0.96f, 0.1f, 0.8f, 0.7f, 0.9f} /* the exponent stops at 1 / 0.05 */},
       pointwise([](C s, const Ps& p) {
         for (int i = 0; i < 3; ++i)
           s[i] = std::pow(std::max((s[i] + p[i] * (1 - s[i])) * p[6 + i], 0.0), 1 / std::max(1.0 + p[3 + i], 0.05));
         return s;
       }),
       kStep},
      // A third of a turn carries red to green, green to blue and blue to red; minus a third back.
      {"huesat_a_third_of_a_turn", "fx_huesat", noise(12, 8, 2, 0, 1), {}, {}, {{120, 1, 0, 0}, {-120, 1, 0, 0}},
       pointwise([](C s, const Ps& p) { return p[0] > 0 ? C{s.b, s.r, s.g, s.a} : C{s.g, s.b, s.r, s.a}; }), kStep},
      {"huesat", "fx_huesat", noise(16, 8, 3, 0, 1), {}, {},
       {{0, 1, 0, 0}, {35, 1.4f, 0.5f, 0.1f}, {-77, 0.3f, -0.7f, -0.2f}, {180, 0, 1, 0.4f} /* grey */, {10, 2, 1, 0}},
       pointwise([](C s, const Ps& p) {
         // The turn in the plane across the grey axis, u x v along grey: right-handed about grey.
         const double r2 = std::sqrt(2.0), r6 = std::sqrt(6.0), mean = (s.r + s.g + s.b) / 3;
         const V2 d = rot({(s.r - s.g) / r2, (s.r + s.g - 2 * s.b) / r6}, p[0]);
         const C c{mean + d.x / r2 + d.y / r6, mean - d.x / r2 + d.y / r6, mean - 2 * d.y / r6, s.a};
         const double l = luma(c), spread = std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b});
         const double vib = 1 + p[2] * (1 - sat(2 * spread));
         return perChannel(c, [&](double v) { return l + (v - l) * p[1] * vib + 0.5 * p[3]; });
       }),
       kStep},
      {"levels", "fx_levels", noise(16, 8, 4, -0.1f, 1.1f), {}, {},
       {{0, 1, 1, 0, 1}, {0.3f, 1.4f, 0.4f, 0.2f, 0.6f}, {0.5f, 0.5f, 1, 0, 1} /* no input range: divides by 0.001 */,
        {0.55f, 0.5f, 1, 0.1f, 0.9f} /* crossed input range: also 0.001 */,
        {0, 1, 0, 0, 1} /* gamma 0: the exponent stops at 100 */},
       pointwise([](C s, const Ps& p) {
         return perChannel(s, [&](double v) {
           const double c = (v - p[0]) / std::max(double(p[1]) - p[0], 0.001);
           return lerp(p[3], p[4], std::pow(std::max(c, 0.0), 1 / std::max(double(p[2]), 0.01)));
         });
       }),
       kStep},
      {"contrast", "fx_contrast", noise(16, 8, 5, -0.3f, 1.4f), {}, {}, {{2.2f, 0.3f, 0.1f}, {0, 0.6f, -0.2f}},
       pointwise(contrastRef), kStep},
      {"mono", "fx_mono", noise(16, 8, 5, -0.3f, 1.4f), {}, {},
       {{0.3f, 0.59f, 0.11f, 1}, {1, 0.5f, 0, 0.6f}, {0.0004f, 0, 0.0003f, 1} /* sum floored at 0.001 */, {0, 0, 0, 1}},
       pointwise([](C s, const Ps& p) {
         const double l = (s.r * p[0] + s.g * p[1] + s.b * p[2]) / std::max(double(p[0]) + p[1] + p[2], 0.001);
         return perChannel(s, [&](double v) { return lerp(v, l, p[3]); });
       }),
       kStep},
      {"clamp", "fx_clamp", noise(16, 8, 5, -0.3f, 1.4f), {}, {}, {{-0.2f, 0.4f}, {0.5f, 1.7f}, {0.8f, 0.2f}},
       pointwise([](C s, const Ps& p) {  // crossed bounds: the maximum wins
         return perChannel(s, [&](double v) { return std::min(std::max(v, double(p[0])), double(p[1])); });
       }),
       kStep},
      // 1 level is raised to 2 (black or white); a fractional count is used as it is.
      {"posterize", "fx_posterize", noise(16, 8, 6, -0.2f, 1.2f), {}, {}, {{6}, {2}, {1}, {4.5f}, {32}},
       pointwise([](C s, const Ps& p) {
         const double n = std::max(double(p[0]), 2.0) - 1;
         return perChannel(s, [&](double v) { return std::floor(sat(v) * n + 0.5) / n; });
       }),
       kStep},
      // Worked by hand: 0.5 at 6 levels rounds up to 3 / 5.
      {"posterize_by_hand", "fx_posterize", Image(8, 6, {0.5f, 0.1f, 0.95f, 0.25f}), {}, {}, {{6}},
       pointwise([](C, const Ps&) { return C{0.6, 0.0, 1.0, 0.25}; }), kStep},
      {"threshold", "fx_threshold", noise(16, 8, 6, -0.2f, 1.2f), {}, {}, {{0.5f, 0.02f}, {0.3f, 0}, {0.7f, 0.5f}},
       pointwise([](C s, const Ps& p) { return withAlpha(grey(smooth(p[0] - p[1], p[0] + p[1] + 0.0001, luma(s))), s.a); }),
       kStep},
      {"splittone", "fx_splittone",
       storedPicture(16, 8, [](int x, int y) {  // greys and colours across the balance point
         const float l = (x + 0.5f) / 16;
         return Rgba{l, l * (0.6f + 0.05f * y), l * (1.0f - 0.08f * y), 0.5f};
       }),
       {}, {}, {{210, 0.2f, 35, 0.15f, 0}, {0, 1, 120, 1, 0.5f}, {300, 0.5f, 359, 0.7f, -1}, {720, 0.6f, 400, 0.4f, 0.2f}},
       pointwise([](C s, const Ps& p) {  // hues beyond a turn wrap around
         const double bal = 0.5 + 0.4 * p[4], wh = smooth(bal - 0.35, bal + 0.35, luma(s));
         const C sh = hueColour(p[0]), hi = hueColour(p[2]);
         for (int i = 0; i < 3; ++i) s[i] += (sh[i] - 0.5) * p[1] * (1 - wh) + (hi[i] - 0.5) * p[3] * wh;
         return s;
       }),
       kStep},
      {"contrast_within_the_matte", "fx_contrast", noise(16, 8, 7, 0, 1), {}, matte, {{2.5f, 0.4f, 0.1f}},
       inMatte(pointwise(contrastRef)), kStep},
      // A kernel that moves alpha too is limited on all four channels.
      {"flip_within_the_matte", "fx_flip", noise(16, 8, 7, 0, 1), {}, matte, {{1, 0}},
       inMatte(fromSource([](const Image& src, const Ps& p, int x, int y) { return std::optional<C>(flipRef(src, p, x, y)); })),
       kStep},
  };
}

// Keys and mattes come out opaque grey, whatever the source's alpha.
std::vector<FxRow> matteRows() {
  const Image everyHue = storedPicture(36, 8, [&](int x, int y) {  // saturations and brightnesses; greys below
    if (y == 7) {
      const float g = x < 4 ? 0.0f : (x - 4) / 32.0f;
      return Rgba{g, g, g, 0.0f};
    }
    const double s = 0.05 + 0.15 * y, v = 0.3 + 0.1 * (x % 7);
    const C c = hueColour(x * 10.0 + 3.0 * y);
    return Rgba{float(v * (1 - s * (1 - c.r))), float(v * (1 - s * (1 - c.g))), float(v * (1 - s * (1 - c.b))), 0.3f};
  });
  const Image sharp = storedPicture(16, 8, [](int x, int y) {  // a sharp matte, some values outside 0..1
    float v = (x * 7 + y * 3) % 5 == 0 ? 0.5f : (x + y) % 3 == 0 ? 1.2f : (x * y) % 4 == 1 ? -0.2f : (x < 8 ? 1.0f : 0.0f);
    return Rgba{v, 0.3f, 0.7f, 0.0f};
  });
  const Image boostSrc = noise(16, 8, 13, 0, 1);
  Lcg rng(14);  // a blur close to the source, so a moderate gain stays inside 0..1
  const Image boostBlur = storedPicture(16, 8, [&](int x, int y) {
    const Rgba& s = boostSrc.at(x, y);
    return Rgba{s.r + rng.next(-0.1f, 0.1f), s.g + rng.next(-0.1f, 0.1f), s.b + rng.next(-0.1f, 0.1f), 1};
  });
  return {
      {"lumakey", "fx_lumakey", noise(16, 8, 8, -0.1f, 1.1f), {}, {},
       {{0.2f, 0.8f, 0}, {0.2f, 0.8f, 1}, {0.6f, 0.3f, 0}, {0.5f, 0.5f, 1}},
       pointwise([](C s, const Ps& p) {
         const double k = smooth(p[0], std::max(double(p[1]), p[0] + 0.001), luma(s));
         return grey(p[2] > 0.5f ? 1 - k : k, 1);
       }),
       kStep},
      {"chromakey", "fx_chromakey", everyHue, {}, {},
       {{120, 30, 0.2f, 0.1f, 0}, {355, 20, 0.3f, 0.05f, 0}, {5, 15, 0.4f, 0, 1}, {240, 60, 0.1f, 0.5f, 0}},
       pointwise([](C s, const Ps& p) {  // the hue distance wraps around the circle
         const Hsv h = hsvOf(s);
         const double d = std::fabs(360 * h.h - p[0]), dh = std::min(d, 360 - d);
         const double hueIn = below(p[1], p[1] * (1 + 4 * p[3]) + 0.001, dh);
         const double k = 1 - hueIn * smooth(p[2] - p[3], p[2] + p[3] + 0.001, h.s);
         return grey(p[4] > 0.5f ? 1 - k : k, 1);
       }),
       kStep},
      // The pre-blurred matte arrives in aux; the source is bound too but not read.
      {"matteedit", "fx_matteedit", noise(16, 8, 9, 0, 1), noise(16, 8, 10, -0.1f, 1.1f), {},
       {{2, 1, 0, 0}, {2, 2.2f, 0.2f, 0}, {2, 0.5f, -0.3f, 1}, {2, 0, 0.1f, 0} /* gamma 0: exponent 100 */},
       withAux([](C, C b, const Ps& p) {
         const double a = std::pow(sat(b.r + p[2]), 1 / std::max(double(p[1]), 0.01));
         return grey(p[3] > 0.5f ? 1 - a : a, 1);
       }),
       kStep},
      {"negative", "fx_negative", noise(16, 8, 11, -0.3f, 1.3f), {}, {}, {{1}, {0.5f}, {0}},
       pointwise([](C s, const Ps& p) {  // saturates before inverting
         return withAlpha(perChannel(s, [&](double v) { return lerp(v, 1 - sat(v), p[0]); }), 1);
       }),
       kStep},
      // Modes round to inside (0), centred (1) or outside (2); anything else is centred.
      {"edgeblur", "fx_edgeblur", sharp, noise(16, 8, 12, -0.1f, 1.1f), {},
       {{8, 0, 1}, {8, 2, 1}, {8, 0.4f, 2.0f}, {8, 1.4f, 0.5f}, {8, 1.6f, 1.3f}, {8, 3, 1}, {8, 2, 0} /* curve 0 */},
       withAux([](C s, C b, const Ps& p) {
         const int mode = int(std::lround(p[1]));
         const double a = sat(s.r), bl = sat(b.r);
         const double r = mode == 0 ? a * sat(2 * bl) : mode == 2 ? std::max(a, sat(2 * bl)) : bl;
         return grey(std::pow(sat(r), 1 / std::max(double(p[2]), 0.01)), 1);
       }),
       kStep},
      {"trackboost", "fx_trackboost", boostSrc, boostBlur, {}, {{24, 4}, {24, 0}, {24, 1.5f}, {24, 20}},
       withAux([](C s, C b, const Ps& p) {
         auto y601 = [](C c) { return 0.299 * c.r + 0.587 * c.g + 0.114 * c.b; };
         return grey(sat(0.5 + p[1] * (y601(s) - y601(b))), 1);
       }),
       kStep},
  };
}

// Positions map back into the source, whose outside is opaque black.
std::vector<FxRow> geometryRows() {
  const Image soft24 = smoothPicture(24, 16), soft25 = smoothPicture(25, 15), square = noise(16, 16, 15, 0, 1);
  // The kept pixels of each crop, worked by hand: on 32 by 16 pixel centres fall on exact
  // percentages (column 3 at 10.9375, column 28 at 89.0625, row 2 at 15.625, row 13 at 84.375).
  struct Crop {
    float l;
    int x0, x1, y0, y1;
  };
  static constexpr Crop kCrops[] = {{0, 0, 31, 0, 15}, {10.9375f, 3, 28, 2, 13}, {10.95f, 4, 27, 3, 12}, {50, 0, -1, 0, 15}};
  return {
      {"transform", "fx_transform", soft24, {}, {},
       {{25, 0, 1, 0}, {-12.5f, 20, 1.5f, 0}, {0, 0, 1, 90}, {10, -5, 0.7f, 33}, {-3, 4, 2.5f, -140}},
       fromSource([](const Image& src, const Ps& p, int x, int y) {
         const double aspect = double(src.w) / src.h;
         const V2 d{((x + 0.5) / src.w - 0.5 - p[0] / 100.0) * aspect, (y + 0.5) / src.h - 0.5 - p[1] / 100.0};
         const V2 r = rot(d, -p[3]) * (1 / p[2]);
         return sampledOrBlack(src, r.x / aspect + 0.5, r.y + 0.5);
       }),
       kSampled, {1, 2}},
      // By hand: on a square a quarter turn (positive: clockwise as shown) carries the top-left
      // corner top right.
      {"transform_quarter_turn", "fx_transform", square, {}, {}, {{0, 0, 1, 90}},
       fromSource([](const Image& src, const Ps&, int x, int y) { return std::optional<C>(of(src.at(y, 15 - x))); }), kSampled},
      // By hand: a quarter of the width right and up: 4 columns and 2 rows of opaque black come in.
      {"transform_whole_pixels", "fx_transform", noise(16, 8, 16, 0, 1), {}, {}, {{25, -25, 1, 0}},
       fromSource([](const Image& src, const Ps&, int x, int y) {
         return std::optional<C>(x < 4 || y >= 6 ? kOpaqueBlack : of(src.at(x - 4, y + 2)));
       }),
       kSampled},
      // By hand: scale 0 is floored at 0.01, so only the centre pixel of an odd-sized picture reads
      // the source, at (0.5 - 0.2, 0.5 + 0.1): column 7, halfway between rows 8 and 9.
      {"transform_scale_floor", "fx_transform", noisyPicture(25, 15, 17, 0, 1, 0.2f, 0.9f), {}, {}, {{0.2f, -0.1f, 0, 0}},
       fromSource([](const Image& src, const Ps&, int x, int y) {
         return std::optional<C>(x != 12 || y != 7 ? kOpaqueBlack : (of(src.at(7, 8)) + of(src.at(7, 9))) * 0.5);
       }),
       kSampled},
      {"flip", "fx_flip", noise(13, 7, 18, -0.2f, 1.2f), {}, {}, {{0.5f, 0.5f}, {0.51f, 0.5f}, {0.5f, 1}, {0.51f, 1}},
       fromSource([](const Image& src, const Ps& p, int x, int y) { return std::optional<C>(flipRef(src, p, x, y)); }), kStep},
      {"crop", "fx_crop", noisyPicture(32, 16, 19, 0, 1, 0, 0.5f), {}, {},
       {{0, 0, 0, 0}, {10.9375f, 10.9375f, 15.625f, 15.625f}, {10.95f, 10.95f, 15.63f, 15.63f}, {50, 50, 0, 0}},
       fromSource([](const Image& src, const Ps& p, int x, int y) {
         const Crop& k = *std::find_if(std::begin(kCrops), std::end(kCrops), [&](const Crop& c) { return c.l == p[0]; });
         return std::optional<C>(x >= k.x0 && x <= k.x1 && y >= k.y0 && y <= k.y1 ? of(src.at(x, y)) : kOpaqueBlack);
       }),
       kStep},
      // Zoom 0 is floored at 0.01: only the centre and, pulled back by a strong negative k, the
      // pixels around it read the source.
      {"lensdistort", "fx_lensdistort", soft25, {}, {}, {{0, 1}, {0.08f, 1}, {-0.3f, 1.2f}, {0.5f, 0.7f}, {-220, 0}},
       fromSource([](const Image& src, const Ps& p, int x, int y) {
         const double aspect = double(src.w) / src.h, dx = ((x + 0.5) / src.w - 0.5) * aspect, dy = (y + 0.5) / src.h - 0.5;
         const double f = (1 + p[0] * (dx * dx + dy * dy)) / std::max(double(p[1]), 0.01);
         return sampledOrBlack(src, dx * f / aspect + 0.5, dy * f + 0.5);
       }),
       kSampled, {1, 2}},
  };
}

std::vector<FxRow> lightRows() {
  return {
      {"merge", "fx_merge", noise(16, 8, 20, 0, 1), noise(16, 8, 21, -0.2f, 1.5f), {}, {{0}, {0.3f}, {1}},
       withAux([](C f, C b, const Ps& p) { return withAlpha(lerp(f, b, p[0]), f.a); }), kStep},  // front alpha kept
      {"bloom", "fx_bloom", noise(16, 8, 22, 0, 1.2f), noise(16, 8, 23, 0, 1.5f), {},
       {{0.7f, 40, 0.5f}, {0, 40, 2}, {1.2f, 3, 1}},
       withAux([](C s, C b, const Ps& p) {
         for (int i = 0; i < 3; ++i) s[i] += std::max(b[i] - p[0], 0.0) * p[2];
         return s;
       }),
       kStep},
      {"vignette", "fx_vignette", noise(48, 24, 24, 0, 1.2f), {}, {},
       {{0.4f, 0.8f, 0.5f}, {1, 0.3f, 0.2f}, {0.7f, 0.6f, 1}, {0, 0.3f, 0.2f}},
       fromSource([](const Image& src, const Ps& p, int x, int y) {  // round whatever the aspect
         const double dx = ((x + 0.5) / src.w - 0.5) * 2, dy = (y + 0.5) / src.h - 0.5;
         const double v = below(p[1] - p[2] / 2, p[1] + p[2] / 2, std::hypot(dx, dy));
         return std::optional<C>(perChannel(of(src.at(x, y)), [&](double c) { return c * lerp(1, v, p[0]); }));
       }),
       kStep},
  };
}

}  // namespace

TEST(FxColourKernels, MatchTheirReferences) { checkRows(colourRows()); }
TEST(FxMatteKernels, MatchTheirReferences) { checkRows(matteRows()); }
TEST(FxGeometryKernels, MatchTheirReferences) { checkRows(geometryRows()); }
TEST(FxLightKernels, MatchTheirReferences) { checkRows(lightRows()); }

// Values worked out by hand, which a reference sharing the kernel's mistake would not catch.
TEST(FxColourGeometryKernels, HandWorkedValues) {
  // A matte bound with useMatte 0 (the engine binds the source in its place) limits nothing.
  const Image src = noise(16, 8, 7, 0, 1), matte = noise(16, 8, 8, 0, 1);
  const Image unlimited = runEffect("fx_contrast", src, params({2.5f, 0.4f, 0.1f}, 16, 8, 0), &matte);
  const Ps p = {2.5f, 0.4f, 0.1f};
  EXPECT_TRUE(matches(unlimited, [&](int x, int y) { return std::optional<C>(contrastRef(of(src.at(x, y)), p)); }, kStep,
                      {1, 1}))
      << "the unused matte limited";

  // Keyed on 355 degrees, a saturated red at 5 degrees is removed, an orange at 30 kept.
  const Image reds = storedPicture(8, 6, [](int x, int) {
    const C c = hueColour(x < 4 ? 5 : 30);
    return Rgba{float(c.r), float(c.g), float(c.b), 1};
  });
  const Image keyed = runFx("fx_chromakey", reds, {355, 20, 0.3f, 0.05f, 0});
  EXPECT_LT(keyed.at(1, 2).r, 0.001f) << "the key does not wrap around 0 degrees";
  EXPECT_GT(keyed.at(6, 2).r, 0.999f);

  // A hard vignette on a 2:1 picture: black corners, the centre kept, and round: points as far
  // across as down (in heights) match.
  const Image hard = runFx("fx_vignette", Image(48, 24, {1, 1, 1, 1}), {1, 0.35f, 0.1f});
  EXPECT_LT(hard.at(0, 0).r, 0.001f);
  EXPECT_GT(hard.at(24, 12).r, 0.999f);
  EXPECT_NEAR(hard.at(24 + 8, 12).r, hard.at(24, 12 + 8).r, 1e-3f) << "the vignette is not round";
}
