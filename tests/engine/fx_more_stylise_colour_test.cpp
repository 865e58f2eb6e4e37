// Pixel tests of the stylisation effects and the colour looks, run from tables; expectations in
// double from the inputs as the half-float textures store them. Pixels on a cell or subpixel
// border, where float rounding may pick either side, are left out.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "engine/fx_reference.h"
#include "engine/fx_table.h"
#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

using namespace ombrik::test;

namespace {

constexpr double kPi = std::numbers::pi;

Image noise(int w, int h, uint32_t seed, float lo, float hi) { return noisyPicture(w, h, seed, lo, hi, 0.0f, 1.0f); }

// Gradients, a slow wave and a soft bright disc, with a varying alpha: smooth enough that bilinear
// reads stay accurate with coarse sampler weights, with enough relief to draw lines and steps.
Image reliefPicture(int w, int h) {
  return storedPicture(w, h, [&](int x, int y) {
    const float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
    const float dx = (u - 0.6f) * w / h, dy = v - 0.45f;
    const float disc = 0.35f / (1.0f + std::exp((std::sqrt(dx * dx + dy * dy) - 0.25f) * 14.0f));
    return Rgba{0.1f + 0.6f * u + disc, 0.85f - 0.6f * v + 0.5f * disc, 0.5f + 0.3f * std::sin(3.0f * u + 2.0f * v),
                0.3f + 0.6f * u * v};
  });
}

// A border where either side may be taken.
bool nearInteger(double v) { return ombrik::test::nearInteger(v, 2e-3); }

// A cell of a screen of pitch z turned by deg: its centre in pixels, the distance from the pixel
// to it in cell units, and whether the pixel sits on the cell's border.
struct Cell {
  double cx, cy, dist;
  bool border;
};
Cell screenCell(double px, double py, double z, double deg) {
  const V2 q = rot({px, py}, -deg) * (1 / z);
  const double mx = std::floor(q.x) + 0.5, my = std::floor(q.y) + 0.5;
  const V2 c = rot({mx * z, my * z}, deg);
  return {c.x, c.y, std::hypot(q.x - mx, q.y - my), nearInteger(q.x) || nearInteger(q.y)};
}

using Ps = std::vector<float>;
using Ref = std::optional<C>;

// A quarter of the pixels at most may sit on a cell or subpixel border and go unchecked.
constexpr Coverage kMost{3, 4};

// ---------------------------------------------------------------------------------------------
// Stylisation

Ref halftone(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image& src = in.src;
  const double px = x + 0.5, py = y + 0.5;
  const double sz = std::max<double>(p[0], 2), aa = std::max(p[3] / 4.0, 1 / sz);
  const int mode = int(rounded(p[2]));
  C c;
  if (mode == 2) {
    double cov[4];
    const double inkAngles[4] = {15, 75, 0, 45};
    for (int k = 0; k < 4; ++k) {
      const Cell cell = screenCell(px, py, sz, p[1] + inkAngles[k] - 45);
      if (cell.border) return std::nullopt;
      const C rgb = sat(sampleAt(src, cell.cx, cell.cy));
      const double K = 1 - std::max({rgb.r, rgb.g, rgb.b});
      const double v = k == 3 ? K : (1 - rgb[k] - K) / std::max(1 - K, 0.001);
      const double rr = 0.62 * std::sqrt(sat(v));
      cov[k] = below(rr - aa, rr + aa, cell.dist);
    }
    c = C{1 - cov[0], 1 - cov[1], 1 - cov[2], 0} * (1 - cov[3]);
  } else {
    const Cell cell = screenCell(px, py, sz, p[1]);
    if (cell.border) return std::nullopt;
    const C rgb = sat(sampleAt(src, cell.cx, cell.cy));
    const double Lc = sat(luma(rgb));
    if (mode == 0) {
      const double rr = 0.7 * std::sqrt(1 - Lc);
      c = grey(1 - below(rr - aa, rr + aa, cell.dist));
    } else {
      const double rr = 0.7 * std::sqrt(Lc);
      c = rgb * (1.15 * below(rr - aa, rr + aa, cell.dist));
    }
  }
  const C s = of(src.at(x, y));
  return withAlpha(lerp(s, c, p[4]), s.a);
}

Ref engrave(const FxInputs& in, const Ps& p, float, int x, int y) {
  const C s = of(in.src.at(x, y));
  const double sp = std::max<double>(p[0], 2);
  const V2 q = rot({x + 0.5, y + 0.5}, -p[1]);
  const double Lc = sat((luma(s) - 0.5) * p[3] + 0.5);
  const double wv = std::sin(0.9 * q.x / sp) * p[2] * sp * 0.6 + (Lc - 0.5) * p[2] * sp;
  const double f = 2 * std::fabs(fract((q.y + wv) / sp) - 0.5);
  const double thick = 1 - Lc, aa = 1.5 / sp;
  const double ink = below(thick - aa, thick + aa, f);
  C paper = grey(0.97), inkColour = grey(0.03);
  if (rounded(p[4]) == 1) paper = {0.96, 0.91, 0.80, 0}, inkColour = {0.25, 0.15, 0.08, 0};
  if (rounded(p[4]) == 2) paper = {0.95, 0.96, 0.98, 0}, inkColour = {0.05, 0.12, 0.35, 0};
  return withAlpha(lerp(paper, inkColour, ink), s.a);
}

// A calm left part against a very noisy right part: near the boundary, the quadrants that reach
// into the noise must lose to the calm ones.
Image calmBesideNoisy() {
  ombrik::test::Lcg rng(5);
  return storedPicture(32, 20, [&](int x, int) {
    const bool calm = x < 14;
    const float j = calm ? 0.02f : 0.35f;
    return Rgba{(calm ? 0.3f : 0.6f) + rng.next(-j, j), (calm ? 0.5f : 0.4f) + rng.next(-j, j),
                (calm ? 0.7f : 0.5f) + rng.next(-j, j), rng.next(0, 1)};
  });
}

Ref kuwahara(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image& im = in.src;
  const double px = x + 0.5, py = y + 0.5, stp = std::max<double>(p[0], 1) / 4;
  C acc{};
  double wsum = 0;
  for (int sy : {1, -1})
    for (int sx : {1, -1}) {
      C sum{}, sum2{};
      for (int j = 0; j < 5; ++j)
        for (int i = 0; i < 5; ++i) {
          const C t = sampleAt(im, px + i * stp * sx, py + j * stp * sy);
          sum = sum + t;
          sum2 = sum2 + t * t;
        }
      const C mean = sum * (1.0 / 25);
      const C var = sum2 * (1.0 / 25) - mean * mean;
      const double v = 100 * (var.r + var.g + var.b);
      const double w = 1 / (0.001 + v * v * v * v);
      acc = acc + mean * w;
      wsum += w;
    }
  const C c = floor0(saturate(acc * (1 / wsum), p[1]));
  const double canvas = 0.5 * std::sin(1.7 * x) * std::sin(1.7 * y) + valueNoise(0.35 * x, 0.35 * y, 6) - 0.5;
  return withAlpha(c * (1 + 0.12 * canvas * p[2]), im.at(x, y).a);
}

// aux: the pre-blurred picture the engine prepares.
Ref toon(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image &src = in.src, &blurred = in.aux;
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  const Hsv c = hsvOf(of(blurred.at(x, y)));
  const double n = std::max(rounded(p[0]), 2.0);
  const double vn = c.v * n;
  const double vq = (std::floor(vn) + smooth(0.42, 0.58, fract(vn)) + 0.35) / (n + 0.35);
  const C col = rgbOf({c.h, sat(c.s * p[4]), sat(vq)});
  const double e = sobel(blurred, u, v, std::max<double>(p[3], 0.5));
  const double ink = smooth(0.15, 0.45, e * p[2]);
  return withAlpha(col * (1 - ink), src.at(x, y).a);
}

Ref kaleido(const FxInputs& in, const Ps& p, float time, int x, int y) {
  const Image& src = in.src;
  const double asp = double(src.w) / src.h;
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  const double cx = p[2] / 100.0, cy = p[3] / 100.0;
  const double dx = (u - cx) * asp, dy = v - cy, r = std::hypot(dx, dy);
  if (r < 1e-3) return std::nullopt;
  const double seg = 2 * kPi / std::max(rounded(p[0]), 1.0);
  double a = std::atan2(dy, dx) + (p[1] + p[5] * time) * kPi / 180;
  a = a - seg * std::floor(a / seg);
  a = std::fabs(a - seg / 2);
  const double zoom = std::max<double>(p[4], 0.05);
  const double qu = mirror(cx + std::cos(a) * r / zoom / asp), qv = mirror(cy + std::sin(a) * r / zoom);
  return withAlpha(bilinear(src, qu, qv), src.at(x, y).a);
}

Ref hexmosaic(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image& src = in.src;
  const double sz = std::max<double>(p[0], 3);
  const double px = (x + 0.5) / sz, py = (y + 0.5) / sz;
  const double rx = 1, ry = std::sqrt(3.0), hx = rx / 2, hy = ry / 2;
  const auto wrap = [](double v, double m) { return v - m * std::floor(v / m); };
  const double ax = wrap(px, rx) - hx, ay = wrap(py, ry) - hy;
  const double bx = wrap(px - hx, rx) - hx, by = wrap(py - hy, ry) - hy;
  const double la = ax * ax + ay * ay, lb = bx * bx + by * by;
  if (std::fabs(la - lb) < 2e-3) return std::nullopt;  // equally near two centres
  const double gx = la < lb ? ax : bx, gy = la < lb ? ay : by;
  const C col = sampleAt(src, (px - gx) * sz, (py - gy) * sz);
  const double agx = std::fabs(gx), agy = std::fabs(gy);
  const double edge = 0.5 - std::max(0.5 * agx + 0.8660254 * agy, agx);
  const double nx = gx + 0.00001, ny = gy + 0.00001, nl = std::hypot(nx, ny);
  const double shade = 1 + (-0.7 * nx / nl - 0.7 * ny / nl) * p[2] * 0.5 * below(0, 0.25, edge);
  const double j = p[1] > 0.001 ? smooth(0.08 * p[1], 0.08 * p[1] + 1.5 / sz, edge) : 1;
  return withAlpha(col * (shade * j), src.at(x, y).a);
}

Ref led(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image& src = in.src;
  const double sz = std::max<double>(p[0], 3);
  const double qx = (x + 0.5) / sz, qy = (y + 0.5) / sz;
  if (nearInteger(qx) || nearInteger(qy)) return std::nullopt;
  const double cx = std::floor(qx), cy = std::floor(qy), fx = qx - cx - 0.5, fy = qy - cy - 0.5;
  const C col = sampleAt(src, (cx + 0.5) * sz, (cy + 0.5) * sz);
  const double aa = 1.5 / sz;
  const int shape = int(rounded(p[1]));
  C lit;
  if (shape == 2) {
    const double x3 = 3 * (fx + 0.5);
    if (nearInteger(x3)) return std::nullopt;
    const int idx = std::min(int(std::floor(x3)), 2);
    const double sub = fract(x3) - 0.5;
    const double bar = below(0.36 - 3 * aa, 0.36 + 3 * aa, std::fabs(sub)) * below(0.44 - aa, 0.44 + aa, std::fabs(fy));
    C only{};
    only[idx] = col[idx];
    lit = only * (2.2 * bar) + col * (0.5 * std::exp(-5 * std::hypot(fx, fy)) * p[3]);
  } else {
    const double d = shape == 1 ? std::max(std::fabs(fx), std::fabs(fy)) : std::hypot(fx, fy);
    lit = col * (below(0.42 - aa, 0.42 + aa, d) + std::exp(-6 * d) * p[3]);
  }
  return withAlpha(lit * p[2], src.at(x, y).a);
}

Ref sketch(const FxInputs& in, const Ps& p, float, int x, int y) {
  const C s = of(in.src.at(x, y));
  const double l = luma(s), lb = luma(of(in.aux.at(x, y)));
  double d = std::pow(sat(l / std::max(lb, 0.001)), 4 * std::max<double>(p[1], 0.1));
  d *= lerp(1, 0.5 + 0.5 * smooth(0, 0.75, lb), 0.7);
  const double hat = 0.5 + 0.5 * std::sin(0.9 * (x + y) + 6 * valueNoise(0.05 * x, 0.05 * y, 3));
  d *= 1 - 0.6 * p[2] * below(0.15, 0.6, lb) * (1 - hat);
  const double paper = 1 - 0.12 * p[4] * valueNoise(0.7 * x, 0.7 * y, 9);
  const C tinted = sat(lerp(grey(d), s * (d / std::max(l, 0.05)), 0.6));
  return withAlpha(lerp(grey(d), tinted, p[3]) * paper, s.a);
}

Ref watercolor(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image &src = in.src, &blurred = in.aux;
  const double wx = fbm(0.02 * x, 0.02 * y, 1, 3) - 0.5, wy = fbm(0.02 * x, 0.02 * y, 7, 3) - 0.5;
  const double k = 3 * p[4] * std::max<double>(p[0], 2);
  const double qu = (x + 0.5 + k * wx) / src.w, qv = (y + 0.5 + k * wy) / src.h;
  Hsv h = hsvOf(bilinear(blurred, qu, qv));
  h.s = sat(h.s * p[3]);
  const C smoothColour = rgbOf(h);
  const double v = 6 * h.v;
  h.v = (std::floor(v) + smooth(0.3, 0.7, fract(v))) / 6;
  C c = lerp(smoothColour, rgbOf(h), 0.5);
  c = c * (1 - sat(0.8 * sobel(blurred, qu, qv, 2) * p[1]));
  c = c * (1 - 0.3 * p[2] * (fbm(0.035 * x, 0.035 * y, 4, 4) - 0.35));
  return withAlpha(lerp(c, grey(1), 0.06), src.at(x, y).a);
}

Ref emboss(const FxInputs& in, const Ps& p, float, int x, int y) {
  const Image& src = in.src;
  const double a = p[0] * kPi / 180, len = std::max<double>(p[3], 0.5);
  const double dx = std::cos(a) * len, dy = std::sin(a) * len;
  const double h = luma(sampleAt(src, x + 0.5 + dx, y + 0.5 + dy)) - luma(sampleAt(src, x + 0.5 - dx, y + 0.5 - dy));
  const C s = of(src.at(x, y));
  const C relief = grey(sat(0.5 + 2 * h * p[1]));
  return withAlpha(lerp(relief, s * relief * 2, p[2]), s.a);
}

// ---------------------------------------------------------------------------------------------
// Colour: each pixel from its own source colour s

C duotone(C s, const Ps& p) {
  const double Lc = sat((sat(luma(s)) - 0.5) * p[4] + 0.5);
  const C dark = lerp(grey(0.06), hueColour(p[0]) * 0.32, p[1]);
  const C light = lerp(grey(0.98), lerp(grey(1), hueColour(p[2]), 0.55), p[3]);
  return withAlpha(lerp(s, lerp(dark, light, smooth(0, 1, Lc)), p[5]), s.a);
}

C thermal(C s, const Ps& p) {
  const double t = sat((luma(s) - 0.5) * p[2] + 0.5 + p[1]);
  const int pal = int(rounded(p[0]));
  C c;
  if (pal == 1) {
    c = rgbOf({0.75 * (1 - t), 0.9, lerp(0.35, 1, std::sqrt(t))});
  } else if (pal == 2) {
    const C k[4] = {{0, 0.02, 0.08, 0}, {0.05, 0.3, 0.6, 0}, {0.5, 0.85, 1, 0}, {1, 1, 1, 0}};
    const double at[4] = {0, 0.33, 0.66, 1};
    int i = t < 0.33 ? 0 : t < 0.66 ? 1 : 2;
    c = lerp(k[i], k[i + 1], (t - at[i]) / (at[i + 1] - at[i]));
  } else {
    const C k[7] = {{0, 0, 0.02, 0}, {0.12, 0, 0.45, 0}, {0.5, 0, 0.6, 0}, {0.88, 0.06, 0.25, 0},
                    {1, 0.45, 0, 0}, {1, 0.85, 0.1, 0},  {1, 1, 0.9, 0}};
    const int i = std::min(int(t * 6), 5);
    c = lerp(k[i], k[i + 1], t * 6 - i);
  }
  return withAlpha(lerp(s, c, p[3]), s.a);
}

C crossprocess(C s, const Ps& p) {
  const C c = sat(s);
  C x{smooth(0.05, 0.95, c.r), 1.03 * lerp(c.g, smooth(0, 1, c.g), 0.6), 0.62 * c.b + 0.18, 0};
  x = x + C{0.05, 0.06, -0.06, 0} * smooth(0.5, 1, luma(x));
  x = floor0(saturate(x, p[1]));
  return withAlpha(lerp(s, x, p[0]), s.a);
}

C bleach(C s, const Ps& p) {
  const C c = sat(s);
  const double Lc = luma(c), k = sat(10 * (Lc - 0.45));
  const C multiplied = c * (2 * Lc);
  const C screened = grey(1) - (grey(1) - c) * (2 * (1 - Lc));
  const C nc = floor0(contrast(saturate(lerp(multiplied, screened, k), p[2]), p[1]));
  return withAlpha(lerp(s, nc, p[0]), s.a);
}

C infrared(C s, const Ps& p) {
  const C c = sat(s);
  const double foliage = sat(4 * (c.g - std::max(c.r, c.b)));
  C x{0.9 * c.g + 0.25 * c.r, 0.55 * c.r + 0.25 * c.b, 0.85 * c.b + 0.1 * c.g, 0};
  x = lerp(x, C{1, 0.25, 0.45, 0} * (0.6 + 0.6 * c.g), 0.6 * foliage * p[1]);
  x = floor0(contrast(x, p[2]));
  return withAlpha(lerp(s, x, p[0]), s.a);
}

// Every hue, grey pixels included (their hue must not count).
Image everyHue() {
  return storedPicture(36, 8, [](int x, int y) {
    const double h = x * 10.0, s = y == 0 ? 0.02 : y / 7.0, v = 0.3 + 0.7 * ((x * 7 + y * 3) % 10) / 10.0;
    const C c = rgbOf({h / 360, s, v});
    return Rgba{float(c.r), float(c.g), float(c.b), float((x + y) % 5) / 4.0f};
  });
}

C colorkeep(C s, const Ps& p) {
  const Hsv h = hsvOf(s);
  double dh = std::fmod(h.h * 360 - p[0] + 180, 360.0);
  if (dh < 0) dh += 360;
  dh = std::fabs(dh - 180);
  const double keep = below(p[1], p[1] + std::max<double>(p[2], 0.5), dh) * smooth(0.05, 0.2, h.s);
  return withAlpha(floor0(lerp(saturate(s, p[3]), saturate(s, p[4]), keep)), s.a);
}

// Random colours, and skin tones around (0.8, 0.55, 0.45) on every other row.
Image skinAndRandom() {
  ombrik::test::Lcg rng(64);
  return storedPicture(16, 8, [&](int, int y) {
    if (y % 2) return Rgba{0.8f + rng.next(-0.12f, 0.12f), 0.55f + rng.next(-0.12f, 0.12f), 0.45f + rng.next(-0.12f, 0.12f), 1};
    return Rgba{rng.next(-0.2f, 1.2f), rng.next(-0.2f, 1.2f), rng.next(-0.2f, 1.2f), rng.next(0, 1)};
  });
}

C tealorange(C s, const Ps& p) {
  const C c = sat(s);
  const double Lc = luma(c);
  const double warm = sat(2 * (c.r - c.b) + 0.5), sh = below(0, 0.55, Lc);
  const C tint = C{0, 0.5, 0.55, 0} * (sh * (1 - warm)) + C{1, 0.55, 0.2, 0} * (warm * smooth(0.2, 0.8, Lc));
  C x = c + (tint - grey(luma(tint))) * (0.6 * p[0]);
  x = contrast(x, p[2]);
  x = lerp(x, c, skinWeight(c) * p[1]);
  return withAlpha(floor0(x), s.a);
}

C chanmix(C s, const Ps& p) {
  C x{s.r * p[0] + s.g * p[1] + s.b * p[2], s.r * p[3] + s.g * p[4] + s.b * p[5], s.r * p[6] + s.g * p[7] + s.b * p[8], 0};
  if (p[9] > 0.5) x = x * (luma(s) / std::max(luma(x), 0.0001));
  return withAlpha(floor0(x), s.a);
}

// ---------------------------------------------------------------------------------------------
// The tables

std::vector<FxRow> styliseRows() {
  const Image soft48 = reliefPicture(48, 32), soft40 = reliefPicture(40, 24);
  return {
      {"halftone", "fx_halftone", soft48, {}, {},
       {{9, 45, 2, 0.2f, 1} /* four inks, each on its own screen */,
        {7, 20, 0, 0.6f, 1} /* black dots, softness above the one-pixel floor */,
        {6, -30, 1, 0.1f, 0.7f} /* coloured dots, mixed with the source */,
        {1, 10, 0.4f, 0, 1} /* size floored at 2, mode rounded to 0 */,
        {8, 15, 5, 0.2f, 1} /* an unknown mode draws coloured dots */},
       halftone, kSampled, kMost},
      {"engrave", "fx_engrave", noise(40, 24, 11, -0.1f, 1.1f), {}, {},
       {{6, 30, 0.3f, 1.3f, 0}, {4.5f, -60, 0.8f, 2.0f, 1} /* sepia */, {10, 0, 0, 0.7f, 2} /* blue, straight lines */,
        {1, 90, 0.5f, 3, 1.6f} /* spacing floored at 2, ink rounded to blue */},
       engrave, kStep, kMost},
      // Radius 4: taps one pixel apart, on texel centres.
      {"kuwahara_on_texel_centres", "fx_kuwahara", calmBesideNoisy(), {}, {}, {{4, 1.1f, 0.3f}, {8, 0.4f, 1}, {0.5f, 1, 0}},
       kuwahara, kStep, kMost},
      // Radius 6: taps a pixel and a half apart, between texels.
      {"kuwahara_between_texels", "fx_kuwahara", soft40, {}, {}, {{6, 1.6f, 0.6f}}, kuwahara, kSampled, kMost},
      {"toon", "fx_toon", noise(40, 24, 21, 0, 1), soft40, {},
       {{5, 2, 1.2f, 1.5f, 1.3f}, {3, 0, 3, 1, 0.5f}, {12, 0, 0, 0.2f, 2} /* no ink: flats only */,
        {1.2f, 4, 2, 0.2f, 1} /* levels floored at 2, line width at half a pixel */,
        {6.6f, 0, 1.5f, 2, 1} /* levels rounded to 7 */},
       toon, kSampled, kMost},
      {"kaleido", "fx_kaleido", soft48, {}, {},
       {{6, 0, 50, 50, 1, 0}, {5, 30, 40, 60, 0.6f, 20} /* spinning: the time turns the wedges */,
        {2, -45, 30, 50, 2.5f, 0}, {0, 10, 50, 50, 0.01f, 0} /* one segment at least, zoom floored at 0.05 */},
       kaleido, kSampled, kMost, {1.5f}},
      {"hexmosaic", "fx_hexmosaic", soft48, {}, {},
       {{8, 0.15f, 0.3f}, {5.5f, 0.6f, 1}, {12, 0, 0.5f} /* no joints */, {2, 1, 0} /* size floored at 3 */},
       hexmosaic, kSampled, kMost},
      {"led", "fx_led", soft48, {}, {},
       {{6, 0, 1.4f, 0.3f} /* round */, {5, 1, 1, 0.6f} /* square */, {7, 2, 1.2f, 0.5f} /* RGB bars */,
        {2, 1.6f, 2, 0} /* size floored at 3, shape rounded to bars */},
       led, kSampled, kMost},
      {"sketch", "fx_sketch", noise(40, 24, 31, 0, 1), soft40, {},
       {{6, 1.2f, 0.4f, 0, 0.4f}, {6, 2.5f, 1, 1, 1} /* coloured pencil */,
        {6, 0.05f, 0.7f, 0.5f, 0} /* stroke strength floored at 0.1 */},
       sketch, kStep, kMost},
      {"watercolor", "fx_watercolor", noise(40, 24, 41, 0, 1), soft40, {},
       {{10, 1.6f, 0.4f, 1.1f, 0.35f}, {4, 3, 1, 2, 1} /* strong bleed, saturation clipped */,
        {1, 0, 0, 0.5f, 0} /* no bleed, no edges, no grain */, {0.5f, 1, 0.5f, 1, 1} /* wash size floored at 2 */},
       watercolor, kSampled, kMost},
      // Light along the rows: taps whole and half pixels away, on or halfway between texels.
      {"emboss_along_the_rows", "fx_emboss", noise(32, 20, 51, 0, 1), {}, {}, {{0, 3, 0.5f, 2}, {180, 1, 1, 0.2f}}, emboss,
       kStep, kMost},
      // Any angle on a smooth picture.
      {"emboss_at_any_angle", "fx_emboss", soft40, {}, {}, {{135, 2, 0, 1}, {-70, 6, 0.3f, 2.5f}}, emboss, kSampled, kMost},
  };
}

std::vector<FxRow> colourRows() {
  const auto row = [](const char* name, Image src, std::vector<std::vector<float>> cases, C (*ref)(C, const Ps&)) {
    return FxRow{name, std::string("fx_") + name, std::move(src), {}, {}, std::move(cases), pointwise(ref), kStep};
  };
  return {
      row("duotone", noise(16, 8, 61, -0.2f, 1.2f), {{235, 0.8f, 35, 0.7f, 1.1f, 1}, {120, 0, 300, 1, 2.5f, 0.6f}, {0, 1, 180, 0, 0.3f, 1}},
          duotone),
      row("thermal", noise(16, 8, 62, -0.2f, 1.2f),
          {{0.4f, 0, 1.2f, 1} /* infrared (rounded down) */, {1.4f, 0.1f, 0.8f, 1} /* rainbow */,
           {1.6f, -0.2f, 2, 0.7f} /* ice (rounded up) */, {3, 0.3f, 3, 1} /* unknown palette: infrared */},
          thermal),
      row("crossprocess", noise(16, 8, 63, -0.2f, 1.2f), {{0.8f, 1.1f}, {1, 0}, {0.4f, 2}}, crossprocess),
      row("bleach", noise(16, 8, 63, -0.2f, 1.2f), {{0.7f, 1.15f, 0.5f}, {1, 2, 0}, {0.5f, 0.5f, 1.5f}}, bleach),
      row("infrared", noise(16, 8, 63, -0.2f, 1.2f), {{0.85f, 1, 1.1f}, {1, 2, 2}, {0.5f, 0, 0.5f}}, infrared),
      row("colorkeep", everyHue(),
          {{0, 25, 15, 0, 1.2f} /* around red, across the 0/360 seam */,
           {120, 40, 0.2f, 0.5f, 2} /* softness floored at half a degree */, {300, 10, 60, 1, 0.3f}, {350, 2, 0, 0, 1}},
          colorkeep),
      row("tealorange", skinAndRandom(), {{0.6f, 0.7f, 1.05f}, {1, 0, 2}, {1, 1, 1}, {0, 0.5f, 0.5f}}, tealorange),
      row("chanmix", noise(16, 8, 65, -0.2f, 1.2f),
          {{1, 0, 0, 0, 1, 0, 0, 0, 1, 0} /* identity but for negatives */,
           {0, 0, 1, 0, 1, 0, 1, 0, 0, 0} /* red and blue swapped */,
           {0.5f, 0.3f, -0.4f, 1.2f, -0.6f, 0.2f, 0.1f, 0.1f, 2, 1},
           {0.3f, 0.6f, 0.1f, 0.3f, 0.6f, 0.1f, 0.3f, 0.6f, 0.1f, 0.6f} /* a custom grey */},
          chanmix),
  };
}

}  // namespace

TEST(FxMoreStyliseKernels, MatchTheirReferences) { checkRows(styliseRows()); }
TEST(FxMoreColourKernels, MatchTheirReferences) { checkRows(colourRows()); }

// Worked by hand, which a reference sharing the kernel's mistake would not catch.
TEST(FxMoreStyliseKernels, HandWorkedValues) {
  // Kuwahara beside a boundary takes the calm side's colour.
  const Image out = runFx("fx_kuwahara", calmBesideNoisy(), {4, 1, 0});
  for (int y = 4; y < 16; ++y) EXPECT_NEAR(out.at(13, y).r, 0.3f, 0.03f) << y;
  // Teal and orange at full protection leaves skin as it is.
  const Image src = skinAndRandom(), graded = runFx("fx_tealorange", src, {1, 1, 1});
  int faces = 0;
  for (int y = 1; y < src.h; y += 2)
    for (int x = 0; x < src.w; ++x) {
      const C face = of(src.at(x, y)), g = of(graded.at(x, y));
      if (skinWeight(face) < 0.999) continue;
      ++faces;
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], sat(face[i]), 1e-3) << x << "," << y;
    }
  EXPECT_GT(faces, 4);
}
