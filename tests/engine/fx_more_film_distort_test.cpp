// Pixel tests of the film, digital-video and distortion effects, run from tables. The integer hash
// is reproduced bit for bit and decisions on float values are taken in float; pixels on a decision
// float rounding could tip either way (a floor at an integer, a threshold within a hair) are left out.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/fx_reference.h"
#include "engine/fx_table.h"
#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

using namespace ombrik::test;

namespace {

constexpr double kTau = 6.2831853;

// True when v is within eps of a whole number other than 0 (0 itself is computed exactly).
bool nearWhole(double v, double eps = 1e-4) { return v != 0 && std::fabs(v - std::round(v)) < eps; }

// Value noise and its octave sum at a point; the kernels work the lattice hash's seed term out in
// float.
double valueNoise(V2 p, double seed) { return ombrik::test::valueNoise<float>(p.x, p.y, seed); }
double fbm(V2 p, double seed, int octaves) { return ombrik::test::fbm<float>(p.x, p.y, seed, octaves); }

// NTSC YIQ by its matrix rows and back.
std::array<double, 3> toYiq(C c) {
  return {0.299 * c.r + 0.587 * c.g + 0.114 * c.b, 0.596 * c.r - 0.274 * c.g - 0.322 * c.b,
          0.211 * c.r - 0.523 * c.g + 0.312 * c.b};
}
C fromYiq(double y, double i, double q) {
  return {y + 0.956 * i + 0.621 * q, y - 0.272 * i - 0.647 * q, y - 1.106 * i + 1.703 * q, 0};
}

C bilinearAtPixel(const Image& im, V2 p) { return sampleAt(im, p.x, p.y); }

// A picture with detail at every scale but no jumps larger than about 0.25 between neighbours,
// and a varying alpha: small displacements show, and bilinear reads stay accurate.
Image texturedPicture(int w, int h) {
  ombrik::test::Lcg rng(7);
  return storedPicture(w, h, [&](int x, int y) {
    const float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
    return Rgba{0.15f + 0.5f * u + rng.next(0.0f, 0.25f), 0.75f - 0.5f * v + rng.next(0.0f, 0.2f),
                0.45f + 0.3f * std::sin(9.0f * u + 5.0f * v) + rng.next(0.0f, 0.15f), 0.2f + 0.7f * u * (1 - v)};
  });
}

// ---------------------------------------------------------------------------------------------
// References, one per kernel, as functions of the pixel.

std::optional<C> wornFilm(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const int w = src.w, h = src.h;
  const double sc = double(h) / 1080, asp = double(w) / h;
  const double u = (x + 0.5) / w, v = (y + 0.5) / h;
  const uint32_t fr = frameOf(std::max(time, 0.0f), std::max(P[6], 1.0f), 7919.0f * P[7]);

  const V2 wv{(hash2(fr, 1, 3) - 0.5) * P[3] * 2 * sc, (hash2(fr, 2, 3) - 0.5) * P[3] * 4 * sc};
  C col = bilinear(src, u + wv.x / w, v + wv.y / h);
  col = col * (1 + 0.35 * P[2] * (hash2(fr, 5, 9) - 0.5));
  const double l = luma(col);
  const C aged{(l + (col.r - l) * 0.55) * 1.06 + 0.04, (l + (col.g - l) * 0.55) * 0.98 + 0.03,
               (l + (col.b - l) * 0.55) * 0.84 + 0.02, 0};
  col = lerp(col, aged, P[4]);

  double scr = 0;
  for (uint32_t i = 0; i < 4; ++i) {
    if (hash2(fr, i, 21) > 0.8f * P[0]) continue;
    const double sx = hash2(fr, i, 22), sw = 0.6 + 1.6 * hash2(fr, i, 23);
    const double dx = (u - sx) * w / std::max(sc, 0.1);
    const double broken = smooth(0.3, 0.6, valueNoise({12 * v, double(fr % 997) + 13.0 * i}, 2));
    scr += (hash2(fr, i, 24) > 0.5f ? 1 : -1) * std::exp(-(dx / sw) * (dx / sw)) * broken;
  }
  col = col + grey(0.3 * scr);

  const float cs = 36.0f * (float(h) / 1080.0f);
  const float pcx = float(x) / cs, pcy = float(y) / cs;
  if (nearWhole(pcx) || nearWhole(pcy)) return std::nullopt;
  const int cx = int(std::floor(pcx)), cy = int(std::floor(pcy));
  const float hd = hash2(uint32_t(cx), uint32_t(cy), 3 * fr + 1);
  if (hd < 0.025f * P[1]) {
    const V2 ctr{0.2 + 0.6 * hash2(uint32_t(cx), uint32_t(cy), 3 * fr + 2),
                0.2 + 0.6 * hash2(uint32_t(cx), uint32_t(cy), 3 * fr + 3)};
    const V2 dd = V2{double(pcx) - cx, double(pcy) - cy} - ctr;
    const double rad = 0.04 + 0.14 * hash2(uint32_t(cx), uint32_t(cy), 3 * fr + 4);
    const double shape = rad * (0.7 + 0.6 * valueNoise(dd * 30 + V2{double(cx), double(cy)}, 5));
    const double dust = below(0.6 * shape, shape, len(dd));
    col = lerp(col, grey(hd < 0.006f * P[1] ? 0.95 : 0.03), 0.85 * dust);
  }
  col = col * (1 - P[5] * smooth(0.35, 0.95, len({(u - 0.5) * asp, v - 0.5})));
  return withAlpha(perChannel(col, [](double c) { return std::max(c, 0.0); }), src.at(x, y).a);
}

// Which of the glitch's random branches a pixel took, so a test can show it exercised them.
struct GlitchBranches {
  int tornBands = 0, movedBlocks = 0, smeared = 0, recoloured = 0;
};

std::optional<C> glitch(const Image& src, const std::vector<float>& P, float time, int x, int y,
                        GlitchBranches* seen = nullptr) {
  const int w = src.w;
  const uint32_t t = frameOf(std::max(time, 0.0f), std::max(P[4], 1.0f), 131.0f * P[6]);
  const float amp = hash2(t, 7, 1) < P[3] ? P[0] : 0.12f * P[0];
  const float bs = std::max(P[1], 4.0f);
  const float pixX = x + 0.5f, pixY = y + 0.5f;
  V2 q{pixX, pixY};
  const uint32_t band = uint32_t(int(pixY / (bs / 2)));
  const float hb = hash2(band, t, 11);
  if (hb < 0.45f * amp) {
    q.x += 0.25 * w * amp * (hash2(band, t, 12) - 0.5);
    if (seen) ++seen->tornBands;
  }
  const uint32_t bx = uint32_t(int(pixX / bs)), by = uint32_t(int(pixY / bs));
  const bool blk = hash2(bx, by, 5 * t + 3) < 0.12f * amp;
  if (blk) {
    q = q + V2{hash2(bx, by, t + 41) - 0.5, hash2(bx, by, t + 42) - 0.5} * (6.0 * bs);
    if (seen) ++seen->movedBlocks;
  }
  if (hash2(bx, by, 5 * t + 4) < 0.25f * P[5] * amp) {
    if (nearWhole(q.y / bs)) return std::nullopt;
    q.y = std::floor(q.y / bs) * bs + 0.5;
    if (seen) ++seen->smeared;
  }
  double sh = P[2] * (0.4 + amp);
  if (hb < amp) sh *= 2;
  C c{bilinearAtPixel(src, q + V2{sh, 0}).r, bilinearAtPixel(src, q).g, bilinearAtPixel(src, q - V2{sh, 0}).b, 0};
  if (blk && hash2(bx, by, t + 43) < 0.35f) {
    c = hash2(bx, by, t + 44) < 0.5f ? perChannel(c, [](double v) { return 1 - sat(v); }) : C{c.g, c.b, c.r, 0};
    if (seen) ++seen->recoloured;
  }
  if (y % 2 == 0) c = c * (1 - 0.12 * amp);
  return withAlpha(c, src.at(x, y).a);
}

std::optional<C> vhs(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const int h = src.h;
  const double sc = double(h) / 1080, v = (y + 0.5) / h, t = time;
  const uint32_t fr = frameOf(std::max(time, 0.0f) * 30.0f, 1.0f, 977.0f * P[7]);
  double wob = 6 * sc * P[4] * (valueNoise({40 * v, 6 * t}, P[7]) - 0.5);
  const double tb = fract(0.07 * t + 0.13 * P[7]);
  const double band = std::exp(-std::pow(18 * (v - tb), 2)) * P[2];
  wob += 40 * sc * band * (hash2(y, fr, 3) - 0.3);
  const double bottom = smooth(1 - 0.045 * P[6] - 0.001, 1, v) * P[6];
  wob += sc * bottom * (24 + 30 * hash2(y, fr, 4));
  const V2 q{x + 0.5 + wob, y + 0.5};

  double luma5 = 0;
  for (int i = -2; i <= 2; ++i) luma5 += toYiq(bilinearAtPixel(src, q + V2{0.9 * sc * i, 0}))[0];
  const double bl = std::max(P[1], 0.5f);
  double ci = 0, cq = 0;
  for (int i = 0; i <= 8; ++i) {
    const auto yiq = toYiq(bilinearAtPixel(src, q + V2{((i - 4) / 4.0 + 0.6) * bl, 0}));
    ci += yiq[1];
    cq += yiq[2];
  }
  C c = fromYiq(luma5 / 5, ci / 9 * P[5], cq / 9 * P[5]);

  const double n = hash2(x, y, fr) - 0.5;
  const double edge = 1 - 0.0025 * P[3] - 0.05 * band, line = hash2(y, fr, 9);
  if (std::fabs(line - edge) < 1e-5) return std::nullopt;
  const float column = float(x) / (40.0f * float(sc));
  if (nearWhole(column)) return std::nullopt;
  const double streak = (line >= edge ? 1.0 : 0.0) * hash2(uint32_t(int(column)), y, fr);
  c = c + grey(0.12 * n * P[3] + 0.6 * streak + 0.25 * band * (n + 0.5));
  c = lerp(c, c * 0.88 + C{0.06, 0.04, 0.08, 0}, P[0]);
  c = c + grey(0.05 * P[0] * (hash2(y, fr, 2) - 0.5));
  c = c + grey(0.4 * bottom * (n + 0.3));
  return withAlpha(perChannel(c, [](double v) { return std::max(v, 0.0); }), src.at(x, y).a);
}

std::optional<C> hologram(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const int w = src.w, h = src.h;
  const double sc = double(h) / 1080, v = (y + 0.5) / h, t = time;
  const uint32_t fr = uint32_t(int(24.0f * std::max(time, 0.0f)));
  const double rowAt = (y + 0.5) / (18 * sc);
  if (nearWhole(rowAt)) return std::nullopt;
  const uint32_t row = uint32_t(int(std::floor(rowAt)));
  const double dx = hash2(row, fr / 3, 7) < 0.15f * P[5] ? 40 * sc * (hash2(row, fr, 8) - 0.5) : 0;
  const double qu = (x + 0.5 + dx) / w, qv = v;
  const C c = bilinear(src, qu, qv);
  const double lc = luma(c), e = sobel(src, qu, qv, 1.5);
  const double sp = std::max(P[2], 1.0f);
  const double linePhase = fract((y + 0.5 + 30 * t * sc) / sp);
  if (std::fabs(linePhase - 0.5) < 1e-4 || linePhase < 1e-4 || linePhase > 1 - 1e-4) return std::nullopt;
  const double lines = 1 - 0.6 * P[1] * (linePhase >= 0.5 ? 1 : 0);
  const double sw = 2 * fract(v - 0.15 * t) - 1;
  const double sweep = 1 + 0.6 * std::exp(-60 * sw * sw);
  const double flick = 1 - 0.3 * P[3] * hash2(fr, 1, 2);
  const C hc = hueColour(P[0]);
  C holo = (lerp(hc * (1.3 * lc), grey(lc), 0.15) + hc * (e * P[4]) + grey(0.3 * e * P[4])) * (lines * sweep * flick);
  if (P[6] > 0.5f) holo = holo + of(src.at(x, y)) * 0.35;
  return withAlpha(holo, src.at(x, y).a);
}

std::optional<C> crt(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const int w = src.w, h = src.h;
  V2 d{2 * (x + 0.5) / w - 1, 2 * (y + 0.5) / h - 1};
  d = {d.x * (1 + 0.5 * P[0] * d.y * d.y), d.y * (1 + 0.5 * P[0] * d.x * d.x)};
  const V2 q{d.x / 2 + 0.5, d.y / 2 + 0.5};
  for (double c : {q.x, q.y})
    if (std::fabs(c) < 1e-4 || std::fabs(c - 1) < 1e-4) return std::nullopt;
  if (q.x < 0 || q.x > 1 || q.y < 0 || q.y > 1) return C{0, 0, 0, src.at(x, y).a};
  const double rc = std::max(P[5], 0.005f);
  const V2 cd{std::max(std::fabs(d.x) - (1 - rc), 0.0), std::max(std::fabs(d.y) - (1 - rc), 0.0)};
  const double corner = below(rc - 0.004, rc + 0.004, len(cd));
  C c = bilinear(src, q.x, q.y);
  const C gl = (bilinear(src, q.x - 2.0 / w, q.y) + bilinear(src, q.x + 2.0 / w, q.y)) * 0.5;
  const C brighter{std::max(c.r, gl.r), std::max(c.g, gl.g), std::max(c.b, gl.b), 0};
  c = lerp(c, brighter, 0.3);
  const double sz = std::max(P[3], 1.0f);
  const double scan = 1 - 0.55 * P[1] * (0.5 - 0.5 * std::cos(kTau * q.y * h / sz));
  const int stripe = int(x / std::max(sz / 3, 1.0)) % 3;
  C mask{0.35, 0.35, 0.35, 0};
  (stripe == 0 ? mask.r : stripe == 1 ? mask.g : mask.b) = 1;
  const double k = scan * P[4] * (1 - 0.08 * P[6] * (0.5 + 0.5 * std::sin(120.0 * time))) *
                   (1 - 0.18 * (d.x * d.x + d.y * d.y)) * corner;
  return C{c.r * (1 + (mask.r - 1) * P[2]) * k, c.g * (1 + (mask.g - 1) * P[2]) * k,
           c.b * (1 + (mask.b - 1) * P[2]) * k, src.at(x, y).a};
}

std::optional<C> tvStatic(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const int h = src.h;
  const uint32_t fr = uint32_t(int(30.0f * time) + int(31.0f * P[3]));
  const double scale = std::max(1.0, h / 540.0);
  const uint32_t gx = uint32_t(int(x / scale)), gy = uint32_t(int(y / scale));
  C n = grey(hash2(gx, gy, fr));
  if (P[2] > 0.5f) n = {hash2(gx, gy, fr), hash2(gx, gy, fr + 7), hash2(gx, gy, fr + 13), 0};
  const double v = (y + 0.5) / h;
  const double bar = P[1] * smooth(0.8, 1, 0.5 + 0.5 * std::sin(kTau * 1.5 * (v + 0.35 * time)));
  const C s = of(src.at(x, y));
  const C c = lerp(s, n, sat(P[0]));
  return withAlpha(c * (1 - 0.35 * bar) + grey(0.08 * bar), s.a);
}

std::optional<C> codec(const Image& src, const std::vector<float>& P, float, int x, int y) {
  const double bs = std::max(P[0], 2.0f);
  const V2 pix{x + 0.5, y + 0.5};
  const V2 b0{std::floor(pix.x / bs) * bs, std::floor(pix.y / bs) * bs};
  C mean;
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 4; ++i) mean = mean + bilinearAtPixel(src, b0 + V2{(i + 0.5) * bs / 4, (j + 0.5) * bs / 4});
  mean = mean * (1.0 / 16);
  const double qs = 0.02 + (0.35 - 0.02) * P[1];
  const C s = of(src.at(x, y));
  bool tipping = false;
  const C detail = perChannel(s - mean, [&](double v) {
    const double k = v / qs + 0.5;
    tipping |= nearWhole(k, 1e-3);
    return std::floor(k) * qs;
  });
  if (tipping) return std::nullopt;
  const V2 c0{std::floor(pix.x / (2 * bs)) * 2 * bs, std::floor(pix.y / (2 * bs)) * 2 * bs};
  const C cm = bilinearAtPixel(src, c0 + V2{bs, bs});
  C c = mean + detail * (1 - 0.7 * P[1]);
  c = lerp(c, grey(luma(c)) + cm - grey(luma(cm)), P[2]);
  return withAlpha(perChannel(c, [](double v) { return std::max(v, 0.0); }), s.a);
}

