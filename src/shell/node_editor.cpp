#include "shell/node_editor.h"

#include <QContextMenuEvent>
#include <QFontMetricsF>
#include <QMenu>
#include <QPainter>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <utility>

#include "document/app_model.h"
#include "document/node_place.h"
#include "shell/kind_menu.h"
#include "shell/quick_add_panel.h"
#include "shell/schematic_painter.h"
#include "shell/schematic_picks.h"
#include "shell/qt_dialogs.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
constexpr double kDragThreshold = 3;    // pixels before a press becomes a drag
constexpr double kPortReach = 10;       // pixels around a port that still grab it
constexpr double kPortReachMax = 17;    // graph units: zoomed out, a port never covers its node
constexpr int kFramedSize = 80;         // an editor smaller than this is not laid out yet
constexpr double kWheelLine = 10;       // pixels a wheel line pans, as the schematic counts it
constexpr qint64 kSpaceTapMs = 400;   // a longer press of Space is no tap
constexpr double kRevealMargin = 24;  // pixels kept between a node brought into view and the edge
const Point kPasteOffset{40, 40};
constexpr double kGroupFrameReach = 80 + 12;  // an open group's frame, and a little air around it

Point pt(QPointF p) { return {p.x(), p.y()}; }

// What a node covers at zoom 1: its disc, the mark lit above it, and its name below in the
// painter's type (bold when selected, so the wider of the two).
NodeRoom roomOf(const Node& n, QFont font) {
  const double r = schematic::radius(n);
  if (n.kind->id == "dot") return {r, r, r, r};
  font.setPixelSize(12);
  font.setBold(true);
  const double half = std::max(r, QFontMetricsF(font).horizontalAdvance(qs(n.title())) / 2 + 2);
  return {half, r + 10, half, r + 3 + 12 * 1.6};
}
}  // namespace

NodeEditor::NodeEditor(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("nodeEditor");
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setMinimumSize(200, 160);
}

schematic::View& NodeEditor::currentView() { return views_[model_._currentBatchID.value_or(Uuid())]; }

schematic::View NodeEditor::view() const {
  auto it = views_.find(model_._currentBatchID.value_or(Uuid()));
  return it == views_.end() ? schematic::View{} : it->second;
}

void NodeEditor::setView(const schematic::View& v) {
  currentView() = v;
  update();
}

QPointF NodeEditor::toView(Point g) const {
  const Point v = view().toView(g);
  return {v.x, v.y};
}

Point NodeEditor::toGraph(QPointF v) const { return view().toGraph(pt(v)); }

void NodeEditor::frameAll() { frame({}); }

void NodeEditor::frameSelection() {
  std::set<Uuid> ids = model_._selection;
  if (model_._selected) ids.insert(*model_._selected);
  std::erase_if(ids, [&](const Uuid& id) { return !model_.nodeByID(id) || !model_.layout.position(id); });
  frame(ids);
}

void NodeEditor::frame(const std::set<Uuid>& ids) {
  std::vector<Point> centres;
  std::vector<double> reach;
  for (const auto& [id, p] : model_.layout.positions())
    if (const Node* n = model_.nodeByID(id); n && (ids.empty() || ids.count(id))) {
      centres.push_back(p);
      // The circle and the name under it; a node of an open group brings its frame in view.
      const bool framed = std::any_of(model_._openGroups.begin(), model_._openGroups.end(), [&](const OpenGroup& g) {
        return std::count(g.members.begin(), g.members.end(), id) > 0;
      });
      reach.push_back(std::max(schematic::radius(*n) + 24, framed ? kGroupFrameReach : 0.0));
    }
  if (auto v = schematic::frameAll(centres, width(), height(), reach)) setView(*v);
}

QRectF NodeEditor::nodeRect(const Uuid& id) const {
  const Node* n = model_.nodeByID(id);
  const auto c = model_.layout.position(id);
  if (!n || !c) return {};
  const NodeRoom room = roomOf(*n, font());
  return QRectF(toView({c->x - room.left, c->y - room.top}), toView({c->x + room.right, c->y + room.bottom}));
}

