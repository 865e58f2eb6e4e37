// Pixel tests of the light, blur and depth effects, run from tables; expectations in double from
// the inputs as the half-float textures store them, the same taps read through a bilinear sampler.
#include <gtest/gtest.h>

#include <algorithm>
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

// Colours serve as 3-vectors too (alpha aside): dot products, lengths, directions.
double dot(C a, C b) { return a.r * b.r + a.g * b.g + a.b * b.b; }
double length(C a) { return std::sqrt(dot(a, a)); }
C normalize(C a) { return a / length(a); }

// Depth, near white; inverted above 0.5.
double depthAt(const Image& im, double u, double v, double inv) {
  double z = sat(luma(bilinear(im, u, v)));
  return inv > 0.5 ? 1 - z : z;
}

Image noisy(int w, int h, uint32_t seed, float lo, float hi) { return noisyPicture(w, h, seed, lo, hi, 0.1f, 1.0f); }
// A smooth depth picture (near white at the bottom, a bump in the middle), opaque.
Image depthPicture(int w, int h) {
  return storedPicture(w, h, [&](int x, int y) {
    float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
    float z = 0.15f + 0.6f * v + 0.25f * std::exp(-12.0f * ((u - 0.55f) * (u - 0.55f) + (v - 0.4f) * (v - 0.4f)));
    return Rgba{z, z, z, 1};
  });
}

using Ps = std::vector<float>;
// A reference of the colour channels; the alpha is the source pixel's own.
using LightRef = C (*)(const FxInputs&, const Ps&, double, int, int);
PixelRef lit(LightRef f) {
  return [f](const FxInputs& in, const Ps& P, float t, int x, int y) {
    return std::optional<C>(withAlpha(f(in, P, t, x, y), in.src.at(x, y).a));
  };
}

// ---------------------------------------------------------------------------------------------
// Light

// cx, cy, length, thresh, intensity, hue, tintsat, only, beams
C shafts(const FxInputs& in, const Ps& P, double time, int x, int y) {
  const Image& src = in.src;
  const double w = src.w, h = src.h, u = (x + 0.5) / w, v = (y + 0.5) / h, asp = w / h;
  const double cx = P[0] / 100.0, cy = P[1] / 100.0;
  const double dx = (cx - u) * P[2] / 64, dy = (cy - v) * P[2] / 64;
  const double j = hash2(x, y, 3);
  double qx = u + dx * j, qy = v + dy * j;
  const double th = P[3], ik = 1 / std::max(1 - th, 0.02);
  C acc;
  double ws = 0, wt = 1;
  for (int i = 0; i < 64; ++i) {
    qx += dx, qy += dy;
    C t = bilinear(src, qx, qy);
    acc = acc + t * (sat((luma(t) - th) * ik) * wt);
    ws += wt;
    wt *= 0.965;
  }
  C tint = lerp(grey(1), hueColour(P[5]), P[6]);
  double ex = (u - cx) * asp + 0.00001, ey = (v - cy) + 0.00001, el = std::hypot(ex, ey);
  ex /= el, ey /= el;
  const double tw = 0.08 * time;
  double nb = 0.6 * valueNoise(12 * ex + tw, 12 * ey, 7) + 0.4 * valueNoise(31 * ex - tw, 31 * ey, 8);
  double beams = lerp(1, 1.6 * sat(2 * nb - 0.45), P[8]);
  C rays = acc / ws * tint * (P[4] * 2 * beams);
  C s = of(src.at(x, y));
  return P[7] > 0.5 ? rays : s + rays * (grey(1) - sat(s) * 0.5);
}

