#include "shell/roto_overlay.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>

#include "document/app_model.h"
#include "tracking/roto.h"

namespace ombrik {

namespace {
// The mask kind's own blue, bright for the mask being edited, faint for the others.
const QColor kActive(140, 196, 255);
const QColor kOther(140, 196, 255, 120);
const QColor kShadow(0, 0, 0, 150);  // under every line, so outlines read on light pictures too
const QColor kHandleFill(24, 24, 30);
constexpr double kAnchor = 3.5;      // half the side of an anchor's square, in points
constexpr double kTip = 3.5;         // radius of a tangent's tip
constexpr double kCorner = 4.5;      // half the side of the ellipse's square handle

QRectF square(QPointF c, double half) { return QRectF(c.x() - half, c.y() - half, 2 * half, 2 * half); }

// A line drawn twice: a dark wide one under the coloured one.
void strokePath(QPainter& p, const QPainterPath& path, const QColor& colour, double width) {
  p.setBrush(Qt::NoBrush);
  p.setPen(QPen(kShadow, width + 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  p.drawPath(path);
  p.setPen(QPen(colour, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  p.drawPath(path);
}

MaskKey keyOf(const AppModel& model, const GMask& mask) {
  Node probe;
  probe.params = mask.params;
  return model.key(probe);
}
}  // namespace

Point RotoOverlay::toPicture(QPointF at, const QRectF& picture) {
  const double w = std::max(picture.width(), 1e-9), h = std::max(picture.height(), 1e-9);
  return {(at.x() - picture.x()) / w, (at.y() - picture.y()) / h};
}

QPointF RotoOverlay::toView(Point p, const QRectF& picture) {
  return {picture.x() + p.x * picture.width(), picture.y() + p.y * picture.height()};
}

bool RotoOverlay::takesMouse() const {
  return model_.rotoNode().has_value() && model_.roto.rotoTool != RotoTool::moveImage;
}

bool RotoOverlay::press(QPointF at, Qt::KeyboardModifiers modifiers, const QRectF& picture) {
  dragging_ = false;
  if (picture.width() <= 0 || picture.height() <= 0) return false;
  RotoKeys keys;
  keys.shift = modifiers & Qt::ShiftModifier;
  keys.alt = modifiers & Qt::AltModifier;
  keys.ctrl = modifiers & Qt::ControlModifier;
  keys.aHeld = aHeld_;
  if (!drag_.press(toPicture(at, picture), keys, picture.width(), picture.height())) return false;
  picture_ = picture;
  dragging_ = true;
  return true;
}

void RotoOverlay::drag(QPointF at) {
  if (dragging_) drag_.drag(toPicture(at, picture_));
}

void RotoOverlay::release(QPointF at) {
  if (!dragging_) return;
  dragging_ = false;
  drag_.release(toPicture(at, picture_));
}

bool RotoOverlay::doubleClick(QPointF at, const QRectF& picture) {
  if (!takesMouse() || picture.width() <= 0) return false;
  return drag_.doubleClick(toPicture(at, picture), picture.width(), picture.height());
}

bool RotoOverlay::keyPress(int key, bool autoRepeat) {
  if (key == Qt::Key_I) {
    if (!autoRepeat) model_.iKey();
    return true;
  }
  const std::optional<Uuid> node = model_.rotoNode();
  if (!node) return false;
  switch (key) {
    case Qt::Key_A:
      aHeld_ = true;
      return true;
    case Qt::Key_Backspace:
    case Qt::Key_Delete: {
      // Every selected point goes, the last first so the earlier indices still hold.
      std::set<int> doomed = model_.roto.selectedPoints;
      if (model_.roto.selectedPoint) doomed.insert(*model_.roto.selectedPoint);
      for (auto it = doomed.rbegin(); it != doomed.rend(); ++it) model_.shapeDeletePoint(*node, *it);
      return !doomed.empty();
    }
    case Qt::Key_Return:
    case Qt::Key_Enter:
      model_.shapeClose(*node);
      return true;
    default:
      return false;
  }
}

bool RotoOverlay::keyRelease(int key, bool autoRepeat) {
  if (key != Qt::Key_A || autoRepeat) return false;
  aHeld_ = false;
  return true;
}

RotoOverlay::Shown RotoOverlay::current() const {
  Shown s;
  s.hidden = model_._overlaysHidden;
  s.node = model_.rotoNode();
  const Node* n = s.node ? model_.nodeByID(*s.node) : nullptr;
  if (s.hidden || !n) return s;
  s.layers = model_.maskLayersAt(*n);
  s.active = n->masks.empty() ? 0 : std::clamp(n->maskIndex, 0, int(s.layers.size()) - 1);
  s.selected = model_.roto.selectedPoint;
  s.selection = model_.roto.selectedPoints;
  s.isolate = model_.roto.maskIsolate;
  if (auto dots = model_.roto.trackDots.find(model_._currentFrame); dots != model_.roto.trackDots.end()) s.dots = dots->second;
  if (const auto* m = drag_.current() ? std::get_if<RotoDrag::Marquee>(&*drag_.current()) : nullptr) {
    s.marqueeFrom = m->start;
    s.marqueeTo = drag_.marqueeCorner();
  }
  return s;
}

bool RotoOverlay::changed() const { return !(current() == painted_); }

void RotoOverlay::paint(QPainter& p, const QRectF& picture) {
  painted_ = current();
  if (painted_.hidden || !painted_.node || painted_.layers.empty()) return;
  p.save();
  p.setRenderHint(QPainter::Antialiasing, true);
  for (int i = 0; i < int(painted_.layers.size()); ++i)
    if (i != painted_.active && !painted_.isolate) paintMask(p, painted_.layers[i], picture, false);
  const GMask& active = painted_.layers[painted_.active];
  paintMask(p, active, picture, true);
  paintHandles(p, active, picture);
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(120, 230, 140, 220));
  for (const Point& d : painted_.dots) p.drawEllipse(toView(d, picture), 2.0, 2.0);
  if (painted_.marqueeFrom && painted_.marqueeTo) {
    const QRectF box = QRectF(toView(*painted_.marqueeFrom, picture), toView(*painted_.marqueeTo, picture)).normalized();
    p.setBrush(QColor(255, 255, 255, 24));
    p.setPen(QPen(QColor(235, 235, 240), 1, Qt::DashLine));
    p.drawRect(box);
  }
  p.restore();
}

void RotoOverlay::paintMask(QPainter& p, const GMask& mask, const QRectF& picture, bool active) const {
  if (mask.ellipse && mask.shape.empty()) return paintEllipse(p, mask, picture, active);
  if (mask.shape.empty()) return;
  const std::vector<Point> line = Roto::flatten(mask.shape, mask.shapeClosed, 16);
  QPainterPath path(toView(line.front(), picture));
  for (std::size_t i = 1; i < line.size(); ++i) path.lineTo(toView(line[i], picture));
  if (mask.shapeClosed) path.closeSubpath();
  strokePath(p, path, active ? kActive : kOther, active ? 1.5 : 1.2);
}

void RotoOverlay::paintEllipse(QPainter& p, const GMask& mask, const QRectF& picture, bool active) const {
  const MaskKey k = keyOf(model_, mask);
  // The picture keeps the comp's proportions, so a turn in comp pixels is the same turn on screen.
  QPainterPath path;
  path.addEllipse(QPointF(0, 0), k.rx / 100 * picture.width(), k.ry / 100 * picture.height());
  QTransform place;
  place.translate(picture.x() + k.cx / 100 * picture.width(), picture.y() + k.cy / 100 * picture.height());
  place.rotate(k.rot);
  strokePath(p, place.map(path), active ? kActive : kOther, active ? 1.5 : 1.2);
}

void RotoOverlay::paintHandles(QPainter& p, const GMask& mask, const QRectF& picture) const {
  p.setPen(QPen(kActive, 1.2));
  if (mask.ellipse && mask.shape.empty()) {
    // The corner's square sets both radii, the right dot the width, the bottom dot the height.
    const MaskKey k = keyOf(model_, mask);
    const double rx = k.rx / 100 * picture.width(), ry = k.ry / 100 * picture.height();
    QTransform place;
    place.translate(picture.x() + k.cx / 100 * picture.width(), picture.y() + k.cy / 100 * picture.height());
    place.rotate(k.rot);
    p.setBrush(kActive);
    p.drawRect(square(place.map(QPointF(rx, ry)), kCorner));
    p.setBrush(kHandleFill);
    p.drawEllipse(place.map(QPointF(rx, 0)), kTip, kTip);
    p.drawEllipse(place.map(QPointF(0, ry)), kTip, kTip);
    return;
  }
  const auto& shape = mask.shape;
  const std::optional<int> sel = painted_.selected;
  if (sel && *sel >= 0 && *sel < int(shape.size())) {
    const SplinePoint& s = shape[*sel];
    const QPointF anchor = toView(s.p, picture);
    for (const Point t : {s.inT, s.outT}) {
      if (t == Point{}) continue;
      const QPointF tip = toView({s.p.x + t.x, s.p.y + t.y}, picture);
      p.setPen(QPen(kActive, 1));
      p.drawLine(anchor, tip);
      p.setBrush(kActive);
      p.drawEllipse(tip, kTip, kTip);
    }
  }
  for (int i = 0; i < int(shape.size()); ++i) {
    const bool chosen = sel == i || painted_.selection.count(i);
    p.setPen(QPen(chosen ? Qt::white : kActive, 1.2));
    p.setBrush(chosen ? kActive : kHandleFill);
    // An open outline's first point is drawn larger: a click there closes it.
    const double half = (i == 0 && !mask.shapeClosed && shape.size() >= 3) ? kAnchor + 1.5 : kAnchor;
    p.drawRect(square(toView(shape[i].p, picture), half));
  }
}

}  // namespace ombrik
