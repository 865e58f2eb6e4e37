#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "engine/half_float.h"

using namespace ombrik;

TEST(HalfFloat, ExactValuesRoundTripAndOthersRoundToNearestEven) {
  for (float v : {0.0f, 1.0f, -2.0f, 0.5f, 65504.0f, 0.099975586f, 6.1035156e-05f /* smallest normal */,
                  5.9604645e-08f /* smallest subnormal */})
    EXPECT_EQ(halfToFloat(floatToHalf(v)), v) << v;
  const std::pair<float, std::uint16_t> bits[] = {
      {1.0f, 0x3C00}, {-2.0f, 0xC000}, {65504.0f, 0x7BFF}, {0.1f, 0x2E66},
      // 1 + 2^-11 lies halfway between 1 and the next half (1 + 2^-10): ties go to the even one.
      {1.0f + std::ldexp(1.0f, -11), 0x3C00}, {1.0f + 3 * std::ldexp(1.0f, -11), 0x3C02},
      {1.0f + std::ldexp(1.0f, -11) + std::ldexp(1.0f, -20), 0x3C01},
      {1e6f, 0x7C00}, {-1e6f, 0xFC00}, {1e-9f, 0x0000}};  // overflow: infinity; underflow: zero
  for (auto [f, h] : bits) EXPECT_EQ(floatToHalf(f), h) << f;
  EXPECT_TRUE(std::isnan(halfToFloat(floatToHalf(std::numeric_limits<float>::quiet_NaN()))));
  EXPECT_EQ(halfToFloat(0x0001), 5.9604645e-08f);
  EXPECT_EQ(halfToFloat(0x03FF), 6.0975552e-05f);
}
