#include "document/play_state.h"

#include <algorithm>
#include <cmath>

namespace ombrik {

double playCacheBytes(double physicalBytes, double boostPercent) {
  const double ram = physicalBytes / 1e9;
  const double share = boostPercent > 0 ? boostPercent / 100 : 0.6;
  return std::clamp(ram * share - 6, 1.0, 40.0) * 1e9;
}

PlayCacheSize playCacheSize(int w, int h, int frames, int maxSide, double budget) {
  w = std::max(1, w);
  h = std::max(1, h);
  const double longSide = std::max(w, h);
  const double limit = maxSide > 0 ? maxSide : longSide;
  double s = std::min(limit / longSide, 1.0);
  const double wanted = s * s * double(w) * h * std::max(1, frames) * 4;
  if (budget < wanted) s *= std::sqrt(budget / wanted);  // every frame fits, at a lower resolution
  return {std::max(16, int(std::floor(w * s))), std::max(16, int(std::floor(h * s)))};
}

}  // namespace ombrik
