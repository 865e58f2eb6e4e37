#include "shell/timeline_view.h"

#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QUrl>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <utility>

#include "document/app_model.h"
#include "editorial/timeline_keys.h"
#include "shell/qt_dialogs.h"
#include "shell/shown_text.h"

namespace ombrik {

using namespace tlview;

namespace {
constexpr double kDragThreshold = 3;  // pixels before a press on a bar becomes a drag
constexpr double kWheelNotch = 120;   // angle units of one step of a mouse wheel
constexpr double kZoomStep = 1.2;     // per notch
constexpr double kScrollStep = 80;    // pixels a notch moves the frames

TimelineKeyPress pressOf(const QKeyEvent& e) {
  const Qt::KeyboardModifiers m = e.modifiers();
  return {e.key(), bool(m & Qt::ShiftModifier), bool(m & Qt::ControlModifier), bool(m & Qt::AltModifier),
          bool(m & Qt::MetaModifier)};
}
}  // namespace

TimelineView::TimelineView(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("timelineView");
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setAcceptDrops(true);
  setMinimumSize(kHeaderWidth + 120, kRulerHeight + 2 * kRowHeight);
}

const Timeline* TimelineView::timeline() const { return model_.shownTimeline(); }

tlview::View& TimelineView::currentView() { return views_[model_.tl.currentTimelineID.value_or(Uuid())]; }

tlview::View TimelineView::view() const {
  auto it = views_.find(model_.tl.currentTimelineID.value_or(Uuid()));
  return it == views_.end() ? View{} : it->second;
}

void TimelineView::setView(const tlview::View& v) {
  fitted_.erase(model_.tl.currentTimelineID.value_or(Uuid()));
  View& now = currentView();
  now = v;
  clampView(now);
  update();
}

tlview::Geometry TimelineView::geometryNow() const { return Geometry{QSizeF(size()), view()}; }

void TimelineView::clampView(tlview::View& v) const {
  v.pixelsPerFrame = std::clamp(v.pixelsPerFrame, kMinZoom, kMaxZoom);
  const Timeline* t = timeline();
  const double frames = t ? std::max(t->duration(), 1) : 1;
  v.scrollX = std::clamp(v.scrollX, 0.0, frames * v.pixelsPerFrame);
  const Geometry g{QSizeF(size()), v};
  v.scrollY = std::clamp(v.scrollY, 0.0, g.maxScrollY(t ? int(t->layers.size()) : 0));
}

QRectF TimelineView::barRect(const Uuid& layer) const {
  const Timeline* t = timeline();
  const int i = t ? t->indexOf(layer) : -1;
  if (i < 0) return {};
  return geometryNow().bar(t->layers[std::size_t(i)], i);
}

TimelineView::Drawn TimelineView::drawn() const {
  Drawn d;
  if (const Timeline* t = timeline()) d.timeline = *t;
  d.selection = model_.tl.tlSelection;
  d.frame = model_._currentFrame;
  d.media = model_._media.size();
  d.worlds = model_._batches.size();
  d.nodes = model_._nodes.size();  // the effects of a layer's world, when it is the open one
  d.edges = model_._edges.size();
  d.thumbs = model_.thumbsVersion;
  return d;
}

void TimelineView::fit() {
  const Timeline* t = timeline();
  if (!t || width() <= kHeaderWidth + 100) return;
  View& v = currentView();
  v = View{};
  v.pixelsPerFrame = (width() - kHeaderWidth - 40) / double(std::max(t->duration(), 1));
  clampView(v);
  fitted_.insert(t->id);
  update();
}

void TimelineView::resizeEvent(QResizeEvent*) {
  // The layout settles the view's size after it is first shown: a fitted view follows it.
  if (fitted_.count(model_.tl.currentTimelineID.value_or(Uuid()))) fit();
}

void TimelineView::refresh() {
  // A timeline seen for the first time is fitted to the view.
  if (const Timeline* t = timeline(); t && isVisible() && !views_.count(t->id)) fit();
  Drawn now = drawn();
  if (now == shown_) return;
  shown_ = std::move(now);
  // Layers gone or shortened leave no empty scroll behind.
  if (auto v = views_.find(model_.tl.currentTimelineID.value_or(Uuid())); v != views_.end()) clampView(v->second);
  update();
}

void TimelineView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  const Timeline* t = timeline();
  if (!t) {
    p.fillRect(rect(), QColor(30, 30, 34));
    return;
  }
  const Geometry g = geometryNow();
  paintTimeline(p, TimelineScene{model_, *t, g, model_.tl.tlSelection, model_._currentFrame});
}

