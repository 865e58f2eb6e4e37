#pragma once
// The Vitesse node's time map: which source time each output frame shows, and the signature that
// tells whether a computed retime.mov still matches it.
#include <functional>
#include <string>
#include <vector>

namespace ombrik {

struct RetimeParams {
  double mode = 0;  // at or below 0.5: by speed; above: by source frame
  // The animated parameters, read at an output frame: "speed" in percent, "src" in source frames.
  std::function<double(int)> speedAt;
  std::function<double(int)> srcAt;
  int n = 1;         // the source's frame count (1 at least)
  double start = 0;  // the source time of the first output frame, by speed
};

// By speed: from max(start, 0), each output frame advances by speed / 100 (0.01 at least) while the
// time stays within the source, for 40·n output frames at most. By source frame: n output frames,
// each the animated source frame clamped to 0..n-1.
std::vector<double> retimeMap(const RetimeParams& params);
// The map's values as "%.4f" and the source: equal signatures mean the same retime.
std::string retimeSig(const std::vector<double>& map, const std::string& source);

}  // namespace ombrik
