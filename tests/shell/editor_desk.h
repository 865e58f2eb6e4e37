#pragma once
// The editor tests' desk: a blank world in a node editor on screen, with the gestures the tests
// make by hand.
#include <QTest>
#include <algorithm>
#include <memory>
#include <set>

#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/node_editor.h"
#include "shell/schematic_geometry.h"
#include "shell_app.h"

namespace ombrik::test {

// A blank world (its output at 600, 140) with a correction and a blur side by side.
struct Desk {
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> model;
  std::unique_ptr<NodeEditor> editor;
  Uuid output, color, blur;

  Desk() {
    test::shellApp();
    model = std::make_unique<AppModel>(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
    output = model->_nodes.front().id;
    color = model->addNode(NodeKind::color(), {200, 140});
    blur = model->addNode(*NodeKind::find("blur"), {400, 140});
    model->select(std::nullopt);
    editor = std::make_unique<NodeEditor>(*model);
    editor->resize(900, 500);
    editor->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(editor.get()));
    editor->refresh();  // frames the world
  }
  QPoint at(Point g) const { return editor->toView(g).toPoint(); }
  QPoint centre(const Uuid& id) const { return at(*model->layout.position(id)); }
  QPoint outPort(const Uuid& id, int port = 0) const {
    return at(schematic::outPos(*model->nodeByID(id), *model->layout.position(id), port));
  }
  QPoint inPort(const Uuid& id, int port) const {
    return at(schematic::inPos(*model->nodeByID(id), *model->layout.position(id), port));
  }
  void drag(QPoint from, QPoint to, Qt::KeyboardModifiers mods = {}) {
    QTest::mousePress(editor.get(), Qt::LeftButton, mods, from);
    for (int k = 1; k <= 4; ++k) QTest::mouseMove(editor.get(), from + (to - from) * k / 4);
    QTest::mouseRelease(editor.get(), Qt::LeftButton, mods, to);
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
  void tapAlt() { QTest::keyClick(editor.get(), Qt::Key_Alt); }
  std::set<Uuid> selected() const {  // the selection with the selected node
    std::set<Uuid> s = model->_selection;
    if (model->_selected) s.insert(*model->_selected);
    return s;
  }
  bool wired(const Uuid& from, const Uuid& to, int port) const {
    return std::any_of(model->_edges.begin(), model->_edges.end(),
                       [&](const Edge& e) { return e.from == from && e.to == to && e.port == port; });
  }
};

}  // namespace ombrik::test
