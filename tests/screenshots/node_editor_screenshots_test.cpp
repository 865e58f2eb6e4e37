// Screenshots of the node editor on the example world, in each language: the right-click menu of
// kinds with its categories written as in the catalogue ("Flou & netteté"), a node's own menu, and
// the graph after two nodes were added behind the same one, each in sight and on no other.
#include <gtest/gtest.h>

#include <QDir>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <algorithm>
#include <cstdlib>

#include "screenshot_look.h"
#include "../platform/temp_dir.h"
#include "../shell/shell_app.h"
#include "document/app_model.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/dark_theme.h"
#include "shell/main_window.h"
#include "shell/node_editor.h"
#include "shell/quick_add_panel.h"

using namespace ombrik;

namespace {
using DarkTheme = test::ScreenshotLook;
using test::saveScreenshot;

QImage grabbed(QMenu& menu) {
  menu.ensurePolished();
  menu.resize(menu.sizeHint());
  return menu.grab().toImage();
}

// A popup drawn into the window's picture where it opens, kept inside it as a window manager
// would; where it ended up.
QPoint paintPopup(QImage& shot, const QImage& popup, QPoint at) {
  at.setX(std::clamp(at.x(), 0, shot.width() - popup.width()));
  at.setY(std::clamp(at.y(), 0, shot.height() - popup.height()));
  QPainter p(&shot);
  p.drawImage(at, popup);
  p.setPen(QColor(0x55, 0x55, 0x5c));
  p.drawRect(QRect(at, popup.size()).adjusted(-1, -1, 0, 0));
  return at;
}

Uuid firstOfKind(const AppModel& model, const char* kind) {
  for (const Node& n : model._nodes)
    if (n.kind->id == kind) return n.id;
  ADD_FAILURE() << "no " << kind;
  return {};
}

void screenshotsOfTheNodeEditor(AppLanguage language, const QString& suffix) {
  DarkTheme theme(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(test::showSettled(window, *clock));
  NodeEditor* editor = window.nodeEditor();
  const bool english = language == AppLanguage::english;

  // The kinds menu opened in the empty graph under the nodes, its blur category open beside it.
  const QPoint click = editor->rect().center() + QPoint(-editor->width() / 5, editor->height() / 3);
  const auto kinds = editor->kindMenu(click, false);
  QMenu* blurs = kinds->findChild<QMenu*>("category:Flou & netteté");
  ASSERT_NE(blurs, nullptr);
  EXPECT_EQ(blurs->menuAction()->iconText(), english ? "Blur & Sharpen" : "Flou & netteté") << "as written, with its &";
  QImage shot = window.grab().toImage();
  const QImage list = grabbed(*kinds);
  const QPoint at = paintPopup(shot, list, editor->mapTo(&window, click));
  paintPopup(shot, grabbed(*blurs), at + QPoint(list.width() - 4, kinds->actionGeometry(blurs->menuAction()).top() - 4));
  EXPECT_TRUE(saveScreenshot(shot, "node_editor_add_menu_" + suffix + ".png"));

  // A blur added behind the glow, then a tracker behind the glow too: where the blur stands now,
  // so it goes beside it; the view follows.
  const Uuid glow = firstOfKind(model, "glow");
  std::vector<Uuid> added;
  for (const char* search : {"blur", "tracker"}) {
    model.select(glow);
    editor->setFocus();
    QTest::keyClick(editor, Qt::Key_Tab);
    QuickAddPanel* panel = editor->quickAddPanel();
    ASSERT_TRUE(panel && panel->isVisible());
    QTest::keyClicks(panel->field(), search);
    const auto& found = panel->results();
    const auto it = std::find_if(found.begin(), found.end(), [&](const KindRef& k) { return k->id == search; });
    ASSERT_NE(it, found.end()) << search;
    for (auto k = found.begin(); k != it; ++k) QTest::keyClick(panel->field(), Qt::Key_Down);
    QTest::keyClick(panel->field(), Qt::Key_Return);
    added.push_back(model._nodes.back().id);
    EXPECT_EQ(model._nodes.back().kind->id, search);
  }
  clock->advance(1.0);
  window.refresh();
  QCoreApplication::processEvents();
  QImage after = window.grab().toImage();
  // The new tracker's own menu, opened on it.
  const auto own = editor->nodeMenu(added.back());
  ASSERT_NE(own, nullptr);
  const QRectF tracker = editor->nodeRect(added.back());
  paintPopup(after, grabbed(*own), editor->mapTo(&window, QPointF(tracker.right(), tracker.center().y()).toPoint()));
  EXPECT_TRUE(saveScreenshot(after, "node_editor_added_" + suffix + ".png"));

  const QRectF inside(editor->rect());
  for (const Uuid& id : added) {
    const QRectF r = editor->nodeRect(id);
    EXPECT_TRUE(inside.contains(r)) << "in sight";
    for (const Node& other : model._nodes) {
      if (other.id == id) continue;
      EXPECT_FALSE(r.intersects(editor->nodeRect(other.id))) << "over " << other.kind->id;
    }
  }
  EXPECT_EQ(own->findChild<QAction*>("duplicate")->text(), english ? "Duplicate" : "Dupliquer");
}

}  // namespace

TEST(NodeEditorScreens, AddingNodesInFrench) { screenshotsOfTheNodeEditor(AppLanguage::french, "fr"); }

TEST(NodeEditorScreens, AddingNodesInEnglish) { screenshotsOfTheNodeEditor(AppLanguage::english, "en"); }
