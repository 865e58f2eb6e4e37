#include "shell/schematic_painter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {

using schematic::View;

QPointF q(Point p) { return {p.x, p.y}; }

const QColor kPictureWire(176, 176, 184);
const QColor kMatteWire(111, 160, 240);
const QColor kPictureInput(224, 192, 96);
const QColor kMatteInput(111, 160, 240);
const QColor kSnapWire(255, 206, 110);
const QColor kLockMark(240, 150, 70);
const QColor kArmed(120, 230, 200);
const QColor kGroupFrame(142, 145, 152);  // the group kind's tint

QColor tintOf(const NodeKind& kind) {
  const std::uint32_t hex = kind.tintHex ? kind.tintHex : kind.tint();
  return QColor((hex >> 16) & 0xFF, (hex >> 8) & 0xFF, hex & 0xFF);
}

QPainterPath wirePath(Point from, Point to) {
  const schematic::Curve c = schematic::wireCurve(from, to, schematic::kDrawBend);
  QPainterPath path(q(c.p0));
  path.cubicTo(q(c.p1), q(c.p2), q(c.p3));
  return path;
}

bool isMatteInput(const Node& n, int port) {
  return port < int(n.kind->inputs.size()) && n.kind->inputs[port].isMatte;
}

}  // namespace

void paintBackground(QPainter& p, const QRectF& area, const View& view) {
  p.fillRect(area, QColor(28, 28, 32));
  // A dot grid that moves with the graph, thinned out when zoomed far out.
  double step = 40 * view.zoom;
  while (step < 14) step *= 2;
  p.setPen(QPen(QColor(52, 52, 58), 1.5));
  const double x0 = std::fmod(view.pan.x, step), y0 = std::fmod(view.pan.y, step);
  for (double x = x0; x < area.right(); x += step)
    for (double y = y0; y < area.bottom(); y += step) p.drawPoint(QPointF(x, y));
}

void paintWires(QPainter& p, const SchematicScene& scene) {
  const auto& positions = scene.model.layout.positions();
  p.setBrush(Qt::NoBrush);
  for (const Edge& e : scene.model._edges) {
    const Node* from = scene.model.nodeByID(e.from);
    const Node* to = scene.model.nodeByID(e.to);
    auto pf = positions.find(e.from), pt = positions.find(e.to);
    if (!from || !to || pf == positions.end() || pt == positions.end()) continue;
    const Point a = scene.view.toView(schematic::outPos(*from, pf->second, e.fromPort));
    const Point b = scene.view.toView(schematic::inPos(*to, pt->second, e.port));
    const bool matte = e.fromPort >= 1 || isMatteInput(*to, e.port);
    const bool lit = scene.litEdge == e.id;
    p.setPen(QPen(lit ? kSnapWire : matte ? kMatteWire : kPictureWire, std::max(1.0, (lit ? 4.0 : 1.8) * scene.view.zoom)));
    p.drawPath(wirePath(a, b));
  }
}

namespace {
// A node's picture filling a disc of radius `r` about `c`, cropped to the disc (no copy of the bytes).
void paintThumbnail(QPainter& p, const Picture& picture, Point c, double r) {
  const QImage image(picture.rgba->data(), picture.width, picture.height, picture.width * 4, QImage::Format_RGBA8888);
  const double s = 2 * r / std::min(picture.width, picture.height);  // covers the disc
  const QRectF target(c.x - picture.width * s / 2, c.y - picture.height * s / 2, picture.width * s, picture.height * s);
  QPainterPath disc;
  disc.addEllipse(q(c), r, r);
  p.save();
  p.setClipPath(disc, Qt::IntersectClip);
  p.setRenderHint(QPainter::SmoothPixmapTransform);
  p.drawImage(target, image);
  p.restore();
}
}  // namespace

