#pragma once
// Texts of the tables and messages are French source texts, which are also the catalogue keys.
#include <string>
#include <utility>
#include <vector>

namespace ombrik {

struct Localized {
  Localized() = default;
  // Not an aggregate: brace-initialised ParamSpecs would otherwise leave `verbatim` to GCC's
  // false "may be used uninitialized" warnings.
  Localized(std::string text, bool asWritten = false) : raw(std::move(text)), verbatim(asWritten) {}
  Localized(const char* text) : raw(text) {}

  std::string raw;
  bool verbatim = false;      // the user's own words (a group's name): never looked up
  std::string value() const;  // the translation in the running language, else raw
  bool operator==(const Localized&) const = default;
};

struct LocalizedList {
  std::vector<std::string> raw;
  std::vector<std::string> value() const;
  bool empty() const { return raw.empty(); }
  std::size_t size() const { return raw.size(); }
  bool operator==(const LocalizedList&) const = default;
};

}  // namespace ombrik
