// Pixel tests of the filter effects (bilateral, the blur family, chromatic aberration, edges, noise,
// pixelate), skin texture, the composite and the colour-volume keyer. Expectations are computed in
// double from the inputs exactly as the half-float textures store them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
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

Image noisy(int w, int h, uint32_t seed, float lo, float hi, float alphaLo = 0, float alphaHi = 1) {
  return noisyPicture(w, h, seed, lo, hi, alphaLo, alphaHi);
}
std::optional<C> some(C c) { return c; }

// ---------------------------------------------------------------------------------------------
// The filters: references of the whole picture at a pixel

std::optional<C> bilateral(const FxInputs& in, const Ps& P, float, int x, int y) {  // radius, tolerance, mix
  const Image& src = in.src;
  const C s = of(src.at(x, y));
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h, R = P[0];
  C acc;
  double ws = 0;
  for (int j = -4; j <= 4; ++j)
    for (int i = -4; i <= 4; ++i) {
      const double dx = i * R / 4, dy = j * R / 4;
      const C t = bilinear(src, u + dx / src.w, v + dy / src.h), d = t - s;
      const double e2 = d.r * d.r + d.g * d.g + d.b * d.b;
      const double wt = std::exp(-(dx * dx + dy * dy) / (2 * R * R + 0.001)) * std::exp(-e2 / (2 * P[1] * P[1]));
      acc = acc + t * wt;
      ws += wt;
    }
  return withAlpha(lerp(s, acc * (1 / std::max(ws, 0.0001)), P[2]), s.a);
}

// The limit by the matte's red, when one is bound: mix(s, o, m) on all four channels.
C limited(const FxInputs& in, C s, C o, int x, int y) { return in.matte ? lerp(s, o, in.matte->at(x, y).r) : o; }

std::optional<C> blur(const FxInputs& in, const Ps&, float, int x, int y) {  // all four channels from aux
  return limited(in, of(in.src.at(x, y)), of(in.aux.at(x, y)), x, y);
}
std::optional<C> sharpen(const FxInputs& in, const Ps& P, float, int x, int y) {  // unsharp mask on rgb
  const C s = of(in.src.at(x, y));
  return limited(in, s, withAlpha(s + (s - of(in.aux.at(x, y))) * P[1], s.a), x, y);
}

std::optional<C> dirblur(const FxInputs& in, const Ps& P, float, int x, int y) {  // 32 taps along the angle
  const Image& src = in.src;
  const V2 along = rot({P[0], 0}, P[1]);
  C acc;
  for (int i = 0; i < 32; ++i) acc = acc + sampleAt(src, x + 0.5 + along.x * (i / 31.0 - 0.5), y + 0.5 + along.y * (i / 31.0 - 0.5));
  return acc * (1.0 / 32);
}

std::optional<C> radialblur(const FxInputs& in, const Ps& P, float, int x, int y) {  // 32 taps towards the centre
  const Image& src = in.src;
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h, cu = P[1] / 100.0, cv = P[2] / 100.0;
  C acc;
  for (int i = 0; i < 32; ++i) {
    const double k = 1.0 - P[0] * i / 31.0;
    acc = acc + bilinear(src, cu + (u - cu) * k, cv + (v - cv) * k);
  }
  return acc * (1.0 / 32);
}

// A golden spiral of 64 taps; highlights past a luminance of 0.75 weigh more with bloom.
std::optional<C> defocus(const FxInputs& in, const Ps& P, float, int x, int y) {
  C acc;
  double ws = 0;
  for (int i = 0; i < 64; ++i) {
    const V2 d = disc(i, 64) * P[0];
    const C t = sampleAt(in.src, x + 0.5 + d.x, y + 0.5 + d.y);
    const double wt = 1 + 8 * P[1] * std::max(0.0, luma(t) - 0.75);
    acc = acc + t * wt;
    ws += wt;
  }
  return acc * (1 / ws);
}

std::optional<C> chroma(const FxInputs& in, const Ps& P, float, int x, int y) {  // red moves out, blue in
  const Image& src = in.src;
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h, dx = u - 0.5, dy = v - 0.5, len = std::hypot(dx, dy);
  const double k = P[0] * std::pow(2 * len, P[1]) / (len + 0.00001), ox = dx * k / src.w, oy = dy * k / src.h;
  C o = of(src.at(x, y));
  o.r = bilinear(src, u + ox, v + oy).r;
  o.b = bilinear(src, u - ox, v - oy).b;
  return o;
}

