#pragma once
// Qt's own texts (standard buttons, the file and colour dialogs) in the interface's language,
// from the translations Qt installs beside itself.
#include "platform/app_language.h"

namespace ombrik {

// Replaces the Qt translation installed before, if any. False when the language needs one that
// isn't installed (English needs none: Qt speaks it).
bool useQtTranslations(AppLanguage lang);

}  // namespace ombrik