// thresh, size (already spent on the blur), intensity, disp, sat
C prismglow(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image &src = in.src, &blurred = in.aux;
  double dx = (x + 0.5) / src.w - 0.5, dy = (y + 0.5) / src.h - 0.5;
  C acc, wsum;
  for (int j = 0; j <= 6; ++j) {
    double t = j / 6.0, k = 1 + (t - 0.5) * P[3];
    C wt = hueColour(260 * t);
    C g = perChannel(bilinear(blurred, 0.5 + dx * k, 0.5 + dy * k),
                 [&](double c) { return std::max(c - P[0], 0.0) / std::max(1.0 - P[0], 0.05); });
    acc = acc + g * wt;
    wsum = wsum + wt;
  }
  C g = {acc.r / std::max(wsum.r, 1e-4), acc.g / std::max(wsum.g, 1e-4), acc.b / std::max(wsum.b, 1e-4)};
  g = floor0(saturate(g, P[4]));
  return of(src.at(x, y)) + g * P[2];
}

// thresh, length, branches, angle, intensity, iris
C glints(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image& src = in.src;
  const int menu = int(rounded(P[2])), nb = menu <= 0 ? 4 : menu == 1 ? 6 : 8;
  const double th = P[0], ik = 1 / std::max(1 - th, 0.02), u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  C acc;
  for (int b = 0; b < nb; ++b) {
    double a = (P[3] + 360.0 * b / nb) * kDegree;
    for (int j = 0; j < 20; ++j) {
      double t = j / 20.0, d = t * P[1];
      C c = bilinear(src, u + std::cos(a) * d / src.w, v + std::sin(a) * d / src.h);
      double k = sat((luma(c) - th) * ik);
      C tint = lerp(grey(1), hueColour(300 * t) * 1.5, P[5]);
      acc = acc + c * tint * (k * k * (1 - t) * (1 - t / 2));
    }
  }
  return of(src.at(x, y)) + acc * (0.2 * P[4]);
}

// lx, ly, intensity, size, ghosts, ring, streak, hue, follow
C flare(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image& src = in.src;
  const double asp = double(src.w) / src.h, u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  const double lu = P[0] / 100.0, lv = P[1] / 100.0;
  const V2 p{(u - 0.5) * asp, v - 0.5}, l{(lu - 0.5) * asp, lv - 0.5};
  const double sz = std::max<double>(P[3], 0.05);
  const C tint = hueColour(P[7]), warm = lerp(grey(1), tint, 0.5);
  const V2 dl{p.x - l.x, p.y - l.y};
  const double r = std::hypot(dl.x, dl.y);
  C f = warm * (1.2 * std::exp(-18 * r / sz) + 0.25 * std::exp(-4 * r / sz));
  f = f + lerp(C{0.6, 0.8, 1}, tint, 0.3) * (P[6] * std::exp(-220 * std::fabs(dl.y) / sz) * std::exp(-1.6 * std::fabs(dl.x) / sz));
  f = f + warm * (0.25 * std::pow(std::max(0.0, std::sin(6 * std::atan2(dl.y, dl.x) + 0.5)), 8.0) * std::exp(-6 * r / sz));
  auto ring = [&](double at) {
    double d = (r - at * sz) * 40 / sz;
    return std::exp(-d * d);
  };
  f = f + C{ring(0.30), ring(0.315), ring(0.33)} * (0.35 * P[5]);
  const double pos[6] = {-0.35, -0.7, 0.4, -1.1, -1.5, 0.75}, rad[6] = {0.05, 0.11, 0.035, 0.16, 0.07, 0.025};
  for (int i = 0; i < 6; ++i) {
    double gr = rad[i] * sz, dg = std::hypot(p.x - l.x * pos[i], p.y - l.y * pos[i]);
    C col = lerp(hueColour(P[7] + 47.0 * i), grey(1), 0.35);
    C disc{below(0.6 * gr, 1.04 * gr, dg), below(0.6 * gr, gr, dg), below(0.55 * gr, 0.96 * gr, dg)};
    f = f + col * disc * (0.18 * P[4]);
  }
  double vis = P[8] > 0.5 ? smooth(0.25, 0.85, luma(bilinear(src, lu, lv))) : 1;
  return of(src.at(x, y)) + f * (P[2] * vis);
}

