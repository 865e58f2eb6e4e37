#pragma once
// Reproducible random pictures for kernel tests, without depending on <random>'s distributions.
#include <cstdint>

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

}  // namespace ombrik::test
