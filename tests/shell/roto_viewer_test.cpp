// The mask tools through the real window: a Bézier drawn by clicks on the picture, its points
// dragged, deleted and inserted, the tool bar, the mask tabs of the inspector, the I key, and the
// per-mask outputs of the node editor.
#include <gtest/gtest.h>

#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QTabBar>
#include <QTest>
#include <QToolButton>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/param_row.h"
#include "shell/roto_overlay.h"
#include "shell/roto_tool_bar.h"
#include "shell/schematic_geometry.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

// The example world with its mask node selected, in a window at the quickest preview.
struct MaskDesk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> model;
  std::unique_ptr<MainWindow> window;
  Uuid mask;

  MaskDesk() {
    test::shellApp();
    model = std::make_unique<AppModel>(AppModel::Options{.scheduler = clock,
                                                         .defaultsFile = (dir.path / "defaults.conf").string(),
                                                         .dataDir = dir.path / "data"});
    model->setPreviewScale(0.25);
    for (const auto& n : model->_nodes)
      if (n.kind->id == "mask") mask = n.id;
    model->select(mask);
    model->inspectedID = mask;
    window = std::make_unique<MainWindow>(*model);
    window->resize(1280, 800);
    window->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    settle();
  }
  void settle() {
    clock->runAll();
    window->refresh();
    QCoreApplication::processEvents();  // the tool bar's space is taken from the viewer
    window->refresh();
  }
  ViewerWidget* viewer() const { return window->viewer(); }
  QPoint at(double x, double y) const { return RotoOverlay::toView({x, y}, viewer()->pictureRect()).toPoint(); }
  void click(double x, double y, Qt::KeyboardModifiers mods = {}) {
    QTest::mouseClick(viewer(), Qt::LeftButton, mods, at(x, y));
    settle();
  }
  void tool(const char* name) {
    auto* b = window->rotoToolBar()->findChild<QToolButton*>(name);
    ASSERT_NE(b, nullptr) << name;
    QTest::mouseClick(b, Qt::LeftButton);
    settle();
  }
  // The active mask as the viewer shows it.
  Node shown() const { return model->resolvedMask(*model->nodeByID(mask)); }
  QRgb pixel(double x, double y) const { return viewer()->grab().toImage().pixel(at(x, y)); }
};

void expectAt(const Node& n, int i, double x, double y) {
  ASSERT_LT(i, int(n.shape.size()));
  EXPECT_NEAR(n.shape[i].p.x, x, 0.003) << "point " << i;
  EXPECT_NEAR(n.shape[i].p.y, y, 0.003) << "point " << i;
}

}  // namespace

TEST(RotoViewer, DrawsAClosedBezierAndEditsItsPoints) {
  MaskDesk d;
  ASSERT_TRUE(d.model->engine) << d.model->_status;
  ASSERT_TRUE(d.window->rotoToolBar()->isVisible()) << "a mask node brings its tools";
  d.tool("rotoTool:bezier");
  EXPECT_EQ(d.model->roto.rotoTool, RotoTool::bezier);

  // Right of the example's ellipse: the first click starts a second mask, a Bézier.
  const double xs[] = {0.70, 0.90, 0.90, 0.70}, ys[] = {0.25, 0.25, 0.70, 0.70};
  for (int i = 0; i < 4; ++i) d.click(xs[i], ys[i]);
  EXPECT_FALSE(d.shown().shapeClosed);
  d.click(0.70, 0.25);  // back on the first point
  Node n = d.shown();
  ASSERT_EQ(n.shape.size(), 4u);
  EXPECT_TRUE(n.shapeClosed);
  for (int i = 0; i < 4; ++i) expectAt(n, i, xs[i], ys[i]);
  EXPECT_EQ(d.model->nodeByID(d.mask)->allMasks().size(), 2u) << "the ellipse stays as the first mask";
  EXPECT_EQ(d.model->roto.rotoTool, RotoTool::select) << "a closed shape hands over to the selection";
  EXPECT_TRUE(d.window->rotoToolBar()->findChild<QToolButton*>("rotoTool:select")->isChecked());
  auto* tabs = d.window->inspector()->findChild<QTabBar*>("maskTabs");
  ASSERT_NE(tabs, nullptr);
  EXPECT_EQ(tabs->count(), 2);
  EXPECT_EQ(tabs->currentIndex(), 1);

  // An Alt-click deletes a point and the shape stays closed.
  d.click(0.90, 0.25, Qt::AltModifier);
  n = d.shown();
  ASSERT_EQ(n.shape.size(), 3u);
  EXPECT_TRUE(n.shapeClosed);
  expectAt(n, 1, 0.90, 0.70);

  // A held: a click on an edge inserts a point there; Backspace deletes the selected point.
  QTest::keyPress(d.viewer(), Qt::Key_A);
  d.click(0.80, 0.475);
  QTest::keyRelease(d.viewer(), Qt::Key_A);
  n = d.shown();
  ASSERT_EQ(n.shape.size(), 4u);
  expectAt(n, 1, 0.80, 0.475);
  d.click(0.80, 0.475);  // without A: the point is only selected
  EXPECT_EQ(d.model->roto.selectedPoint, 1);
  QTest::keyClick(d.viewer(), Qt::Key_Backspace);
  EXPECT_EQ(d.shown().shape.size(), 3u);
}