// intensity, hue1, hue2, side, extent, speed, seed
C lightleak(const FxInputs& in, const Ps& P, double time, int x, int y) {
  const Image& src = in.src;
  const double asp = double(src.w) / src.h, u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  const double t = time * P[5], qx = u * asp, qy = v;
  const double n1 = fbm(1.6 * qx + 0.35 * t, 1.6 * qy + 0.12 * t, P[6], 4);
  const double n2 = fbm(0.9 * qx - 0.2 * t, 0.9 * qy + 0.27 * t, P[6] + 9, 3);
  const double e = std::max<double>(P[4], 0.02);
  const int side = int(rounded(P[3]));
  const double edge = side == 0   ? below(0, e, u)
                      : side == 1 ? smooth(1 - e, 1, u)
                      : side == 2 ? below(0, e, v)
                      : side == 3 ? smooth(1 - e, 1, v)
                                  : 0.5;
  const double leak = smooth(0.4, 0.8, n1 + 0.9 * (edge - 0.5));
  C col = lerp(hueColour(P[1]), hueColour(P[2]), smooth(0.3, 0.7, n2));
  col = lerp(col, C{1, 0.95, 0.85}, 0.5 * leak * leak);
  const double flick = 0.85 + 0.15 * std::sin(6.3 * t + P[6]);
  C s = of(src.at(x, y));
  return s + col * (grey(1) - sat(s)) * (leak * P[0] * flick);
}

// amount, size, thresh, warm, lift; the matte, when bound, limits the effect
C mist(const FxInputs& in, const Ps& P, double, int x, int y) {
  C s = of(in.src.at(x, y)), b = of(in.aux.at(x, y));
  C warm = lerp(grey(1), C{1, 0.9, 0.78}, P[3]);
  C hl = perChannel(b, [&](double c) { return std::max(c - P[2], 0.0) / std::max(1.0 - P[2], 0.05); });
  C c = lerp(s, C{std::max(s.r, b.r), std::max(s.g, b.g), std::max(s.b, b.b)}, 0.6 * P[0]);
  c = c + hl * warm * (0.8 * P[0]);
  c = c + warm * (grey(1) - sat(c)) * P[4];
  double k = in.matte ? in.matte->at(x, y).r : 1;
  return lerp(s, c, k);
}

// thresh, size, intensity, hue, only
C halation(const FxInputs& in, const Ps& P, double, int x, int y) {
  C s = of(in.src.at(x, y));
  double ik = 1 / std::max(1.0 - P[0], 0.05);
  double hb = sat((luma(of(in.aux.at(x, y))) - P[0]) * ik), hs = sat((luma(s) - P[0]) * ik);
  C add = lerp(hueColour(P[3]), grey(1), 0.12) * (std::max(hb - 0.6 * hs, 0.0) * P[2]);
  return P[4] > 0.5 ? add : s + add;
}

// thresh, size, intensity, hue, imgcolor, orig
C neon(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image &src = in.src, &blurred = in.aux;
  double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  C s = of(src.at(x, y));
  double e = smooth(P[0], P[0] + 0.25, sobel(src, u, v, 1));
  double g = 2.5 * sobel(blurred, u, v, std::max(1.0, P[1] / 2.0));
  C col = P[4] > 0.5 ? normalize(perChannel(s, [](double c) { return std::max(c, 0.02); })) * 1.4 : hueColour(P[3]);
  return s * P[5] + (col * (1.2 * e + g) + grey(0.35 * e)) * P[2];
}

// ---------------------------------------------------------------------------------------------
// Blur and sharpness

// cy, band, trans, blur (pixels), angle, sat, contrast
C tiltshift(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image& src = in.src;
  const double w = src.w, h = src.h, asp = w / h, u = (x + 0.5) / w, v = (y + 0.5) / h;
  V2 q = rot({(u - 0.5) * asp, v - P[0] / 100.0}, -P[4]);
  double k = smooth(0, std::max(P[2] / 100.0, 0.001), std::fabs(q.y) - P[1] / 200.0), rad = k * P[3];
  C c = of(src.at(x, y));
  if (rad > 0.5) {
    C acc;
    double ws = 0;
    for (int i = 0; i < 48; ++i) {
      V2 d = disc(i, 48);
      C t = bilinear(src, u + rad * d.x / w, v + rad * d.y / h);
      double wt = 1 + 4 * std::max(luma(t) - 0.8, 0.0);
      acc = acc + t * wt;
      ws += wt;
    }
    c = acc / ws;
  }
  c = floor0(saturate(c, P[5]));
  return floor0((c - grey(0.5)) * P[6] + grey(0.5));
}