void NodeEditor::settle(const std::set<Uuid>& added) {
  std::optional<Point> lo, hi;
  std::vector<NodeFootprint> others;
  for (const Node& n : model_._nodes) {
    const auto c = model_.layout.position(n.id);
    if (!c) continue;
    const NodeRoom room = roomOf(n, font());
    if (!added.count(n.id)) {
      others.push_back({*c, room});
      continue;
    }
    const Point a{c->x - room.left, c->y - room.top}, b{c->x + room.right, c->y + room.bottom};
    lo = lo ? Point{std::min(lo->x, a.x), std::min(lo->y, a.y)} : a;
    hi = hi ? Point{std::max(hi->x, b.x), std::max(hi->y, b.y)} : b;
  }
  if (!lo) return;
  // Several nodes (a paste) move as one block, so their own layout is kept.
  const Point anchor{(lo->x + hi->x) / 2, (lo->y + hi->y) / 2};
  const Point to = clearPlace(anchor, {anchor.x - lo->x, anchor.y - lo->y, hi->x - anchor.x, hi->y - anchor.y}, others);
  const Point d{to.x - anchor.x, to.y - anchor.y};
  if (d.x != 0 || d.y != 0)
    for (const Uuid& id : added)
      if (const auto c = model_.layout.position(id)) model_.layout.set(id, {c->x + d.x, c->y + d.y});
  // A world not framed yet is framed whole, the new nodes with it, once the editor is shown.
  if (views_.count(model_._currentBatchID.value_or(Uuid())) && width() >= kFramedSize && height() >= kFramedSize)
    setView(schematic::revealed(view(), {lo->x + d.x, lo->y + d.y}, {hi->x + d.x, hi->y + d.y}, width(), height(),
                                kRevealMargin));
  refresh();
}

NodeEditor::Drawn NodeEditor::drawn() const {
  Drawn d;
  for (const auto& n : model_._nodes) {
    d.nodes.emplace_back(n.id, n.kind->id);
    d.inputs.push_back(n.inputCount());
    d.bypass.push_back(n.bypass);
    d.names.push_back(n.name);
    d.titles.push_back(n.title());
  }
  d.openGroups = model_._openGroups;
  d.armed = armed_;
  d.edges = model_._edges;
  d.positions = model_.layout.positions();
  d.selection = model_._selection;
  d.selected = model_._selected;
  d.displayed = model_.displayedNodeID();
  d.inspectorLock = model_.inspectorLock;
  d.viewLocked = model_._viewLocked;
  d.thumbs = model_.thumbsVersion;
  return d;
}

void NodeEditor::refresh() {
  // A world seen for the first time is framed once the editor is shown at its real size.
  if (isVisible() && width() >= kFramedSize && height() >= kFramedSize &&
      !views_.count(model_._currentBatchID.value_or(Uuid())))
    frameAll();
  // An armed input whose node has gone (undone, deleted) waits for nothing.
  if (armed_ && (!model_.nodeByID(armed_->node) || armed_->port >= model_.nodeByID(armed_->node)->inputCount()))
    armed_.reset(), armedContact_.reset();
  Drawn now = drawn();
  if (now == shown_) return;
  shown_ = std::move(now);
  update();
}

