#pragma once
// The CPU side of the effect-kernel pixel tests that work in double precision: colours and the
// small maths the kernels share (luminance, steps, hues, rotation, value noise), reads through a
// bilinear clamp-to-edge sampler, and the comparison of a result with a per-pixel expectation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

namespace ombrik::test {

constexpr double kStep = 1e-3;     // one half-float step of the output
constexpr double kSampled = 2e-3;  // reads through the sampler, which may quantise its weights
constexpr double kDegree = 0.0174532925;  // degrees to radians, as the kernels write it

// Colours in double for the references.
struct C {
  double r = 0, g = 0, b = 0, a = 0;
  double& operator[](int i) { return i == 0 ? r : i == 1 ? g : b; }
  double operator[](int i) const { return i == 0 ? r : i == 1 ? g : b; }
};
inline C of(const Rgba& p) { return {p.r, p.g, p.b, p.a}; }
inline C operator+(C x, C y) { return {x.r + y.r, x.g + y.g, x.b + y.b, x.a + y.a}; }
inline C operator-(C x, C y) { return {x.r - y.r, x.g - y.g, x.b - y.b, x.a - y.a}; }
inline C operator*(C x, double k) { return {x.r * k, x.g * k, x.b * k, x.a * k}; }
inline C operator/(C x, double k) { return x * (1 / k); }
inline C operator*(C x, C y) { return {x.r * y.r, x.g * y.g, x.b * y.b, x.a * y.a}; }
inline C grey(double v, double a = 0) { return {v, v, v, a}; }
inline C withAlpha(C c, double a) { return {c.r, c.g, c.b, a}; }
// Applies f to each colour channel, keeping alpha.
inline C perChannel(C c, const std::function<double(double)>& f) { return {f(c.r), f(c.g), f(c.b), c.a}; }

inline double sat(double v) { return std::clamp(v, 0.0, 1.0); }
inline C sat(C c) { return {sat(c.r), sat(c.g), sat(c.b), c.a}; }
inline double lerp(double a, double b, double t) { return a + (b - a) * t; }
inline C lerp(C a, C b, double t) { return a + (b - a) * t; }
inline double smooth(double e0, double e1, double x) {
  const double t = sat((x - e0) / (e1 - e0));
  return t * t * (3 - 2 * t);
}
inline double below(double e0, double e1, double x) { return 1 - smooth(e0, e1, x); }
inline double luma(C c) { return 0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b; }
inline double fract(double v) { return v - std::floor(v); }
inline double rounded(double v) { return std::floor(v + 0.5); }
// True when v lies within eps of a whole number: a border float rounding may put on either side.
inline bool nearInteger(double v, double eps) { return std::fabs(v - std::round(v)) < eps; }
// The triangle wave that reflects a coordinate back into 0..1 (mirrored repeat).
inline double mirror(double q) { return 1 - std::fabs(1 - 2 * fract(q / 2)); }
// Negative channels raised to 0, alpha kept.
inline C floor0(C c) { return perChannel(c, [](double v) { return std::max(v, 0.0); }); }
// Saturation scaled by k about the luminance, and contrast by k about mid grey; alpha kept.
inline C saturate(C c, double k) {
  const double l = luma(c);
  return perChannel(c, [&](double v) { return l + (v - l) * k; });
}
inline C contrast(C c, double k) { return perChannel(c, [&](double v) { return (v - 0.5) * k + 0.5; }); }
// The weight of a skin tone, by windows on Cb and Cr.
inline double skinWeight(C c) {
  const double cb = 0.5 - 0.169 * c.r - 0.331 * c.g + 0.5 * c.b;
  const double cr = 0.5 + 0.5 * c.r - 0.419 * c.g - 0.081 * c.b;
  return smooth(0.27, 0.31, cb) * below(0.49, 0.53, cb) * smooth(0.51, 0.55, cr) * below(0.67, 0.71, cr);
}

// The fully saturated colour of a hue in degrees, by the usual six-sector HSV construction.
inline C hueColour(double h) {
  h = std::fmod(h, 360.0);
  if (h < 0) h += 360;
  const double sector = h / 60, f = sector - std::floor(sector);
  switch (int(sector) % 6) {
    case 0: return {1, f, 0, 0};
    case 1: return {1 - f, 1, 0, 0};
    case 2: return {0, 1, f, 0};
    case 3: return {0, 1 - f, 1, 0};
    case 4: return {f, 0, 1, 0};
    default: return {1, 0, 1 - f, 0};
  }
}

// HSV with the hue in 0..1, by which channel is largest.
struct Hsv {
  double h, s, v;
};
inline Hsv hsvOf(C c) {
  const double mx = std::max({c.r, c.g, c.b}), mn = std::min({c.r, c.g, c.b}), d = mx - mn;
  double h = 0;
  if (d > 0) {
    if (mx == c.r) h = std::fmod((c.g - c.b) / d + 6, 6.0);
    else if (mx == c.g) h = (c.b - c.r) / d + 2;
    else h = (c.r - c.g) / d + 4;
    h /= 6;
  }
  return {fract(h), mx > 0 ? d / mx : 0, mx};
}
inline C rgbOf(Hsv c) { return lerp(grey(1), hueColour(360 * c.h), c.s) * c.v; }

struct V2 {
  double x = 0, y = 0;
};
inline V2 operator+(V2 p, V2 q) { return {p.x + q.x, p.y + q.y}; }
inline V2 operator-(V2 p, V2 q) { return {p.x - q.x, p.y - q.y}; }
inline V2 operator*(V2 p, double k) { return {p.x * k, p.y * k}; }
inline double len(V2 p) { return std::hypot(p.x, p.y); }
// v turned by deg degrees.
inline V2 rot(V2 v, double deg) {
  const double c = std::cos(deg * kDegree), s = std::sin(deg * kDegree);
  return {c * v.x - s * v.y, s * v.x + c * v.y};
}

// Point i of n on the golden spiral that fills the unit disc evenly.
inline V2 disc(int i, int n) {
  const double r = std::sqrt((i + 0.5) / n), a = 2.39996323 * i;
  return {r * std::cos(a), r * std::sin(a)};
}

// Value noise on the integer lattice. The seed term of the lattice hash is worked out in the
// precision Seed: the kernels do it in float, which differs from double only for seeds that are not
// whole numbers.
template <class Seed = double>
float latticeHash(double x, double y, double seed) {
  return hash2(std::uint32_t(int(std::floor(x))), std::uint32_t(int(std::floor(y))),
               std::uint32_t(int(Seed(seed) * Seed(7) + Seed(11))));
}
// The four lattice corners blended by a cubic step.
template <class Seed = double>
double valueNoise(double x, double y, double seed) {
  const double ix = std::floor(x), iy = std::floor(y), fx = x - ix, fy = y - iy;
  const double ux = fx * fx * (3 - 2 * fx), uy = fy * fy * (3 - 2 * fy);
  const double a = latticeHash<Seed>(ix, iy, seed), b = latticeHash<Seed>(ix + 1, iy, seed);
  const double c = latticeHash<Seed>(ix, iy + 1, seed), d = latticeHash<Seed>(ix + 1, iy + 1, seed);
  return lerp(lerp(a, b, ux), lerp(c, d, ux), uy);
}
// The octave sum of the value noise.
template <class Seed = double>
double fbm(double x, double y, double seed, int octaves) {
  double a = 0.5, sum = 0, norm = 0;
  for (int k = 0; k < octaves; ++k) {
    sum += a * valueNoise<Seed>(x, y, seed + 3 * k);
    norm += a;
    x = 2.03 * x + 5.2;
    y = 2.03 * y + 1.3;
    a *= 0.5;
  }
  return sum / norm;
}

// A frame number as the kernels derive it: float products, each truncated.
inline std::uint32_t frameOf(float time, float rate, float seedTerm) {
  return std::uint32_t(int(time * rate) + int(seedTerm));
}

// Bilinear read at normalised (u, v) with clamp-to-edge borders, texel centres at half-integers.
inline C bilinear(const Image& im, double u, double v) {
  const double px = u * im.w - 0.5, py = v * im.h - 0.5;
  const int x0 = int(std::floor(px)), y0 = int(std::floor(py));
  const double fx = px - x0, fy = py - y0;
  auto at = [&](int x, int y) { return of(fetch(im, x, y)); };
  return at(x0, y0) * ((1 - fx) * (1 - fy)) + at(x0 + 1, y0) * (fx * (1 - fy)) + at(x0, y0 + 1) * ((1 - fx) * fy) +
         at(x0 + 1, y0 + 1) * (fx * fy);
}
// A bilinear read at a position in pixels.
inline C sampleAt(const Image& im, double px, double py) { return bilinear(im, px / im.w, py / im.h); }

// Length of the Sobel gradient (weights 1, 2, 1) of the luminance at normalised (u, v), taps px
// pixels apart.
inline double sobel(const Image& im, double u, double v, double px) {
  const double dx = px / im.w, dy = px / im.h;
  auto l = [&](int i, int j) { return luma(bilinear(im, u + i * dx, v + j * dy)); };
  const double gx = (l(1, -1) + 2 * l(1, 0) + l(1, 1)) - (l(-1, -1) + 2 * l(-1, 0) + l(-1, 1));
  const double gy = (l(-1, 1) + 2 * l(0, 1) + l(1, 1)) - (l(-1, -1) + 2 * l(0, -1) + l(1, -1));
  return std::hypot(gx, gy);
}

// The expected colour of each pixel, or nullopt for a pixel that is not checked (one that sits on a
// decision float rounding may take either way).
using Expectation = std::function<std::optional<C>(int, int)>;

// The least part of the pixels a comparison must check, as the fraction num / den.
struct Coverage {
  int num, den;
};

// Compares every channel of every checked pixel with the expectation, within tol (relative above
// 1); fails when fewer pixels than the coverage asks are checked. Reports the first few misses.
inline ::testing::AssertionResult matches(const Image& got, const Expectation& want, double tol, Coverage least) {
  int bad = 0, checked = 0;
  std::ostringstream out;
  for (int y = 0; y < got.h; ++y)
    for (int x = 0; x < got.w; ++x) {
      const std::optional<C> e = want(x, y);
      if (!e) continue;
      ++checked;
      const Rgba& g = got.at(x, y);
      const double gv[4] = {g.r, g.g, g.b, g.a}, ev[4] = {e->r, e->g, e->b, e->a};
      for (int c = 0; c < 4; ++c) {
        const double lim = std::max(tol, tol * std::fabs(ev[c]));
        if (!(std::fabs(gv[c] - ev[c]) <= lim)) {
          if (bad < 6) out << " (" << x << "," << y << ")." << "rgba"[c] << " = " << gv[c] << " expected " << ev[c] << ";";
          ++bad;
        }
      }
    }
  if (checked < got.w * got.h * least.num / least.den)
    return ::testing::AssertionFailure() << "only " << checked << " pixels checked";
  if (bad) return ::testing::AssertionFailure() << bad << " values off:" << out.str();
  return ::testing::AssertionSuccess();
}

// A smooth picture (gradients and a slow wave) with a varying alpha: bilinear reads of it stay
// accurate even where the sampler weighs with coarse fixed-point weights.
inline Image smoothPicture(int w, int h) {
  return storedPicture(w, h, [&](int x, int y) {
    const float u = (x + 0.5f) / w, v = (y + 0.5f) / h;
    return Rgba{0.1f + 0.8f * u, 0.9f - 0.7f * v, 0.5f + 0.35f * std::sin(7.0f * u + 4.0f * v), 0.3f + 0.6f * u * v};
  });
}

}  // namespace ombrik::test
