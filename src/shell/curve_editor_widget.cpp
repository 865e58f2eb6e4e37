#include "shell/curve_editor_widget.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <functional>

#include "document/app_model.h"
#include "document/graph_editor.h"
#include "document/key_anim.h"
#include "shell/axis_ticks.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
QPointF qt(Point p) { return {p.x, p.y}; }

// The styles a key can be given, in the model's order, with their texts.
struct StyleEntry {
  AppModel::KeyStyle style;
  const char* name;  // the action's object name
  const char* label;
  const char* help;  // empty: none
};
constexpr StyleEntry kStyles[] = {
    {AppModel::KeyStyle::linear, "keyStyle:linear", "Linéaire", ""},
    {AppModel::KeyStyle::smooth, "keyStyle:smooth", "Lisser", "Courbe lisse automatique à travers les clés"},
    {AppModel::KeyStyle::ease, "keyStyle:ease", "Adoucir", "Ralentit à l'arrivée et au départ de la clé (F9)"},
    {AppModel::KeyStyle::easeIn, "keyStyle:easeIn", "Ease In", "Ralentit à l'arrivée sur la clé (⇧F9)"},
    {AppModel::KeyStyle::easeOut, "keyStyle:easeOut", "Ease Out", "Ralentit au départ de la clé (⌥⇧F9)"},
    {AppModel::KeyStyle::hold, "keyStyle:hold", "Maintenu", "La valeur reste fixe jusqu'à la clé suivante"},
};

constexpr double kKeyReach = 9;  // points, as the drag finds a key
}  // namespace

CurveEditorWidget::CurveEditorWidget(AppModel& model, QWidget* parent)
    : QWidget(parent), model_(model), editor_(std::make_unique<GraphEditor>()) {
  setObjectName("curveEditor");
  setMinimumHeight(120);
  setMouseTracking(false);
  // Room for the value labels on the left and the frame numbers along the bottom.
  editor_->mx = 46;
  editor_->my = 20;
}

CurveEditorWidget::~CurveEditorWidget() = default;

const Node* CurveEditorWidget::node() const {
  const std::optional<Uuid> id = model_.inspectedID ? model_.inspectedID : model_._selected;
  return id ? model_.nodeByID(*id) : nullptr;
}

void CurveEditorWidget::refresh() {
  // A cheap signature of what is drawn: the node, its keys and their styles, the selection and
  // the playhead.
  std::size_t sig = std::hash<int>()(model_._currentFrame) ^ (model_._keySel.size() << 20);
  for (const KeySel& s : model_._keySel) sig = sig * 31 + std::hash<std::string>()(s.key) + std::size_t(s.i);
  if (const Node* n = node()) {
    sig ^= std::hash<std::string>()(n->id.toString());
    for (const auto& [key, ks] : n->anim)
      for (const auto& k : ks)
        sig = sig * 1315423911u + std::hash<double>()(k.v) + std::size_t(k.f) + std::size_t(k.interp) +
              std::hash<double>()(k.inSlope + 7 * k.outSlope + 13 * k.inInf + 17 * k.outInf);
  }
  if (sig == lastSignature_) return;
  lastSignature_ = sig;
  update();
}

std::optional<QPointF> CurveEditorWidget::keyPoint(const KeySel& key) const {
  const Node* n = node();
  if (!n) return std::nullopt;
  const GraphEditor& g = *editor_;
  const int frames = std::max(1, model_._frameCount);
  for (const auto& c : GraphEditor::curves(*n))
    if (c.key == key.key && !g._hidden.count(c.key) && key.i >= 0 && key.i < int(c.ks.size()))
      return QPointF(g.xOf(double(c.ks[key.i].f), frames, width()), g.yOf(c.ks[key.i].v, c.range, height()));
  return std::nullopt;
}

