#pragma once
// The colour node's formula at its default settings but for the exposure, computed on the CPU:
// the reference the engine's results are compared with.
#include <algorithm>
#include <array>
#include <cmath>

namespace ombrik::test {

inline std::array<float, 3> colourAtDefaults(std::array<float, 3> c, float exposure = 0.15f) {
  // lift 0.02, gamma 1.06, gain 1, sat 0.92, temp 0.15
  for (float& v : c) {
    v *= std::pow(2.0f, exposure);
    v += 0.02f * (1 - v);
    v = std::pow(std::max(v, 0.0f), 1 / 1.06f);
  }
  c[0] += 0.15f * 0.06f;
  c[2] -= 0.15f * 0.06f;
  const float l = c[0] * 0.2126f + c[1] * 0.7152f + c[2] * 0.0722f;
  for (float& v : c) v = l + (v - l) * 0.92f;
  return c;
}

}  // namespace ombrik::test
