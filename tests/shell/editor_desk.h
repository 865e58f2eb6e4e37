#pragma once
// The editor tests' desk: a blank world in a node editor on screen, with the gestures the tests
// make by hand.
#include <QContextMenuEvent>
#include <QLineEdit>
#include <algorithm>
#include <functional>
#include <set>
#include <tuple>

#include "shell/node_editor.h"
#include "shell/quick_add_panel.h"
#include "shell/schematic_geometry.h"
#include "shell_app.h"

namespace ombrik::test {

using Link = std::tuple<Uuid, Uuid, int>;  // from, to, input

// A blank world (its output at 600, 140) with a correction and a blur side by side.
struct Desk {
  QApplication& app = shellApp();
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> model =
      std::make_unique<AppModel>(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
  std::unique_ptr<NodeEditor> editor;
  Uuid output = model->_nodes.front().id;
  Uuid color = model->addNode(NodeKind::color(), {200, 140});
  Uuid blur = model->addNode(*NodeKind::find("blur"), {400, 140});

  Desk() {
    model->select(std::nullopt);
    editor = std::make_unique<NodeEditor>(*model);
    editor->resize(900, 500);
    editor->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(editor.get()));
    editor->refresh();  // frames the world
  }
  Uuid add(const char* kind, Point at) { return model->addNode(*NodeKind::find(kind), at); }
  QPoint at(Point g) const { return editor->toView(g).toPoint(); }
  QPoint centre(const Uuid& id) const { return at(*model->layout.position(id)); }
  QPoint outPort(const Uuid& id, int port = 0) const {
    return at(schematic::outPos(*model->nodeByID(id), *model->layout.position(id), port));
  }
  QPoint inPort(const Uuid& id, int port) const {
    return at(schematic::inPos(*model->nodeByID(id), *model->layout.position(id), port));
  }
  void click(QPoint p, Qt::KeyboardModifiers mods = {}) { QTest::mouseClick(editor.get(), Qt::LeftButton, mods, p); }
  void click(const Uuid& id, Qt::KeyboardModifiers mods = {}) { click(centre(id), mods); }
  void key(Qt::Key k, Qt::KeyboardModifiers mods = {}) { QTest::keyClick(editor.get(), k, mods); }
  // Pressed at `from`, moved there in four steps, `midway` looked at, let go with `mods`.
  void drag(QPoint from, QPoint to, Qt::KeyboardModifiers mods = {}, const std::function<void()>& midway = {}) {
    QTest::mousePress(editor.get(), Qt::LeftButton, mods, from);
    for (int k = 1; k <= 4; ++k) QTest::mouseMove(editor.get(), from + (to - from) * k / 4);
    if (midway) midway();
    QTest::mouseRelease(editor.get(), Qt::LeftButton, mods, to);
  }
  // The right-click menu at `p` answered with its entry `name`; false when it wasn't offered.
  bool menuAt(QPoint p, const QString& name) {
    bool offered = false;
    pickInNextMenu(name, &offered);
    QContextMenuEvent click(QContextMenuEvent::Mouse, p, editor->mapToGlobal(p));
    QApplication::sendEvent(editor.get(), &click);
    return offered;
  }
  // The search opened by Tab or a wire let go in the void, given `text` and Return.
  void search(const char* text, bool tab = true) {
    if (tab) key(Qt::Key_Tab);
    QTest::keyClicks(editor->quickAddPanel()->field(), text);
    QTest::keyClick(editor->quickAddPanel()->field(), Qt::Key_Return);
  }
  // Each of `ids` is drawn whole inside the editor and over no other node or name.
  void expectClearAndInSight(const std::set<Uuid>& ids, const char* what = "") const {
    const QRectF inside = QRectF(editor->rect());
    for (const Uuid& id : ids) {
      const QRectF r = editor->nodeRect(id);
      EXPECT_TRUE(inside.contains(r)) << what << ": out of sight";
      for (const Node& other : model->_nodes) {
        if (other.id == id) continue;
        EXPECT_FALSE(r.intersects(editor->nodeRect(other.id))) << what << ": over " << other.kind->id;
      }
    }
  }
  void panBy(QPoint by) {
    QTest::mousePress(editor.get(), Qt::MiddleButton, {}, QPoint(100, 100));
    QTest::mouseMove(editor.get(), QPoint(100, 100) + by);
    QTest::mouseRelease(editor.get(), Qt::MiddleButton, {}, QPoint(100, 100) + by);
  }
  std::set<Uuid> selected() const {  // the selection with the selected node
    std::set<Uuid> s = model->_selection;
    if (model->_selected) s.insert(*model->_selected);
    return s;
  }
  std::set<Link> links() const {
    std::set<Link> out;
    for (const Edge& e : model->_edges) out.emplace(e.from, e.to, e.port);
    return out;
  }
  bool wired(const Uuid& from, const Uuid& to, int port) const { return links().count({from, to, port}) > 0; }
  Point pos(const Uuid& id) const { return *model->layout.position(id); }
};

}  // namespace ombrik::test