const TLayer* TimelineView::layerAt(QPointF at, int* row) const {
  const Timeline* t = timeline();
  const int i = geometryNow().rowAt(at.y());
  if (!t || i < 0 || i >= int(t->layers.size())) return nullptr;
  if (row) *row = i;
  return &t->layers[std::size_t(i)];
}

void TimelineView::seekAt(double x) {
  model_.seekFrame(std::max(geometryNow().frameAt(std::max<double>(x, kHeaderWidth)), 0));
  refresh();
}

void TimelineView::setOpacityAt(double x) {
  const int row = timeline() ? timeline()->indexOf(pressed_) : -1;
  if (row < 0) return;
  const QRectF track = geometryNow().opacitySlider(row);
  const double v = std::clamp((x - track.left()) / track.width(), 0.0, 1.0);
  model_.updateLayer(pressed_, [v](TLayer& l) { l.opacity = v; });
  refresh();
}

void TimelineView::mousePressEvent(QMouseEvent* event) {
  setFocus(Qt::MouseFocusReason);
  gesture_ = Gesture::none;
  remembered_.reset();
  if (event->button() != Qt::LeftButton || !timeline()) return;
  const QPointF at = event->position();
  const Geometry g = geometryNow();
  if (at.y() < kRulerHeight) {
    if (at.x() >= kHeaderWidth) {
      gesture_ = Gesture::scrub;
      seekAt(at.x());
    } else if (g.importButton().contains(at)) {
      if (auto menu = importMenu()) menu->exec(mapToGlobal(g.importButton().bottomLeft().toPoint()));
      refresh();
    }
    return;
  }
  int row = 0;
  const TLayer* l = layerAt(at, &row);
  if (!l) {
    if (!(event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier))) model_.tl.tlSelection.clear();
    refresh();
    return;
  }
  pressed_ = l->id;
  pressAt_ = at;
  if (at.x() < kHeaderWidth) {
    if (g.blendBox(row).contains(at)) {
      if (auto menu = blendMenu(l->id)) menu->exec(mapToGlobal(g.blendBox(row).bottomLeft().toPoint()));
    } else if (g.opacitySlider(row).adjusted(-6, -4, 6, 4).contains(at)) {
      model_.tlCheckpoint();  // the whole slide is one step
      gesture_ = Gesture::opacity;
      setOpacityAt(at.x());
    } else {
      model_.selectLayer(l->id, bool(event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier)));
    }
    refresh();
    return;
  }
  const QRectF bar = g.bar(*l, row);
  model_.selectLayer(l->id, bool(event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier)));
  if (bar.contains(at)) {
    gesture_ = Gesture::pressBar;
    part_ = tledit::dragPart(at.x() - bar.left(), bar.width());
  }
  refresh();
}

void TimelineView::mouseMoveEvent(QMouseEvent* event) {
  const QPointF at = event->position();
  switch (gesture_) {
    case Gesture::none: {
      // The pointer tells what a drag from here would do.
      int row = 0;
      const TLayer* l = at.x() >= kHeaderWidth ? layerAt(at, &row) : nullptr;
      const QRectF bar = l ? geometryNow().bar(*l, row) : QRectF();
      if (!l || !bar.contains(at)) unsetCursor();
      else setCursor(tledit::dragPart(at.x() - bar.left(), bar.width()) == tledit::DragPart::body ? Qt::OpenHandCursor
                                                                                                  : Qt::SizeHorCursor);
      return;
    }
    case Gesture::scrub: seekAt(at.x()); return;
    case Gesture::opacity: setOpacityAt(at.x()); return;
    case Gesture::pressBar: {
      const Timeline* t = timeline();
      const TLayer* l = t ? t->layer(pressed_) : nullptr;
      if (!l || (at - pressAt_).manhattanLength() < kDragThreshold) return;
      remembered_ = *l;
      model_.tlCheckpoint();  // once for the whole drag
      gesture_ = Gesture::dragBar;
      [[fallthrough]];
    }
    case Gesture::dragBar: {
      const int delta = int(std::lround((at.x() - pressAt_.x()) / view().pixelsPerFrame));
      const TLayer moved = tledit::dragged(*remembered_, part_, delta);
      model_.updateLayer(pressed_, [&moved](TLayer& l) { l = moved; });
      refresh();
      return;
    }
  }
}

