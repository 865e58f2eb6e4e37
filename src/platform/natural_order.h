#pragma once
// Names in the order people expect, whatever the locale: runs of digits compare as numbers
// ("shot2" before "shot10"), letters without regard to ASCII case.
#include <string_view>

namespace ombrik {

bool naturalLess(std::string_view a, std::string_view b);

}  // namespace ombrik
