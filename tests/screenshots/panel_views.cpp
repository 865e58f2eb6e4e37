// The panels: the AI tools' panel for each AI kind, the settings panel (the shape mask and the
// tracker, whose long texts must wrap inside it, and the empty panel), the curve editor with a key's
// menu of styles, and the timeline workspace with its settings sheet.
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <fstream>

#include "ai/object_boxes.h"
#include "document/world_list.h"
#include "screenshot_views.h"
#include "shell/ai_panel.h"
#include "shell/ai_progress_row.h"
#include "shell/curve_editor_widget.h"
#include "shell/inspector_widget.h"
#include "shell/timeline_settings.h"
#include "shell/timeline_view.h"
#include "shell/viewer_widget.h"

namespace ombrik::test {
namespace {
// The settings panel never scrolls sideways: its long texts wrap.
void expectNoSidewaysScroll(MainWindow& window, const std::string& name) {
  for (auto* scroll : window.inspector()->findChildren<QScrollArea*>())
    EXPECT_FALSE(scroll->horizontalScrollBar()->isVisible()) << name;
}
}  // namespace

// The example world, the viewer kept on the media; one node of each AI kind added in turn, inspected,
// shot and taken away again: idle, Body Matte while its job runs, Objet IA with two objects found.
void aiPanelsView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  model._viewedNode = firstOfKind(model, "media");
  model._viewLocked = true;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  // No clock moves: the media on screen stays rendered, and the graph's renders would only slow it.
  auto inspect = [&](const std::string& kind, auto setUp) {
    const Uuid node = model.addNode(*NodeKind::find(kind), {300, 260});
    setUp(node);
    model.select(node);
    model.inspectedID = node;
    Shot::settle(window);
    shot.save(window.grab().toImage(), "ai_" + (kind == "bodymask" ? std::string("bodymatte") : kind));
    expectNoSidewaysScroll(window, kind);
    EXPECT_TRUE(window.inspector()->aiPanel()->isVisible()) << kind;
    return node;
  };
  for (const char* kind : {"magicmask", "denoise", "greenkeyai"}) model.deleteNode(inspect(kind, [](const Uuid&) {}));
  model.deleteNode(inspect("retime", [&](const Uuid& id) { model.setParams(id, {{"method", 1}}); }));

  // A whole-shot job under way for this node: the bar and the cancel in the panel and the status line.
  const Uuid body = inspect("bodymask", [&](const Uuid& id) {
    model._magicProgress = 0.42;
    model.ai.aiNodeID = id;
  });
  EXPECT_TRUE(window.inspector()->aiPanel()->progress()->isVisible());
  EXPECT_TRUE(window.aiProgress()->isVisible());
  auto* video = window.findChild<QPushButton*>("aiVideo");
  ASSERT_NE(video, nullptr);
  EXPECT_EQ(video->text(), shot.say("Compute the whole video", "Calculer toute la vidéo"));
  model._magicProgress.reset();
  window.refresh();  // the job seen ending: the next one's time starts from zero
  model.deleteNode(body);

  inspect("objectmask", [&](const Uuid& id) {
    Node* n = model.nodeByID(id);
    n->prompt = "lampadaire, voiture";
    n->magicPoints = {{{0.30, 0.62}, true}, {{0.70, 0.35}, false}};
    n->magicFrame = model._currentFrame;
    std::filesystem::create_directories(model.magicDir(id));
    std::ofstream(model.magicDir(id) / "boxes.json") << objectBoxesJson(
        ObjectBoxes{model._currentFrame, {{0.12, 0.18, 0.46, 0.86, 0.91}, {0.55, 0.22, 0.88, 0.58, 0.47}}});
  });
  ASSERT_FALSE(window.viewer()->picture().isNull()) << model._status;
  EXPECT_TRUE(window.findChild<QWidget*>("aiRemoveBox1")) << "both objects are listed";
}

// The empty panel, then a shape mask and a tracker with every setting animated, so that the rows
// show their key buttons too.
void inspectorView(Shot& shot) {
  AppModel model(shot.blank(false));
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.save(window.grab().toImage(), "inspector_empty");
  expectNoSidewaysScroll(window, "empty");
  for (const char* kind : {"mask", "tracker"}) {
    const Uuid id = model.addNode(*NodeKind::find(kind), {300, 200});
    model.select(id);
    if (std::string(kind) == "mask") model.newMask(id);
    for (const ParamSpec& spec : (*NodeKind::find(kind))->params) model.toggleAnim(id, spec.key);
    Shot::settle(window);
    shot.save(window.grab().toImage(), std::string("inspector_") + kind);
    expectNoSidewaysScroll(window, kind);
    model.deleteNode(id);
  }
}