void NodeEditor::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const schematic::View v = view();
  paintBackground(p, rect(), v);
  paintGroupFrames(p, groupFramesShown());
  SchematicScene scene{model_, v, model_.displayedNodeID(), gesture_ == Gesture::wire ? wireHover_ : std::nullopt, {},
                       armed_};
  const bool moving = gesture_ == Gesture::moveNodes;
  if (moving && snap_ && snap_->kind != schematic::Snap::Kind::link) scene.litEdge = snap_->edge;
  if (moving && snap_ && snap_->kind == schematic::Snap::Kind::link) scene.highlight = schematic::PortHit{snap_->to, snap_->port, false};
  paintWires(p, scene);
  if (armed_ && armedContact_) {
    const Node* from = model_.nodeByID(armedContact_->node);
    const Node* to = model_.nodeByID(armed_->node);
    auto pf = model_.layout.position(armedContact_->node), pt = model_.layout.position(armed_->node);
    if (from && to && pf && pt)
      paintSnapLink(p, v.toView(schematic::outPos(*from, *pf, armedContact_->port)),
                    v.toView(schematic::inPos(*to, *pt, armed_->port)));
  }
  if (moving && snap_ && snap_->kind == schematic::Snap::Kind::link) {
    const Node* from = model_.nodeByID(snap_->from);
    const Node* to = model_.nodeByID(snap_->to);
    auto pf = model_.layout.position(snap_->from), pt = model_.layout.position(snap_->to);
    if (from && to && pf && pt)
      paintSnapLink(p, v.toView(schematic::outPos(*from, *pf, 0)), v.toView(schematic::inPos(*to, *pt, snap_->port)));
  }
  paintNodes(p, scene);
  if (moving && pressedNode_) {
    const bool unlock = model_._viewLocked && model_._viewedNode == *pressedNode_;
    paintDropBands(p, width(), height(), band_, shown("Supprimer"),
                   shown(unlock ? "Libérer la vue" : "Verrouiller la vue"));
  }
  if (gesture_ == Gesture::wire)
    if (const Node* from = model_.nodeByID(wireFrom_))
      if (auto c = model_.layout.position(wireFrom_))
        paintPendingWire(p, v.toView(schematic::outPos(*from, *c, wireFromPort_)), pt(wireEnd_));
  if (gesture_ == Gesture::cut) paintCutStroke(p, pt(pressAt_), pt(cutEnd_));
  if (gesture_ == Gesture::marquee) paintMarquee(p, pt(pressAt_), pt(cutEnd_));
}

void NodeEditor::mousePressEvent(QMouseEvent* event) {
  setFocus(Qt::MouseFocusReason);
  pressAt_ = lastMouse_ = event->position();
  altTap_ = false;
  ctrlAtPress_ = event->modifiers() & Qt::ControlModifier;
  viewAtPress_ = view();
  if (event->button() == Qt::MiddleButton || (event->button() == Qt::LeftButton && spaceDown_)) {
    gesture_ = spaceDown_ && ctrlAtPress_ ? Gesture::zoom : Gesture::pan;
    return;
  }
  if (event->button() != Qt::LeftButton) return;
  const Point g = toGraph(pressAt_);
  const auto& positions = model_.layout.positions();
  const double reach = portReach();
  // A node or port under the pointer comes before a frame's chip, which doesn't shrink with the zoom.
  if (!schematic::portAt(model_._nodes, positions, g, reach) && !schematic::nodeAt(model_._nodes, positions, g) &&
      pressCloseChip(pressAt_))
    return;
  if (auto port = schematic::portAt(model_._nodes, positions, g, reach)) {
    if (port->isOutput) {
      gesture_ = Gesture::wire;
      wireFrom_ = port->node;
      wireFromPort_ = port->port;
      detached_.reset();
      wireEnd_ = pressAt_;
      return;
    }
    // An input that holds a wire gives that wire back to the hand, to move or to drop.
    for (const Edge& e : model_._edges)
      if (e.to == port->node && e.port == port->port) {
        gesture_ = Gesture::wire;
        wireFrom_ = e.from;
        wireFromPort_ = e.fromPort;
        detached_ = e.id;
        wireEnd_ = pressAt_;
        update();
        return;
      }
  }
  if (const Node* n = schematic::nodeAt(model_._nodes, positions, g)) {
    pressedNode_ = n->id;
    if (!ctrlAtPress_ && !model_.isSelected(n->id)) model_.select(n->id);
    gesture_ = Gesture::press;
    dragStart_.clear();
    std::set<Uuid> moving = model_._selection;
    if (model_._selected) moving.insert(*model_._selected);
    moving.insert(n->id);
    for (const Uuid& id : moving)
      if (auto p = model_.layout.position(id)) dragStart_[id] = *p;
    refresh();
    return;
  }
  gesture_ = event->modifiers() & Qt::ShiftModifier ? Gesture::marquee : Gesture::cut;
  cutEnd_ = pressAt_;
}

