#include "tracking/track_offset.h"

#include <algorithm>

namespace ombrik {

namespace {
Point valueOf(const std::vector<double>& v) { return {v.size() > 0 ? v[0] : 0.0, v.size() > 1 ? v[1] : 0.0}; }
}  // namespace

Point trackOffsetValue(const std::map<int, std::vector<double>>& trackOff, int frame) {
  if (trackOff.empty()) return {};
  if (frame <= trackOff.begin()->first) return valueOf(trackOff.begin()->second);
  if (frame >= trackOff.rbegin()->first) return valueOf(trackOff.rbegin()->second);
  const auto b = trackOff.upper_bound(frame), a = std::prev(b);
  const double t = double(frame - a->first) / std::max(b->first - a->first, 1);
  const Point pa = valueOf(a->second), pb = valueOf(b->second);
  return {pa.x + (pb.x - pa.x) * t, pa.y + (pb.y - pa.y) * t};
}

}  // namespace ombrik