// The Sobel gradient of the luminance on texels, clamped at the borders: grey, or scaling the colour.
std::optional<C> edge(const FxInputs& in, const Ps& P, float, int x, int y) {
  auto l = [&](int dx, int dy) { return luma(of(fetch(in.src, x + dx, y + dy))); };
  const double gx = (l(1, -1) + 2 * l(1, 0) + l(1, 1)) - (l(-1, -1) + 2 * l(-1, 0) + l(-1, 1));
  const double gy = (l(-1, 1) + 2 * l(0, 1) + l(1, 1)) - (l(-1, -1) + 2 * l(0, -1) + l(1, -1));
  const double e = std::hypot(gx, gy) * P[0];
  const C s = of(in.src.at(x, y));
  return P[1] > 0.5f ? grey(e, s.a) : withAlpha(s * e, s.a);
}

// The hash of the pixel and the frame (the seed plus 50 a second, each truncated); grey or per channel.
std::optional<C> noise(const FxInputs& in, const Ps& P, float time, int x, int y) {
  const uint32_t t = frameOf(time, 50, P[2]);
  const double nr = hash2(x, y, t) * 2 - 1;
  const double ng = P[1] > 0.5f ? nr : hash2(x, y, t + 17) * 2 - 1, nb = P[1] > 0.5f ? nr : hash2(x, y, t + 31) * 2 - 1;
  const C s = of(in.src.at(x, y));
  return s + C{nr, ng, nb, 0} * P[0];
}

std::optional<C> pixelate(const FxInputs& in, const Ps& P, float, int x, int y) {  // each block read at its centre
  const double size = P[0];
  return sampleAt(in.src, (std::floor(x / size) + 0.5) * size, (std::floor(y / size) + 0.5) * size);
}

Image hardStep() {  // a step that a small colour tolerance must not blur
  return storedPicture(16, 12, [](int x, int) { return x < 7 ? Rgba{0.1f, 0.15f, 0.2f, 1} : Rgba{0.9f, 0.8f, 0.7f, 1}; });
}

std::vector<FxRow> filterRows() {
  const Image src = noisy(12, 8, 5, 0, 1), blurred = noisy(12, 8, 6, 0, 1), matte = noisy(12, 8, 7, 0, 1, 1, 1);
  return {
      {"bilateral", "fx_bilateral", noisy(16, 12, 3, 0, 1, 0.2f, 1), {}, {}, {{2, 0.15f, 0.8f}, {5, 0.5f, 1}}, bilateral},
      {"bilateral_across_a_step", "fx_bilateral", hardStep(), {}, {}, {{4, 0.05f, 1}}, bilateral},
      {"blur", "fx_blur", src, blurred, {}, {{8, 0}}, blur, kStep},
      {"blur_within_the_matte", "fx_blur", src, blurred, matte, {{8, 0}}, blur, kStep},
      {"sharpen", "fx_sharpen", src, blurred, {}, {{1.5f, 0.8f}}, sharpen, kStep},
      {"sharpen_within_the_matte", "fx_sharpen", src, blurred, matte, {{1.5f, 0.8f}}, sharpen, kStep},
      {"dirblur", "fx_dirblur", noisy(24, 16, 11, 0, 1), {}, {}, {{7, 0}, {7, 90}, {7, 30}, {7, -135}}, dirblur},
      {"radialblur", "fx_radialblur", noisy(20, 14, 13, 0, 1), {}, {}, {{0.3f, 30, 60}, {0.08f, 50, 50}, {0.5f, 100, 0}},
       radialblur},
      // Values up to 1.6 so that some taps pass the 0.75 luminance knee.
      {"defocus", "fx_defocus", noisy(20, 16, 17, 0, 1.6f), {}, {}, {{4.5f, 0}, {4.5f, 2}}, defocus},
      {"chroma", "fx_chroma", noisy(24, 16, 19, 0, 1), {}, {}, {{3, 1}, {3, 2}, {3, 0}}, chroma},
      {"edge", "fx_edge", noisy(16, 12, 23, 0, 1, 0.3f, 1), {}, {}, {{0.5f, 1}, {1.5f, 0}}, edge},
      // By hand: a flat picture has no edge anywhere, borders included.
      {"edge_of_a_flat_picture", "fx_edge", Image(16, 12, {0.6f, 0.3f, 0.2f, 1}), {}, {}, {{5, 1}},
       [](const FxInputs&, const Ps&, float, int, int) { return some({0, 0, 0, 1}); }, kStep},
      {"noise", "fx_noise", noisy(16, 10, 29, 0.2f, 0.8f), {}, {},
       {{0.1f, 1, 3.7f}, {0.2f, 0, 3.7f}, {0.25f, 0, 0}, {0.05f, 1, 42}}, noise, kStep, {1, 1}, {0, 0.37f, 2}},
      {"pixelate", "fx_pixelate", noisy(16, 12, 31, 0, 1), {}, {}, {{4}, {3}, {5}, {2.5f}}, pixelate},
  };
}