// ---------------------------------------------------------------------------------------------
// Distortions: a source position per pixel; the alpha is the pixel's own.

std::optional<C> ripple(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const V2 pix{x + 0.5, y + 0.5};
  const V2 d = pix - V2{P[3] / 100.0 * src.w, P[4] / 100.0 * src.h};
  const double r = len(d);
  const double ph = kTau * (r / std::max(P[1], 1.0f) - time * P[2]);
  const double att = std::exp(-3 * P[5] * r / src.h);
  C o = bilinearAtPixel(src, pix + d * (1 / std::max(r, 0.001) * std::sin(ph) * P[0] * att));
  const double shine = 0.25 * std::cos(ph) * P[6] * att * (P[0] >= 0.01f ? 1 : 0);
  o = perChannel(o, [&](double c) { return std::max(0.0, c + shine); });
  return withAlpha(o, src.at(x, y).a);
}

std::optional<C> swirl(const Image& src, const std::vector<float>& P, float, int x, int y) {
  const double asp = double(src.w) / src.h;
  const V2 c{P[2] / 100.0, P[3] / 100.0};
  const V2 d{((x + 0.5) / src.w - c.x) * asp, (y + 0.5) / src.h - c.y};
  double k = sat(1 - len(d) / std::max(P[1] / 100.0, 0.001));
  k = k * k * (3 - 2 * k);
  const V2 r = rot(d, P[0] * k);
  return withAlpha(bilinear(src, c.x + r.x / asp, c.y + r.y), src.at(x, y).a);
}

