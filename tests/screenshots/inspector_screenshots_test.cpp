// Screenshots of the settings panel and the curve editor under Xvfb, in each language: the shape
// mask and the tracker, whose long texts must wrap inside the panel, the empty panel, and the
// curve editor with its axis labels and a key's menu of styles.
#include <gtest/gtest.h>

#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <cstdlib>

#include "screenshot_look.h"
#include "../shell/shell_app.h"
#include "document/app_model.h"
#include "document/graph_editor.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/curve_editor_widget.h"
#include "shell/dark_theme.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"

using namespace ombrik;

namespace {
using Look = test::ScreenshotLook;
inline bool save(const QImage& shot, const std::string& name) { return test::saveScreenshot(shot, name); }
inline std::string suffix(AppLanguage language) { return test::languageSuffix(language); }

struct Desk {
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel model{AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock}};
};

void showAndSettle(MainWindow& window) {
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  for (int i = 0; i < 3; ++i) {
    window.refresh();
    QCoreApplication::processEvents();
  }
}

// The window with one node of `kindID` selected (none: the empty panel), every setting
// animated so that the rows show their key buttons too.
void inspectorShot(AppLanguage language, const std::string& kindID) {
  Look look(language);
  Desk desk;
  if (!kindID.empty()) {
    const Uuid id = desk.model.addNode(*NodeKind::find(kindID), {300, 200});
    desk.model.select(id);
    if (kindID == "mask") desk.model.newMask(id);
    for (const ParamSpec& spec : (*NodeKind::find(kindID))->params) desk.model.toggleAnim(id, spec.key);
  }
  MainWindow window(desk.model);
  showAndSettle(window);
  const std::string name = kindID.empty() ? "empty" : kindID;
  EXPECT_TRUE(save(window.grab().toImage(), "inspector_" + name + suffix(language)));
  for (auto* scroll : window.inspector()->findChildren<QScrollArea*>())
    EXPECT_FALSE(scroll->horizontalScrollBar()->isVisible()) << name;
}

// A colour node with two animated settings, one key selected and its menu open beside it.
void curveShot(AppLanguage language) {
  Look look(language);
  Desk desk;
  AppModel& m = desk.model;
  const Uuid color = m.addNode(NodeKind::color(), {300, 200});
  m._frameCount = 120;
  m.setKey(color, "exposure", 0, -0.5);
  m.setKey(color, "exposure", 45, 0.9);
  m.setKey(color, "exposure", 110, 0.2);
  m.setKey(color, "sat", 10, 0.6);
  m.setKey(color, "sat", 90, 1.4);
  m.setKeyStyle(color, "exposure", 1, AppModel::KeyStyle::ease);
  m.select(color);
  m.inspectedID = color;
  m._keySel = {KeySel{"exposure", 1}};
  m.seekFrame(30);

  MainWindow window(m);
  window.toggleCurveEditor();
  showAndSettle(window);
  CurveEditorWidget* curves = window.curveEditor();
  ASSERT_TRUE(curves->isVisible());
  // Pulled up to half the graph's height, as one does to work on curves.
  auto* column = qobject_cast<QSplitter*>(curves->parentWidget());
  ASSERT_NE(column, nullptr);
  QList<int> sizes = column->sizes();
  sizes[2] += sizes[1] / 2;
  sizes[1] -= sizes[1] / 2;
  column->setSizes(sizes);
  showAndSettle(window);
  const std::optional<QPointF> key = curves->keyPoint(KeySel{"exposure", 1});
  ASSERT_TRUE(key);
  QImage shot = window.grab().toImage();
  const std::unique_ptr<QMenu> menu(curves->keyMenu(key->toPoint()));
  ASSERT_TRUE(menu);
  menu->ensurePolished();
  menu->resize(menu->sizeHint());
  const QImage over = menu->grab().toImage();
  QPoint at = curves->mapTo(&window, key->toPoint() + QPoint(8, 8));
  at.setY(std::min(at.y(), shot.height() - over.height() - 4));  // a menu opens upwards near the bottom
  QPainter paint(&shot);
  paint.drawImage(at, over);
  paint.setPen(QColor(0x55, 0x55, 0x5c));
  paint.drawRect(QRect(at, over.size()).adjusted(-1, -1, 0, 0));
  paint.end();
  EXPECT_TRUE(save(shot, std::string("curve_editor") + suffix(language)));
  EXPECT_EQ(menu->actions().size(), 8) << "six styles, a line, deleting";
}
}  // namespace

TEST(InspectorScreenshots, ShapeMaskInFrench) { inspectorShot(AppLanguage::french, "mask"); }
TEST(InspectorScreenshots, ShapeMaskInEnglish) { inspectorShot(AppLanguage::english, "mask"); }
TEST(InspectorScreenshots, TrackerInFrench) { inspectorShot(AppLanguage::french, "tracker"); }
TEST(InspectorScreenshots, TrackerInEnglish) { inspectorShot(AppLanguage::english, "tracker"); }
TEST(InspectorScreenshots, EmptyInFrench) { inspectorShot(AppLanguage::french, ""); }
TEST(InspectorScreenshots, EmptyInEnglish) { inspectorShot(AppLanguage::english, ""); }
TEST(InspectorScreenshots, CurveEditorInFrench) { curveShot(AppLanguage::french); }
TEST(InspectorScreenshots, CurveEditorInEnglish) { curveShot(AppLanguage::english); }