// ---------------------------------------------------------------------------------------------
// Composite

struct CompSettings {
  int mode = 0;
  float opacity = 1;
  int prem1 = 0, prem2 = 0, matte1 = 1, compo = 0;
  bool clamp = false, outprem = true, noBack = false;
  Ps params() const {
    Ps p(16, 0.0f);
    p[0] = float(mode), p[1] = opacity, p[6] = 1, p[7] = float(prem1), p[8] = float(prem2), p[9] = float(matte1);
    p[10] = float(compo), p[11] = clamp ? 1.0f : 0.0f, p[12] = outprem ? 1.0f : 0.0f, p[15] = noBack ? 1.0f : 0.0f;
    return p;
  }
};

double blendOf(int mode, double b, double f) {
  switch (mode) {
    case 1: return b + f;
    case 2: return 1 - (1 - b) * (1 - f);
    case 3: return b * f;
    case 4: return b < 0.5 ? 2 * b * f : 1 - 2 * (1 - b) * (1 - f);
    case 5: return std::fabs(b - f);
    case 6: return std::max(b, f);
    case 7: return std::min(b, f);
    case 8: return std::max(b - f, 0.0);
    case 9: return std::max(f - b, 0.0);
    default: return f;
  }
}

// Front (src) over Back (aux): each side unpremultiplied as its state says, Front's alpha by the
// matte, then the three regions (Front alone, Back alone, both) weighed by the composition.
std::optional<C> comp(const FxInputs& in, const Ps& P, float, int x, int y) {
  const int mode = int(P[0]), prem1 = int(P[7]), prem2 = int(P[8]), matte1 = int(P[9]), compo = int(P[10]);
  const C s = of(in.src.at(x, y)), back = of(in.aux.at(x, y));
  const double fa = sat(s.a);
  C f = s;
  if (prem1 == 0) f = fa > 0.0001 ? f * (1 / fa) : C{};
  double a1 = fa;
  if (in.matte && matte1 == 1) a1 = in.matte->at(x, y).r * fa;
  if (in.matte && matte1 == 2) a1 = in.matte->at(x, y).r;
  a1 *= P[1];
  double a2 = 0;
  C b;
  if (P[15] < 0.5f) {
    a2 = prem2 == 0 ? 1.0 : sat(back.a);
    b = prem2 == 1 ? (a2 < 0.0001 ? C{} : back * (1 / a2)) : back;
  }
  const double w1 = a1 * (1 - a2), w2 = a2 * (1 - a1), w3 = a1 * a2;
  const double sA = compo == 2 || compo == 4 ? 0 : 1, sB = compo == 2 || compo == 3 ? 0 : 1, sC = compo == 3 ? 0 : 1;
  const double al = sA * w1 + sB * w2 + sC * w3;
  C out;
  for (int i = 0; i < 3; ++i) {
    const double both = compo == 1 ? b[i] : blendOf(mode, b[i], f[i]);
    const double rp = sA * w1 * f[i] + sB * w2 * b[i] + sC * w3 * both;
    out[i] = P[12] > 0.5f ? rp : (al > 0.0001 ? rp / al : 0.0);
  }
  return P[11] > 0.5f ? sat(withAlpha(out, sat(al))) : withAlpha(out, al);
}

// Fully transparent pixels on one row (Front 0, Back 1) exercise the division guards.
Image compPicture(uint32_t seed, int clearRow, float hi = 1) {
  Image im = noisy(12, 8, seed, 0, hi);
  for (int x = 0; x < 12; x += 3) im.at(x, clearRow).a = 0;
  return im;
}
Image compFront(uint32_t seed, float hi = 1) { return compPicture(seed, 0, hi); }
Image compBack(uint32_t seed, float hi = 1) { return compPicture(seed, 1, hi); }

