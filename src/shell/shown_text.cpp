#include "shell/shown_text.h"

#include <QStringList>

#include "platform/string_catalogue.h"

namespace ombrik {

namespace {
bool isModifier(QChar c) { return c == QChar(0x2318) || c == QChar(0x2325) || c == QChar(0x21E7) || c == QChar(0x2303); }
}  // namespace

QString linuxKeys(QString text) {
  text.replace(QChar(0x232B), QStringLiteral("Backspace"));  // ⌫
  QString out;
  out.reserve(text.size() + 16);
  for (qsizetype i = 0; i < text.size();) {
    if (!isModifier(text[i])) {
      out += text[i++];
      continue;
    }
    // A run of glyphs (⇧⌘G) is written in the Linux order, Ctrl then Alt then Shift.
    bool ctrl = false, alt = false, shift = false;
    for (; i < text.size() && isModifier(text[i]); ++i) {
      ctrl |= text[i] == QChar(0x2318) || text[i] == QChar(0x2303);
      alt |= text[i] == QChar(0x2325);
      shift |= text[i] == QChar(0x21E7);
    }
    QStringList names;
    if (ctrl) names << QStringLiteral("Ctrl");
    if (alt) names << QStringLiteral("Alt");
    if (shift) names << QStringLiteral("Shift");
    out += names.join('+');
    // Joined to the key that follows; a glyph standing alone ("⌥ : …") is just the name.
    if (i < text.size() && !text[i].isSpace()) out += '+';
  }
  return out;
}

QString menuText(QString text) { return text.replace('&', QStringLiteral("&&")); }

QString shown(std::string_view key) { return linuxKeys(QString::fromStdString(tr(key))); }

}  // namespace ombrik
