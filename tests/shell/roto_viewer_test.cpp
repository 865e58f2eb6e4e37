// The mask tools through the window: a Bézier drawn and edited on the picture, the tool bar, the
// mask tabs, the per-mask outputs and the tracking buttons.
#include <QLabel>
#include <QProgressBar>
#include <QTabBar>
#include <QToolButton>

#include "shell/inspector_widget.h"
#include "shell/param_row.h"
#include "shell/roto_overlay.h"
#include "shell/roto_tool_bar.h"
#include "shell/schematic_geometry.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

// The example world with its mask node selected and inspected.
struct MaskDesk : test::WindowDesk {
  Uuid mask;
  MaskDesk() : WindowDesk(example) {
    m->setPreviewScale(0.25);
    mask = nodeOfKind("mask")->id;
    m->select(mask);
    m->inspectedID = mask;
    settle();
  }
  ViewerWidget* viewer() const { return window->viewer(); }
  QPoint at(double x, double y) const { return RotoOverlay::toView({x, y}, viewer()->pictureRect()).toPoint(); }
  void click(double x, double y, Qt::KeyboardModifiers mods = {}) {
    QTest::mouseClick(viewer(), Qt::LeftButton, mods, at(x, y));
    settle();
  }
  QToolButton* button(const char* name) const { return window->rotoToolBar()->findChild<QToolButton*>(name); }
  void tool(const char* name) {
    ASSERT_NE(button(name), nullptr) << name;
    QTest::mouseClick(button(name), Qt::LeftButton);
    settle();
  }
  Node shown() const { return m->resolvedMask(*m->nodeByID(mask)); }  // the active mask as the viewer shows it
  QRgb pixel(double x, double y) const { return viewer()->grab().toImage().pixel(at(x, y)); }
  QTabBar* tabs() const { return window->inspector()->findChild<QTabBar*>("maskTabs"); }
};

void expectAt(const Node& n, int i, double x, double y) {
  ASSERT_LT(i, int(n.shape.size()));
  EXPECT_NEAR(n.shape[i].p.x, x, 0.003) << "point " << i;
  EXPECT_NEAR(n.shape[i].p.y, y, 0.003) << "point " << i;
}

}  // namespace

TEST(RotoViewer, DrawsAClosedBezierEditsItsPointsAndTheToolsGoWithTheNode) {
  MaskDesk d;
  ASSERT_TRUE(d.m->engine) << d.m->_status;
  ASSERT_TRUE(d.window->rotoToolBar()->isVisible()) << "a mask node brings its tools";
  d.tool("rotoTool:bezier");
  EXPECT_EQ(d.m->roto.rotoTool, RotoTool::bezier);

  // Right of the example's ellipse: the first click starts a second mask, a Bézier.
  const double xs[] = {0.70, 0.90, 0.90, 0.70}, ys[] = {0.25, 0.25, 0.70, 0.70};
  for (int i = 0; i < 4; ++i) d.click(xs[i], ys[i]);
  EXPECT_FALSE(d.shown().shapeClosed);
  d.click(0.70, 0.25);  // back on the first point
  Node n = d.shown();
  ASSERT_EQ(n.shape.size(), 4u);
  EXPECT_TRUE(n.shapeClosed);
  for (int i = 0; i < 4; ++i) expectAt(n, i, xs[i], ys[i]);
  EXPECT_EQ(d.m->nodeByID(d.mask)->allMasks().size(), 2u) << "the ellipse stays as the first mask";
  EXPECT_EQ(d.m->roto.rotoTool, RotoTool::select) << "a closed shape hands over to the selection";
  EXPECT_TRUE(d.button("rotoTool:select")->isChecked());
  ASSERT_NE(d.tabs(), nullptr);
  EXPECT_EQ(d.tabs()->count(), 2);
  EXPECT_EQ(d.tabs()->currentIndex(), 1);

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
  EXPECT_EQ(d.m->roto.selectedPoint, 1);
  QTest::keyClick(d.viewer(), Qt::Key_Backspace);
  EXPECT_EQ(d.shown().shape.size(), 3u);

  // The clear button empties the shape and takes up the Bézier again.
  QTest::mouseClick(d.button("rotoClearShape"), Qt::LeftButton);
  d.settle();
  EXPECT_TRUE(d.shown().shape.empty());
  EXPECT_TRUE(d.button("rotoTool:bezier")->isChecked());

  // Déplacer: a drag pans the picture and leaves the mask where it was.
  d.tool("rotoTool:move");
  EXPECT_EQ(d.m->roto.rotoTool, RotoTool::moveImage);
  const std::map<std::string, double> before = d.m->nodeByID(d.mask)->params;
  const QPoint from = d.at(0.4, 0.5);
  QTest::mousePress(d.viewer(), Qt::LeftButton, {}, from);
  QTest::mouseMove(d.viewer(), from + QPoint(40, 20));
  QTest::mouseRelease(d.viewer(), Qt::LeftButton, {}, from + QPoint(40, 20));
  EXPECT_EQ(d.m->viewPan, (Point{40, 20}));
  EXPECT_EQ(d.m->nodeByID(d.mask)->params, before);
  d.viewer()->fit();
  d.settle();

  // Three clicks and Return close a shape.
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
  EXPECT_TRUE(d.m->_overlaysHidden);
  d.settle();
  EXPECT_NE(d.pixel(0.75, 0.3), handle) << "hidden guides";
  d.clock->advance(1);  // not a double press
  QTest::keyClick(d.viewer(), Qt::Key_I);
  d.settle();
  EXPECT_FALSE(d.m->_overlaysHidden);
  EXPECT_EQ(d.pixel(0.75, 0.3), handle);

  d.tool("rotoTool:ellipse");
  EXPECT_EQ(d.m->roto.rotoTool, RotoTool::ellipse);
  d.m->select(d.m->_nodes.front().id);
  d.settle();
  EXPECT_FALSE(d.window->rotoToolBar()->isVisible()) << "another node selected: the tools go";
}

