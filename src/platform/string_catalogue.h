#pragma once
// The string catalogue: French source text (the key) -> English text.
// A lookup that finds nothing gives the key back, so French is always the fallback.
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/app_language.h"

namespace ombrik {

// The language the process shows; chosen once at start. French until then.
void setInterfaceLanguage(AppLanguage lang);
AppLanguage interfaceLanguage();

std::string translate(std::string_view key, AppLanguage lang);
inline std::string tr(std::string_view key) { return translate(key, interfaceLanguage()); }

bool catalogueHasEnglish(std::string_view key);
std::size_t catalogueSize();

}  // namespace ombrik