void NodeEditor::mouseMoveEvent(QMouseEvent* event) {
  const QPointF at = lastMouse_ = event->position();
  const QPointF d = at - pressAt_;
  switch (gesture_) {
    case Gesture::press:
      if (std::abs(d.x()) + std::abs(d.y()) <= kDragThreshold) return;
      gesture_ = Gesture::moveNodes;
      model_.interactiveDrag = true;
      if (pressedNode_ && dragStart_.size() == 1)
        pullWires_ = schematic::touchingWires(model_._nodes, model_._edges, model_.layout.positions(), *pressedNode_);
      [[fallthrough]];
    case Gesture::moveNodes:
      dragNodes(at);
      return;
    case Gesture::wire: {
      wireEnd_ = at;
      const Point g = toGraph(at);
      auto port = schematic::portAt(model_._nodes, model_.layout.positions(), g, portReach());
      wireHover_ = port && !port->isOutput ? port
                                           : schematic::wireTarget(model_._nodes, model_._edges, model_.layout.positions(),
                                                                   wireFrom_, wireFromPort_, g);
      update();
      return;
    }
    case Gesture::cut:
    case Gesture::marquee:
      cutEnd_ = at;
      update();
      return;
    case Gesture::pan:
      if (std::abs(d.x()) + std::abs(d.y()) > 2) spaceNavigated_ = true;
      setView({{viewAtPress_.pan.x + d.x(), viewAtPress_.pan.y + d.y()}, viewAtPress_.zoom});
      return;
    case Gesture::zoom:
      spaceNavigated_ = true;
      setView(viewAtPress_.zoomedAbout(pt(pressAt_), std::exp((d.x() - d.y()) * 0.006)));
      return;
    case Gesture::none:
      return;
  }
}

void NodeEditor::mouseReleaseEvent(QMouseEvent* event) {
  const Gesture g = std::exchange(gesture_, Gesture::none);
  const Point at = toGraph(event->position());
  switch (g) {
    case Gesture::press:
      if (!pressedNode_) break;
      // Ctrl adds to what is selected, and the node selected alone so far is part of that.
      if (ctrlAtPress_ && model_._selection.empty() && model_._selected && *model_._selected != *pressedNode_)
        model_.select(*model_._selected, true);
      model_.select(*pressedNode_, ctrlAtPress_);
      break;
    case Gesture::moveNodes:
      dropNodes(event->modifiers());
      break;
    case Gesture::wire:
      finishWire(at);
      break;
    case Gesture::cut: {
      const QPointF d = event->position() - pressAt_;
      if (std::abs(d.x()) + std::abs(d.y()) <= kDragThreshold) {
        model_.select(std::nullopt);
        break;
      }
      for (const Uuid& id : schematic::edgesCrossed(model_._nodes, model_._edges, model_.layout.positions(),
                                                    toGraph(pressAt_), at))
        model_.disconnect(id);
      break;
    }
    case Gesture::marquee:
      selectMarquee(ctrlAtPress_);
      break;
    default:
      break;
  }
  endDrag();
  wireHover_.reset();
  refresh();
  update();
}

void NodeEditor::dragNodes(QPointF at) {
  const QPointF d = at - pressAt_;
  const double z = view().zoom;
  for (const auto& [id, start] : dragStart_) model_.layout.set(id, {start.x + d.x() / z, start.y + d.y() / z});
  band_ = schematic::bandAt(pt(at), width(), height());
  const bool over = overShowTarget(at);
  if (over != overShowTarget_ && showHovered_) showHovered_(over);
  overShowTarget_ = over;
  // Only a node moved alone snaps, and not while it is held over a band.
  const auto centre = pressedNode_ ? model_.layout.position(*pressedNode_) : std::nullopt;
  if (band_ == schematic::DropBand::none && dragStart_.size() == 1 && centre) {
    contact_ = schematic::contactOf(model_._nodes, model_.layout.positions(), *pressedNode_, *centre, contact_);
    snap_ = schematic::computeSnap(model_._nodes, model_._edges, model_.layout.positions(), *pressedNode_, *centre, contact_);
  } else {
    contact_.reset();
    snap_.reset();
  }
  if (!snap_ && band_ == schematic::DropBand::none) pullApart();
  followArmedContact();
  update();
}