// A colour node with two animated settings, the curve editor pulled up to half the graph's height,
// one key selected and its menu open beside it.
void curveEditorView(Shot& shot) {
  AppModel m(shot.blank(false));
  const Uuid color = m.addNode(NodeKind::color(), {300, 200});
  m._frameCount = 120;
  for (const auto& [frame, value] : {std::pair{0, -0.5}, std::pair{45, 0.9}, std::pair{110, 0.2}})
    m.setKey(color, "exposure", frame, value);
  m.setKey(color, "sat", 10, 0.6);
  m.setKey(color, "sat", 90, 1.4);
  m.setKeyStyle(color, "exposure", 1, AppModel::KeyStyle::ease);
  m.select(color);
  m.inspectedID = color;
  m._keySel = {KeySel{"exposure", 1}};
  m.seekFrame(30);
  MainWindow window(m);
  window.toggleCurveEditor();
  ASSERT_TRUE(shot.show(window, m));
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
  QImage picture = window.grab().toImage();
  const std::unique_ptr<QMenu> menu(curves->keyMenu(key->toPoint()));
  ASSERT_TRUE(menu);
  paintPopup(picture, grabbed(*menu), curves->mapTo(&window, key->toPoint() + QPoint(8, 8)));
  shot.save(picture, "curve_editor");
  EXPECT_EQ(menu->actions().size(), 8) << "six styles, a line, deleting";
}

// Three layers (one selected, one with an effect, one screened at 60 %), the playhead half-way, and
// the timeline's settings sheet.
void timelineView(Shot& shot) {
  auto clip = [&](const char* name, const char* source, int frames) {
    const std::filesystem::path out = shot.dir.path / name;
    const std::string command = std::string("ffmpeg -v error -y -f lavfi -i ") + source + " -frames:v " +
                                std::to_string(frames) + " -c:v libx264 -pix_fmt yuv420p '" + out.string() + "'";
    return std::system(command.c_str()) == 0 ? out : std::filesystem::path();
  };
  const auto beach = clip("plage.mp4", "testsrc2=size=960x540:rate=25", 75);
  const auto bars = clip("mire.mp4", "smptehdbars=size=960x540:rate=25", 50);
  ASSERT_FALSE(beach.empty() || bars.empty());
  AppModel model(shot.blank());
  ASSERT_TRUE(model.engine) << model._status;
  const auto first = model.createWorld(beach), second = model.createWorld(bars);
  ASSERT_TRUE(first && second) << model._status;
  const Uuid barsMedia = *worldlist::find(model._batches, *second)->mediaID;
  model.newTimeline();
  model.tl.timelineSettingsOpen = false;
  model.renameTimeline(*model.tl.currentTimelineID, "Bande-annonce");
  model.addLayer(LayerSource::batch(*first), 0);
  model.addLayer(LayerSource::media(barsMedia), 30);
  model.addLayer(LayerSource::batch(*second), 55);
  const auto layer = [&](int i) { return model.tl.current()->layers[std::size_t(i)].id; };
  model.updateLayer(layer(2), [](TLayer& l) { l.opacity = 0.6, l.blend = 2, l.inPoint = 10, l.length = 40; });
  model.tl.tlSelection = {layer(0)};
  model.addLayerEffect(NodeKind::color());  // "fx · …" in its header
  model.selectLayer(layer(1), false);
  model.seekFrame(model.tl.current()->duration() / 2);

  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  for (int i = 0; i < 4; ++i) {  // the frame of the timeline is rendered, then handed over
    shot.clock->advance(0.5);
    Shot::settle(window);
  }
  ASSERT_TRUE(window.timelineView()->isVisible());
  shot.save(window.grab().toImage(), "timeline_workspace");
  TimelineSettings* sheet = window.openTimelineSettings();
  ASSERT_NE(sheet, nullptr);
  EXPECT_TRUE(QTest::qWaitForWindowExposed(sheet));
  QCoreApplication::processEvents();
  shot.save(sheet->grab().toImage(), "timeline_settings");
  sheet->close();
}

}  // namespace ombrik::test
