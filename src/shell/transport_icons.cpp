#include "shell/transport_icons.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace ombrik {

namespace {
constexpr int kSide = 32;  // drawn large, shown at the button's icon size

// A triangle pointing right (or left) in the box x0..x1 by y0..y1.
QPainterPath triangle(double x0, double x1, double y0, double y1, bool left) {
  QPainterPath p;
  const double tip = left ? x0 : x1, base = left ? x1 : x0;
  p.moveTo(base, y0);
  p.lineTo(tip, (y0 + y1) / 2);
  p.lineTo(base, y1);
  p.closeSubpath();
  return p;
}

QPixmap draw(TransportGlyph glyph, const QColor& colour) {
  QPixmap pixmap(kSide, kSide);
  pixmap.fill(Qt::transparent);
  QPainter p(&pixmap);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(Qt::NoPen);
  p.setBrush(colour);
  const double top = 8, bottom = 24;
  switch (glyph) {
    case TransportGlyph::play: p.drawPath(triangle(10, 25, 7, 25, false)); break;
    case TransportGlyph::pause:
      p.drawRoundedRect(QRectF(9, 8, 5, 16), 1, 1);
      p.drawRoundedRect(QRectF(18, 8, 5, 16), 1, 1);
      break;
    case TransportGlyph::first:
      p.drawRect(QRectF(7, top, 3, bottom - top));
      p.drawPath(triangle(10, 18, top, bottom, true));
      p.drawPath(triangle(17, 25, top, bottom, true));
      break;
    case TransportGlyph::last:
      p.drawPath(triangle(7, 15, top, bottom, false));
      p.drawPath(triangle(14, 22, top, bottom, false));
      p.drawRect(QRectF(22, top, 3, bottom - top));
      break;
    case TransportGlyph::previous:
      p.drawRect(QRectF(9, top, 3, bottom - top));
      p.drawPath(triangle(12, 23, top, bottom, true));
      break;
    case TransportGlyph::next:
      p.drawPath(triangle(9, 20, top, bottom, false));
      p.drawRect(QRectF(20, top, 3, bottom - top));
      break;
  }
  return pixmap;
}
}  // namespace

QIcon transportIcon(TransportGlyph glyph) {
  QIcon icon;
  icon.addPixmap(draw(glyph, QColor(214, 214, 220)), QIcon::Normal);
  icon.addPixmap(draw(glyph, QColor(245, 196, 110)), QIcon::Active);  // under the pointer
  icon.addPixmap(draw(glyph, QColor(110, 110, 116)), QIcon::Disabled);
  return icon;
}

}  // namespace ombrik
