#pragma once
// Reading stored records: a missing required field or a wrong type throws Unreadable with a short
// French reason, which the caller turns into the file's message.
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "graph/uuid.h"

namespace ombrik::jsonfields {

using json = nlohmann::json;

struct Unreadable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline const json& field(const json& o, const char* key) {
  if (!o.is_object()) throw Unreadable("objet attendu");
  auto it = o.find(key);
  if (it == o.end()) throw Unreadable(std::string("champ manquant : ") + key);
  return *it;
}
inline const json* optField(const json& o, const char* key) {
  if (!o.is_object()) throw Unreadable("objet attendu");
  auto it = o.find(key);
  return it == o.end() || it->is_null() ? nullptr : &*it;
}
inline double number(const json& v) {
  if (!v.is_number()) throw Unreadable("nombre attendu");
  return v.get<double>();
}
inline std::int64_t integer(const json& v) {
  if (v.is_number_integer()) return v.get<std::int64_t>();
  if (v.is_number_float()) {
    const double d = v.get<double>();
    if (std::isfinite(d) && d == std::trunc(d) && std::abs(d) < 9e15) return std::int64_t(d);
  }
  throw Unreadable("entier attendu");
}
inline int int32(const json& v) {
  const std::int64_t i = integer(v);
  if (i < INT32_MIN || i > INT32_MAX) throw Unreadable("entier hors limites");
  return int(i);
}
inline bool boolean(const json& v) {
  if (!v.is_boolean()) throw Unreadable("booléen attendu");
  return v.get<bool>();
}
inline const std::string& text(const json& v) {
  if (!v.is_string()) throw Unreadable("texte attendu");
  return v.get_ref<const std::string&>();
}
inline Uuid uuid(const json& v) {
  auto id = Uuid::parse(text(v));
  if (!id) throw Unreadable("identifiant illisible");
  return *id;
}
inline const json& array(const json& v) {
  if (!v.is_array()) throw Unreadable("tableau attendu");
  return v;
}
inline const json& object(const json& v) {
  if (!v.is_object()) throw Unreadable("objet attendu");
  return v;
}
inline std::vector<double> numbers(const json& v) {
  std::vector<double> out;
  for (const auto& x : array(v)) out.push_back(number(x));
  return out;
}

}  // namespace ombrik::jsonfields
