#pragma once
// IEEE half floats, the storage of every working texture.
#include <cstdint>

namespace ombrik {

std::uint16_t floatToHalf(float v);  // round to nearest even; overflow to infinity
float halfToFloat(std::uint16_t h);

}  // namespace ombrik