void NodeEditor::pullApart() {
  // Touching nodes part like drops: a little apart the wire is warned about, further it is cut.
  double furthest = -INFINITY;
  const auto locked = std::erase_if(pullWires_, [&](const Uuid& e) { return lockedEdges_.count(e) > 0; });
  if (locked) model_._status = "Lien verrouillé : vous pouvez déplacer le node librement.";
  for (const Uuid& e : pullWires_) {
    const double d = schematic::pullDistance(model_._nodes, model_._edges, model_.layout.positions(), e);
    if (d > schematic::kPullLimit) snap_ = schematic::Snap::disconnect(e);
    furthest = std::max(furthest, d);
  }
  if (snap_) model_._status = "Lâchez pour déconnecter";
  else if (furthest > 0) model_._status = "Écartez pour déconnecter";
}

void NodeEditor::dropNodes(Qt::KeyboardModifiers mods) {
  if (!pressedNode_) return;
  const Uuid node = *pressedNode_;
  if (overShowTarget_) {  // dropped on the viewer: shown there, and back in its place
    for (const auto& [id, start] : dragStart_) model_.layout.set(id, start);
    model_._viewedNode = node;
    model_.requestRender();
    return;
  }
  if (band_ != schematic::DropBand::none) {
    // A drop on a band is a command, not a move: the nodes go back where they were first.
    for (const auto& [id, start] : dragStart_) model_.layout.set(id, start);
    if (band_ == schematic::DropBand::context) model_.toggleViewLock(node);
    else if (model_.isSelected(node)) model_.deleteSelection();
    else model_.deleteNode(node);
    return;
  }
  if (tryArmedConnect()) {  // after the bands: a drop on the trash deletes, armed input or not
    snap_.reset();
    return;
  }
  if (!snap_) return;
  if (snap_->kind == schematic::Snap::Kind::disconnect) {
    model_.disconnect(snap_->edge);
    model_._status.clear();
    return;
  }
  if (snap_->kind == schematic::Snap::Kind::link) model_.connect(snap_->from, snap_->to, snap_->port, 0);
  else if ((mods & Qt::ControlModifier) && (mods & Qt::ShiftModifier)) model_.intercalate(node, snap_->edge);
  else model_.insert(node, snap_->edge);
}

void NodeEditor::setShowTarget(QWidget* target, std::function<void(bool)> hovered) {
  showTarget_ = target;
  showHovered_ = std::move(hovered);
}

bool NodeEditor::overShowTarget(QPointF at) const {
  if (!showTarget_ || !showTarget_->isVisible()) return false;
  const QPoint global = mapToGlobal(at.toPoint());
  return showTarget_->rect().contains(showTarget_->mapFromGlobal(global));
}

void NodeEditor::endDrag() {
  pressedNode_.reset();
  armedContact_.reset();
  dragStart_.clear();
  contact_.reset();
  snap_.reset();
  pullWires_.clear();
  if (model_._status == "Écartez pour déconnecter" || model_._status == "Lâchez pour déconnecter") model_._status.clear();
  band_ = schematic::DropBand::none;
  if (std::exchange(overShowTarget_, false) && showHovered_) showHovered_(false);
  if (!model_.interactiveDrag) return;
  model_.interactiveDrag = false;
  // Renders held back while the node moved are due now.
  if (std::exchange(model_.renderPendingAfterDrag, false)) model_.requestRender();
}

void NodeEditor::mouseDoubleClickEvent(QMouseEvent* event) {
  const Node* n = event->button() == Qt::LeftButton
                      ? schematic::nodeAt(model_._nodes, model_.layout.positions(), toGraph(event->position()))
                      : nullptr;
  if (!n) return QWidget::mouseDoubleClickEvent(event);
  gesture_ = Gesture::none;  // the press before it started nothing that should go on
  endDrag();
  if (n->group) model_.expandGroup(n->id, false);
  else model_.toggleInspectorLock(n->id);
  refresh();
  update();
}