void TimelineView::mouseReleaseEvent(QMouseEvent*) {
  gesture_ = Gesture::none;
  remembered_.reset();
  refresh();
}

void TimelineView::mouseDoubleClickEvent(QMouseEvent* event) {
  int row = 0;
  const TLayer* l = layerAt(event->position(), &row);
  if (!l || !geometryNow().bar(*l, row).contains(event->position())) return;
  if (l->source.isBatch()) model_.openLayerBatch(l->id);
  else model_._status = "Clic droit → « Transformer en graphe » pour travailler ce calque dans un arbre.";
  refresh();
}

void TimelineView::wheelEvent(QWheelEvent* event) {
  if (!timeline()) return;
  const QPoint d = event->angleDelta();
  fitted_.erase(model_.tl.currentTimelineID.value_or(Uuid()));
  View& v = currentView();
  if (event->modifiers() & Qt::ControlModifier) {
    // Zoom about the pointer: the frame under it stays under it.
    const double mx = std::max<double>(event->position().x(), kHeaderWidth) - kHeaderWidth;
    const double frame = (mx + v.scrollX) / v.pixelsPerFrame;
    v.pixelsPerFrame = std::clamp(v.pixelsPerFrame * std::pow(kZoomStep, (d.y() ? d.y() : d.x()) / kWheelNotch), kMinZoom, kMaxZoom);
    v.scrollX = frame * v.pixelsPerFrame - mx;
  } else if ((event->modifiers() & Qt::ShiftModifier) || d.y() == 0) {
    // Some desktops turn a Shift+wheel into a horizontal one: either way the frames scroll.
    v.scrollX -= (d.x() ? d.x() : d.y()) / kWheelNotch * kScrollStep;
  } else {
    v.scrollY -= d.y() / kWheelNotch * kRowHeight;
  }
  clampView(v);
  update();
  event->accept();
}

bool TimelineView::event(QEvent* event) {
  // The timeline's keys come here before the window's shortcuts (Ctrl+A selects layers, not nodes).
  if (event->type() == QEvent::ShortcutOverride && timeline() &&
      timelineCommand(pressOf(static_cast<QKeyEvent&>(*event))) != TimelineCommand::none) {
    event->accept();
    return true;
  }
  return QWidget::event(event);
}

void TimelineView::keyPressEvent(QKeyEvent* event) {
  if (model_.timelineKey(pressOf(*event))) {
    refresh();
    return;
  }
  QWidget::keyPressEvent(event);
}

void TimelineView::contextMenuEvent(QContextMenuEvent* event) {
  if (const TLayer* l = layerAt(event->pos())) openLayerMenu(l->id, event->pos());
}

void TimelineView::openLayerMenu(const Uuid& layer, QPoint at) {
  renameAsked_ = false;
  if (auto menu = layerMenu(layer)) menu->exec(mapToGlobal(at));
  if (std::exchange(renameAsked_, false)) renameLayer(layer);  // asked once the menu is closed
  refresh();
}

