#pragma once
// A number with a fixed count of decimals, always with a point: printf would follow LC_NUMERIC,
// which the desktop sets from the user's locale ("0,80" in French), and signatures compared
// across runs must not change with it.
#include <charconv>
#include <string>

namespace ombrik {

inline std::string fixedText(double v, int decimals) {
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, decimals);
  return r.ec == std::errc() ? std::string(buf, r.ptr) : std::string("0");
}

}  // namespace ombrik
