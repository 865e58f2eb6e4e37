#pragma once
// The interface language. Persisted in the user defaults under "ombrikLanguage" ("en" / "fr");
// without a valid value an installed program speaks English and a development tree French.
#include <optional>
#include <string>
#include <string_view>

namespace ombrik {

class UserDefaults;

class AppLanguage {
public:
  enum Value { english, french };

  constexpr AppLanguage(Value v) : value_(v) {}
  constexpr operator Value() const { return value_; }

  std::string code() const { return value_ == english ? "en" : "fr"; }
  static std::optional<AppLanguage> fromCode(std::string_view code);

  static AppLanguage current(const UserDefaults& defaults, bool installed);
  static AppLanguage current();  // the program's defaults and installation form

  // Writes ["<code of current>"] into "AppleLanguages", so the rest of the process follows.
  static void apply(UserDefaults& defaults, bool installed);
  static void apply();
  // Writes both "ombrikLanguage" and "AppleLanguages".
  static void choose(UserDefaults& defaults, AppLanguage lang);
  static void choose(AppLanguage lang);

private:
  Value value_;
};

}  // namespace ombrik
