#include "platform/app_language.h"

#include "platform/app_paths.h"
#include "platform/user_defaults.h"

namespace ombrik {

namespace {
constexpr const char* kLanguageKey = "ombrikLanguage";
constexpr const char* kPlatformLanguagesKey = "AppleLanguages";
}  // namespace

std::optional<AppLanguage> AppLanguage::fromCode(std::string_view code) {
  if (code == "en") return AppLanguage(english);
  if (code == "fr") return AppLanguage(french);
  return std::nullopt;
}

AppLanguage AppLanguage::current(const UserDefaults& defaults, bool installed) {
  if (auto stored = defaults.string(kLanguageKey))
    if (auto lang = fromCode(*stored)) return *lang;
  return installed ? english : french;
}

AppLanguage AppLanguage::current() {
  UserDefaults defaults;
  return current(defaults, AppPaths::shared().isBundled);
}

void AppLanguage::apply(UserDefaults& defaults, bool installed) {
  defaults.set(kPlatformLanguagesKey, std::vector<std::string>{current(defaults, installed).code()});
}

void AppLanguage::apply() {
  UserDefaults defaults;
  apply(defaults, AppPaths::shared().isBundled);
}

void AppLanguage::choose(UserDefaults& defaults, AppLanguage lang) {
  defaults.set(kLanguageKey, lang.code());
  defaults.set(kPlatformLanguagesKey, std::vector<std::string>{lang.code()});
}

void AppLanguage::choose(AppLanguage lang) {
  UserDefaults defaults;
  choose(defaults, lang);
}

}  // namespace ombrik