double NodeEditor::portReach() const { return std::min(kPortReach / view().zoom, kPortReachMax); }

void NodeEditor::finishWire(Point g) {
  auto port = schematic::portAt(model_._nodes, model_.layout.positions(), g, portReach());
  std::optional<schematic::PortHit> target = port && !port->isOutput && port->node != wireFrom_ ? port : std::nullopt;
  if (!target) target = schematic::wireTarget(model_._nodes, model_._edges, model_.layout.positions(), wireFrom_, wireFromPort_, g);
  const Node* under = schematic::nodeAt(model_._nodes, model_.layout.positions(), g);
  if (target) {
    const bool samePlace = detached_ && std::any_of(model_._edges.begin(), model_._edges.end(), [&](const Edge& e) {
      return e.id == *detached_ && e.to == target->node && e.port == target->port;
    });
    if (samePlace) return;
    if (detached_) model_.disconnect(*detached_);
    model_.connect(wireFrom_, target->node, target->port, wireFromPort_);
    return;
  }
  if (detached_) {  // a wire taken off its input and let go elsewhere is removed
    model_.disconnect(*detached_);
    return;
  }
  if (under && under->id != wireFrom_) {
    model_._status = under->title() + " : toutes les entrées sont déjà branchées";
    return;
  }
  if (!under) {
    // Let go in empty space: what is chosen next is placed there, on the end of the wire.
    model_.quickAddLink = AppModel::QuickAddLink{wireFrom_, g};
    model_.quickAddFromPort = wireFromPort_;
    openQuickAdd(toView(g).toPoint());
  }
}

void NodeEditor::openKindMenu(QPoint viewPos, bool quick) {
  kindMenu(viewPos, quick)->exec(mapToGlobal(viewPos));
  // The link to the end of a dropped wire serves one choice, or none.
  model_.quickAddLink.reset();
  refresh();
}

std::unique_ptr<QMenu> NodeEditor::kindMenu(QPoint viewPos, bool quick) {
  auto menu = std::make_unique<QMenu>(this);
  menu->setObjectName("kindMenu");
  const Point at = toGraph(viewPos);
  fillKindMenu(*menu, [this, at, quick](const KindRef& kind) {
    if (quick) model_.quickAdd(kind);
    else model_.addNode(kind, at);
    if (model_._selected) settle({*model_._selected});  // a node added is the one selected
  }, model_.userNodes.kinds());
  return menu;
}

void NodeEditor::openQuickAdd(QPoint viewPos) {
  if (!quickAdd_) {
    quickAdd_ = new QuickAddPanel(model_, this);
    quickAdd_->onAdded = [this](const Uuid& id) { settle({id}); };
  }
  // Kept inside the editor's screen area, whatever the pointer's place.
  const QPoint at = rect().contains(viewPos) ? viewPos : rect().center();
  quickAdd_->open(mapToGlobal(at));
}

void NodeEditor::contextMenuEvent(QContextMenuEvent* event) {
  model_.quickAddLink.reset();
  if (const Node* n = schematic::nodeAt(model_._nodes, model_.layout.positions(), toGraph(event->pos())))
    return openNodeMenu(n->id, event->pos());
  openKindMenu(event->pos(), false);
}

void NodeEditor::openNodeMenu(const Uuid& id, QPoint viewPos) {
  renameAsked_ = false;
  if (auto menu = nodeMenu(id)) menu->exec(mapToGlobal(viewPos));
  if (std::exchange(renameAsked_, false)) renameNode(id);  // asked once the menu is closed
  refresh();
}

