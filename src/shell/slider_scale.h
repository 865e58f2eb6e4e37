#pragma once
// A parameter's range laid on an integer slider. A narrow range gets one tick a step (at most
// kMaxTicks). A wide one (a blur of 0 to 2000 px) would move hundreds of units per pixel of
// travel, so it follows a cubic law instead: the small values, the ones most often wanted, get
// most of the travel (half the slider reaches an eighth of the range), and the top stays in reach.
#include <algorithm>
#include <cmath>
#include <string_view>

namespace ombrik {

struct SliderScale {
  static constexpr int kMaxTicks = 1000;
  static constexpr double kWideSpan = 500;  // in the parameter's own units, and in steps
  static constexpr double kWidePower = 3;
  double min = 0, max = 1, step = 0;
  int ticks = 100;
  double power = 1;  // 1: linear

  // Angles and ranges below zero stay linear: a wheel of degrees has no "small" end.
  static bool isWide(double min, double max, double step, std::string_view unit) {
    const double span = max - min;
    return min >= 0 && span >= kWideSpan && (step <= 0 || span / step >= kWideSpan) &&
           unit.find("°") == std::string_view::npos;
  }
  static SliderScale of(double min, double max, double step, std::string_view unit = {}) {
    const double span = std::max(0.0, max - min);
    if (isWide(min, max, step, unit)) return {min, max, step, kMaxTicks, kWidePower};
    const int steps = step > 0 ? int(std::lround(span / step)) : kMaxTicks;
    return {min, max, step, std::clamp(steps, 1, kMaxTicks), 1};
  }
  int tick(double value) const {
    if (max <= min) return 0;
    const double u = std::pow(std::clamp((value - min) / (max - min), 0.0, 1.0), 1 / power);
    return int(std::lround(u * ticks));
  }
  double value(int tick) const {
    if (tick <= 0) return min;
    if (tick >= ticks) return max;
    const double v = min + (max - min) * std::pow(tick / double(ticks), power);
    if (step <= 0) return v;
    return std::min(max, min + std::round((v - min) / step) * step);  // on the parameter's steps
  }
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
