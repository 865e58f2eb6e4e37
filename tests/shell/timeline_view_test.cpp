// The timeline view: bar drags, clicks and keys, the layer menus, the ruler and zoom, the settings
// sheet, and the window showing the timeline in place of the graph.
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QSpinBox>
#include <QWheelEvent>

#include "shell/node_editor.h"
#include "shell/timeline_settings.h"
#include "shell/timeline_view.h"
#include "shell_app.h"

using namespace ombrik;

namespace {
Picture stripes(int w, int h) {
  auto bytes = std::make_shared<std::vector<std::uint8_t>>(std::size_t(w * h * 4), 255);
  for (int i = 0; i < w * h; ++i) (*bytes)[std::size_t(i * 4)] = std::uint8_t(i % w * 255 / w);
  return Picture{w, h, bytes};
}

// A timeline of three layers in a view at 4 pixels a frame: a clip from 10 to 50 (source from 5),
// a world from 40, a still from 100.
struct Desk : test::ScriptedDesk {
  QApplication& app = test::shellApp();
  std::unique_ptr<TimelineView> view;

  Desk() : ScriptedDesk(false) {
    const Uuid clip = Uuid::generate(), still = Uuid::generate();
    m->_media.push_back(MediaItem{.id = clip, .name = "rush_a.mov", .url = {}, .width = 1920, .height = 1080,
                                  .thumb = stripes(64, 36), .poster = {}, .isVideo = true, .frames = 120});
    m->_media.push_back(MediaItem{.id = still, .name = "fond.png", .url = {}, .width = 1920, .height = 1080, .thumb = {}, .poster = {}});
    const Uuid world = m->makeWorld(still, "Plan_B");
    m->newTimeline();
    m->tl.timelineSettingsOpen = false;
    m->addLayer(LayerSource::media(clip), 0);
    m->addLayer(LayerSource::batch(world), 40);
    m->addLayer(LayerSource::media(still), 102);
    m->updateLayer(id(0), [](TLayer& l) { l.start = 10, l.inPoint = 5, l.length = 40; });
    m->tl.tlUndo.clear();
    view = std::make_unique<TimelineView>(*m);
    view->resize(1000, 300);
    view->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(view.get()));
    view->setView({4, 0, 0});
    view->refresh();
  }
  const TLayer& layer(int i) const { return m->tl.current()->layers[std::size_t(i)]; }
  Uuid id(int i) const { return layer(i).id; }
  // A point of a layer's bar, `x` pixels from its left (from its right when negative).
  QPoint onBar(int i, double x) const {
    const QRectF r = view->barRect(id(i));
    return QPointF(x >= 0 ? r.left() + x : r.right() + x, r.center().y()).toPoint();
  }
  void drag(QPoint from, QPoint to) {
    QTest::mousePress(view.get(), Qt::LeftButton, {}, from);
    for (int k = 1; k <= 6; ++k) QTest::mouseMove(view.get(), from + (to - from) * k / 6);
    QTest::mouseRelease(view.get(), Qt::LeftButton, {}, to);
  }
  bool pick(QMenu* menu, const char* name) {
    QAction* a = menu ? menu->findChild<QAction*>(name) : nullptr;
    if (!a || !a->isEnabled()) return false;
    a->trigger();
    return true;
  }
};
}  // namespace

// Where the bar is grabbed picks the edit; its clamps are the timeline edits' own (tests/editorial).
TEST(TimelineView, ABarDragMovesOrTrimsByWholeFramesInOneUndoStep) {
  const struct {
    const char* what;
    double grab;  // pixels from the bar's left, or from its right when negative
    int dx;
    int start, inPoint, length;
  } cases[] = {
      {"the body moves", 20, 40, 20, 5, 40},
      {"the left edge trims", 3, 20, 15, 10, 35},
      {"the right edge lengthens", -3, 21, 10, 5, 45},  // 5¼ frames: whole ones
  };
  for (const auto& c : cases) {
    Desk d;
    const TLayer before = d.layer(0), other = d.layer(1);
    const QPoint from = d.onBar(0, c.grab);
    d.drag(from, from + QPoint(c.dx, 0));
    EXPECT_EQ(std::tuple(d.layer(0).start, d.layer(0).inPoint, d.layer(0).length), std::tuple(c.start, c.inPoint, c.length))
        << c.what;
    EXPECT_EQ(d.layer(1), other) << c.what;
    ASSERT_EQ(d.m->tl.tlUndo.size(), 1u) << c.what << ": one drag, one step";
    ASSERT_TRUE(d.m->tlUndoStep());
    EXPECT_EQ(d.layer(0), before) << c.what << ": the step was taken before the first change";
  }
}

