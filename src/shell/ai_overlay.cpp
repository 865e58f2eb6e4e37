#include "shell/ai_overlay.h"

#include <QPainter>
#include <cmath>

#include "document/app_model.h"
#include "shell/roto_overlay.h"

namespace ombrik {

namespace {
const QColor kAdd(88, 214, 120);
const QColor kTakeAway(235, 84, 84);
const QColor kBox(95, 208, 181);  // the kind's own tint
const QColor kShadow(0, 0, 0, 160);
constexpr double kDot = 6.5;  // radius of a point's disc, in screen points

bool isClickTool(const Node* n) {
  return n && n->kind && (n->kind->id == "magicmask" || n->kind->id == "objectmask");
}

QRectF boxRect(const std::vector<double>& b, const QRectF& picture) {
  const QPointF a = RotoOverlay::toView({b[0], b[1]}, picture), c = RotoOverlay::toView({b[2], b[3]}, picture);
  return QRectF(a, c).normalized();
}
}  // namespace

std::optional<Uuid> AiOverlay::target() const {
  // The same node as the inspector's: the first of these that exists.
  for (const auto& id : {model_.inspectorLock, model_.inspectedID, model_._selected})
    if (const Node* n = id ? model_.nodeByID(*id) : nullptr) return isClickTool(n) ? id : std::nullopt;
  return std::nullopt;
}

const std::optional<ObjectBoxes>& AiOverlay::boxes(const Uuid& id) const {
  if (readNode_ != id || readProgress_ != model_._magicProgress || readStatus_ != model_._status ||
      readFrame_ != model_._currentFrame) {
    const Node* n = model_.nodeByID(id);
    boxes_ = n && n->kind->id == "objectmask" ? model_.objectBoxes(id) : std::nullopt;
    readNode_ = id;
    readProgress_ = model_._magicProgress;
    readStatus_ = model_._status;
    readFrame_ = model_._currentFrame;
  }
  return boxes_;
}

bool AiOverlay::press(QPointF at, Qt::KeyboardModifiers modifiers, const QRectF& picture) {
  const std::optional<Uuid> id = target();
  if (!id || picture.width() <= 0 || picture.height() <= 0 || !picture.contains(at)) return false;
  if (modifiers & Qt::ControlModifier) {
    // The smallest frame under the pointer: a frame inside another is reachable too.
    const std::optional<ObjectBoxes>& found = boxes(*id);
    int hit = -1;
    double area = 0;
    if (found && found->frame == model_._currentFrame)
      for (std::size_t i = 0; i < found->boxes.size(); ++i) {
        if (found->boxes[i].size() < 4) continue;
        const QRectF r = boxRect(found->boxes[i], picture);
        if (r.contains(at) && (hit < 0 || r.width() * r.height() < area)) {
          hit = int(i);
          area = r.width() * r.height();
        }
      }
    if (hit >= 0) {
      model_.objectRemoveBox(*id, hit);
      readNode_.reset();
    }
    return true;  // outside any frame it adds nothing rather than a point the user didn't ask for
  }
  model_.magicAddPoint(*id, RotoOverlay::toPicture(at, picture), !(modifiers & Qt::AltModifier));
  readNode_.reset();
  return true;
}

AiOverlay::Shown AiOverlay::current() const {
  Shown s;
  s.node = target();
  if (!s.node) return s;
  const Node* n = model_.nodeByID(*s.node);
  if (n->magicFrame == model_._currentFrame) s.points = n->magicPoints;
  if (const auto& found = boxes(*s.node); found && found->frame == model_._currentFrame) s.boxes = objectBoxesJson(*found);
  return s;
}

bool AiOverlay::changed() const { return !(current() == painted_); }

void AiOverlay::paint(QPainter& p, const QRectF& picture) {
  painted_ = current();
  if (!painted_.node) return;
  p.save();
  p.setRenderHint(QPainter::Antialiasing, true);
  if (!painted_.boxes.empty()) {
    const std::optional<ObjectBoxes>& found = boxes(*painted_.node);
    QFont f = p.font();
    f.setPointSizeF(f.pointSizeF() * 0.85);
    f.setBold(true);
    p.setFont(f);
    for (std::size_t i = 0; found && i < found->boxes.size(); ++i) {
      const std::vector<double>& b = found->boxes[i];
      if (b.size() < 4) continue;
      const QRectF r = boxRect(b, picture);
      p.setBrush(Qt::NoBrush);
      p.setPen(QPen(kShadow, 4));
      p.drawRect(r);
      p.setPen(QPen(kBox, 2));
      p.drawRect(r);
      QString tag = QString::number(i + 1);
      if (b.size() >= 5) tag += QStringLiteral(" · %1 %").arg(std::lround(b[4] * 100));
      // The number and confidence on a tag above the frame, inside it when the frame touches the top.
      QRectF band(r.left(), r.top() - p.fontMetrics().height() - 4, p.fontMetrics().horizontalAdvance(tag) + 10,
                  p.fontMetrics().height() + 4);
      if (band.top() < picture.top()) band.moveTop(r.top());
      p.setPen(Qt::NoPen);
      p.setBrush(kBox);
      p.drawRect(band);
      p.setPen(QColor(10, 30, 26));
      p.drawText(band, Qt::AlignCenter, tag);
    }
  }
  for (const MagicPoint& m : painted_.points) {
    const QPointF c = RotoOverlay::toView(m.p, picture);
    p.setPen(QPen(kShadow, 3));
    p.setBrush(m.positive ? kAdd : kTakeAway);
    p.drawEllipse(c, kDot, kDot);
    p.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(c - QPointF(3.5, 0), c + QPointF(3.5, 0));
    if (m.positive) p.drawLine(c - QPointF(0, 3.5), c + QPointF(0, 3.5));
  }
  p.restore();
}

}  // namespace ombrik