// angle, cx, cy: forty taps on the arc, jittered per pixel
C spinblur(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image& src = in.src;
  const double asp = double(src.w) / src.h, u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  const double cx = P[1] / 100.0, cy = P[2] / 100.0;
  const V2 d{(u - cx) * asp, v - cy};
  const double j = hash2(x, y, 5) - 0.5;
  C acc;
  for (int i = 0; i < 40; ++i) {
    V2 r = rot(d, P[0] * ((i + j) / 39.0 - 0.5));
    acc = acc + bilinear(src, cx + r.x / asp, cy + r.y);
  }
  return acc / 40;
}

// amount, radius, protect
C clarity(const FxInputs& in, const Ps& P, double, int x, int y) {
  C s = of(in.src.at(x, y));
  double l = luma(s), lb = luma(of(in.aux.at(x, y))), e = sat(2 * std::fabs(l - 0.5));
  return floor0(s + grey((l - lb) * P[0] * (1 - P[2] * e * e)));
}

// ---------------------------------------------------------------------------------------------
// Depth (the depth picture in aux, near white)

// density, start, end, hue, tintsat, bright, wisps, speed, ground, invdepth
C depthfog(const FxInputs& in, const Ps& P, double time, int x, int y) {
  const Image &src = in.src, &dep = in.aux;
  const double asp = double(src.w) / src.h, u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  const double dist = 1 - depthAt(dep, u, v, P[9]);
  double f = smooth(P[1], std::max<double>(P[2], P[1] + 0.01), dist);
  const double vol = fbm(u * asp * 3 + 0.1 * time * P[7], v * 3, 4, 4);
  f *= sat(1 + 2 * (vol - 0.5) * P[6]);
  f *= lerp(1, smooth(0.15, 0.9, v), P[8]);
  f = sat(f * P[0]);
  const C fog = lerp(grey(1), hueColour(P[3]), P[4]) * P[5];
  return lerp(of(src.at(x, y)), fog, f);
}

// focus, range, blur (pixels), bokeh, show, invdepth
C depthdof(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image &src = in.src, &dep = in.aux;
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h, R = P[2];
  auto coc = [&](double z) { return sat((std::fabs(z - P[0]) - std::max<double>(P[1], 0.001) / 2) / 0.3) * R; };
  const double zc = depthAt(dep, u, v, P[5]), cc = coc(zc);
  C acc = of(src.at(x, y));
  double ws = 1;
  if (R > 0.5)
    for (int i = 0; i < 64; ++i) {
      V2 dk = disc(i, 64);
      double len = R * std::hypot(dk.x, dk.y), qu = u + R * dk.x / src.w, qv = v + R * dk.y / src.h;
      double zj = depthAt(dep, qu, qv, P[5]), cj = coc(zj);
      double reach = zj >= zc - 0.02 ? cj : std::min(cj, cc);
      C t = bilinear(src, qu, qv);
      double wt = sat(reach - len + 1) * (1 + 6 * P[3] * std::max(luma(t) - 0.75, 0.0));
      acc = acc + t * wt;
      ws += wt;
    }
  C c = acc / ws;
  if (P[4] > 0.5) c = lerp(c, C{0.2, 1, 0.4}, 0.45 * (1 - sat(cc / std::max(0.15 * R, 0.5))));
  return c;
}