TEST(TimelineView, ClicksSelectKeysEditAndTheRulerSeeksAndZooms) {
  Desk d;
  const struct {
    QPoint at;
    Qt::KeyboardModifiers mods;
    std::set<int> selected;
  } clicks[] = {
      {d.onBar(1, 30), {}, {1}},
      {d.onBar(2, 30), Qt::ControlModifier, {1, 2}},
      {d.onBar(1, 30), Qt::ShiftModifier, {2}},
      {QPoint(30, tlview::kRulerHeight + tlview::kRowHeight / 2), {}, {0}},  // a header's name
      {QPoint(600, 290), {}, {}},                                           // below the last row
  };
  for (const auto& c : clicks) {
    QTest::mouseClick(d.view.get(), Qt::LeftButton, c.mods, c.at);
    std::set<Uuid> expected;
    for (int i : c.selected) expected.insert(d.id(i));
    EXPECT_EQ(d.m->tl.tlSelection, expected) << c.at.x() << "," << c.at.y();
  }
  EXPECT_TRUE(d.m->tl.tlUndo.empty()) << "selecting is no edit";

  // The timeline's keys go to the model.
  d.m->seekFrame(20);
  QTest::keyClick(d.view.get(), Qt::Key_B);
  EXPECT_EQ(d.m->tl.current()->layers.size(), 4u) << "split (where: the timeline edits' tests)";
  QTest::keyClick(d.view.get(), Qt::Key_Home);
  EXPECT_EQ(d.m->_currentFrame, 0);

  // The ruler seeks; Ctrl+wheel zooms about the pointer.
  QTest::mouseClick(d.view.get(), Qt::LeftButton, {}, QPoint(int(d.view->geometryNow().x(30)) + 1, 10));
  EXPECT_EQ(d.m->_currentFrame, 30);
  const QPointF at(tlview::kHeaderWidth + 300, 100);
  const int under = d.view->geometryNow().frameAt(at.x());
  QWheelEvent zoom(at, d.view->mapToGlobal(at), {}, QPoint(0, 240), Qt::NoButton, Qt::ControlModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(d.view.get(), &zoom);
  EXPECT_GT(d.view->view().pixelsPerFrame, 4.0);
  EXPECT_NEAR(d.view->geometryNow().frameAt(at.x()), under, 1) << "the frame under the pointer stays there";
}

TEST(TimelineView, TheLayerMenuEditsOneStepEachAndTheHeaderSetsBlendAndOpacity) {
  const struct {
    const char* action;
    int layer;
    std::function<bool(const Desk&, const Uuid&)> done;
  } cases[] = {
      {"layerDown", 0, [](const Desk& d, const Uuid& id) { return d.id(1) == id; }},
      {"layerUp", 1, [](const Desk& d, const Uuid& id) { return d.id(0) == id; }},
      {"layerToPlayhead", 1, [](const Desk& d, const Uuid&) { return d.layer(1).start == 30; }},
      {"deleteLayer", 2, [](const Desk& d, const Uuid&) { return d.m->tl.current()->layers.size() == 2; }},
  };
  for (const auto& c : cases) {
    Desk d;
    d.m->seekFrame(30);
    const Uuid id = d.id(c.layer);
    ASSERT_TRUE(d.pick(d.view->layerMenu(id).get(), c.action)) << c.action;
    EXPECT_TRUE(c.done(d, id)) << c.action;
    EXPECT_EQ(d.m->tl.tlUndo.size(), 1u) << c.action;
  }
  Desk d;
  EXPECT_FALSE(d.pick(d.view->layerMenu(d.id(0)).get(), "layerUp")) << "the top layer can't go up";
  EXPECT_EQ(d.view->layerMenu(d.id(1))->findChild<QAction*>("layerToBatch"), nullptr) << "a world layer opens its graph";
  ASSERT_TRUE(d.pick(d.view->layerMenu(d.id(0)).get(), "layerToBatch"));
  EXPECT_TRUE(d.layer(0).source.isBatch());

  d.view->askName = [](const QString& present) { return std::optional<QString>("  " + present + " v2 "); };
  d.view->renameLayer(d.id(2));
  EXPECT_EQ(d.layer(2).name, "fond.png v2");
  ASSERT_TRUE(d.pick(d.view->blendMenu(d.id(2)).get(), "blend:2"));
  EXPECT_EQ(d.layer(2).blend, 2);
  // The opacity slider: a press on its left end, a slide to its middle, one step in all.
  const QRectF slider = d.view->geometryNow().opacitySlider(2);
  const std::size_t steps = d.m->tl.tlUndo.size();
  d.drag(QPointF(slider.left(), slider.center().y()).toPoint(), slider.center().toPoint());
  EXPECT_NEAR(d.layer(2).opacity, 0.5, 0.03);
  EXPECT_EQ(d.m->tl.tlUndo.size(), steps + 1);
}

TEST(TimelineView, TheWindowShowsTheTimelineAndItsSettingsSheet) {
  Desk d;
  d.view.reset();
  MainWindow window(*d.m);
  window.show();
  window.activateWindow();  // the menus' shortcuts work only in the active window
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  d.m->newTimeline();  // a new timeline asks for its settings at once
  window.refresh();
  EXPECT_TRUE(window.timelineView()->isVisible());
  EXPECT_FALSE(window.nodeEditor()->isVisible());
  EXPECT_FALSE(d.m->tl.timelineSettingsOpen);
  TimelineSettings* sheet = window.timelineSettings();
  ASSERT_NE(sheet, nullptr);
  sheet->nameField()->setText("  Bande-annonce ");
  sheet->presets()->activated(5);  // Vertical 9:16
  EXPECT_EQ(sheet->heightField()->value(), 1920);
  sheet->swapSize();
  EXPECT_EQ(sheet->presets()->currentIndex(), 0) << "1920 × 1080 is HD 1080 again";
  sheet->fpsField()->setValue(30);
  sheet->automatic()->setChecked(false);
  sheet->framesField()->setValue(300);
  EXPECT_EQ(sheet->durationTimecode()->text(), "00:00:10:00");
  sheet->setBackground(QColor(255, 0, 0));
  sheet->apply();
  const Timeline& t = *d.m->tl.current();
  EXPECT_EQ(t.name, "Bande-annonce");
  EXPECT_EQ(std::pair(t.width, t.height), std::pair(1920, 1080));
  EXPECT_EQ(t.fps, 30);
  EXPECT_EQ(t.fixedDuration, 300);
  EXPECT_EQ(t.background, (std::vector<double>{1, 0, 0}));

  sheet->close();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(window.timelineSettings(), nullptr) << "a closed sheet is gone";

  // Ctrl+A belongs to the timeline here, not to the graph's "select all".
  d.m->openTimeline(d.m->tl.timelines.front().id);
  window.refresh();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  window.timelineView()->setFocus();
  d.m->_selection.clear();
  QTest::keyClick(window.timelineView(), Qt::Key_A, Qt::ControlModifier);
  EXPECT_EQ(d.m->tl.tlSelection.size(), 3u);
  EXPECT_TRUE(d.m->_selection.empty());
  d.m->backToBatch();
  window.refresh();
  EXPECT_TRUE(window.nodeEditor()->isVisible());
  EXPECT_FALSE(window.timelineView()->isVisible());
}
