#pragma once
// A parameter's range laid on an integer slider: one tick a step, at most kMaxTicks ticks, so a
// fine step over a wide range still gives a usable slider.
#include <algorithm>
#include <cmath>

namespace ombrik {

struct SliderScale {
  static constexpr int kMaxTicks = 1000;
  double min = 0, max = 1;
  int ticks = 100;

  static SliderScale of(double min, double max, double step) {
    const double span = std::max(0.0, max - min);
    const int steps = step > 0 ? int(std::lround(span / step)) : kMaxTicks;
    return {min, max, std::clamp(steps, 1, kMaxTicks)};
  }
  int tick(double value) const {
    if (max <= min) return 0;
    return int(std::lround(std::clamp((value - min) / (max - min), 0.0, 1.0) * ticks));
  }
  double value(int tick) const { return min + (max - min) * std::clamp(tick, 0, ticks) / double(ticks); }
};

// Decimals that show a step exactly: 0.05 → 2, 0.5 → 1, 1 → 0; at most 4.
inline int decimalsFor(double step) {
  if (step <= 0) return 2;
  for (int d = 0; d < 4; ++d) {
    const double scaled = step * std::pow(10.0, d);
    if (std::abs(scaled - std::round(scaled)) < 1e-6) return d;
  }
  return 4;
}

}  // namespace ombrik