std::optional<KeySel> CurveEditorWidget::keyAt(QPointF at) const {
  const Node* n = node();
  if (!n) return std::nullopt;
  std::optional<KeySel> best;
  double nearest = kKeyReach;
  for (const auto& c : GraphEditor::curves(*n))
    for (int i = 0; i < int(c.ks.size()); ++i)
      if (const auto p = keyPoint(KeySel{c.key, i})) {
        const double d = std::hypot(p->x() - at.x(), p->y() - at.y());
        if (d < nearest) nearest = d, best = KeySel{c.key, i};
      }
  return best;
}

std::unique_ptr<QMenu> CurveEditorWidget::keyMenu(QPoint at) {
  const std::optional<KeySel> key = keyAt(at);
  const Node* n = node();
  if (!key || !n) return nullptr;
  // As a click: an unselected key becomes the selection, a selected one keeps it. The selection
  // belongs to the inspected node; another node's key is acted on alone.
  const bool inspected = model_.inspectedID == n->id;
  if (inspected && !model_._keySel.count(*key)) model_._keySel = {*key};
  std::vector<KeySel> targets;
  if (inspected)
    for (const KeySel& s : model_._keySel)
      if (auto it = n->anim.find(s.key); it != n->anim.end() && s.i >= 0 && s.i < int(it->second.size()))
        targets.push_back(s);
  if (targets.empty()) targets = {*key};
  update();

  auto menu = std::make_unique<QMenu>(this);
  menu->setObjectName("keyMenu");
  menu->setToolTipsVisible(true);
  const Uuid id = n->id;
  for (const StyleEntry& entry : kStyles) {
    QAction* a = menu->addAction(shown(entry.label));
    a->setObjectName(entry.name);
    if (*entry.help) a->setToolTip(shown(entry.help));
    connect(a, &QAction::triggered, this, [this, id, targets, style = entry.style] {
      for (const KeySel& t : targets) model_.setKeyStyle(id, t.key, t.i, style);
      refresh();
    });
  }
  menu->addSeparator();
  QAction* remove = menu->addAction(shown("Supprimer les clés sélectionnées"));
  remove->setObjectName("deleteKeys");
  connect(remove, &QAction::triggered, this, [this, id, targets, inspected] {
    // From the last index down, so that a removal doesn't shift a key still to go.
    std::vector<KeySel> order = targets;
    std::sort(order.begin(), order.end(), [](const KeySel& a, const KeySel& b) {
      return a.key != b.key ? a.key < b.key : a.i > b.i;
    });
    for (const KeySel& t : order) model_.deleteKey(id, t.key, t.i);
    if (inspected) model_._keySel.clear();
    refresh();
  });
  return menu;
}

void CurveEditorWidget::paintAxes(QPainter& p, const Node* node) {
  const GraphEditor& g = *editor_;
  const double w = width(), h = height();
  const int frames = std::max(1, model_._frameCount);
  QFont small = font();
  small.setPointSizeF(std::max(6.0, small.pointSizeF() * 0.85));
  p.setFont(small);
  const QFontMetricsF metrics(small);

  // Frames: a line and its number at least 56 points apart.
  const double perFrame = (w - 2 * g.mx) / std::max(1, frames - 1);
  const AxisTicks frameTicks = AxisTicks::of(0, frames - 1, std::max(1.0, 56 / std::max(perFrame, 1e-6)));
  for (double f : frameTicks.values) {
    const double x = g.xOf(f, frames, w);
    p.setPen(QColor(40, 40, 46));
    p.drawLine(QPointF(x, g.my), QPointF(x, h - g.my));
    p.setPen(QColor(130, 130, 140));
    const QString text = QString::number(f, 'f', 0);
    p.drawText(QPointF(x - metrics.horizontalAdvance(text) / 2, h - g.my + metrics.ascent() + 3), text);
  }

  // Values: each curve has its own scale, so the left edge reads the curve of the selected key,
  // else the first one, in that curve's colour.
  if (!node) return;
  const auto curves = GraphEditor::curves(*node);
  const GraphEditor::Curve* shownScale = nullptr;
  for (const auto& c : curves) {
    if (g._hidden.count(c.key)) continue;
    if (!shownScale) shownScale = &c;
    if (model_.inspectedID == node->id &&
        std::any_of(model_._keySel.begin(), model_._keySel.end(), [&](const KeySel& s) { return s.key == c.key; })) {
      shownScale = &c;
      break;
    }
  }
  if (!shownScale) return;
  const GraphEditor::Range r = shownScale->range;
  const double perUnit = (h - 2 * g.my) / (r.hi - r.lo);
  const AxisTicks valueTicks = AxisTicks::of(r.lo, r.hi, 24 / std::max(perUnit, 1e-9));
  const QColor colour(shownScale->color[0], shownScale->color[1], shownScale->color[2]);
  for (double v : valueTicks.values) {
    const double y = g.yOf(v, r, h);
    p.setPen(QColor(36, 36, 41));
    p.drawLine(QPointF(g.mx, y), QPointF(w - g.mx, y));
    p.setPen(colour.darker(115));
    const QString text = QString::number(v, 'f', valueTicks.decimals);
    p.drawText(QPointF(g.mx - 9 - metrics.horizontalAdvance(text), y + metrics.ascent() / 2 - 1), text);  // clear of a key at frame 0
  }
}