std::optional<C> bulge(const Image& src, const std::vector<float>& P, float, int x, int y) {
  const double asp = double(src.w) / src.h;
  const V2 c{P[2] / 100.0, P[3] / 100.0};
  V2 d{((x + 0.5) / src.w - c.x) * asp, (y + 0.5) / src.h - c.y};
  const double r = len(d) / std::max(P[1] / 100.0, 0.001);
  if (r < 1) {
    const double nr = std::pow(std::max(r, 0.0001), 1 + P[0]);
    const double k = below(0.8, 1, r);
    d = d * (1 + (nr / std::max(r, 0.0001) - 1) * k);
  }
  return withAlpha(bilinear(src, c.x + d.x / asp, c.y + d.y), src.at(x, y).a);
}

std::optional<C> heatHaze(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const V2 pix{x + 0.5, y + 0.5};
  const V2 p = pix * (1 / std::max(P[1], 2.0f)) + V2{0, 1.5 * time * P[2]};
  const V2 shift{fbm(p, 1, 3) - 0.5, fbm(p + V2{4.3, 1.7}, 2, 3) - 0.5};
  const double e = std::max(P[4] / 100.0, 0.01), v = pix.y / src.h;
  const int zone = int(std::floor(P[3] + 0.5f));
  const double wgt = zone == 1 ? smooth(1 - e, 1, v) : zone == 2 ? below(0, e, v) : 1;
  return withAlpha(bilinearAtPixel(src, pix + shift * (2 * P[0] * wgt)), src.at(x, y).a);
}