// lx, ly, height, intensity, hue, tintsat, relief, shadow, spec, falloff, smooth (pixels), invdepth
C depthrelight(const FxInputs& in, const Ps& P, double, int x, int y) {
  const Image &src = in.src, &dep = in.aux;
  const double w = src.w, h = src.h, asp = w / h, u = (x + 0.5) / w, v = (y + 0.5) / h, inv = P[11];
  const double st = std::max<double>(P[10], 1);
  const double gx = (depthAt(dep, u + st / w, v, inv) - depthAt(dep, u - st / w, v, inv)) * h / (2 * st);
  const double gy = (depthAt(dep, u, v + st / h, inv) - depthAt(dep, u, v - st / h, inv)) * h / (2 * st);
  const C n = normalize({-gx * P[6], -gy * P[6], 1});
  const double z = depthAt(dep, u, v, inv);
  C L = C{(P[0] / 100.0 - 0.5) * asp, P[1] / 100.0 - 0.5, P[2]} - C{(u - 0.5) * asp, v - 0.5, z / 2};
  const double dl = length(L);
  L = L / std::max(dl, 1e-4);
  const double lam = std::max(dot(n, L), 0.0), att = 1 / (1 + 4 * dl * dl * P[9]);
  const double spec = std::pow(std::max(0.0, dot(n, normalize(L + C{0, 0, 1}))), 40.0) * P[8];
  const C tint = lerp(grey(1), hueColour(P[4]), P[5]);
  const double sh = lam * att;
  const C s = of(src.at(x, y));
  return s * (1 - P[7] + P[7] * sat(1.6 * sh)) + s * tint * (sh * P[3]) + tint * (spec * att * P[3]);
}

// ox, oy, dolly, pivot, anim, period, invdepth
C depthparallax(const FxInputs& in, const Ps& P, double time, int x, int y) {
  const Image &src = in.src, &dep = in.aux;
  const double u = (x + 0.5) / src.w, v = (y + 0.5) / src.h;
  V2 off{P[0] / 100.0, P[1] / 100.0};
  double zk = P[2];
  const double ph = 6.2831853 * time / std::max<double>(P[5], 0.1);
  const int mode = int(rounded(P[4]));
  if (mode == 1) off = {off.x * std::sin(ph), off.y * std::sin(ph)}, zk *= std::sin(ph);
  if (mode == 2) off = {std::cos(ph) * P[0] / 100.0, std::sin(ph) * P[1] / 100.0};
  const double crop = 1 + (std::fabs(P[0]) + std::fabs(P[1])) / 100.0 + std::fabs(P[2]) / 2;
  const V2 base{(u - 0.5) / crop + 0.5, (v - 0.5) / crop + 0.5};
  V2 q = base, prev = base;
  double prevDiff = 0;
  for (int i = 0; i <= 40; ++i) {
    double t = 1 - i / 40.0, k = t - P[3], g = std::max(1 + zk * k, 0.05);
    V2 xq{0.5 + (base.x - 0.5 - off.x * k) / g, 0.5 + (base.y - 0.5 - off.y * k) / g};
    double diff = depthAt(dep, xq.x, xq.y, P[6]) - t;
    if (diff >= 0) {
      double f = i == 0 ? 1 : prevDiff / (prevDiff - diff);
      q = {lerp(prev.x, xq.x, f), lerp(prev.y, xq.y, f)};
      break;
    }
    q = prev = xq;
    prevDiff = diff;
  }
  return bilinear(src, q.x, q.y);
}

// A depth of black everywhere: no surface before the farthest step, where the ray ends; worked out
// by hand for the parameters (5, -3, 0.1, 0.4, 0, 6, 0).
C parallaxToTheFarthestStep(const FxInputs& in, const Ps&, double, int x, int y) {
  const Image& src = in.src;
  const double crop = 1 + 0.08 + 0.05, g = 1 - 0.1 * 0.4;
  double bu = ((x + 0.5) / src.w - 0.5) / crop, bv = ((y + 0.5) / src.h - 0.5) / crop;
  return bilinear(src, 0.5 + (bu + 0.05 * 0.4) / g, 0.5 + (bv - 0.03 * 0.4) / g);
}

// ---------------------------------------------------------------------------------------------
// The tables

