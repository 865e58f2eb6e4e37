#pragma once
// Round numbers for an axis: the labels of the curve editor's frames and values fall on steps of
// 1, 2 or 5 times a power of ten, the smallest such step that keeps labels apart.
#include <algorithm>
#include <cmath>
#include <vector>

namespace ombrik {

struct AxisTicks {
  double step = 1;
  int decimals = 0;  // enough to tell two neighbouring labels apart
  std::vector<double> values;

  // The ticks between lo and hi (both included) whose step is at least `minStep`.
  static AxisTicks of(double lo, double hi, double minStep) {
    AxisTicks t;
    if (!(hi >= lo) || !(minStep > 0) || !std::isfinite(hi - lo)) return t;
    const double power = std::pow(10.0, std::floor(std::log10(minStep)));
    t.step = 10 * power;
    for (double m : {1.0, 2.0, 5.0})
      if (m * power >= minStep * (1 - 1e-9)) {
        t.step = m * power;
        break;
      }
    t.decimals = std::max(0, int(-std::floor(std::log10(t.step) + 1e-9)));
    const double first = std::ceil(lo / t.step - 1e-9);
    for (double i = first; i * t.step <= hi + t.step * 1e-9 && t.values.size() < 1000; ++i)
      t.values.push_back(std::abs(i) < 1e-12 ? 0.0 : i * t.step);
    return t;
  }
};

}  // namespace ombrik
