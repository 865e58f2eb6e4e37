#include "platform/string_catalogue.h"

#include <atomic>
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
}  // namespace

void setInterfaceLanguage(AppLanguage lang) { gLanguage.store(lang); }
AppLanguage interfaceLanguage() { return static_cast<AppLanguage::Value>(gLanguage.load()); }

std::string translate(std::string_view key, AppLanguage lang) {
  if (lang == AppLanguage::english) {
    const auto& map = english();
    if (auto it = map.find(std::string(key)); it != map.end()) return it->second;
  }
  return std::string(key);
}

bool catalogueHasEnglish(std::string_view key) { return english().count(std::string(key)) > 0; }
std::size_t catalogueSize() { return english().size(); }

}  // namespace ombrik
