#include "ai/retime_map.h"

#include <algorithm>

#include "ai/fixed_text.h"

namespace ombrik {

std::vector<double> retimeMap(const RetimeParams& p) {
  const int n = std::max(p.n, 1);
  std::vector<double> map;
  if (p.mode <= 0.5) {
    const std::size_t cap = std::size_t(40) * n;
    for (double t = std::max(p.start, 0.0); t <= n - 1 + 1e-6 && map.size() < cap;) {
      map.push_back(t);
      const double speed = p.speedAt ? p.speedAt(int(map.size()) - 1) : 100.0;
      t += std::max(speed / 100, 0.01);  // a speed of 0 still moves on, so the map ends
    }
  } else {
    for (int f = 0; f < n; ++f) map.push_back(std::clamp(p.srcAt ? p.srcAt(f) : double(f), 0.0, double(n - 1)));
  }
  return map;
}

std::string retimeSig(const std::vector<double>& map, const std::string& source) {
  std::string sig = source + "|";
  for (std::size_t i = 0; i < map.size(); ++i) {
    if (i) sig += ',';
    sig += fixedText(map[i], 4);
  }
  return sig;
}

}  // namespace ombrik
