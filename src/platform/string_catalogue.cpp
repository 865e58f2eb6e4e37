#include "platform/string_catalogue.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <optional>
#include <vector>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "platform/embedded_data.h"

namespace ombrik {

namespace {
std::atomic<int> gLanguage{AppLanguage::french};

const std::unordered_map<std::string, std::string>& english() {
  static const auto table = [] {
    std::unordered_map<std::string, std::string> map;
    const auto json = nlohmann::json::parse(embeddedCatalogueEnJson());
    for (auto it = json.begin(); it != json.end(); ++it) map.emplace(it.key(), it.value().get<std::string>());
    return map;
  }();
  return table;
}

// Texts made from a template with numbers in it ("Mask %02d créé" → "Mask 02 créé") are found by
// their shape: every run of digits stands for one integer field of the template, in order.
constexpr char kField = '\x01';
std::string shapeOfTemplate(const std::string& key, bool* hasField) {
  std::string out;
  for (std::size_t i = 0; i < key.size(); ++i) {
    if (key[i] == '%') {
      std::size_t j = i + 1;
      while (j < key.size() && (std::isdigit(static_cast<unsigned char>(key[j])) || key[j] == '-')) ++j;
      if (j < key.size() && (key[j] == 'd' || key[j] == 'i')) {
        out += kField;
        *hasField = true;
        i = j;
        continue;
      }
    }
    out += key[i];
  }
  return out;
}

const std::unordered_map<std::string, std::string>& englishTemplates() {
  static const auto table = [] {
    std::unordered_map<std::string, std::string> map;
    for (const auto& [key, value] : english()) {
      bool field = false;
      std::string shape = shapeOfTemplate(key, &field);
      if (field) map.emplace(std::move(shape), value);
    }
    return map;
  }();
  return table;
}

// Templates with one text field ("Rendu terminé : %s"): the French text's start and end find the
// English, and what lies between (a file name, a node's title) is carried over as it is.
struct TextTemplate {
  std::string before, after, english;
};
const std::vector<TextTemplate>& textTemplates() {
  static const auto list = [] {
    std::vector<TextTemplate> out;
    for (const auto& [key, value] : english()) {
      const auto at = key.find("%s");
      if (at == std::string::npos || key.find("%s", at + 2) != std::string::npos) continue;
      out.push_back({key.substr(0, at), key.substr(at + 2), value});
    }
    // The longest start first, so that a more precise template wins.
    std::sort(out.begin(), out.end(), [](const TextTemplate& a, const TextTemplate& b) {
      return a.before.size() + a.after.size() > b.before.size() + b.after.size();
    });
    return out;
  }();
  return list;
}

std::optional<std::string> fromTextTemplate(std::string_view text) {
  for (const TextTemplate& t : textTemplates()) {
    if (text.size() < t.before.size() + t.after.size() || text.substr(0, t.before.size()) != t.before ||
        text.substr(text.size() - t.after.size()) != t.after)
      continue;
    const std::string field(text.substr(t.before.size(), text.size() - t.before.size() - t.after.size()));
    std::string out = t.english;
    if (auto at = out.find("%s"); at != std::string::npos) out.replace(at, 2, field);
    return out;
  }
  return std::nullopt;
}

std::optional<std::string> fromTemplate(std::string_view text) {
  std::string shape;
  std::vector<std::string> numbers;
  for (std::size_t i = 0; i < text.size();) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
      shape += text[i++];
      continue;
    }
    std::size_t j = i;
    while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j]))) ++j;
    numbers.emplace_back(text.substr(i, j - i));
    shape += kField;
    i = j;
  }
  if (numbers.empty()) return std::nullopt;
  const auto& templates = englishTemplates();
  auto it = templates.find(shape);
  if (it == templates.end()) return std::nullopt;
  // The English template's fields take the numbers as the French text wrote them.
  bool field = false;
  const std::string target = shapeOfTemplate(it->second, &field);
  std::string out;
  std::size_t k = 0;
  for (char c : target) out += (c == kField && k < numbers.size()) ? numbers[k++] : std::string(1, c);
  return out;
}
}  // namespace

void setInterfaceLanguage(AppLanguage lang) { gLanguage.store(lang); }
AppLanguage interfaceLanguage() { return static_cast<AppLanguage::Value>(gLanguage.load()); }

std::string translate(std::string_view key, AppLanguage lang) {
  if (lang == AppLanguage::english) {
    const auto& map = english();
    if (auto it = map.find(std::string(key)); it != map.end()) return it->second;
    if (auto made = fromTemplate(key)) return *made;
    if (auto made = fromTextTemplate(key)) return *made;
  }
  return std::string(key);
}

bool catalogueHasEnglish(std::string_view key) { return english().count(std::string(key)) > 0; }
std::size_t catalogueSize() { return english().size(); }

}  // namespace ombrik