std::vector<FxRow> lightRows() {
  const Image shaftsSrc = noisy(32, 24, 101, 0.0f, 1.4f), flareSrc = noisy(48, 32, 131, 0.0f, 0.6f);
  const Image mistSrc = noisy(16, 12, 151, 0.0f, 1.2f), mistBlur = noisy(16, 12, 152, 0.0f, 1.4f);
  const std::vector<float> follow = {66, 37, 1, 1, 0.7f, 0.5f, 0.6f, 30, 1};
  // Following the source's brightness: the light sits on a lit patch.
  Image litPatch = flareSrc;
  for (int y = 8; y < 16; ++y)
    for (int x = 24; x < 40; ++x) litPatch.at(x, y) = {0.7f, 0.7f, 0.7f, 1};
  std::vector<std::vector<float>> sides;  // the leak from each side and from all round
  for (int side = 0; side <= 4; ++side) sides.push_back({1.5f, 20, 330, float(side), 0.6f, 0.8f, float(3 + side * 7)});
  const std::vector<std::vector<float>> mistCases = {
      {0.4f, 30, 0.55f, 0.2f, 0.03f}, {1, 30, 0.2f, 1, 0.2f}, {0.7f, 30, 1, 0.5f, 0}};
  return {
      {"shafts", "fx_shafts", shaftsSrc, {}, {},
       {{50, 25, 0.5f, 0.72f, 0.9f, 40, 0.3f, 0, 0.7f} /* defaults */,
        {20, 80, 0.9f, 0.5f, 1.5f, 200, 0.8f, 0, 1.0f} /* centre low left, strong beams */,
        {110, -10, 0.3f, 0.9f, 2.0f, 0, 1.0f, 1, 0.0f} /* centre outside, rays alone, no beams */},
       lit(shafts), kSampled, {1, 1}, {0.0f, 4.5f}},
      {"prismglow", "fx_prismglow", noisy(24, 16, 111, 0.0f, 1.0f), noisy(24, 16, 112, 0.0f, 1.5f), {},
       {{0.78f, 30, 0.5f, 0.03f, 1.2f}, {0.3f, 30, 1.5f, 0.15f, 2.0f}, {0.5f, 30, 1.0f, 0.1f, 0.0f}}, lit(prismglow)},
      {"glints", "fx_glints", noisy(32, 24, 121, 0.0f, 1.2f), {}, {},
       {{0.85f, 12, 0, 45, 1, 0.3f}, {0.6f, 9, 1, 10, 0.5f, 1}, {0.7f, 15, 2, -120, 0.7f, 0}, {0.7f, 15, 5, 0, 0.3f, 0.5f}},
       lit(glints)},
      {"flare", "fx_flare", flareSrc, {}, {},
       {{72, 28, 1, 1, 0.7f, 0.5f, 0.6f, 30, 0} /* defaults */,
        {20, 70, 0.6f, 2.5f, 2, 2, 0, 200, 0} /* big, no streak */,
        {105, -10, 1.5f, 0.4f, 1, 1, 2, 310, 0} /* light outside the picture */},
       lit(flare)},
      {"flare_follows_the_brightness", "fx_flare", litPatch, {}, {}, {follow}, lit(flare)},
      {"lightleak", "fx_lightleak", noisy(48, 32, 141, 0.0f, 0.9f), {}, {}, sides, lit(lightleak), kSampled, {1, 1},
       {0.0f, 2.7f}},
      {"mist", "fx_mist", mistSrc, mistBlur, {}, mistCases, lit(mist), kStep},
      {"mist_within_the_matte", "fx_mist", mistSrc, mistBlur, noisy(16, 12, 153, 0, 1), mistCases, lit(mist), kStep},
      {"halation", "fx_halation", noisy(16, 12, 161, 0.0f, 1.2f), noisy(16, 12, 162, 0.0f, 1.2f), {},
       {{0.6f, 10, 0.6f, 8, 0}, {0.3f, 10, 2, 200, 1}, {0.98f, 10, 1, 40, 0}}, lit(halation), kStep},
      {"neon", "fx_neon", noisy(24, 16, 171, 0.0f, 1.0f), noisy(24, 16, 172, 0.2f, 0.6f), {},
       {{0.45f, 8, 1.5f, 190, 0, 0.15f}, {0.2f, 5, 0.8f, 0, 1, 1}, {0.9f, 1, 0.5f, 300, 0, 0.5f}}, lit(neon)},
  };
}

