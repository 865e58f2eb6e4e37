#pragma once
// Lookups in the frame-keyed maps of a track (track, planarH, trackOff, pins).
#include <cstdlib>
#include <map>

namespace ombrik {

// The entry at `frame`, else the one nearest to it (the earlier one on a tie); null when empty.
template <class V>
const V* nearestKey(const std::map<int, V>& keys, int frame) {
  if (keys.empty()) return nullptr;
  auto after = keys.lower_bound(frame);
  if (after == keys.end()) return &std::prev(after)->second;
  if (after->first == frame || after == keys.begin()) return &after->second;
  auto before = std::prev(after);
  return std::abs(frame - before->first) <= std::abs(after->first - frame) ? &before->second : &after->second;
}

}  // namespace ombrik