// aux stands for the blurred picture the engine prepares.
std::optional<C> frosted(const Image& src, const Image& aux, const std::vector<float>& P, float time, int x, int y) {
  const uint32_t fr = P[3] > 0.5f ? uint32_t(int(24.0f * time)) : 0;
  const float grain = std::max(P[1], 1.0f);
  const float gxf = (x + 0.5f) / grain, gyf = (y + 0.5f) / grain;
  if (nearWhole(gxf) || nearWhole(gyf)) return std::nullopt;
  const uint32_t gx = uint32_t(int(gxf)), gy = uint32_t(int(gyf));
  const double a = kTau * hash2(gx, gy, 51 + fr), r = std::sqrt(hash2(gx, gy, 52 + fr)) * P[0];
  return withAlpha(bilinearAtPixel(aux, V2{x + 0.5 + std::cos(a) * r, y + 0.5 + std::sin(a) * r}), src.at(x, y).a);
}

std::optional<C> mirrorFx(const Image& src, const std::vector<float>& P, float, int x, int y) {
  const double p = P[1] / 100.0;
  const int mode = int(std::floor(P[0] + 0.5f));
  double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  // The kept side is sampled as is; the other side reads its reflection across p.
  if ((mode == 0 || mode == 4) && u > p) u = 2 * p - u;
  if (mode == 1 && u < p) u = 2 * p - u;
  if ((mode == 2 || mode == 4) && v > p) v = 2 * p - v;
  if (mode == 3 && v < p) v = 2 * p - v;
  return withAlpha(bilinear(src, mirror(u), mirror(v)), src.at(x, y).a);
}

