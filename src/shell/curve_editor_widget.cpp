#include "shell/curve_editor_widget.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <functional>

#include "document/app_model.h"
#include "document/graph_editor.h"
#include "document/key_anim.h"

namespace ombrik {

namespace {
const Node* shownNode(const AppModel& m) {
  const std::optional<Uuid> id = m.inspectedID ? m.inspectedID : m._selected;
  return id ? m.nodeByID(*id) : nullptr;
}
QPointF qt(Point p) { return {p.x, p.y}; }
}  // namespace

CurveEditorWidget::CurveEditorWidget(AppModel& model, QWidget* parent)
    : QWidget(parent), model_(model), editor_(std::make_unique<GraphEditor>()) {
  setObjectName("curveEditor");
  setMinimumHeight(120);
  setMouseTracking(false);
}

CurveEditorWidget::~CurveEditorWidget() = default;

void CurveEditorWidget::refresh() {
  // A cheap signature of what is drawn: the node, its keys, the selection and the playhead.
  std::size_t sig = std::hash<int>()(model_._currentFrame) ^ (model_._keySel.size() << 20);
  if (const Node* n = shownNode(model_)) {
    sig ^= std::hash<std::string>()(n->id.toString());
    for (const auto& [key, ks] : n->anim)
      for (const auto& k : ks) sig = sig * 1315423911u + std::hash<double>()(k.v) + std::size_t(k.f);
  }
  if (sig == lastSignature_) return;
  lastSignature_ = sig;
  update();
}

void CurveEditorWidget::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  p.fillRect(rect(), QColor(24, 24, 27));
  const double w = width(), h = height();
  const int frames = std::max(1, model_._frameCount);
  const GraphEditor& g = *editor_;

  // Frame grid every 10 frames (or coarser when crowded), and the playhead.
  const int step = frames > 400 ? 100 : frames > 80 ? 20 : 10;
  p.setPen(QColor(40, 40, 46));
  for (int f = 0; f < frames; f += step) p.drawLine(QPointF(g.xOf(f, frames, w), 0), QPointF(g.xOf(f, frames, w), h));
  p.setPen(QPen(QColor(236, 180, 74), 1.5));
  const double head = g.xOf(model_._currentFrame, frames, w);
  p.drawLine(QPointF(head, 0), QPointF(head, h));

  const Node* node = shownNode(model_);
  if (!node) return;
  const auto curves = GraphEditor::curves(*node);
  for (std::size_t ci = 0; ci < curves.size(); ++ci) {
    const auto& c = curves[ci];
    if (c.ks.empty()) continue;
    const QColor colour(c.color[0], c.color[1], c.color[2]);
    QPainterPath path;
    const int samples = std::max(2, int(w / 3));
    for (int i = 0; i <= samples; ++i) {
      const double f = double(i) / samples * (frames - 1);
      const QPointF at(g.xOf(f, frames, w), g.yOf(KeyAnim::value(c.ks, f), c.range, h));
      if (i == 0) path.moveTo(at);
      else path.lineTo(at);
    }
    p.setPen(QPen(colour, 1.6));
    p.drawPath(path);
    for (int i = 0; i < int(c.ks.size()); ++i) {
      const QPointF at(g.xOf(double(c.ks[i].f), frames, w), g.yOf(c.ks[i].v, c.range, h));
      const bool selected = model_._keySel.count(KeySel{c.key, i}) > 0;
      if (selected) {
        // The handles of a selected key, as the editor lets them be dragged.
        const auto [out, in] = GraphEditor::handlePoints(c.ks, i);
        p.setPen(QPen(QColor(200, 200, 210), 1));
        for (const auto& hp : {out, in})
          if (hp) {
            const QPointF hq(g.xOf(hp->x, frames, w), g.yOf(hp->y, c.range, h));
            p.drawLine(at, hq);
            p.drawEllipse(hq, 3, 3);
          }
      }
      p.setPen(Qt::NoPen);
      p.setBrush(selected ? QColor(255, 255, 255) : colour);
      p.drawEllipse(at, 4.5, 4.5);
    }
    p.setPen(colour);
    p.drawText(QPointF(8, 14 + 14 * double(ci)), QString::fromStdString(c.label));
  }
  if (auto m = g.marquee()) {
    p.setPen(QPen(QColor(236, 180, 74), 1, Qt::DashLine));
    p.setBrush(QColor(236, 180, 74, 30));
    p.drawRect(QRectF(qt(m->first), qt(m->second)).normalized());
  }
}

void CurveEditorWidget::mousePressEvent(QMouseEvent* e) {
  pressAt_ = e->position();
  editor_->handleDrag(model_, {e->position().x(), e->position().y()}, {e->position().x(), e->position().y()},
                      e->modifiers() & Qt::ShiftModifier, {double(width()), double(height())});
  update();
}

void CurveEditorWidget::mouseMoveEvent(QMouseEvent* e) {
  if (!pressAt_) return;
  editor_->handleDrag(model_, {pressAt_->x(), pressAt_->y()}, {e->position().x(), e->position().y()},
                      e->modifiers() & Qt::ShiftModifier, {double(width()), double(height())});
  update();
}

void CurveEditorWidget::mouseReleaseEvent(QMouseEvent* e) {
  if (!pressAt_) return;
  editor_->handleEnd(model_, {e->position().x(), e->position().y()}, {double(width()), double(height())});
  pressAt_.reset();
  lastSignature_ = 0;
  update();
}

}  // namespace ombrik
