#pragma once
// Reproducible random pictures for kernel tests, without depending on <random>'s distributions,
// the kernels' integer hash, reads of a picture's texels, one pass of an effect kernel as the
// engine runs it, and the comparison of a result with its expected picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "kernel_runner.h"

namespace ombrik::test {

struct Lcg {
  std::uint32_t s;
  explicit Lcg(std::uint32_t seed) : s(seed * 2654435761u + 12345u) {}
  float next(float lo, float hi) {
    s = s * 1664525u + 1013904223u;
    return lo + (hi - lo) * float(s >> 8) * (1.0f / 16777216.0f);
  }
};

// Channels uniform in [lo, hi], alpha in [alphaLo, alphaHi], stored as half floats.
inline Image noisyPicture(int w, int h, std::uint32_t seed, float lo, float hi, float alphaLo, float alphaHi) {
  Lcg rng(seed);
  return storedPicture(w, h, [&](int, int) {
    Rgba c{rng.next(lo, hi), rng.next(lo, hi), rng.next(lo, hi), 0};
    c.a = rng.next(alphaLo, alphaHi);
    return c;
  });
}

// The integer hash the kernels' noise draws from, to the bit: arithmetic wraps at 32 bits and the
// result is a float in 0..1, as the kernels have it.
inline float hash2(std::uint32_t x, std::uint32_t y, std::uint32_t s) {
  std::uint32_t h = x * 374761393u + y * 668265263u + s * 2246822519u;
  h = (h ^ (h >> 13)) * 1274126177u;
  h ^= h >> 16;
  return float(h) * (1.0f / 4294967295.0f);
}

// The texel at (x, y); outside the picture the nearest edge texel (clamp-to-edge), or transparent
// black when zeroOutside.
inline Rgba fetch(const Image& im, int x, int y, bool zeroOutside = false) {
  if (x < 0 || y < 0 || x >= im.w || y >= im.h) {
    if (zeroOutside) return {};
    x = std::clamp(x, 0, im.w - 1);
    y = std::clamp(y, 0, im.h - 1);
  }
  return im.at(x, y);
}

// The picture f(x, y), kept exactly as computed: an expected result.
template <class F>
Image expected(int w, int h, F f) {
  Image im(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) im.at(x, y) = f(x, y);
  return im;
}

// Largest difference between two pictures of one size, over the colour channels or over alpha too.
enum class Channels { rgb, rgba };
inline double largestDifference(const Image& a, const Image& b, Channels channels) {
  float d = 0;
  for (std::size_t i = 0; i < a.px.size(); ++i) {
    d = std::max({d, std::fabs(a.px[i].r - b.px[i].r), std::fabs(a.px[i].g - b.px[i].g),
                  std::fabs(a.px[i].b - b.px[i].b)});
    if (channels == Channels::rgba) d = std::max(d, std::fabs(a.px[i].a - b.px[i].a));
  }
  return d;
}

// An effect kernel's parameters padded to 16, then the FxInfo: useMatte, width, height, time.
inline std::vector<float> params(std::vector<float> p, int w, int h, float useMatte = 0, float time = 0) {
  p.resize(16, 0.0f);
  p.insert(p.end(), {useMatte, float(w), float(h), time});
  return p;
}

// One pass of an effect kernel with the full parameter block P: src, matte, aux, dst as the engine
// binds them (matte and aux are the source itself when not given).
inline Image runEffect(const std::string& kernel, const Image& src, const std::vector<float>& P,
                       const Image* matte = nullptr, const Image* aux = nullptr) {
  auto& runner = KernelRunner::shared();
  auto s = runner.upload(src);
  auto m = matte ? runner.upload(*matte) : s;
  auto a = aux ? runner.upload(*aux) : s;
  auto out = runner.blank(src.w, src.h);
  runner.run(kernel, {s, m, a, out}, P);
  return runner.read(out);
}

// An effect pass as the engine runs it: a matte given is bound with useMatte 1; aux is the source
// unless given.
struct FxRun {
  const Image* matte = nullptr;
  const Image* aux = nullptr;
  float time = 0;
};
inline Image runFx(const std::string& kernel, const Image& src, std::vector<float> p, FxRun opt = {}) {
  const bool built = KernelRunner::shared().has(kernel);
  EXPECT_TRUE(built) << kernel << " has no pipeline";
  if (!built) return Image(src.w, src.h);
  return runEffect(kernel, src, params(std::move(p), src.w, src.h, opt.matte ? 1.0f : 0.0f, opt.time), opt.matte,
                   opt.aux);
}

// "kernel(p0, p1, ...)", for failure messages.
inline std::string describe(const std::string& kernel, const std::vector<float>& p) {
  std::ostringstream s;
  s << kernel << "(";
  for (std::size_t i = 0; i < p.size(); ++i) s << (i ? ", " : "") << p[i];
  s << ")";
  return s.str();
}

// Every value within tol (relative above 1); reports the first few misses.
inline ::testing::AssertionResult matches(const Image& got, const Image& want, float tol = 1e-3f) {
  if (got.w != want.w || got.h != want.h)
    return ::testing::AssertionFailure() << "size " << got.w << "x" << got.h << ", expected " << want.w << "x"
                                         << want.h;
  int bad = 0;
  std::ostringstream out;
  for (int y = 0; y < want.h; ++y)
    for (int x = 0; x < want.w; ++x) {
      const Rgba g = got.at(x, y), e = want.at(x, y);
      const float gv[4] = {g.r, g.g, g.b, g.a}, ev[4] = {e.r, e.g, e.b, e.a};
      for (int c = 0; c < 4; ++c) {
        const float lim = std::max(tol, tol * std::fabs(ev[c]));
        if (!(std::fabs(gv[c] - ev[c]) <= lim)) {
          if (bad < 6) out << " (" << x << "," << y << ")." << "rgba"[c] << " = " << gv[c] << " expected " << ev[c] << ";";
          ++bad;
        }
      }
    }
  if (bad) return ::testing::AssertionFailure() << bad << " values off:" << out.str();
  return ::testing::AssertionSuccess();
}

}  // namespace ombrik::test