TEST(RotoViewer, EachMaskHasItsOutputTabsFollowTheMasksAndTrackingFollowsARun) {
  MaskDesk d;
  // Three masks, the second without an output of its own: each offered port is found where it is
  // drawn, and the mask without an output offers none.
  d.m->newMask(d.mask);
  d.m->newMask(d.mask);
  d.m->setMaskParam(d.mask, 1, "out", 0);
  d.settle();
  EXPECT_EQ(schematic::outputPorts(*d.m->nodeByID(d.mask)), (std::vector<int>{0, 1, 2, 4}));
  d.m->setParams(d.mask, {{"mouts", 0}});
  EXPECT_EQ(schematic::outputCount(*d.m->nodeByID(d.mask)), 2) << "outputs per mask switched off";
  d.m->setParams(d.mask, {{"mouts", 1}});
  d.settle();
  const Point centre = *d.m->layout.position(d.mask);
  auto portNear = [&](int port) {
    const Point p = schematic::outPos(*d.m->nodeByID(d.mask), centre, port);
    const auto hit = schematic::portAt(d.m->_nodes, d.m->layout.positions(), p, 1);
    return hit && hit->node == d.mask && hit->isOutput ? hit->port : -1;
  };
  for (int port : {0, 1, 2, 4}) EXPECT_EQ(portNear(port), port);
  EXPECT_NE(portNear(3), 3);

  QTabBar* tabs = d.tabs();
  ASSERT_TRUE(tabs && tabs->isVisible());
  ASSERT_EQ(tabs->count(), 3);
  d.press("newMask");
  ASSERT_EQ(tabs->count(), 4);
  EXPECT_EQ(tabs->tabText(3), "Mask 04");
  EXPECT_EQ(tabs->currentIndex(), 3);
  EXPECT_EQ(d.m->nodeByID(d.mask)->maskIndex, 3);
  // Back on the first tab, its ellipse's placement is in the rows again.
  QTest::mouseClick(tabs, Qt::LeftButton, {}, tabs->tabRect(0).center());
  d.settle();
  EXPECT_EQ(d.m->nodeByID(d.mask)->maskIndex, 0);
  EXPECT_TRUE(d.m->nodeByID(d.mask)->ellipse);
  // A switch's wrapped text toggles it, as a check box's own text would.
  QTest::mouseClick(d.window->inspector()->row("invert")->findChild<QLabel*>(), Qt::LeftButton);
  EXPECT_EQ(d.m->nodeByID(d.mask)->p("invert"), 1);
  d.press("deleteMask");
  EXPECT_EQ(tabs->count(), 3);
  EXPECT_FALSE(d.m->nodeByID(d.mask)->ellipse) << "the ellipse went, the others stayed";

  // Tracking needs a clip (the example's plate is a still); the keys menu pins and remembers.
  for (const char* name : {"trackForward", "trackStop", "trackKeys"}) ASSERT_NE(d.button(name), nullptr) << name;
  EXPECT_FALSE(d.button("trackStop")->isEnabled()) << "nothing to stop";
  d.m->videos.clear();
  QTest::mouseClick(d.button("trackForward"), Qt::LeftButton);
  EXPECT_EQ(d.m->_status, "Le tracking a besoin d'une vidéo dans le Media.");
  EXPECT_FALSE(d.m->_trackingProgress);
  auto action = [&](const char* name) { return d.button("trackKeys")->menu()->findChild<QAction*>(name); };
  ASSERT_NE(action("pinHere"), nullptr);
  action("pinHere")->trigger();
  EXPECT_EQ(d.m->_status, "Clé posée à l'image " + std::to_string(d.m->_currentFrame + 1) + " · 1 clé.");
  ASSERT_TRUE(action("trackCorrect")->isChecked());
  action("trackCorrect")->trigger();
  EXPECT_FALSE(d.m->tracking.correct);
  d.m->_trackingProgress = 0.4;  // as a run under way sets it
  d.settle();
  EXPECT_FALSE(d.button("trackKeys")->isEnabled());
  EXPECT_FALSE(d.button("trackForward")->isEnabled());
  EXPECT_TRUE(d.button("trackStop")->isEnabled());
  auto* progress = d.find<QProgressBar>("trackProgress");
  ASSERT_TRUE(progress && progress->isVisible());
  EXPECT_EQ(progress->value(), 400);
  d.m->_trackingProgress.reset();

  // A node that isn't a mask has no tabs.
  d.m->select(d.m->_nodes.front().id);
  d.m->inspectedID.reset();
  d.settle();
  EXPECT_FALSE(tabs->isVisible());
}