std::array<double, 3> shakeAt(double t, double f, double e) {
  return {2 * (fbm({t * f, 3.1 * e}, e, 3) - 0.5), 2 * (fbm({t * f, 3.1 * e + 17}, e + 1, 3) - 0.5),
          2 * (fbm({0.7 * t * f, 3.1 * e + 33}, e + 2, 2) - 0.5)};
}

std::optional<C> shake(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const double e = P[5] + 1.0;
  const auto a = shakeAt(time, P[1], e), b = shakeAt(time + 0.02f, P[1], e);
  const double zoom = P[3] > 0.5f ? 1 + 2.8 * P[0] / std::min(src.w, src.h) + 0.02 * std::fabs(P[2]) : 1;
  const int n = P[4] > 0.01f ? 8 : 1;
  const V2 half{src.w / 2.0, src.h / 2.0};
  C acc;
  for (int i = 0; i < n; ++i) {
    const double k = n == 1 ? 0 : P[4] * (i / 7.0 - 0.5);
    std::array<double, 3> sh;
    for (int j = 0; j < 3; ++j) sh[j] = a[j] + 2 * k * (b[j] - a[j]);
    const V2 p = rot(V2{x + 0.5, y + 0.5} - half, sh[2] * P[2]) * (1 / zoom) + V2{sh[0], sh[1]} * P[0];
    acc = acc + bilinearAtPixel(src, p + half);
  }
  return withAlpha(acc * (1.0 / n), src.at(x, y).a);
}