TEST(RotoViewer, ToolBarClearReturnAndTheIKey) {
  MaskDesk d;
  ASSERT_TRUE(d.model->engine) << d.model->_status;
  d.tool("rotoTool:ellipse");
  EXPECT_EQ(d.model->roto.rotoTool, RotoTool::ellipse);
  EXPECT_TRUE(d.window->rotoToolBar()->findChild<QToolButton*>("rotoTool:ellipse")->isChecked());

  // Déplacer: a drag pans the picture and leaves the mask where it was.
  d.tool("rotoTool:move");
  EXPECT_EQ(d.model->roto.rotoTool, RotoTool::moveImage);
  const std::map<std::string, double> before = d.model->nodeByID(d.mask)->params;
  const QPoint from = d.at(0.4, 0.5);
  QTest::mousePress(d.viewer(), Qt::LeftButton, {}, from);
  QTest::mouseMove(d.viewer(), from + QPoint(40, 20));
  QTest::mouseRelease(d.viewer(), Qt::LeftButton, {}, from + QPoint(40, 20));
  EXPECT_EQ(d.model->viewPan, (Point{40, 20}));
  EXPECT_EQ(d.model->nodeByID(d.mask)->params, before);
  d.window->viewer()->fit();
  d.settle();

  // Three clicks and Return close a shape; the clear button empties it again.
  d.tool("rotoTool:bezier");
  d.click(0.75, 0.3);
  d.click(0.92, 0.4);
  d.click(0.80, 0.75);
  QTest::keyClick(d.viewer(), Qt::Key_Return);
  d.settle();
  EXPECT_TRUE(d.shown().shapeClosed);
  ASSERT_EQ(d.shown().shape.size(), 3u);

  // The first point's handle is drawn over the picture until I hides the guides.
  const QRgb handle = d.pixel(0.75, 0.3);
  EXPECT_LT(qGray(handle), 40) << "the dark inside of an anchor's square";
  EXPECT_GT(qBlue(handle), qRed(handle));
  QTest::keyClick(d.viewer(), Qt::Key_I);
  EXPECT_TRUE(d.model->_overlaysHidden);
  d.settle();
  EXPECT_NE(d.pixel(0.75, 0.3), handle) << "hidden guides";
  d.clock->advance(1);  // not a double press
  QTest::keyClick(d.viewer(), Qt::Key_I);
  d.settle();
  EXPECT_FALSE(d.model->_overlaysHidden);
  EXPECT_EQ(d.pixel(0.75, 0.3), handle);

  QTest::mouseClick(d.window->rotoToolBar()->findChild<QToolButton*>("rotoClearShape"), Qt::LeftButton);
  d.settle();
  EXPECT_TRUE(d.shown().shape.empty());
  EXPECT_TRUE(d.window->rotoToolBar()->findChild<QToolButton*>("rotoTool:bezier")->isChecked());

  // Another node selected: the tools go.
  d.model->select(d.model->_nodes.front().id);
  d.settle();
  EXPECT_FALSE(d.window->rotoToolBar()->isVisible());
}