std::vector<FxRow> compRows() {
  const Image matte = noisy(12, 8, 103, 0, 1, 1, 1);
  std::vector<Ps> modes, compositions, matteModes, clamps, noBack;
  for (int mode = 0; mode <= 9; ++mode)
    for (int prem2 : {0, 1}) modes.push_back(CompSettings{.mode = mode, .prem2 = prem2}.params());
  for (int compo = 0; compo <= 4; ++compo)
    for (int prem1 : {0, 1})
      for (int prem2 : {0, 1, 2})
        for (int mode : {0, 4})
          compositions.push_back(CompSettings{.mode = mode, .opacity = 0.75f, .prem1 = prem1, .prem2 = prem2,
                                              .compo = compo, .outprem = (compo + prem2) % 2 == 0}
                                     .params());
  for (int matte1 : {0, 1, 2}) matteModes.push_back(CompSettings{.prem2 = 1, .matte1 = matte1, .outprem = false}.params());
  // Replace over no Back: Front's alpha no longer counts, the alpha is the matte's.
  matteModes.push_back(CompSettings{.matte1 = 2, .noBack = true}.params());
  // Values above 1 and the Add mode push colour past white; a matte above 1 replacing Front's
  // alpha pushes the alpha past 1.
  for (bool clamp : {false, true})
    for (bool outprem : {false, true})
      clamps.push_back(CompSettings{.mode = 1, .prem1 = 1, .prem2 = 2, .matte1 = 2, .clamp = clamp, .outprem = outprem}.params());
  for (bool outprem : {true, false})
    for (int prem1 : {0, 1}) noBack.push_back(CompSettings{.prem1 = prem1, .outprem = outprem, .noBack = true}.params());
  // Front premultiplied over an opaque Back: by hand F + B (1 - aF), alpha 1.
  const Image front = storedPicture(8, 6, [](int x, int y) {
    const float a = (x + 1) / 9.0f;
    return Rgba{0.8f * a, 0.3f * a, (y + 1) / 7.0f * a, a};
  });
  const Image back = storedPicture(8, 6, [](int x, int y) { return Rgba{0.2f, 0.4f + 0.05f * y, 0.1f * x, 0.3f}; });
  return {
      {"over_by_hand", "fx_comp", front, back, {}, {CompSettings{}.params()},
       [](const FxInputs& in, const Ps&, float, int x, int y) {
         const C f = of(in.src.at(x, y)), b = of(in.aux.at(x, y));
         return some(withAlpha(f + b * (1 - f.a), 1));
       },
       kStep},
      {"blend_modes", "fx_comp", compFront(101), compBack(102), matte, modes, comp, kStep},
      {"compositions", "fx_comp", compFront(202), compBack(203), {}, compositions, comp, kStep},
      {"matte_modes", "fx_comp", compFront(303), compBack(304), matte, matteModes, comp, kStep},
      // Unbound, every matte mode keeps Front's alpha.
      {"matte_modes_unbound", "fx_comp", compFront(303), compBack(304), {}, matteModes, comp, kStep},
      {"clamp", "fx_comp", compFront(404, 2), compBack(405, 2), noisy(12, 8, 406, 0, 2, 1, 1), clamps, comp, kStep},
      // By hand: Front on transparent black; aux holds a picture that must not show.
      {"without_back", "fx_comp", compFront(505), compBack(506), matte, noBack,
       [](const FxInputs& in, const Ps& P, float, int x, int y) {
         const C s = of(in.src.at(x, y));
         const double fa = sat(s.a), a1 = in.matte->at(x, y).r * fa;
         C f = P[7] > 0.5f ? s : fa > 0.0001 ? s * (1 / fa) : C{};
         if (P[12] > 0.5f) f = f * a1;
         if (P[12] < 0.5f && a1 <= 0.0001) f = {};
         return some(withAlpha(f, a1));
       },
       kStep},
  };
}

// ---------------------------------------------------------------------------------------------
// Skin texture: its hash is fract(sin(x) * 43758.5453) at arguments of thousands, where the GPU's
// sine and the CPU's differ in the digits that matter, so the texture comes from the kernel's own
// "texture only" output (blend 3) and the tests check how it is laid on the picture.

