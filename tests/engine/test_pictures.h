#pragma once
// Reproducible random pictures for kernel tests, without depending on <random>'s distributions,
// and the comparison of a result with its expected picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

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