TEST(RotoViewer, InspectorTabsFollowTheMasks) {
  MaskDesk d;
  auto* tabs = d.window->inspector()->findChild<QTabBar*>("maskTabs");
  ASSERT_NE(tabs, nullptr);
  ASSERT_TRUE(tabs->isVisible());
  ASSERT_EQ(tabs->count(), 1);
  EXPECT_EQ(tabs->tabText(0), "Mask 01");
  QTest::mouseClick(d.window->inspector()->findChild<QToolButton*>("newMask"), Qt::LeftButton);
  d.settle();
  ASSERT_EQ(tabs->count(), 2);
  EXPECT_EQ(tabs->tabText(1), "Mask 02");
  EXPECT_EQ(tabs->currentIndex(), 1);
  EXPECT_EQ(d.model->nodeByID(d.mask)->maskIndex, 1);
  // Back on the first tab, its ellipse's placement is in the rows again.
  QTest::mouseClick(tabs, Qt::LeftButton, {}, tabs->tabRect(0).center());
  d.settle();
  EXPECT_EQ(d.model->nodeByID(d.mask)->maskIndex, 0);
  EXPECT_TRUE(d.model->nodeByID(d.mask)->ellipse);
  // A switch's wrapped text toggles it, as a check box's own text would.
  QTest::mouseClick(d.window->inspector()->row("invert")->findChild<QLabel*>(), Qt::LeftButton);
  EXPECT_EQ(d.model->nodeByID(d.mask)->p("invert"), 1);
  QTest::mouseClick(d.window->inspector()->findChild<QToolButton*>("deleteMask"), Qt::LeftButton);
  d.settle();
  EXPECT_EQ(tabs->count(), 1);
  EXPECT_FALSE(d.model->nodeByID(d.mask)->ellipse) << "the ellipse went, the fresh mask stayed";
  // A node that isn't a mask has no tabs.
  d.model->select(d.model->_nodes.front().id);
  d.model->inspectedID.reset();
  d.settle();
  EXPECT_FALSE(tabs->isVisible());
}

TEST(RotoViewer, TheNodeEditorOffersEachMasksOwnOutput) {
  MaskDesk d;
  d.model->newMask(d.mask);
  d.model->newMask(d.mask);
  d.model->setMaskParam(d.mask, 1, "out", 0);  // the second mask has no output of its own
  d.settle();
  const Node& node = *d.model->nodeByID(d.mask);
  EXPECT_EQ(schematic::outputPorts(node), (std::vector<int>{0, 1, 2, 4}));
  d.model->setParams(d.mask, {{"mouts", 0}});
  EXPECT_EQ(schematic::outputCount(*d.model->nodeByID(d.mask)), 2) << "outputs per mask switched off";
  d.model->setParams(d.mask, {{"mouts", 1}});
  d.settle();

  // Each offered port is found where it is drawn; the mask without an output offers none.
  const Point centre = *d.model->layout.position(d.mask);
  auto portNear = [&](int port) {
    const Point p = schematic::outPos(*d.model->nodeByID(d.mask), centre, port);
    const auto hit = schematic::portAt(d.model->_nodes, d.model->layout.positions(), p, 1);
    return hit && hit->node == d.mask && hit->isOutput ? hit->port : -1;
  };
  for (int port : {0, 1, 2, 4}) EXPECT_EQ(portNear(port), port);
  EXPECT_NE(portNear(3), 3);
}

TEST(RotoViewer, TrackingButtonsStartOrRefuseAndFollowARun) {
  MaskDesk d;
  auto* bar = d.window->rotoToolBar();
  auto button = [&](const char* name) { return bar->findChild<QToolButton*>(name); };
  for (const char* name : {"trackBack", "trackBoth", "trackForward", "trackStop", "trackEngine"})
    ASSERT_NE(button(name), nullptr) << name;
  EXPECT_FALSE(button("trackStop")->isEnabled()) << "nothing to stop";
  d.model->videos.clear();  // the example's plate is a still: tracking needs a clip
  QTest::mouseClick(button("trackForward"), Qt::LeftButton);
  EXPECT_EQ(d.model->_status, "Le tracking a besoin d'une vidéo dans le Media.");
  EXPECT_FALSE(d.model->_trackingProgress);

  // The keys menu: a pin here, then hand correction switched off and remembered.
  auto action = [&](const char* name) { return button("trackKeys")->menu()->findChild<QAction*>(name); };
  ASSERT_NE(action("pinHere"), nullptr);
  action("pinHere")->trigger();
  EXPECT_EQ(d.model->_status, "Clé posée à l'image " + std::to_string(d.model->_currentFrame + 1) + " · 1 clé.");
  ASSERT_TRUE(action("trackCorrect")->isChecked());
  action("trackCorrect")->trigger();
  EXPECT_FALSE(d.model->tracking.correct);

  d.model->_trackingProgress = 0.4;  // as a run under way sets it
  d.settle();
  EXPECT_FALSE(button("trackKeys")->isEnabled());
  EXPECT_FALSE(button("trackForward")->isEnabled());
  EXPECT_TRUE(button("trackStop")->isEnabled());
  auto* progress = bar->findChild<QProgressBar*>("trackProgress");
  ASSERT_NE(progress, nullptr);
  EXPECT_TRUE(progress->isVisible());
  EXPECT_EQ(progress->value(), 400);
  d.model->_trackingProgress.reset();
}