std::vector<FxRow> blurRows() {
  return {
      {"tiltshift", "fx_tiltshift", noisy(32, 24, 201, 0.0f, 1.3f), {}, {},
       {{55, 15, 25, 3, 0, 1.25f, 1.1f}, {30, 10, 40, 5, 30, 2, 0.5f}, {50, 0, 1, 2.5f, -90, 0, 1.6f}, {60, 20, 20, 0.4f, 10, 1, 1}},
       lit(tiltshift)},
      {"spinblur", "fx_spinblur", noisy(32, 20, 211, 0.0f, 1.0f), {}, {}, {{8, 50, 50}, {40, 20, 70}, {90, 100, 0}},
       lit(spinblur)},
      {"clarity", "fx_clarity", noisy(16, 12, 221, 0.0f, 1.0f), noisy(16, 12, 222, 0.0f, 1.0f), {},
       {{0.6f, 30, 0.6f}, {2, 30, 0}, {-1, 30, 1}}, lit(clarity), kStep},
  };
}

std::vector<FxRow> depthRows() {
  const Image fogSrc = noisy(40, 28, 301, 0.0f, 1.0f), dep40 = depthPicture(40, 28);
  const std::vector<float> fogDefaults = {0.7f, 0.25f, 1, 210, 0.15f, 0.85f, 0.3f, 0.5f, 0, 0};
  return {
      {"depthfog", "fx_depthfog", fogSrc, dep40, {},
       {
           fogDefaults,
           {1, 0.1f, 0.6f, 30, 1, 1.2f, 1, 2, 1, 0},
           {0.9f, 0.5f, 0.2f, 120, 0.5f, 0.5f, 0, 0, 0.5f, 1},  // end before start: a 0.01 ramp
       },
       lit(depthfog), kSampled, {1, 1}, {0.0f, 3.3f}},
      // Without a depth input the engine passes the picture itself: its own luminance is the depth.
      {"depthfog_without_depth", "fx_depthfog", fogSrc, {}, {}, {fogDefaults}, lit(depthfog), kSampled, {1, 1}, {1.0f}},
      {"depthdof", "fx_depthdof", noisy(32, 24, 311, 0.0f, 1.3f), depthPicture(32, 24), {},
       {{0.75f, 0.08f, 4, 1, 0, 0}, {0.3f, 0.2f, 6, 3, 0, 0}, {0.5f, 0, 3, 0, 1, 1}, {0.9f, 0.6f, 5, 0.5f, 1, 0}},
       lit(depthdof)},
      {"depthrelight", "fx_depthrelight", noisy(40, 28, 321, 0.0f, 1.0f), dep40, {},
       {{25, 25, 0.6f, 1, 35, 0.4f, 2, 0.5f, 0.2f, 1, 4, 0}, {80, 60, 0.2f, 2.5f, 200, 1, 8, 1, 1, 3, 1, 0},
        {-50, 150, 2, 0.5f, 0, 0, 0.5f, 0, 0.5f, 0, 2.5f, 1}},
       lit(depthrelight)},
      {"depthparallax", "fx_depthparallax", noisy(40, 28, 331, 0.0f, 1.0f), dep40, {},
       {{2, 0, 0.05f, 0.5f, 0, 6, 0}, {8, -5, -0.2f, 0.2f, 1, 4, 0}, {-6, 4, 0.3f, 0.8f, 2, 3, 1}, {10, 10, 0.1f, 0, 1, 0.05f, 0}},
       lit(depthparallax), kSampled, {1, 1}, {0.0f, 1.3f}},
      {"depthparallax_without_a_surface", "fx_depthparallax", noisy(40, 28, 331, 0.0f, 1.0f), Image(40, 28, {0, 0, 0, 1}),
       {}, {{5, -3, 0.1f, 0.4f, 0, 6, 0}}, lit(parallaxToTheFarthestStep)},
  };
}

}  // namespace