std::optional<C> wave(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const V2 dir{std::cos(P[2] * kDegree), std::sin(P[2] * kDegree)};
  const V2 pix{x + 0.5, y + 0.5};
  const double ph = (pix.x * dir.x + pix.y * dir.y) / std::max(P[1], 1.0f) - time * P[3];
  const int shape = int(std::floor(P[4] + 0.5f));
  double w = std::sin(kTau * ph);
  if (shape == 1) {
    w = 4 * std::fabs(fract(ph) - 0.5) - 1;
  } else if (shape == 2) {
    if (std::fabs(fract(ph) - 0.5) < 1e-4 || nearWhole(ph)) return std::nullopt;
    w = fract(ph) < 0.5 ? 1 : -1;
  }
  return withAlpha(bilinearAtPixel(src, pix + V2{-dir.y, dir.x} * (w * P[0])), src.at(x, y).a);
}

std::optional<C> reeded(const Image& src, const Image& aux, const std::vector<float>& P, float, int x, int y) {
  const double w = std::max(P[0], 2.0f);
  const V2 pix{x + 0.5, y + 0.5};
  const double across = rot(pix, -P[2]).x / w;
  if (nearWhole(across)) return std::nullopt;
  const double f = fract(across) - 0.5;
  const V2 off = rot({f * w * P[1], 0}, P[2]);
  const C c = bilinearAtPixel(aux, pix - off);
  const double sheen = 0.5 * P[4] * smooth(0.3, 0.48, f) - 0.25 * P[4] * below(-0.48, -0.3, f);
  return withAlpha(perChannel(c, [&](double v) { return std::max(v + sheen, 0.0); }), src.at(x, y).a);
}

std::optional<C> slices(const Image& src, const std::vector<float>& P, float time, int x, int y) {
  const V2 half{src.w / 2.0, src.h / 2.0};
  V2 p = rot(V2{x + 0.5, y + 0.5} - half, -P[2]);
  const double n = std::max(std::floor(P[0] + 0.5), 1.0);
  const double slice = p.y / (src.h / n);
  if (nearWhole(slice)) return std::nullopt;
  const int id = int(std::floor(slice));
  const uint32_t fr = P[3] > 0.5f ? uint32_t(int(12.0f * time)) : 0;
  p.x += 2 * P[1] * (hash2(uint32_t(id + 1000), fr, uint32_t(int(P[4]) + 3)) - 0.5);
  return withAlpha(bilinearAtPixel(src, rot(p, P[2]) + half), src.at(x, y).a);
}

std::optional<C> polar(const Image& src, const std::vector<float>& P, float, int x, int y) {
  const double asp = double(src.w) / src.h, zoom = std::max(P[2], 0.05f);
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  V2 q;
  if (int(std::floor(P[0] + 0.5f)) == 0) {
    const V2 d = V2{(u - 0.5) * asp, v - 0.5} * (1 / zoom);
    const double a = std::atan2(d.x, d.y) / kTau + 0.5 + P[1] / 360.0;
    if (nearWhole(a, 1e-3) || std::fabs(a) < 1e-3) return std::nullopt;  // the seam, where u wraps
    q = {fract(a), 1 - 2 * len(d)};
  } else {
    const double a = kTau * (u - 0.5 - P[1] / 360.0), r = 0.5 * (1 - v) / zoom;
    q = {0.5 + std::sin(a) * r / asp, 0.5 + std::cos(a) * r};
  }
  return withAlpha(bilinear(src, q.x, q.y), src.at(x, y).a);
}

// A reference of the source alone, and one that also reads the picture bound as aux.
using SrcRef = std::optional<C> (*)(const Image&, const std::vector<float>&, float, int, int);
using AuxRef = std::optional<C> (*)(const Image&, const Image&, const std::vector<float>&, float, int, int);
PixelRef onSrc(SrcRef f) {
  return [f](const FxInputs& in, const std::vector<float>& P, float t, int x, int y) { return f(in.src, P, t, x, y); };
}
PixelRef onAux(AuxRef f) {
  return [f](const FxInputs& in, const std::vector<float>& P, float t, int x, int y) {
    return f(in.src, in.aux, P, t, x, y);
  };
}

// Every frame at full strength with small blocks, the defaults, and only the quiet 12 % of the
// amount; the branch test below shows these reach every random branch.
const std::vector<std::vector<float>> kGlitchCases = {{1, 8, 3, 1, 12, 1, 3}, {0.5f, 48, 8, 0.5f, 12, 0.3f, 1},
                                                      {0.8f, 4, 2, 0, 30, 1, 7}};
const std::vector<float> kGlitchTimes = {0.0f, 0.25f, 0.6f, 1.75f};

// A nine-tenths coverage: pixels on a decision are left out.
constexpr Coverage kMost{9, 10};