// amount, pore size, density, depth, fine, fine size, wrinkles, angle, relief, skin only, midtones, blend, seed
Ps skinParams(float amount, float skinOnly, float midtones, float blend) {
  return {amount, 3.0f, 0.5f, 0.45f, 0.4f, 1.2f, 0.1f, 20.0f, 0.4f, skinOnly, midtones, blend, 7.0f};
}

// ---------------------------------------------------------------------------------------------
// Colour-volume keyer: samples in a table, (r, g, b, sign, x %, y %) each

struct KeySample {
  float r, g, b, sign, x, y;
};
struct KeyerSettings {
  float tolY = 0.04f, tolC = 0.02f, soft = 0.4f, invert = 0, reach = 0, view = 0;
};

Image runKeyer(const Image& front, const KeyerSettings& k, const std::vector<KeySample>& samples) {
  auto& gpu = KernelRunner::shared();
  EXPECT_TRUE(gpu.has("fx_keyer3d"));
  Ps P(16, 0.0f), table;
  P[0] = k.tolY, P[1] = k.tolC, P[2] = k.soft, P[3] = k.invert, P[4] = k.reach, P[5] = k.view;
  P[15] = float(samples.size());
  for (const auto& s : samples) table.insert(table.end(), {s.r, s.g, s.b, s.sign, s.x, s.y, 0, 0});
  if (table.empty()) table.assign(8, 0.0f);  // as the engine binds it
  auto in = gpu.upload(front);
  auto out = gpu.blank(front.w, front.h);
  gpu.run("fx_keyer3d", {in, out}, P, table);
  return gpu.read(out);
}

// Luminance and scaled colour differences.
std::array<double, 3> ycOf(C c) {
  const double y = luma(c);
  return {y, (c.b - y) * 0.5, (c.r - y) * 0.65};
}

// Each sample keys an ellipsoid about its colour (soft beyond), within its reach of where it was
// picked; the added samples' key less the subtracted ones'. With none, or in preview, the picture
// dimmed outside the key.
::testing::AssertionResult keyMatches(const Image& got, const Image& front, const KeyerSettings& k,
                                      const std::vector<KeySample>& samples) {
  const int w = front.w, h = front.h;
  return matches(got, [&](int x, int y) {
    const C c = of(front.at(x, y));
    const auto a = ycOf(c);
    const double tol[3] = {std::max(k.tolY, 0.002f), std::max(k.tolC, 0.002f), std::max(k.tolC, 0.002f)};
    const double reach = k.reach * 0.01;
    double kAdd = 0, kSub = 0;
    for (const auto& s : samples) {
      const auto q = ycOf({s.r, s.g, s.b, 0});
      double d2 = 0;
      for (int i = 0; i < 3; ++i) d2 += (a[i] - q[i]) * (a[i] - q[i]) / (tol[i] * tol[i]);
      double kk = below(1, 1 + 3 * k.soft + 0.0001, std::sqrt(d2));
      if (reach > 0) kk *= below(reach, 1.5 * reach, len({((x + 0.5) / w - s.x * 0.01) * w / h, (y + 0.5) / h - s.y * 0.01}));
      double& side = s.sign > 0 ? kAdd : kSub;
      side = std::max(side, kk);
    }
    double key = kAdd * (1 - kSub);
    if (k.invert > 0.5f) key = 1 - key;
    if (k.view > 0.5f || samples.empty()) return some(withAlpha(c * lerp(0.22, 1, key), 1));
    return some(grey(key, 1));
  }, kStep, {1, 1});
}

// Pixels scattered a tolerance or two around a few key colours, so keys cross their soft edge.
Image keyerPicture(int w, int h, uint32_t seed) {
  const Rgba bases[] = {{0.1f, 0.7f, 0.2f, 1}, {0.15f, 0.2f, 0.8f, 1}, {0.6f, 0.45f, 0.35f, 1}, {0.9f, 0.1f, 0.5f, 1}};
  Lcg rng(seed);
  return storedPicture(w, h, [&](int x, int y) {
    const Rgba b = bases[(x / 6 + 2 * (y / 8)) % 4];
    const float j = rng.next(0.0f, 0.12f) * (x % 3);
    return Rgba{b.r + rng.next(-j, j), b.g + rng.next(-j, j), b.b + rng.next(-j, j), rng.next(0.0f, 1.0f)};
  });
}

}  // namespace

TEST(FxFilterKernels, MatchTheirReferences) { checkRows(filterRows()); }
TEST(FxCompKernel, MatchesItsReferences) { checkRows(compRows()); }

