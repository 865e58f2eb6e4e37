#include "platform/natural_order.h"

#include <cctype>

namespace ombrik {

namespace {
bool digit(char c) { return c >= '0' && c <= '9'; }
}  // namespace

bool naturalLess(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (digit(a[i]) && digit(b[j])) {
      std::size_t ei = i, ej = j;
      while (ei < a.size() && digit(a[ei])) ++ei;
      while (ej < b.size() && digit(b[ej])) ++ej;
      std::string_view x = a.substr(i, ei - i), y = b.substr(j, ej - j);
      while (x.size() > 1 && x.front() == '0') x.remove_prefix(1);
      while (y.size() > 1 && y.front() == '0') y.remove_prefix(1);
      if (x.size() != y.size()) return x.size() < y.size();
      if (x != y) return x < y;
      i = ei;
      j = ej;
      continue;
    }
    const int ca = std::tolower(static_cast<unsigned char>(a[i])), cb = std::tolower(static_cast<unsigned char>(b[j]));
    if (ca != cb) return ca < cb;
    ++i;
    ++j;
  }
  return a.size() - i < b.size() - j;
}

}  // namespace ombrik