std::vector<FxRow> filmRows() {
  const Image tex40 = texturedPicture(40, 32), tex48 = texturedPicture(48, 32), smooth40 = smoothPicture(40, 32);
  return {
      {"wornfilm", "fx_wornfilm", tex40, {}, {},
       {{0.4f, 0.4f, 0.3f, 0.3f, 0.3f, 0.3f, 24, 1} /* the defaults */,
        {1, 0, 1, 20, 1, 1, 12, 5} /* a strong weave moves whole pixels */,
        {0, 40, 0, 0, 0, 0, 24, 2} /* a speck in every cell, a quarter of them bright */,
        {0, 0, 0, 0, 0, 0, 24, 0} /* nothing but the source */},
       onSrc(wornFilm), kSampled, kMost, {0.0f, 0.5f, 1.3f}},
      {"glitch", "fx_glitch", tex48, {}, {}, kGlitchCases,
       [](const FxInputs& in, const std::vector<float>& P, float t, int x, int y) { return glitch(in.src, P, t, x, y); },
       kSampled, kMost, kGlitchTimes},
      {"vhs", "fx_vhs", tex40, {}, {},
       {{0.5f, 8, 0.4f, 0.3f, 0.3f, 0.85f, 0.5f, 1} /* the defaults */,
        {1, 3, 1, 1, 1, 2, 1, 4} /* everything at its strongest */,
        {0, 0.2f, 0, 0, 0, 1, 0, 0} /* a clean tape: only the filtering */},
       onSrc(vhs), kSampled, kMost, {0.0f, 0.4f, 2.5f}},
      {"hologram", "fx_hologram", smooth40, {}, {},
       {{185, 0.5f, 4, 0.3f, 1, 0.2f, 0} /* the defaults, on black */,
        {40, 1, 2, 1, 3, 1, 1} /* strong, over the dimmed picture */, {300, 0, 6, 0, 0, 0, 0} /* tint only */},
       onSrc(hologram), kSampled, kMost, {0.0f, 0.3f, 1.7f}},
      {"crt", "fx_crt", tex48, {}, {},
       {{0.15f, 0.5f, 0.5f, 3, 1.3f, 0.06f, 0.1f} /* the defaults */,
        {0.6f, 1, 1, 6, 1, 0.3f, 1} /* strong curve, two-pixel mask stripes */,
        {0, 0, 0, 1, 1, 0, 0} /* flat: the glow and the darkened edges alone */},
       onSrc(crt), kSampled, kMost, {0.0f, 0.01f}},
      {"static", "fx_static", texturedPicture(40, 30), {}, {},
       {{0.5f, 0.3f, 0, 1} /* the defaults */, {1, 1, 1, 9} /* colour snow only */,
        {2, 0, 0, 0} /* snow saturated at 1: nothing of the picture */, {0, 1, 0, 0} /* the bar alone */},
       onSrc(tvStatic), kStep, kMost, {0.0f, 0.7f, -1.0f}},
      {"codec", "fx_codec", tex48, {}, {},
       {{14, 0.5f, 0.5f} /* the defaults */, {8, 1, 1} /* taps halfway between texels */,
        {6, 0, 0} /* fine quantisation, no chroma bleed */, {1, 0.3f, 0.7f} /* size floored at 2 */},
       onSrc(codec), kSampled, kMost},
  };
}

