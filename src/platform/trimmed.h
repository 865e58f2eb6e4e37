#pragma once
// Text without the blanks around it: names typed by the user are kept this way.
#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

namespace ombrik {

inline std::string trimmed(std::string_view s) {
  auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
  const auto first = std::find_if_not(s.begin(), s.end(), blank);
  const auto last = std::find_if_not(s.rbegin(), s.rend(), blank).base();
  return first < last ? std::string(first, last) : std::string();
}

}  // namespace ombrik
