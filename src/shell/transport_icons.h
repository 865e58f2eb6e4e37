#pragma once
// The transport's glyphs, drawn light so that they read on the dark theme (the style's own media
// icons are dark grey).
#include <QIcon>

namespace ombrik {

enum class TransportGlyph { first, previous, play, pause, next, last };
QIcon transportIcon(TransportGlyph glyph);

}  // namespace ombrik