TEST(FxFilterKernels, IdentitiesAndHandWorkedValues) {
  const IdentityRow rows[] = {
      {"fx_bilateral", hardStep(), {}, {4, 0.05f, 1}, kSampled},  // the step does not bleed
      {"fx_dirblur", noisy(24, 16, 11, 0, 1), {}, {0, 40}},                  // no length: every tap the pixel
      {"fx_radialblur", noisy(20, 14, 13, 0, 1), {}, {0, 20, 70}},          // no amount
      {"fx_pixelate", noisy(16, 12, 31, 0, 1), {}, {0.5f}},                 // blocks below a pixel
  };
  for (const auto& row : rows) checkIdentity(row);
  // Whole blocks of 4 share one value: the mean of the 2 by 2 texels around the block's centre.
  const Image src = noisy(16, 12, 31, 0, 1), got = runFx("fx_pixelate", src, {4});
  const double mean = (src.at(5, 9).g + src.at(6, 9).g + src.at(5, 10).g + src.at(6, 10).g) / 4;
  EXPECT_NEAR(got.at(4, 8).g, mean, kSampled);
  EXPECT_NEAR(got.at(7, 11).g, mean, kSampled);
  // The clamp rows must push past 1 for the clamp to show: unclamped, colour and alpha pass 1.
  const Image back = compBack(405, 2), matte = noisy(12, 8, 406, 0, 2, 1, 1);
  const Image over = runFx("fx_comp", compFront(404, 2), CompSettings{.mode = 1, .prem1 = 1, .prem2 = 2, .matte1 = 2}.params(),
                           {.matte = &matte, .aux = &back});
  float top = 0, topAlpha = 0;
  for (const auto& p : over.px) top = std::max({top, p.r, p.g, p.b}), topAlpha = std::max(topAlpha, p.a);
  EXPECT_GT(top, 1.0f);
  EXPECT_GT(topAlpha, 1.0f);
}

TEST(FxSkinTextureKernel, TextureIsAnOpaqueGreyLaidOnLuminanceWithSkinAndMidtoneWeights) {
  const int w = 32, h = 24;
  Lcg rng(41);
  const Image src = storedPicture(w, h, [&](int x, int) {  // skin tones on the left, foliage greens on the right
    const float j = rng.next(-0.05f, 0.05f);
    return x < w / 2 ? Rgba{0.78f + j, 0.58f + j, 0.48f + j, rng.next(0.0f, 1.0f)}
                     : Rgba{0.15f + j, 0.55f + j, 0.2f + j, rng.next(0.0f, 1.0f)};
  });
  ASSERT_GT(skinWeight(of(src.at(0, 0))), 0.99);
  ASSERT_LT(skinWeight(of(src.at(w - 1, 0))), 0.01);

  // The texture: a varying opaque grey in 0..1 that does not depend on the picture.
  const Image t = runFx("fx_skintexture", src, skinParams(1, 0, 0, 3));
  float lo = 1, hi = 0;
  for (const auto& p : t.px) {
    ASSERT_TRUE(p.r == p.g && p.r == p.b && p.a == 1.0f) << "the texture is not an opaque grey";
    lo = std::min(lo, p.r), hi = std::max(hi, p.r);
  }
  EXPECT_GE(lo, 0.0f);
  EXPECT_LE(hi, 1.0f);
  EXPECT_GT(hi - lo, 0.05f) << "no relief";
  EXPECT_TRUE(matches(runFx("fx_skintexture", noisy(w, h, 38, 0, 1), skinParams(1, 0, 0, 3)), t)) << "depends on the picture";

  // Soft light (0), overlay (1), linear light (2): one offset on all three channels, alpha kept.
  const std::array<float, 4> cases[] = {{0, 0, 0, 0},    {1, 0, 0, 0}, {0.7f, 0, 0.6f, 0}, {1, 0, 0, 1},
                                        {0.5f, 0, 0, 2}, {1, 1, 0, 0}, {0.8f, 0.5f, 0.3f, 1}};
  for (const auto& c : cases) {
    const float amount = c[0], skinOnly = c[1], midtones = c[2], blend = c[3];
    const Image got = runFx("fx_skintexture", src, skinParams(amount, skinOnly, midtones, blend));
    EXPECT_TRUE(matches(got, [&](int x, int y) {
      const C s = of(src.at(x, y));
      const double L = luma(s), tv = t.at(x, y).r;
      const double L2 = blend == 1 ? (L < 0.5 ? 2 * L * tv : 1 - 2 * (1 - L) * (1 - tv))
                        : blend == 2 ? L + 2 * tv - 1
                                     : (1 - 2 * tv) * L * L + 2 * tv * L;
      const double md = sat(2 * std::fabs(L - 0.5));
      const double k = amount * lerp(1, skinWeight(s), skinOnly) * (1 - midtones * md * md);
      return some(s + grey(lerp(L, L2, k) - L));
    }, kStep, {1, 1})) << describe("fx_skintexture", skinParams(amount, skinOnly, midtones, blend));
    // The texture really lands: a flat texture would match the reference and change nothing.
    if (amount > 0) {
      EXPECT_GT(largestDifference(got, src, Channels::rgb), 0.01) << "blend " << blend;
    }
  }
}

