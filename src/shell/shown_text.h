#pragma once
// Texts as the desktop shows them: the catalogue's translation of a French source text, with the
// key glyphs of the source texts written the way Linux keyboards name them.
#include <QString>
#include <string>
#include <string_view>

namespace ombrik {

// ⇧⌘G → "Ctrl+Shift+G", "⌥ + clic" → "Alt + clic", ⌫ → "Backspace". The catalogue keys keep the glyphs.
QString linuxKeys(QString text);
// The translation in the running language, glyphs rewritten.
QString shown(std::string_view key);
inline QString qs(const std::string& s) { return QString::fromStdString(s); }
// A menu entry's text shown as written: Qt reads a lone "&" there as the mark of a shortcut
// letter and hides it ("Peau & beauté" would read "Peau _beauté").
QString menuText(QString text);
inline QString menuText(const std::string& s) { return menuText(qs(s)); }

}  // namespace ombrik
