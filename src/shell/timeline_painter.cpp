#include "shell/timeline_painter.h"

#include <QFontMetricsF>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "document/app_model.h"
#include "document/world_list.h"
#include "shell/shown_text.h"

namespace ombrik::tlview {

namespace {
const QColor kBackground(30, 30, 34);
const QColor kRowEven(36, 36, 41), kRowOdd(40, 40, 46);
const QColor kHeader(46, 46, 53), kHeaderSelected(58, 62, 76);
const QColor kRuler(44, 44, 50), kTick(120, 120, 130), kTickText(176, 176, 186);
const QColor kWorldBar(64, 104, 164), kMediaBar(58, 128, 100);
const QColor kSelected(255, 190, 80);
const QColor kPlayhead(240, 84, 64);
const QColor kPastEnd(0, 0, 0, 70);
const QColor kText(222, 222, 228), kDimText(140, 140, 150);
constexpr double kThumbWidth = 64;  // 16:9 in a bar 36 high
constexpr double kBarInset = 5;
const char* const kBlendNames[] = {"Normal", "Add", "Screen", "Multiply"};

// Frames between labelled ticks: whole frames up close, then seconds and minutes.
int majorStep(double ppf, double fps) {
  const int r = std::max(1, int(std::lround(fps)));
  const int steps[] = {1, 2, 5, 10, r, 2 * r, 5 * r, 10 * r, 15 * r, 30 * r, 60 * r, 120 * r, 300 * r, 600 * r, 1800 * r, 3600 * r};
  for (int s : steps)
    if (s * ppf >= 90) return s;
  return 3600 * r * int(std::ceil(90 / (3600 * r * ppf)));
}

// The picture a layer shows at its left: the media's thumbnail or poster, or the world's own.
const Picture* layerPicture(const AppModel& m, const TLayer& l) {
  auto mediaPicture = [&](const Uuid& id) -> const Picture* {
    auto it = std::find_if(m._media.begin(), m._media.end(), [&](const MediaItem& x) { return x.id == id; });
    if (it == m._media.end()) return nullptr;
    if (it->thumb && it->thumb->rgba) return &*it->thumb;
    return it->poster && it->poster->rgba ? &*it->poster : nullptr;
  };
  if (!l.source.isBatch()) return mediaPicture(l.source.id);
  const Batch* world = worldlist::find(m._batches, l.source.id);
  if (!world) return nullptr;
  if (world->thumb && world->thumb->rgba) return &*world->thumb;
  return world->mediaID ? mediaPicture(*world->mediaID) : nullptr;
}

// The picture covering `r`, cropped to it (no copy of the bytes).
void paintPicture(QPainter& p, const Picture& picture, const QRectF& r) {
  if (picture.width <= 0 || picture.height <= 0) return;
  const QImage image(picture.rgba->data(), picture.width, picture.height, picture.width * 4, QImage::Format_RGBA8888);
  const double s = std::max(r.width() / picture.width, r.height() / picture.height);
  const QSizeF size(picture.width * s, picture.height * s);
  p.save();
  p.setClipRect(r, Qt::IntersectClip);
  p.setRenderHint(QPainter::SmoothPixmapTransform);
  p.drawImage(QRectF(r.center() - QPointF(size.width() / 2, size.height() / 2), size), image);
  p.restore();
}

void paintRuler(QPainter& p, const TimelineScene& s) {
  const Geometry& g = s.g;
  const double w = g.size.width();
  p.fillRect(QRectF(kHeaderWidth, 0, w - kHeaderWidth, kRulerHeight), kRuler);
  const double ppf = g.view.pixelsPerFrame;
  const int major = majorStep(ppf, s.timeline.fps);
  int minor = 0;
  for (int d : {10, 5, 4, 2})
    if (major % d == 0 && major / d * ppf >= 6) {
      minor = major / d;
      break;
    }
  const int first = std::max(0, g.frameAt(kHeaderWidth));
  const int last = g.frameAt(w) + 1;
  QFont font = p.font();
  font.setPixelSize(10);
  p.setFont(font);
  const int step = minor ? minor : major;
  for (int f = first / step * step; f <= last; f += step) {
    const double x = std::round(g.x(f)) + 0.5;
    if (x < kHeaderWidth) continue;
    const bool labelled = f % major == 0;
    p.setPen(kTick);
    p.drawLine(QPointF(x, kRulerHeight - (labelled ? 12 : 5)), QPointF(x, kRulerHeight));
    if (labelled && x + 66 <= w) {  // a label cut by the edge reads as another time
      p.setPen(kTickText);
      p.drawText(QPointF(x + 3, 11), timecode(f, s.timeline.fps));
    }
  }
  p.setPen(kTick);
  p.drawLine(QPointF(kHeaderWidth, kRulerHeight - 0.5), QPointF(w, kRulerHeight - 0.5));
}

// Over the headers: the timeline's name and the import button (the transport shows the time).
void paintCorner(QPainter& p, const TimelineScene& s) {
  const Geometry& g = s.g;
  p.fillRect(QRectF(0, 0, kHeaderWidth, kRulerHeight), kHeader);
  const QRectF b = g.importButton();
  QFont font = p.font();
  font.setPixelSize(12);
  font.setBold(true);
  p.setFont(font);
  p.setPen(kText);
  const QRectF name(8, 0, b.left() - 14, kRulerHeight);
  p.drawText(name, Qt::AlignVCenter | Qt::AlignLeft,
             QFontMetricsF(font).elidedText(qs(s.timeline.name), Qt::ElideRight, name.width()));
  font.setBold(false);
  font.setPixelSize(11);
  p.setFont(font);
  p.setPen(QColor(90, 90, 100));
  p.setBrush(QColor(62, 62, 72));
  p.drawRoundedRect(b, 3, 3);
  p.setPen(kText);
  p.drawText(b, Qt::AlignCenter, QFontMetricsF(font).elidedText(shown("Importer"), Qt::ElideRight, b.width() - 4));
  p.setPen(kTick);
  p.drawLine(QPointF(kHeaderWidth - 0.5, 0), QPointF(kHeaderWidth - 0.5, kRulerHeight));
}

void paintHeader(QPainter& p, const TimelineScene& s, const TLayer& l, int row, bool selected) {
  const Geometry& g = s.g;
  const double top = g.rowTop(row);
  p.fillRect(QRectF(0, top, kHeaderWidth, kRowHeight), selected ? kHeaderSelected : kHeader);
  QFont font = p.font();
  font.setPixelSize(12);
  font.setBold(true);
  p.setFont(font);
  p.setPen(l.enabled ? kText : kDimText);
  const QRectF name = g.nameArea(row);
  p.drawText(name, Qt::AlignVCenter | Qt::AlignLeft, QFontMetricsF(font).elidedText(qs(l.name), Qt::ElideRight, name.width()));
  font.setBold(false);
  font.setPixelSize(10);
  p.setFont(font);
  QStringList fx;
  for (const Node& n : s.model.layerEffects(l)) fx << qs(n.title());
  if (!fx.isEmpty()) {
    p.setPen(QColor(150, 180, 230));
    const QRectF e = g.effectsArea(row);
    p.drawText(e, Qt::AlignVCenter | Qt::AlignLeft,
               QFontMetricsF(font).elidedText("fx · " + fx.join(" · "), Qt::ElideRight, e.width()));
  }
  // The blend mode as a small menu button.
  const QRectF b = g.blendBox(row);
  p.setPen(QColor(90, 90, 100));
  p.setBrush(QColor(60, 60, 68));
  p.drawRoundedRect(b, 3, 3);
  p.setPen(kText);
  const int blend = std::clamp(l.blend, 0, 3);
  p.drawText(b.adjusted(5, 0, -12, 0), Qt::AlignVCenter | Qt::AlignLeft, shown(kBlendNames[blend]));
  p.drawText(b.adjusted(0, 0, -4, 0), Qt::AlignVCenter | Qt::AlignRight, QStringLiteral("▾"));
  // The opacity: a track filled up to the value, with a knob.
  const QRectF o = g.opacitySlider(row);
  const double v = std::clamp(l.opacity, 0.0, 1.0);
  const double mid = o.center().y();
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(70, 70, 80));
  p.drawRoundedRect(QRectF(o.left(), mid - 2, o.width(), 4), 2, 2);
  p.setBrush(QColor(150, 150, 165));
  p.drawRoundedRect(QRectF(o.left(), mid - 2, o.width() * v, 4), 2, 2);
  p.setBrush(kText);
  p.drawEllipse(QPointF(o.left() + o.width() * v, mid), 4.5, 4.5);
  p.setPen(kDimText);
  p.drawText(QRectF(o.left() - 34, o.top() - 3, 30, o.height() + 6), Qt::AlignVCenter | Qt::AlignRight,
             QString::number(int(std::lround(v * 100))) + " %");
  p.setPen(QColor(24, 24, 28));
  p.drawLine(QPointF(0, top + kRowHeight - 0.5), QPointF(kHeaderWidth, top + kRowHeight - 0.5));
}

void paintBar(QPainter& p, const TimelineScene& s, const TLayer& l, int row, bool selected) {
  const Geometry& g = s.g;
  QRectF bar = g.bar(l, row);
  if (bar.width() < 2) bar.setWidth(2);
  QColor fill = l.source.isBatch() ? kWorldBar : kMediaBar;
  if (!l.enabled) fill = QColor(fill.red() / 2 + 30, fill.green() / 2 + 30, fill.blue() / 2 + 30, 110);
  p.setPen(Qt::NoPen);
  p.setBrush(fill);
  p.drawRoundedRect(bar, 4, 4);
  p.save();
  p.setClipRect(bar.adjusted(1, 1, -1, -1), Qt::IntersectClip);
  double textLeft = bar.left() + 6;
  if (bar.width() > 24)
    if (const Picture* picture = layerPicture(s.model, l)) {
      const QRectF thumb(bar.left() + 2, bar.top() + 2, kThumbWidth, bar.height() - 4);
      p.setOpacity(l.enabled ? 1 : 0.4);
      paintPicture(p, *picture, thumb);
      p.setOpacity(1);
      textLeft = thumb.right() + 6;
    }
  QFont font = p.font();
  font.setPixelSize(11);
  p.setFont(font);
  p.setPen(l.enabled ? kText : kDimText);
  const QRectF text(textLeft, bar.top(), bar.right() - textLeft - 6, bar.height());
  if (text.width() > 12)
    p.drawText(text, Qt::AlignVCenter | Qt::AlignLeft, QFontMetricsF(font).elidedText(qs(l.name), Qt::ElideRight, text.width()));
  // Grips at both ends: the edges trim.
  p.setPen(QPen(QColor(255, 255, 255, l.enabled ? 70 : 35), 1));
  for (double x : {bar.left() + 3.5, bar.right() - 3.5})
    if (bar.width() > 20) p.drawLine(QPointF(x, bar.top() + 10), QPointF(x, bar.bottom() - 10));
  p.restore();
  if (selected) {
    p.setPen(QPen(kSelected, 2));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(bar.adjusted(1, 1, -1, -1), 4, 4);
  }
}
}  // namespace