std::unique_ptr<QMenu> NodeEditor::nodeMenu(const Uuid& id) {
  const Node* node = model_.nodeByID(id);
  if (!node) return nullptr;
  // Duplicate and delete take the whole selection when the node is part of it, as the trash band does.
  std::set<Uuid> group{id};
  if (model_.isSelected(id)) {
    group.insert(model_._selection.begin(), model_._selection.end());
    if (model_._selected) group.insert(*model_._selected);
  }
  const bool onlyOutput = std::all_of(group.begin(), group.end(), [&](const Uuid& g) {
    const Node* n = model_.nodeByID(g);
    return !n || n->kind->id == "output";
  });
  auto menu = std::make_unique<QMenu>(this);
  menu->setObjectName("nodeMenu");
  QAction* rename = menu->addAction(shown("Renommer…"));
  rename->setObjectName("rename");
  connect(rename, &QAction::triggered, this, [this] { renameAsked_ = true; });
  QAction* duplicate = menu->addAction(shown("Dupliquer"));
  duplicate->setObjectName("duplicate");
  duplicate->setEnabled(!onlyOutput);  // a world has one output
  connect(duplicate, &QAction::triggered, this, [this, group] {
    model_.duplicateNodes(group, kPasteOffset);
    settle(model_._selection);
  });
  QAction* bypass = menu->addAction(shown("Bypass"));
  bypass->setObjectName("bypass");
  bypass->setCheckable(true);
  bypass->setChecked(node->bypass);
  bypass->setShortcut(QKeySequence(Qt::Key_D));
  connect(bypass, &QAction::triggered, this, [this, id](bool on) { model_.setBypass(id, on); });
  addGroupEntries(*menu, id, group);
  menu->addSeparator();
  QAction* remove = menu->addAction(shown("Supprimer"));
  remove->setObjectName("delete");
  remove->setShortcut(QKeySequence(Qt::Key_Delete));
  remove->setEnabled(!onlyOutput);  // the output is never deleted
  connect(remove, &QAction::triggered, this, [this, id, group] {
    if (group.size() > 1) model_.deleteSelection();
    else model_.deleteNode(id);
  });
  return menu;
}

void NodeEditor::renameNode(const Uuid& id) {
  const Node* n = model_.nodeByID(id);
  if (!n) return;
  auto dialog = [this](const QString& present) {
    return askLine(this, "renameNode", shown("Renommer le node"), shown("Nom du node (vide : le nom de son type)"), present);
  };
  const auto name = askName ? askName(qs(n->title())) : dialog(qs(n->title()));
  if (!name) return;
  model_.renameNode(id, name->toStdString());
  refresh();
}

void NodeEditor::selectMarquee(bool additive) {
  const auto inside =
      schematic::nodesInRect(model_._nodes, model_.layout.positions(), toGraph(pressAt_), toGraph(cutEnd_));
  if (!additive) model_.select(std::nullopt);
  // The node selected alone so far joins the set before others are added to it, as Ctrl+click does.
  else if (model_._selection.empty() && model_._selected) model_.select(*model_._selected, true);
  for (const Uuid& id : inside)
    if (!model_._selection.count(id)) model_.select(id, true);
}

QPointF NodeEditor::pointer() const {
  // A pointer resting over the editor since it was shown has sent no move: ask where it is.
  if (underMouse())
    if (const QPointF at = mapFromGlobal(QCursor::pos().toPointF()); rect().contains(at.toPoint())) return at;
  return lastMouse_;
}

void NodeEditor::addDotAtMouse() {
  const double reach = std::max(schematic::kInsertReach, kPortReach / view().zoom);
  const auto hit = schematic::wireAt(model_._nodes, model_._edges, model_.layout.positions(), toGraph(pointer()), reach);
  if (!hit) return;
  const Uuid dot = model_.addNode(NodeKind::dot(), hit->point);
  model_.insert(dot, hit->edge);
  model_._status = "Point de regroupement ajouté : glissez-le pour ranger les fils, tirez d'autres fils depuis sa sortie.";
  refresh();
}

void NodeEditor::toggleBypassOfSelection() {
  std::set<Uuid> ids = model_._selection;
  if (model_._selected) ids.insert(*model_._selected);
  std::erase_if(ids, [&](const Uuid& id) { return !model_.nodeByID(id); });
  if (ids.empty()) return;
  // A mixed selection is all bypassed first, as one key press should give one state.
  const bool on = !std::all_of(ids.begin(), ids.end(), [&](const Uuid& id) { return model_.nodeByID(id)->bypass; });
  for (const Uuid& id : ids) model_.setBypass(id, on);
}