void paintNodes(QPainter& p, const SchematicScene& scene) {
  const AppModel& m = scene.model;
  const double z = scene.view.zoom;
  const auto& positions = m.layout.positions();
  for (const Node& n : m._nodes) {
    auto at = positions.find(n.id);
    if (at == positions.end()) continue;
    const Point c = scene.view.toView(at->second);
    const double r = schematic::radius(n) * z;
    const QColor tint = tintOf(*n.kind);
    const bool selected = m.isSelected(n.id);
    p.setOpacity(n.bypass ? 0.45 : 1.0);

    QRadialGradient body(q(c), r);
    body.setColorAt(0, QColor(58, 58, 66));
    body.setColorAt(1, QColor(36, 36, 42));
    p.setBrush(body);
    p.setPen(QPen(selected ? QColor(255, 206, 110) : tint, std::max(1.0, (selected ? 3.0 : 2.0) * z)));
    p.drawEllipse(q(c), r, r);
    if (n.group) {  // a group node: a second ring, as it holds more than one node
      p.setBrush(Qt::NoBrush);
      p.drawEllipse(q(c), r + 5 * z, r + 5 * z);
    }

    if (n.kind->id != "dot") {
      QFont f = p.font();
      auto thumb = m.nodeThumbs.find(n.id);
      if (thumb != m.nodeThumbs.end() && thumb->second.rgba && r > 8) {
        paintThumbnail(p, thumb->second, c, r * 0.86);
      } else {  // no picture yet: the kind's letter
        f.setBold(true);
        f.setPixelSize(std::max(6, int(r * 0.8)));
        p.setFont(f);
        p.setPen(tint.lighter(115));
        const QRectF box(c.x - r, c.y - r, 2 * r, 2 * r);
        p.drawText(box, Qt::AlignCenter, qs(schematic::letter(n.title())));
      }
      f.setBold(selected);
      f.setPixelSize(std::max(7, int(12 * std::min(z, 1.4))));
      p.setFont(f);
      p.setPen(selected ? QColor(255, 230, 180) : QColor(205, 205, 212));
      const QRectF label(c.x - 120, c.y + r + 3 * z, 240, f.pixelSize() * 1.6);
      p.drawText(label, Qt::AlignHCenter | Qt::AlignTop, qs(n.title()));
    }
    if (scene.displayed == n.id) {  // the node on the viewer carries a small lit mark, orange while locked
      p.setPen(Qt::NoPen);
      p.setBrush(m._viewLocked ? kLockMark : QColor(120, 220, 140));
      p.drawEllipse(QPointF(c.x, c.y - r - 7 * z), 3.5 * z + 1, 3.5 * z + 1);
    }
    if (m.inspectorLock == n.id) {  // the node the inspector is held on: a small square beside it
      const double s = 3.5 * z + 1;
      p.setPen(Qt::NoPen);
      p.setBrush(kLockMark);
      p.drawRect(QRectF(c.x + r * 0.7 - s, c.y - r * 0.7 - s, 2 * s, 2 * s));
    }

    const double portR = std::max(2.5, 5.0 * z);
    for (int i = 0; i < n.inputCount(); ++i) {
      const Point pt = scene.view.toView(schematic::inPos(n, at->second, i));
      const bool lit = scene.highlight && scene.highlight->node == n.id && scene.highlight->port == i;
      const bool armed = scene.armed && scene.armed->node == n.id && scene.armed->port == i;
      if (armed) {  // a halo that reads from afar: this input waits for an output
        p.setPen(QPen(kArmed, std::max(1.5, 2.5 * z)));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(q(pt), portR * 2.6, portR * 2.6);
      }
      p.setPen(QPen(QColor(20, 20, 24), 1));
      p.setBrush(lit || armed ? QColor(Qt::white) : isMatteInput(n, i) ? kMatteInput : kPictureInput);
      p.drawEllipse(q(pt), lit || armed ? portR * 1.5 : portR, lit || armed ? portR * 1.5 : portR);
    }
    for (int o : schematic::outputPorts(n)) {
      const Point pt = scene.view.toView(schematic::outPos(n, at->second, o));
      p.setPen(QPen(QColor(20, 20, 24), 1));
      p.setBrush(o == 0 ? QColor(235, 235, 240) : kMatteWire);
      p.drawEllipse(q(pt), portR, portR);
    }
    p.setOpacity(1.0);
  }
}

void paintPendingWire(QPainter& p, Point from, Point to) {
  p.setBrush(Qt::NoBrush);
  p.setPen(QPen(QColor(255, 206, 110), 2, Qt::DashLine));
  p.drawPath(wirePath(from, to));
}

void paintCutStroke(QPainter& p, Point from, Point to) {
  p.setPen(QPen(QColor(240, 96, 96), 1.5, Qt::DashLine));
  p.drawLine(q(from), q(to));
}

void paintMarquee(QPainter& p, Point from, Point to) {
  const QRectF box = QRectF(q(from), q(to)).normalized();
  p.setPen(QPen(QColor(255, 206, 110), 1, Qt::DashLine));
  p.setBrush(QColor(255, 206, 110, 28));
  p.drawRect(box);
}

void paintGroupFrames(QPainter& p, const std::vector<GroupFrameShown>& frames) {
  QFont f = p.font();
  f.setBold(true);
  f.setPixelSize(12);
  p.setFont(f);
  for (const GroupFrameShown& g : frames) {
    QColor fill = kGroupFrame;
    fill.setAlpha(34);
    p.setPen(QPen(kGroupFrame, 1.5, Qt::DashLine));
    p.setBrush(fill);
    p.drawRoundedRect(g.frame, 10, 10);
    p.setPen(QColor(215, 217, 222));
    const QRectF title(g.frame.left() + 10, g.frame.top() + 4, g.frame.width() - g.closeChip.width() - 24, 20);
    p.drawText(title, Qt::AlignLeft | Qt::AlignVCenter, QFontMetricsF(f).elidedText(g.name, Qt::ElideRight, title.width()));
    p.setPen(QPen(kGroupFrame, 1));
    p.setBrush(QColor(60, 62, 68));
    p.drawRoundedRect(g.closeChip, 4, 4);
    p.setPen(QColor(235, 235, 240));
    p.drawText(g.closeChip, Qt::AlignCenter, g.closeLabel);
  }
}

void paintSnapLink(QPainter& p, Point from, Point to) {
  p.setBrush(Qt::NoBrush);
  p.setPen(QPen(kSnapWire, 3));
  p.drawPath(wirePath(from, to));
}

void paintDropBands(QPainter& p, double viewWidth, double viewHeight, schematic::DropBand hovered,
                    const QString& trashLabel, const QString& contextLabel) {
  using schematic::DropBand;
  const struct {
    DropBand band;
    QColor colour;
    const QString& label;
  } bands[] = {{DropBand::trash, QColor(200, 70, 70), trashLabel}, {DropBand::context, kLockMark, contextLabel}};
  QFont f = p.font();
  f.setBold(true);
  f.setPixelSize(13);
  p.setFont(f);
  for (const auto& b : bands) {
    const schematic::Band r = schematic::bandRect(b.band, viewWidth, viewHeight);
    const QRectF box(r.x, r.y, r.width, r.height);
    QColor fill = b.colour;
    fill.setAlpha(hovered == b.band ? 200 : 80);
    p.setPen(QPen(b.colour, hovered == b.band ? 2 : 1));
    p.setBrush(fill);
    p.drawRoundedRect(box.adjusted(4, 0, -4, -4), 6, 6);
    p.setPen(QColor(245, 245, 248));
    p.drawText(box.adjusted(4, 0, -4, -4), Qt::AlignCenter, b.label);
  }
}

}  // namespace ombrik