QString timecode(int frame, double fps) {
  const int r = std::max(1, int(std::lround(fps)));
  const int f = std::max(frame, 0);
  char text[48];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d:%02d", f / (r * 3600), f / (r * 60) % 60, f / r % 60, f % r);
  return QString::fromLatin1(text);
}

int Geometry::frameAt(double px) const {
  return int(std::floor((px - kHeaderWidth + view.scrollX) / view.pixelsPerFrame));
}

int Geometry::rowAt(double py) const {
  if (py < kRulerHeight) return -1;
  return int(std::floor((py - kRulerHeight + view.scrollY) / kRowHeight));
}

std::pair<int, int> Geometry::visibleRows(int count) const {
  const int first = std::clamp(int(std::floor(view.scrollY / kRowHeight)), 0, count);
  const int last = std::clamp(int(std::ceil((view.scrollY + size.height() - kRulerHeight) / kRowHeight)), first, count);
  return {first, last};
}

QRectF Geometry::bar(const TLayer& layer, int row) const {
  return QRectF(x(layer.start), rowTop(row) + kBarInset, layer.length * view.pixelsPerFrame, kRowHeight - 2 * kBarInset);
}

QRectF Geometry::nameArea(int row) const { return QRectF(10, rowTop(row) + 4, kHeaderWidth - 104, 18); }
QRectF Geometry::effectsArea(int row) const { return QRectF(10, rowTop(row) + 24, kHeaderWidth - 150, 16); }
QRectF Geometry::blendBox(int row) const { return QRectF(kHeaderWidth - 90, rowTop(row) + 5, 82, 17); }
QRectF Geometry::opacitySlider(int row) const { return QRectF(kHeaderWidth - 86, rowTop(row) + 27, 74, 12); }
QRectF Geometry::importButton() const { return QRectF(kHeaderWidth - 66, 4, 60, kRulerHeight - 8); }