TEST(FxMoreLightKernels, MatchTheirReferences) { checkRows(lightRows()); }
TEST(FxMoreBlurKernels, MatchTheirReferences) { checkRows(blurRows()); }
TEST(FxMoreDepthKernels, MatchTheirReferences) { checkRows(depthRows()); }

// Settings that leave the picture as it is, and values worked out by hand.
TEST(FxMoreLightKernels, IdentitiesAndHandWorkedValues) {
  const IdentityRow rows[] = {
      // Nothing above the threshold: no rays at all.
      {"fx_shafts", noisy(32, 24, 102, 0.0f, 0.5f), {}, {50, 25, 0.5f, 0.72f, 0.9f, 40, 0.3f, 0, 0.7f}},
      // White stays white: the leak only fills what is left below 1.
      {"fx_lightleak", Image(48, 32, {1, 1, 1, 1}), {}, {2, 20, 330, 4, 1, 0.3f, 1}},
      // A flare that follows the brightness draws nothing where the light is covered.
      {"fx_flare", Image(48, 32, {0, 0, 0, 0.5f}), {}, {66, 37, 1, 1, 0.7f, 0.5f, 0.6f, 30, 1}},
      // Neutral colour and a blur of at most half a pixel.
      {"fx_tiltshift", noisy(32, 24, 201, 0.0f, 1.3f), {}, {50, 10, 10, 0.5f, 0, 1, 1}},
      // No angle: every tap is the pixel itself.
      {"fx_spinblur", noisy(32, 20, 211, 0.0f, 1.0f), {}, {0, 30, 40}, kSampled},
      // A maximum blur of half a pixel or less.
      {"fx_depthdof", noisy(32, 24, 311, 0.0f, 1.3f), depthPicture(32, 24), {0.1f, 0, 0.5f, 3, 0, 0}},
  };
  for (const auto& row : rows) checkIdentity(row);

  // Four glints from a single bright dot follow its row and its column only.
  Image dot(32, 24, {0, 0, 0, 1});
  dot.at(16, 12) = {4, 4, 4, 1};
  const Image glints = runFx("fx_glints", dot, {0.5f, 20, 0, 0, 1, 0});
  EXPECT_TRUE(glints.at(26, 12).r > 0.05f && glints.at(16, 4).r > 0.05f) << "no glint along the row or the column";
  EXPECT_TRUE(glints.at(26, 4).r == 0 && glints.at(22, 18).r == 0) << "a glint off the row and the column";

  // A sharp foreground (near, white depth, left half, in focus) takes nothing from the blurred
  // background beside it, whose own circle of confusion would otherwise reach over it; the
  // checked background blurs towards the mean of its two colours.
  const Rgba fore{0.2f, 0.6f, 0.3f, 1};
  const Image split = storedPicture(32, 24, [&](int x, int) { return x < 16 ? Rgba{1, 1, 1, 1} : Rgba{0, 0, 0, 1}; });
  const Image pic = storedPicture(32, 24, [&](int x, int y) {
    return x < 16 ? fore : ((x + y) % 2) ? Rgba{0.9f, 0.1f, 0.1f, 1} : Rgba{0.1f, 0.1f, 0.9f, 1};
  });
  const Image dof = runFx("fx_depthdof", pic, {1, 0.1f, 4, 0, 0, 0}, {.aux = &split});
  EXPECT_TRUE(matches(dof, [&](int x, int) { return x <= 14 ? std::optional<C>(of(fore)) : std::nullopt; }, kStep, {14, 32}));
  EXPECT_NEAR(dof.at(26, 10).r, 0.5f, 0.15f);
  EXPECT_NEAR(dof.at(27, 10).r, 0.5f, 0.15f);
}
