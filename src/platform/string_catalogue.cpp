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
// English, and what lies between (a file name, a node's title) is carried over as it is. The start
// and end may hold integer fields too ("« %s » : %d éléments"); the English takes them in order.
struct TextTemplate {
  std::string before, after, english;  // before and after as shapes
};
const std::vector<TextTemplate>& textTemplates() {
  static const auto list = [] {
    std::vector<TextTemplate> out;
    for (const auto& [key, value] : english()) {
      const auto at = key.find("%s");
      if (at == std::string::npos || key.find("%s", at + 2) != std::string::npos) continue;
      bool field = false;
      out.push_back({shapeOfTemplate(key.substr(0, at), &field), shapeOfTemplate(key.substr(at + 2), &field), value});
    }
    // The longest start first, so that a more precise template wins.
    std::sort(out.begin(), out.end(), [](const TextTemplate& a, const TextTemplate& b) {
      return a.before.size() + a.after.size() > b.before.size() + b.after.size();
    });
    return out;
  }();
  return list;
}

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// How many characters of `text`, from its start (or its end, backwards), the shape takes; the
// numbers its fields met are appended in the text's order.
std::optional<std::size_t> matchShape(std::string_view text, const std::string& shape, bool fromEnd,
                                      std::vector<std::string>& numbers) {
  std::vector<std::string> found;
  std::size_t used = 0;
  const std::size_t n = text.size();
  auto at = [&](std::size_t k) { return fromEnd ? text[n - 1 - k] : text[k]; };
  for (std::size_t i = 0; i < shape.size(); ++i) {
    const char c = fromEnd ? shape[shape.size() - 1 - i] : shape[i];
    if (c != kField) {
      if (used >= n || at(used) != c) return std::nullopt;
      ++used;
      continue;
    }
    const std::size_t from = used;
    while (used < n && isDigit(at(used))) ++used;
    if (used == from) return std::nullopt;
    std::string number(text.substr(fromEnd ? n - used : from, used - from));
    if (fromEnd) found.insert(found.begin(), std::move(number));
    else found.push_back(std::move(number));
  }
  numbers.insert(numbers.end(), found.begin(), found.end());
  return used;
}

std::optional<std::string> fromTextTemplate(std::string_view text) {
  for (const TextTemplate& t : textTemplates()) {
    std::vector<std::string> numbers;
    const auto head = matchShape(text, t.before, false, numbers);
    if (!head) continue;
    const auto tail = matchShape(text.substr(*head), t.after, true, numbers);
    if (!tail) continue;
    const std::string field(text.substr(*head, text.size() - *head - *tail));
    bool any = false;
    std::string out = shapeOfTemplate(t.english, &any);
    if (auto at = out.find("%s"); at != std::string::npos) out.replace(at, 2, field);
    std::string filled;
    std::size_t k = 0;
    for (char c : out) filled += (c == kField && k < numbers.size()) ? numbers[k++] : std::string(1, c);
    return filled;
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
