// What a new user meets first: the empty project inviting an import with the Aide menu, its panels
// and the view menu's OpenColorIO choices; an imported clip with a keyed node; a node with nothing in.
#include <QDialog>
#include <QMenuBar>
#include <QPushButton>
#include <QTreeWidget>

#include "../color/ocio_config.h"
#include "platform/app_paths.h"
#include "screenshot_views.h"
#include "shell/frame_slider.h"
#include "shell/help_menu.h"
#include "shell/transport_bar.h"
#include "shell/viewer_widget.h"

namespace ombrik::test {

void firstHourView(Shot& shot) {
  AppModel model(shot.blank());
  model.setOcioConfig(writeText(shot.dir.path / "config.ocio", kOcioConfig));  // its menu is made with the window
  model.setOcioView(OcioView{"Moniteur", "Film"});
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.save(window.grab().toImage(), "empty_project");
  ViewerWidget* viewer = window.viewer();
  EXPECT_TRUE(viewer->blankText().startsWith(shot.say("Drop a video here to start", "Glissez une vidéo ici pour commencer")));
  EXPECT_TRUE(viewer->importButton()->isVisible());
  EXPECT_EQ(viewer->importButton()->text(), shot.say("Import shots…", "Importer des rushs…"));
  EXPECT_EQ(window.windowTitle(), shot.say("Untitled[*] — Ombrik", "Sans titre[*] — Ombrik"));

  // The Aide menu open under its title, then the keys it lists and the folders, each in its panel.
  QMenuBar* bar = window.menuBar();
  QMenu* help = bar->findChild<QMenu*>("helpMenu");
  ASSERT_NE(help, nullptr);
  QImage picture = window.grab().toImage();
  paintPopup(picture, grabbed(*help), bar->mapTo(&window, bar->actionGeometry(help->menuAction()).bottomLeft()));
  shot.save(picture, "help_menu");
  QDialog* keys = showShortcuts(&window);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(keys));
  shot.save(keys->grab().toImage(), "shortcuts");
  auto* tree = keys->findChild<QTreeWidget*>("shortcuts");
  ASSERT_NE(tree, nullptr);
  EXPECT_EQ(tree->topLevelItem(0)->text(0), shot.say("Anywhere in the window", "Partout dans la fenêtre"));
  keys->close();
  QDialog* folders = showFolders(&window, AppPaths::shared());
  ASSERT_TRUE(QTest::qWaitForWindowExposed(folders));
  shot.save(folders->grab().toImage(), "folders");
  folders->close();

  // The OpenColorIO submenu for the config written above, its graded view chosen: the view menu, the
  // submenu and its display's views side by side.
  QMenu* ocio = bar->findChild<QMenu*>("ocioMenu");
  ASSERT_NE(ocio, nullptr);
  QMenu* view = qobject_cast<QMenu*>(ocio->parent());
  ASSERT_NE(view, nullptr);
  emit ocio->aboutToShow();
  QMenu* display = ocio->findChild<QMenu*>();
  ASSERT_NE(display, nullptr);
  picture = window.grab().toImage();
  QPoint at = bar->mapTo(&window, bar->actionGeometry(view->menuAction()).bottomLeft());
  for (QMenu* menu : {view, ocio, display}) {
    const QImage image = grabbed(*menu);
    at = paintPopup(picture, image, at) + QPoint(image.width() + 2, 24);
  }
  shot.save(picture, "ocio_menu");
}

// A clip imported as a world, a colour node keyed at three frames and selected: the picture with its
// name, the keys on the time bar, the title of a project with unsaved changes.
void importedClipView(Shot& shot) {
  const std::filesystem::path clip = shot.dir.path / "Plage.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc2=size=960x540:rate=25 -frames:v 48 -c:v libx264 "
                         "-pix_fmt yuv420p '" + clip.string() + "'").c_str()), 0);
  AppModel model(shot.blank());
  ASSERT_TRUE(model.engine) << model._status;
  const std::vector<Uuid> worlds = model.importAsWorlds({clip});
  ASSERT_EQ(worlds.size(), 1u) << model._status;
  model.openBatch(worlds[0]);
  const Uuid color = model.addNode(NodeKind::color(), {400, 140});
  model.intercalate(color, model._edges.front().id);
  for (const auto& [frame, value] : {std::pair{4, -0.4}, std::pair{24, 0.6}, std::pair{40, 0.1}})
    model.setKey(color, "exposure", frame, value);
  model.select(color);
  model.seekFrame(24);
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.save(window.grab().toImage(), "imported_clip");
  EXPECT_EQ(model._frameCount, 48) << "the whole clip came in";
  EXPECT_FALSE(window.viewer()->picture().isNull());
  EXPECT_EQ(window.viewer()->caption(), shot.say("Color Correct", "Réglage couleur"));
  EXPECT_EQ(window.transport()->timeBar()->keys(), (std::set<int>{4, 24, 40}));
  EXPECT_TRUE(window.isWindowModified());
}

// The example world with a Blur added beside the graph and selected: the viewer says it isn't wired
// and how to wire it.
void unconnectedNodeView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  model.select(model.addNode(*NodeKind::find("blur"), {330, 290}));
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.save(window.grab().toImage(), "unconnected_node");
  EXPECT_TRUE(window.viewer()->picture().isNull());
  EXPECT_TRUE(window.viewer()->blankText().startsWith(shot.say("\"Blur\" is not connected", "« Blur » n'est pas branché")));
}

}  // namespace ombrik::test