void NodeEditor::wheelEvent(QWheelEvent* event) {
  const schematic::View v = view();
  if (event->modifiers() & Qt::ControlModifier) {
    setView(v.zoomedAbout(pt(event->position()), std::pow(1.15, event->angleDelta().y() / 120.0)));
  } else {
    // Touchpads give pixels; a wheel gives notches of three lines.
    const QPointF d = !event->pixelDelta().isNull() ? QPointF(event->pixelDelta())
                                                    : QPointF(event->angleDelta()) / 120.0 * 3 * kWheelLine;
    setView({{v.pan.x + d.x(), v.pan.y + d.y()}, v.zoom});
  }
  event->accept();
}

void NodeEditor::keyPressEvent(QKeyEvent* event) {
  const bool ctrl = event->modifiers() & Qt::ControlModifier;
  // A tap of Alt alone arms an input; Alt held for a shortcut (Ctrl+Alt+G) arms nothing.
  altTap_ = event->key() == Qt::Key_Alt && !event->isAutoRepeat() &&
            !(event->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier | Qt::MetaModifier));
  switch (event->key()) {
    case Qt::Key_Alt:
      return QWidget::keyPressEvent(event);
    case Qt::Key_Escape:
      if (!armed_) return QWidget::keyPressEvent(event);
      cancelArmed();
      break;
    case Qt::Key_A:
      if (event->modifiers() != Qt::NoModifier || event->isAutoRepeat()) return QWidget::keyPressEvent(event);
      addDotAtMouse();
      break;
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
      model_.deleteSelection();
      break;
    case Qt::Key_C:
      if (!ctrl) return QWidget::keyPressEvent(event);
      model_.copyNodes();
      break;
    case Qt::Key_V:
      if (!ctrl) return QWidget::keyPressEvent(event);
      if (model_.copiedNodes.empty()) break;
      model_.pasteNodes(kPasteOffset);
      settle(model_._selection);  // the copies are the new selection
      break;
    case Qt::Key_F:
      if (event->modifiers() != Qt::NoModifier) return QWidget::keyPressEvent(event);
      frameSelection();
      break;
    case Qt::Key_D:
      if (event->modifiers() != Qt::NoModifier) return QWidget::keyPressEvent(event);
      toggleBypassOfSelection();
      break;
    case Qt::Key_Tab:
      model_.quickAddLink.reset();
      openQuickAdd(mapFromGlobal(QCursor::pos()));
      break;
    case Qt::Key_Space:
      if (!event->isAutoRepeat()) {
        spaceDown_ = true;
        spaceNavigated_ = false;
        spaceHeld_.start();
      }
      break;
    default:
      return QWidget::keyPressEvent(event);
  }
  refresh();
}

void NodeEditor::keyReleaseEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Alt && !event->isAutoRepeat() && std::exchange(altTap_, false)) {
    armNextInput();
    refresh();
    return;
  }
  if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
    spaceDown_ = false;
    // A short tap that moved nothing is the play key, as everywhere else in the window.
    if (!spaceNavigated_ && spaceHeld_.isValid() && spaceHeld_.elapsed() < kSpaceTapMs) model_.togglePlay();
    return;
  }
  QWidget::keyReleaseEvent(event);
}

bool NodeEditor::event(QEvent* event) {
  // Space is held here to pan, so it must reach this widget before the window's play shortcut;
  // Esc cancels an armed input before it leaves a full or channel view; and a tap of Alt arms an
  // input here instead of putting the menu bar in keyboard mode (which would take the focus).
  if (event->type() == QEvent::ShortcutOverride) {
    const auto* key = static_cast<QKeyEvent*>(event);
    const bool plain = !(key->modifiers() & ~(Qt::AltModifier | Qt::KeypadModifier));
    if ((key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier) || (key->key() == Qt::Key_Escape && armed_) ||
        (key->key() == Qt::Key_Alt && plain)) {
      event->accept();
      return true;
    }
  }
  return QWidget::event(event);
}

}  // namespace ombrik