TEST(FxKeyer3dKernel, AddedAndSubtractedColoursWithinTheirReachMakeTheKey) {
  // No samples: the picture dimmed, or whole when inverted, whatever the view.
  const Image small = keyerPicture(16, 12, 7);
  for (float view : {0.0f, 1.0f})
    for (float invert : {0.0f, 1.0f}) {
      const KeyerSettings k{.invert = invert, .view = view};
      EXPECT_TRUE(keyMatches(runKeyer(small, k, {}), small, k, {})) << "view " << view << " invert " << invert;
    }

  const Image front = keyerPicture(24, 16, 9);
  const std::vector<KeySample> samples = {
      {0.1f, 0.7f, 0.2f, 1, 10, 10}, {0.15f, 0.2f, 0.8f, 1, 80, 20}, {0.13f, 0.72f, 0.22f, -1, 50, 50}, {0.6f, 0.45f, 0.35f, -1, 30, 90}};
  const KeyerSettings cases[] = {{}, {.tolY = 0.1f, .tolC = 0.06f, .soft = 1}, {.invert = 1}, {.tolC = 0.001f, .view = 1}};
  for (const auto& k : cases) {
    const Image got = runKeyer(front, k, samples);
    EXPECT_TRUE(keyMatches(got, front, k, samples)) << "tolerances " << k.tolY << ", " << k.tolC << " invert " << k.invert;
    if (k.view == 0) {  // the picture crosses every part of the key: out, soft edge and in
      int lo = 0, mid = 0, hi = 0;
      for (const auto& p : got.px) (p.r < 0.001f ? lo : p.r > 0.999f ? hi : mid)++;
      EXPECT_TRUE(lo > 0 && mid > 0 && hi > 0) << lo << " out, " << mid << " soft, " << hi << " in";
    }
  }
  // By hand: a sample's own colour is fully in, a subtracting twin takes it out.
  const Image flat(8, 6, {0.1f, 0.7f, 0.2f, 1});
  EXPECT_TRUE(matches(runKeyer(flat, {}, {samples[0]}), Image(8, 6, {1, 1, 1, 1})));
  EXPECT_TRUE(matches(runKeyer(flat, {}, {samples[0], {0.1f, 0.7f, 0.2f, -1, 0, 0}}), Image(8, 6, {0, 0, 0, 1})));

  // Reach: the same colour far from every pick is no longer keyed.
  const Image wide = keyerPicture(48, 32, 11);
  const std::vector<KeySample> picks = {
      {0.1f, 0.7f, 0.2f, 1, 20, 30}, {0.15f, 0.2f, 0.8f, 1, 75, 60}, {0.6f, 0.45f, 0.35f, 1, 50, 50}, {0.9f, 0.1f, 0.5f, -1, 60, 40}};
  const Image everywhere = runKeyer(wide, {.tolY = 0.15f, .tolC = 0.1f}, picks);
  for (float reach : {15.0f, 40.0f}) {
    const KeyerSettings k{.tolY = 0.15f, .tolC = 0.1f, .reach = reach};
    const Image got = runKeyer(wide, k, picks);
    EXPECT_TRUE(keyMatches(got, wide, k, picks)) << "reach " << reach;
    int lost = 0;
    for (std::size_t i = 0; i < got.px.size(); ++i) lost += everywhere.px[i].r > 0.999f && got.px[i].r < 0.001f;
    EXPECT_GT(lost, 0) << "reach " << reach;
  }
}
