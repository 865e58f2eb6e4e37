// A blank project, what a new user meets first: the empty window inviting an import, the Aide menu, its
// panels and the view menu's OpenColorIO choices; then the settings panel of a shape mask and a
// tracker, the curve editor of a colour node with a key's menu of styles, and a group in the graph.
#include <QDialog>
#include <QMenuBar>
#include <QPushButton>
#include <QSplitter>

#include "../color/ocio_config.h"
#include "platform/app_paths.h"
#include "screenshot_views.h"
#include "shell/curve_editor_widget.h"
#include "shell/help_menu.h"
#include "shell/node_editor.h"
#include "shell/viewer_widget.h"

namespace ombrik::test {

void blankProjectView(Shot& shot) {
  AppModel model(shot.blank());
  model.setOcioConfig(writeText(shot.dir.path / "config.ocio", kOcioConfig));  // its menu is made with the window
  model.setOcioView(OcioView{"Moniteur", "Film"});
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.snap(window, "empty_project");
  shot.snap(window, "inspector_empty");
  ViewerWidget* viewer = window.viewer();
  EXPECT_TRUE(viewer->blankText().startsWith(shot.say("Drop a video here to start", "Glissez une vidéo ici pour commencer")));
  EXPECT_TRUE(viewer->importButton()->isVisible());

  // The Aide menu open under its title, then the keys it lists and the folders, each in its panel.
  QMenuBar* bar = window.menuBar();
  QMenu* help = bar->findChild<QMenu*>("helpMenu");
  ASSERT_NE(help, nullptr);
  shot.saveWithMenu(window, "help_menu", *help, bar->mapTo(&window, bar->actionGeometry(help->menuAction()).bottomLeft()));
  auto panel = [&](QDialog* dialog, const char* name) {
    ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog)) << name;
    shot.save(dialog->grab().toImage(), name);
    dialog->close();
  };
  panel(showShortcuts(&window), "shortcuts");
  panel(showFolders(&window, AppPaths::shared()), "folders");

  // The OpenColorIO submenu for the config written above, its graded view chosen: the view menu, the
  // submenu and its display's views side by side.
  QMenu* ocio = bar->findChild<QMenu*>("ocioMenu");
  ASSERT_NE(ocio, nullptr);
  QMenu* view = qobject_cast<QMenu*>(ocio->parent());
  ASSERT_NE(view, nullptr);
  emit ocio->aboutToShow();
  QMenu* display = ocio->findChild<QMenu*>();
  ASSERT_NE(display, nullptr);
  QImage picture = window.grab().toImage();
  QPoint at = bar->mapTo(&window, bar->actionGeometry(view->menuAction()).bottomLeft());
  for (QMenu* menu : {view, ocio, display}) {
    const QImage image = grabbed(*menu);
    at = paintPopup(picture, image, at) + QPoint(image.width() + 2, 24);
  }
  shot.save(picture, "ocio_menu");

  // A shape mask and a tracker with every setting animated, so that the rows show their key buttons too.
  for (const char* kind : {"mask", "tracker"}) {
    const Uuid id = model.addNode(*NodeKind::find(kind), {300, 200});
    model.select(id);
    if (std::string(kind) == "mask") model.newMask(id);
    for (const ParamSpec& spec : (*NodeKind::find(kind))->params) model.toggleAnim(id, spec.key);
    shot.snap(window, std::string("inspector_") + kind);
    model.deleteNode(id);
  }

  // A colour node with two animated settings, the curve editor pulled up to half the graph's height,
  // one key selected and its menu open beside it.
  const Uuid color = model.addNode(NodeKind::color(), {300, 200});
  model._frameCount = 120;
  for (const auto& [frame, value] : {std::pair{0, -0.5}, std::pair{45, 0.9}, std::pair{110, 0.2}})
    model.setKey(color, "exposure", frame, value);
  model.setKey(color, "sat", 10, 0.6);
  model.setKey(color, "sat", 90, 1.4);
  model.setKeyStyle(color, "exposure", 1, AppModel::KeyStyle::ease);
  inspect(model, color);
  model._keySel = {KeySel{"exposure", 1}};
  model.seekFrame(30);
  window.toggleCurveEditor();
  Shot::settle(window);
  CurveEditorWidget* curves = window.curveEditor();
  ASSERT_TRUE(curves->isVisible());
  auto* column = qobject_cast<QSplitter*>(curves->parentWidget());
  ASSERT_NE(column, nullptr);
  QList<int> sizes = column->sizes();
  sizes[2] += sizes[1] / 2;
  sizes[1] -= sizes[1] / 2;
  column->setSizes(sizes);
  Shot::settle(window);
  const std::optional<QPointF> key = curves->keyPoint(KeySel{"exposure", 1});
  ASSERT_TRUE(key);
  const std::unique_ptr<QMenu> menu(curves->keyMenu(key->toPoint()));
  ASSERT_TRUE(menu);
  shot.saveWithMenu(window, "curve_editor", *menu, curves->mapTo(&window, key->toPoint() + QPoint(8, 8)));

  // The colour node, a blur and a glow merged into a group with one control: closed with its panel in
  // the inspector, then open in its frame; blur's second input armed by a double tap of Alt; a Shift
  // marquee drawn.
  const Uuid output = model._nodes.front().id;
  model.layout.set(output, {760, 160});
  model.layout.set(color, {160, 160});
  const Uuid blur = model.addNode(*NodeKind::find("blur"), {340, 120});
  const Uuid glow = model.addNode(NodeKind::glow(), {500, 200});
  model.connect(color, blur, 0, 0);
  model.connect(blur, glow, 0, 0);
  model.connect(glow, output, 0, 0);
  model._selection = {blur, glow};
  model._selected = glow;
  const Uuid group = *model.mergeSelection("Halo doux");
  const ParamSpec& size = (*NodeKind::find("blur"))->params.front();
  model.setGroupControls(group, {{blur, size.key, size.label.value()}});
  model.select(group);
  window.toggleCurveEditor();
  NodeEditor& editor = *window.nodeEditor();
  editor.frameAll();
  shot.snap(window, "group_closed");
  model.expandGroup(group, false);
  Shot::settle(window);
  editor.frameAll();
  shot.snap(window, "group_open");

  editor.setFocus();
  QTest::mouseMove(&editor, editor.toView(*model.layout.position(blur)).toPoint());
  QTest::qWait(50);  // the X server's move reaches the editor
  QTest::keyClick(&editor, Qt::Key_Alt);
  QTest::keyClick(&editor, Qt::Key_Alt);
  shot.snap(window, "node_editor_armed_input");
  EXPECT_TRUE(editor.armedInput());
  QTest::keyClick(&editor, Qt::Key_Escape);

  // Around the correction and the blur, not yet let go.
  const QPoint from = editor.toView({100, 40}).toPoint(), to = editor.toView({400, 220}).toPoint();
  QTest::mousePress(&editor, Qt::LeftButton, Qt::ShiftModifier, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(&editor, from + (to - from) * k / 4);
  shot.snap(window, "node_editor_marquee");
  QTest::mouseRelease(&editor, Qt::LeftButton, Qt::ShiftModifier, to);
  EXPECT_TRUE(model.isSelected(color) && model.isSelected(blur));
}

}  // namespace ombrik::test
