#pragma once
// Hand corrections over a mask track: offset keys, frame to [dx, dy] in percent of the image.
#include <map>
#include <vector>

#include "graph/point.h"

namespace ombrik {

// The offset at a frame: (0, 0) with no keys, the first key's value at or before it, the last
// key's at or after it, linear in between. Missing numbers of a key read as 0.
Point trackOffsetValue(const std::map<int, std::vector<double>>& trackOff, int frame);

}  // namespace ombrik