std::unique_ptr<QMenu> TimelineView::layerMenu(const Uuid& id) {
  const Timeline* t = timeline();
  const int i = t ? t->indexOf(id) : -1;
  if (i < 0) return nullptr;
  const TLayer& l = t->layers[std::size_t(i)];
  auto menu = std::make_unique<QMenu>(this);
  auto add = [&](const char* text, const char* name, auto action) {
    QAction* a = menu->addAction(menuText(shown(text)));
    a->setObjectName(name);
    connect(a, &QAction::triggered, this, action);
    return a;
  };
  // Each edit is one undo step of the timeline.
  auto edit = [this, id](auto change) {
    return [this, id, change] {
      model_.tlCheckpoint();
      change(id);
      refresh();
    };
  };
  add("Renommer", "renameLayer", [this] { renameAsked_ = true; });
  add("Monter", "layerUp", edit([this](const Uuid& x) { model_.moveLayer(x, true); }))->setEnabled(i > 0);
  add("Descendre", "layerDown", edit([this](const Uuid& x) { model_.moveLayer(x, false); }))
      ->setEnabled(i + 1 < int(t->layers.size()));
  add("Placer au début de la tête de lecture", "layerToPlayhead", edit([this](const Uuid& x) {
        const int frame = model_._currentFrame;
        model_.updateLayer(x, [frame](TLayer& layer) { layer.start = frame; });
      }));
  add("Supprimer le calque", "deleteLayer", edit([this](const Uuid& x) { model_.deleteLayer(x); }));
  menu->addSeparator();
  if (l.source.isBatch())
    add("Ouvrir le graphe", "openLayerBatch", [this, id] { model_.openLayerBatch(id); });
  else
    add("Transformer en graphe", "layerToBatch", [this, id] { model_.layerToBatch(id); });
  return menu;
}

std::unique_ptr<QMenu> TimelineView::blendMenu(const Uuid& id) {
  const Timeline* t = timeline();
  const TLayer* l = t ? t->layer(id) : nullptr;
  if (!l) return nullptr;
  auto menu = std::make_unique<QMenu>(this);
  const char* names[] = {"Normal", "Add", "Screen", "Multiply"};
  for (int k = 0; k < 4; ++k) {
    QAction* a = menu->addAction(shown(names[k]));
    a->setObjectName(QString("blend:%1").arg(k));
    a->setCheckable(true);
    a->setChecked(l->blend == k);
    connect(a, &QAction::triggered, this, [this, id, k] {
      const TLayer* now = timeline() ? timeline()->layer(id) : nullptr;
      if (!now || now->blend == k) return;
      model_.tlCheckpoint();
      model_.updateLayer(id, [k](TLayer& x) { x.blend = k; });
      refresh();
    });
  }
  return menu;
}

std::unique_ptr<QMenu> TimelineView::importMenu() {
  if (!timeline()) return nullptr;
  auto menu = std::make_unique<QMenu>(this);
  auto add = [&](const std::string& name, LayerSource source) {
    QAction* a = menu->addAction(menuText(name));
    connect(a, &QAction::triggered, this, [this, source] {
      model_.tlCheckpoint();
      model_.addLayer(source, model_._currentFrame);
      refresh();
    });
  };
  bool any = false;
  menu->addSection(shown("Mondes"));
  for (const Batch& b : model_._batches)
    if (!b.placeholder && !b.filmTimeline) add(b.name, LayerSource::batch(b.id)), any = true;
  menu->addSection(shown("Médias"));
  for (const MediaItem& m : model_._media) add(m.name, LayerSource::media(m.id)), any = true;
  if (!any) menu->addAction(shown("Aucun"))->setEnabled(false);
  return menu;
}

void TimelineView::renameLayer(const Uuid& id) {
  const Timeline* t = timeline();
  const TLayer* l = t ? t->layer(id) : nullptr;
  if (!l) return;
  auto dialog = [this](const QString& present) {
    return askLine(this, "renameLayer", shown("Renommer le calque"), shown("Nom du calque"), present);
  };
  const auto name = askName ? askName(qs(l->name)) : dialog(qs(l->name));
  if (!name || name->trimmed().isEmpty() || name->trimmed().toStdString() == l->name) return;
  model_.tlCheckpoint();
  model_.updateLayer(id, [n = name->trimmed().toStdString()](TLayer& x) { x.name = n; });
  refresh();
}

void TimelineView::dragEnterEvent(QDragEnterEvent* event) {
  if (timeline() && event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void TimelineView::dropEvent(QDropEvent* event) {
  // Files dropped on the frames become layers from the frame under the pointer.
  std::vector<std::filesystem::path> files;
  for (const QUrl& url : event->mimeData()->urls())
    if (url.isLocalFile()) files.push_back(url.toLocalFile().toStdString());
  if (files.empty() || !timeline()) return;
  model_.dropOnTimeline({}, files, std::max(geometryNow().frameAt(std::max<double>(event->position().x(), kHeaderWidth)), 0));
  event->acceptProposedAction();
  refresh();
}

}  // namespace ombrik
