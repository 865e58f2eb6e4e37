#pragma once
// The graph of the open world, drawn and edited by hand: select, move, wire, cut, add, delete,
// copy and paste. A node dragged alone snaps onto the node it touches or into a wire; dropped on
// the bands along the bottom it is deleted or locked on the viewer. Each world keeps its own pan
// and zoom. New nodes never land on another one, and the view follows them.
//
// A plain drag on the background cuts the wires it crosses; with Shift it draws a marquee that
// selects the nodes whose centre it holds (Ctrl+Shift adds them to the selection). Shift is the
// modifier because Ctrl already means "add" on a click, and Alt+drag is the window manager's on
// many desktops. For the same reason an input is armed by a tap of Alt (press and release) near
// its node, never by Alt+drag: each further tap arms the next input, an output then brought close
// to it connects on release, and that link stays when the nodes are pulled apart. Esc cancels.
// A adds a dot into the wire under the pointer. Open groups are drawn as frames behind their
// nodes, with a chip that closes them; a double click opens a group node.
#include <QElapsedTimer>
#include <QRectF>
#include <QWidget>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "groups/node_group.h"
#include "shell/schematic_geometry.h"
#include "shell/schematic_painter.h"

class QMenu;

namespace ombrik {

class AppModel;
class QuickAddPanel;

class NodeEditor : public QWidget {
public:
  explicit NodeEditor(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // repaints only when what is drawn changed
  void frameAll();
  // The selected nodes, or all of them when none is (F).
  void frameSelection();
  schematic::View view() const;
  QPointF toView(Point g) const;
  Point toGraph(QPointF v) const;
  // The kinds menu: at a point of the graph, or (`quick`) after the selected node or at the end
  // of the wire left in empty space.
  void openKindMenu(QPoint viewPos, bool quick);
  // The kinds menu and a node's own menu, made without being run (the editor runs them on a
  // right click).
  std::unique_ptr<QMenu> kindMenu(QPoint viewPos, bool quick);
  std::unique_ptr<QMenu> nodeMenu(const Uuid& id);
  // The Tab search panel at a point of the view (after the selected node, or at the end of the
  // wire left in empty space).
  void openQuickAdd(QPoint viewPos);
  QuickAddPanel* quickAddPanel() const { return quickAdd_; }
  // A widget on which a dragged node is dropped to be shown (the viewer), and what tells it
  // whether a node is held over it now.
  void setShowTarget(QWidget* target, std::function<void(bool)> hovered);
  // Where a node and the name under it are drawn, in view points.
  QRectF nodeRect(const Uuid& id) const;
  // A dot on the wire under the pointer, put into that wire; nothing away from wires.
  void addDotAtMouse();
  // The input waiting for an output (armed by a tap of Alt), and the output now close to it.
  std::optional<schematic::PortHit> armedInput() const { return armed_; }
  std::optional<schematic::PortHit> armedContact() const { return armedContact_; }
  // An open group's frame and the chip that closes it, in view points; empty for an unknown id.
  QRectF groupFrame(const Uuid& openGroup) const;
  QRectF closeChip(const Uuid& openGroup) const;
  // Asks for the node's new name (an empty one gives back its kind's title).
  void renameNode(const Uuid& id);
  // How the name is asked, given the present one; none: cancelled. A dialog unless set (tests
  // answer without a modal loop).
  std::function<std::optional<QString>(const QString& present)> askName;

protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  bool focusNextPrevChild(bool) override { return false; }  // Tab opens the kinds menu here
  bool event(QEvent* event) override;

private:
  enum class Gesture { none, press, moveNodes, wire, cut, marquee, pan, zoom };
  // What is drawn; a refresh that finds it unchanged paints nothing.
  struct Drawn {
    std::vector<std::pair<Uuid, std::string>> nodes;
    std::vector<int> inputs;
    std::vector<bool> bypass;
    std::vector<std::string> names, titles;
    std::vector<OpenGroup> openGroups;
    std::optional<schematic::PortHit> armed;
    std::vector<Edge> edges;
    std::map<Uuid, Point> positions;
    std::set<Uuid> selection;
    std::optional<Uuid> selected, displayed, inspectorLock;
    bool viewLocked = false;
    int thumbs = 0;
    bool operator==(const Drawn&) const = default;
  };
  Drawn drawn() const;
  schematic::View& currentView();
  void finishWire(Point g);
  void dragNodes(QPointF at);
  void dropNodes(Qt::KeyboardModifiers mods);
  void endDrag();
  void toggleBypassOfSelection();
  void selectMarquee(bool additive);
  // The armed input: a tap of Alt arms it (or the next one), a drag brings an output to it.
  void armNextInput();
  void cancelArmed();
  void followArmedContact();
  bool tryArmedConnect();
  std::string armedName() const;
  void addGroupEntries(QMenu& menu, const Uuid& id, const std::set<Uuid>& selection);
  bool pressCloseChip(QPointF at);
  std::vector<GroupFrameShown> groupFramesShown() const;
  void openNodeMenu(const Uuid& id, QPoint viewPos);
  void frame(const std::set<Uuid>& ids);  // empty: every node
  // Nodes just added, moved together the least that clears every other node, then brought into view.
  void settle(const std::set<Uuid>& added);
  double portReach() const;  // in graph units
  void setView(const schematic::View& v);

  AppModel& model_;
  QuickAddPanel* quickAdd_ = nullptr;
  QWidget* showTarget_ = nullptr;
  std::function<void(bool)> showHovered_;
  bool overShowTarget_ = false;
  bool overShowTarget(QPointF at) const;
  std::vector<Uuid> pullWires_;  // wires to the nodes the dragged one touched when it was picked up
  void pullApart();
  std::map<Uuid, schematic::View> views_;  // by world; the nil id stands for none
  Drawn shown_;
  Gesture gesture_ = Gesture::none;
  QPointF pressAt_;
  bool ctrlAtPress_ = false;
  std::optional<Uuid> pressedNode_;
  std::map<Uuid, Point> dragStart_;
  // A node dragged alone: the node it touches and what letting it go would do.
  std::optional<Uuid> contact_;
  std::optional<schematic::Snap> snap_;
  schematic::DropBand band_ = schematic::DropBand::none;
  // A wire being drawn: its source, and the wire it was picked up from, if any.
  Uuid wireFrom_;
  int wireFromPort_ = 0;
  std::optional<Uuid> detached_;
  QPointF wireEnd_;
  std::optional<schematic::PortHit> wireHover_;
  QPointF cutEnd_;
  QPointF lastMouse_;  // where the pointer was last seen over the editor
  QPointF pointer() const;
  std::optional<schematic::PortHit> armed_, armedContact_;
  bool altTap_ = false;            // Alt is down and nothing else happened since
  std::set<Uuid> lockedEdges_;     // wires made on an armed input: pulling the nodes apart keeps them
  schematic::View viewAtPress_;
  bool renameAsked_ = false;  // by the node menu, done once it has closed
  bool spaceDown_ = false;
  bool spaceNavigated_ = false;
  QElapsedTimer spaceHeld_;
};

}  // namespace ombrik
