#include <gtest/gtest.h>

#include "platform/natural_order.h"

using namespace ombrik;

TEST(NaturalOrder, NumbersCompareAsNumbersAndCaseIsIgnored) {
  const std::pair<const char*, const char*> ordered[] = {
      {"shot2", "shot10"}, {"a9b", "a10a"}, {"Plan", "plan2"}, {"007", "8"}, {"x", "x1"}, {"B", "c"}, {"a2", "a02b"},
  };
  for (auto [less, more] : ordered) {
    EXPECT_TRUE(naturalLess(less, more)) << less << " < " << more;
    EXPECT_FALSE(naturalLess(more, less)) << more << " < " << less;
  }
  EXPECT_FALSE(naturalLess("same", "same"));
}