void CurveEditorWidget::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  p.fillRect(rect(), QColor(24, 24, 27));
  const double w = width(), h = height();
  const int frames = std::max(1, model_._frameCount);
  const GraphEditor& g = *editor_;
  const Node* node = this->node();
  paintAxes(p, node);
  p.setFont(font());

  p.setPen(QPen(QColor(236, 180, 74), 1.5));
  const double head = g.xOf(model_._currentFrame, frames, w);
  p.drawLine(QPointF(head, 0), QPointF(head, h));

  const auto curves = node ? GraphEditor::curves(*node) : std::vector<GraphEditor::Curve>{};
  if (curves.empty()) {
    p.setPen(QColor(150, 150, 158));
    p.drawText(rect().adjusted(int(g.mx), int(g.my), -int(g.mx), -int(g.my)), Qt::AlignCenter | Qt::TextWordWrap,
               shown("Aucun réglage animé. Dans Réglages, cliquez sur le chronomètre à côté d'un curseur, "
                     "puis changez la valeur à une autre image."));
    return;
  }
  for (std::size_t ci = 0; ci < curves.size(); ++ci) {
    const auto& c = curves[ci];
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
    p.setBrush(Qt::NoBrush);
    p.drawPath(path);
    for (int i = 0; i < int(c.ks.size()); ++i) {
      const QPointF at(g.xOf(double(c.ks[i].f), frames, w), g.yOf(c.ks[i].v, c.range, h));
      const bool selected = model_._keySel.count(KeySel{c.key, i}) > 0;
      if (selected) {
        // The handles of a selected key, as the editor lets them be dragged.
        const auto [in, out] = GraphEditor::handlePoints(c.ks, i);
        p.setPen(QPen(QColor(200, 200, 210), 1));
        p.setBrush(Qt::NoBrush);
        for (const auto& hp : {in, out})
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
    p.drawText(QPointF(g.mx + 6, g.my + 12 + 14 * double(ci)), QString::fromStdString(c.label));
  }
  if (auto m = g.marquee()) {
    p.setPen(QPen(QColor(236, 180, 74), 1, Qt::DashLine));
    p.setBrush(QColor(236, 180, 74, 30));
    p.drawRect(QRectF(qt(m->first), qt(m->second)).normalized());
  }
}

void CurveEditorWidget::mousePressEvent(QMouseEvent* e) {
  if (e->button() != Qt::LeftButton) return;  // the right button opens a key's menu
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
  if (!pressAt_ || e->button() != Qt::LeftButton) return;
  editor_->handleEnd(model_, {e->position().x(), e->position().y()}, {double(width()), double(height())});
  pressAt_.reset();
  lastSignature_ = 0;
  update();
}

void CurveEditorWidget::contextMenuEvent(QContextMenuEvent* e) {
  if (pressAt_) return;  // not in the middle of a drag
  if (std::unique_ptr<QMenu> menu = keyMenu(e->pos())) menu->exec(e->globalPos());
}

}  // namespace ombrik