std::vector<FxRow> distortRows() {
  const Image tex40 = texturedPicture(40, 32), tex48 = texturedPicture(48, 32);
  const Image smooth40 = smoothPicture(40, 32), smooth48 = smoothPicture(48, 32);
  std::vector<std::vector<float>> mirrorCases;
  for (float mode : {0.0f, 1.0f, 2.0f, 3.0f, 4.0f})
    for (float pos : {50.0f, 20.0f, 85.0f}) mirrorCases.push_back({mode, pos});
  return {
      {"ripple", "fx_ripple", smooth48, {}, {},
       {{10, 60, 1, 50, 50, 0.5f, 0.2f} /* the defaults */, {3, 9, -2, 20, 70, 2, 1} /* short waves off centre */,
        {0.005f, 8, 1, 50, 50, 0, 1} /* below the amplitude where the shine starts */},
       onSrc(ripple), kSampled, kMost, {0.0f, 0.37f}},
      {"swirl", "fx_swirl", smooth48, {}, {}, {{180, 40, 50, 50}, {-720, 90, 30, 60}, {90, 0.01f, 50, 50}},
       onSrc(swirl), kSampled, kMost},
      {"bulge", "fx_bulge", smooth48, {}, {}, {{0.5f, 30, 50, 50}, {-0.9f, 80, 40, 40}, {2, 150, 70, 30}},
       onSrc(bulge), kSampled, kMost},
      {"heathaze", "fx_heathaze", tex40, {}, {},
       {{5, 60, 1, 0, 40} /* the defaults: everywhere */, {3, 6, 2, 1, 50} /* bottom half */,
        {4, 4, 0.5f, 2, 30} /* top */},
       onSrc(heatHaze), kSampled, kMost, {0.0f, 0.8f}},
      // aux stands for the blurred picture the engine prepares.
      {"frosted", "fx_frosted", tex40, smooth40, {}, {{8, 2, 2, 0}, {3, 1, 0, 1}, {5, 3, 4, 1}}, onAux(frosted),
       kSampled, kMost, {0.0f, 0.5f, 1.3f}},
      {"mirror", "fx_mirror", tex40, {}, {}, mirrorCases, onSrc(mirrorFx), kSampled, kMost},
      {"shake", "fx_shake", smooth48, {}, {},
       {{12, 4, 0.5f, 1, 0.5f, 1} /* the defaults */, {6, 10, 8, 0, 1, 40} /* no crop, full motion blur */,
        {4, 2, 3, 1, 0, 7} /* one sharp tap */},
       onSrc(shake), kSampled, kMost, {0.0f, 0.45f, 2.0f}},
      {"wave", "fx_wave", smooth48, {}, {},
       {{3, 20, 90, 0.5f, 0} /* sine, across the rows */, {2, 13, 30, -1, 1} /* triangle, at an angle */,
        {1.5f, 17, -60, 2, 2} /* square */, {4, 0.5f, 0, 0, 0} /* wavelength floored at 1 */},
       onSrc(wave), kSampled, kMost, {0.0f, 0.3f}},
      {"reeded", "fx_reeded", tex48, smooth48, {}, {{5, 0.6f, 0, 1.5f, 0.25f}, {7, -2, 30, 0, 1}, {1, 1.5f, -75, 0, 0.5f}},
       onAux(reeded), kSampled, kMost},
      {"slices", "fx_slices", smooth48, {}, {},
       {{12, 6, 0, 0, 1} /* level bands */, {5, 10, 35, 1, 4} /* tilted, animated */,
        {0.2f, 8, -20, 0, 9} /* count floored at 1 */},
       onSrc(slices), kSampled, kMost, {0.0f, 0.5f}},
      {"polar", "fx_polar", smooth48, {}, {}, {{0, 0, 1}, {0, 45, 0.7f}, {1, 0, 1}, {1, -90, 2.5f}, {1, 30, 0.01f}},
       onSrc(polar), kSampled, kMost},
  };
}

}  // namespace

TEST(FxMoreFilmKernels, MatchTheirReferences) { checkRows(filmRows()); }
TEST(FxMoreDistortKernels, MatchTheirReferences) { checkRows(distortRows()); }

// What the references alone cannot show: that the rows reach the random features, and a mirror by hand.
TEST(FxMoreFilmKernels, RandomFeaturesShowAndTheMirrorIsExact) {
  // Worn film on a flat grey: scratches, and dust both dark and bright.
  const Image flat(40, 32, {0.5f, 0.5f, 0.5f, 1});
  int scratched = 0, dark = 0, bright = 0;
  for (float t : {0.0f, 0.5f, 1.3f}) {
    for (const Rgba& p : runFx("fx_wornfilm", flat, {1, 0, 0, 0, 0, 0, 24, 5}, {.time = t}).px)
      scratched += std::fabs(p.r - 0.5f) > 0.05f;
    for (const Rgba& p : runFx("fx_wornfilm", flat, {0, 40, 0, 0, 0, 0, 24, 2}, {.time = t}).px) {
      dark += p.r < 0.4f;
      bright += p.r > 0.6f;
    }
  }
  EXPECT_TRUE(scratched > 10 && dark > 3 && bright > 0) << scratched << " scratched, " << dark << " dark, " << bright
                                                        << " bright";
  // The glitch row's cases and times take every random branch.
  const Image src = texturedPicture(48, 32);
  GlitchBranches seen;
  for (const auto& p : kGlitchCases)
    for (float t : kGlitchTimes) {
      std::vector<float> P = p;
      P.resize(16, 0.0f);
      for (int y = 0; y < src.h; ++y)
        for (int x = 0; x < src.w; ++x) glitch(src, P, t, x, y, &seen);
    }
  EXPECT_TRUE(seen.tornBands && seen.movedBlocks && seen.smeared && seen.recoloured);
  // Left onto right: the right half's colours are the left one's turned over, texel for texel.
  const Image got = runFx("fx_mirror", src, {0, 50});
  EXPECT_TRUE(matches(got, [&](int x, int y) {
    return std::optional<C>(withAlpha(of(src.at(x < 24 ? x : 47 - x, y)), src.at(x, y).a));
  }, kStep, {1, 1}));
}
