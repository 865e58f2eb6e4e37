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

// Templates with text fields ("Rendu terminé : %s"): the French text's start and end find the
// English, and what lies between (a file name, a node's title) is carried over as it is. Several
// text fields are told apart by the words between them, the first place they occur; the start
// and end may hold integer fields too ("« %s » : %d éléments"). The English takes them in order.
struct TextTemplate {
  std::string before, after;         // shapes
  std::vector<std::string> between;  // the plain words between two text fields
  std::string english;
};
const std::vector<TextTemplate>& textTemplates() {
  static const auto list = [] {
    std::vector<TextTemplate> out;
    for (const auto& [key, value] : english()) {
      std::vector<std::string> pieces;
      for (std::size_t from = 0;;) {
        const auto at = key.find("%s", from);
        pieces.push_back(key.substr(from, at == std::string::npos ? std::string::npos : at - from));
        if (at == std::string::npos) break;
        from = at + 2;
      }
      if (pieces.size() < 2) continue;
      bool field = false;
      TextTemplate t{shapeOfTemplate(pieces.front(), &field), shapeOfTemplate(pieces.back(), &field), {}, value};
      t.between.assign(pieces.begin() + 1, pieces.end() - 1);
      if (std::any_of(t.between.begin(), t.between.end(), [](const std::string& w) { return w.empty(); })) continue;
      out.push_back(std::move(t));
    }
    // The most words first, so that a more precise template wins.
    auto words = [](const TextTemplate& t) {
      std::size_t n = t.before.size() + t.after.size();
      for (const auto& w : t.between) n += w.size();
      return n;
    };
    std::sort(out.begin(), out.end(), [&](const TextTemplate& a, const TextTemplate& b) { return words(a) > words(b); });
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
    const std::string_view middle = text.substr(*head, text.size() - *head - *tail);
    std::vector<std::string> fields;
    std::size_t from = 0;
    bool found = true;
    for (const auto& word : t.between) {
      const auto at = middle.find(word, from);
      if (at == std::string_view::npos) {
        found = false;
        break;
      }
      fields.emplace_back(middle.substr(from, at - from));
      from = at + word.size();
    }
    if (!found) continue;
    fields.emplace_back(middle.substr(from));
    bool any = false;
    const std::string shape = shapeOfTemplate(t.english, &any);
    std::string filled;
    std::size_t k = 0, f = 0;
    for (std::size_t i = 0; i < shape.size(); ++i) {
      if (shape.compare(i, 2, "%s") == 0 && f < fields.size()) {
        // A field that is itself a text of the catalogue (a node's title, a reason) is put in
        // English too: "Export interrompu : annulé" gives "Export stopped: cancelled".
        const auto known = english().find(fields[f]);
        filled += known != english().end() ? known->second : fields[f];
        ++f;
        ++i;
      } else if (shape[i] == kField && k < numbers.size()) {
        filled += numbers[k++];
      } else {
        filled += shape[i];
      }
    }
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