double Geometry::maxScrollY(int rows) const {
  return std::max(0.0, rows * double(kRowHeight) + kRowHeight - (size.height() - kRulerHeight));
}

void paintTimeline(QPainter& p, const TimelineScene& s) {
  const Geometry& g = s.g;
  const Timeline& t = s.timeline;
  const double w = g.size.width(), h = g.size.height();
  p.fillRect(QRectF(0, 0, w, h), kBackground);
  const auto [first, last] = g.visibleRows(int(t.layers.size()));
  p.save();
  p.setClipRect(QRectF(0, kRulerHeight, w, h - kRulerHeight));
  for (int i = first; i < last; ++i) {
    const TLayer& l = t.layers[std::size_t(i)];
    const bool selected = s.selection.count(l.id) > 0;
    p.fillRect(QRectF(kHeaderWidth, g.rowTop(i), w - kHeaderWidth, kRowHeight), i % 2 ? kRowOdd : kRowEven);
    p.save();
    p.setClipRect(QRectF(kHeaderWidth, kRulerHeight, w - kHeaderWidth, h - kRulerHeight), Qt::IntersectClip);
    paintBar(p, s, l, i, selected);
    p.restore();
    paintHeader(p, s, l, i, selected);
  }
  if (last == int(t.layers.size())) p.fillRect(QRectF(0, g.rowTop(last), kHeaderWidth, h), kHeader.darker(115));
  // Past the end of the timeline, shaded.
  const double end = std::max<double>(g.x(t.duration()), kHeaderWidth);
  if (end < w) {
    p.fillRect(QRectF(end, kRulerHeight, w - end, h - kRulerHeight), kPastEnd);
    p.setPen(QPen(kTick, 1, Qt::DashLine));
    p.drawLine(QPointF(end, kRulerHeight), QPointF(end, h));
  }
  p.restore();
  paintRuler(p, s);
  paintCorner(p, s);
  // The playhead over everything, its frame marked on the ruler.
  const double x = g.x(s.frame);
  if (x >= kHeaderWidth - 1 && x <= w) {
    const double fw = std::max(1.0, g.view.pixelsPerFrame);
    p.fillRect(QRectF(x, kRulerHeight - 6, fw, 6), kPlayhead);
    QPainterPath flag;
    flag.moveTo(x - 5, kRulerHeight - 12);
    flag.lineTo(x + 5, kRulerHeight - 12);
    flag.lineTo(x, kRulerHeight - 5);
    flag.closeSubpath();
    p.setRenderHint(QPainter::Antialiasing);
    p.fillPath(flag, kPlayhead);
    p.setPen(QPen(kPlayhead, 1.5));
    p.drawLine(QPointF(x, kRulerHeight - 6), QPointF(x, h));
  }
}

}  // namespace ombrik::tlview
