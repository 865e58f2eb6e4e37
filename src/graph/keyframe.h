#pragma once
#include <cstdint>

namespace ombrik {

// How the segment that leaves a key runs to the next key.
enum class KeyInterp { linear = 0, bezier = 1, hold = 2 };

struct Keyframe {
  std::int64_t f = 0;  // frame on the world's axis
  double v = 0;
  KeyInterp interp = KeyInterp::linear;
  double inInf = 1.0 / 3.0;
  double inSlope = 0;
  double outInf = 1.0 / 3.0;
  double outSlope = 0;
  bool operator==(const Keyframe&) const = default;
};

}  // namespace ombrik
