#include "engine/half_float.h"

#include <cstring>

namespace ombrik {

std::uint16_t floatToHalf(float v) {
  std::uint32_t x;
  std::memcpy(&x, &v, 4);
  const std::uint32_t sign = (x >> 16) & 0x8000u;
  const std::uint32_t absx = x & 0x7FFFFFFFu;
  if (absx >= 0x7F800000u) return std::uint16_t(sign | 0x7C00u | (absx > 0x7F800000u ? 0x200u : 0));  // inf / nan
  if (absx >= 0x477FF000u) return std::uint16_t(sign | 0x7C00u);  // rounds past the largest half
  if (absx < 0x38800000u) {  // subnormal half (or zero)
    if (absx < 0x33000000u) return std::uint16_t(sign);
    const std::uint32_t mant = (absx & 0x7FFFFFu) | 0x800000u;
    const int shift = 126 - int(absx >> 23);  // 14..24
    std::uint32_t h = mant >> shift;
    const std::uint32_t rest = mant & ((1u << shift) - 1);
    const std::uint32_t halfway = 1u << (shift - 1);
    if (rest > halfway || (rest == halfway && (h & 1))) ++h;
    return std::uint16_t(sign | h);
  }
  std::uint32_t h = ((absx - 0x38000000u) >> 13);
  const std::uint32_t rest = absx & 0x1FFFu;
  if (rest > 0x1000u || (rest == 0x1000u && (h & 1))) ++h;
  return std::uint16_t(sign | h);
}

float halfToFloat(std::uint16_t h) {
  const std::uint32_t sign = std::uint32_t(h & 0x8000u) << 16;
  const std::uint32_t exp = (h >> 10) & 0x1Fu;
  std::uint32_t mant = h & 0x3FFu;
  std::uint32_t x;
  if (exp == 0) {
    if (mant == 0) x = sign;
    else {  // subnormal: normalise
      int e = -1;
      do {
        ++e;
        mant <<= 1;
      } while (!(mant & 0x400u));
      x = sign | (std::uint32_t(127 - 15 - e) << 23) | ((mant & 0x3FFu) << 13);
    }
  } else if (exp == 31) {
    x = sign | 0x7F800000u | (mant << 13);
  } else {
    x = sign | ((exp + 112) << 23) | (mant << 13);
  }
  float v;
  std::memcpy(&v, &x, 4);
  return v;
}

}  // namespace ombrik
