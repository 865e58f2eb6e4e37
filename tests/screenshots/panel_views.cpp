// The panels: the AI tools' panel for each AI kind, and the timeline workspace with its settings sheet.
#include <fstream>

#include "ai/object_boxes.h"
#include "document/world_list.h"
#include "screenshot_views.h"
#include "shell/ai_panel.h"
#include "shell/inspector_widget.h"
#include "shell/timeline_settings.h"
#include "shell/timeline_view.h"
#include "shell/viewer_widget.h"

namespace ombrik::test {

// The example world, the viewer kept on the media; one node of each AI kind added in turn, inspected,
// shot and taken away again: idle, Body Matte while its job runs, Objet IA with two objects found.
void aiPanelsView(Shot& shot) {
  AppModel model(shot.example());
  model._viewedNode = firstOfKind(model, "media");
  model._viewLocked = true;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  // No clock moves: the media on screen stays rendered, and the graph's renders would only slow it.
  auto added = [&](const std::string& kind, auto setUp) {
    const Uuid node = model.addNode(*NodeKind::find(kind), {300, 260});
    setUp(node);
    inspect(model, node);
    shot.snap(window, "ai_" + (kind == "bodymask" ? std::string("bodymatte") : kind));
    EXPECT_TRUE(window.inspector()->aiPanel()->isVisible()) << kind;
    return node;
  };
  for (const char* kind : {"magicmask", "denoise", "greenkeyai"}) model.deleteNode(added(kind, [](const Uuid&) {}));
  model.deleteNode(added("retime", [&](const Uuid& id) { model.setParams(id, {{"method", 1}}); }));

  // A whole-shot job under way for this node: the bar and the cancel in the panel and the status line.
  const Uuid body = added("bodymask", [&](const Uuid& id) {
    model._magicProgress = 0.42;
    model.ai.aiNodeID = id;
  });
  model._magicProgress.reset();
  window.refresh();  // the job seen ending: the next one's time starts from zero
  model.deleteNode(body);

  added("objectmask", [&](const Uuid& id) {
    Node* n = model.nodeByID(id);
    n->prompt = "lampadaire, voiture";
    n->magicPoints = {{{0.30, 0.62}, true}, {{0.70, 0.35}, false}};
    n->magicFrame = model._currentFrame;
    std::filesystem::create_directories(model.magicDir(id));
    std::ofstream(model.magicDir(id) / "boxes.json") << objectBoxesJson(
        ObjectBoxes{model._currentFrame, {{0.12, 0.18, 0.46, 0.86, 0.91}, {0.55, 0.22, 0.88, 0.58, 0.47}}});
  });
  EXPECT_FALSE(window.viewer()->picture().isNull()) << model._status;
}

// Three layers (one selected, one with an effect, one screened at 60 %), the playhead half-way, and
// the timeline's settings sheet.
void timelineView(Shot& shot) {
  const auto beach = shot.clip("plage.mp4", "testsrc2", 75), bars = shot.clip("mire.mp4", "smptehdbars", 50);
  AppModel model(shot.blank());
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
  shot.snap(window, "timeline_workspace");
  TimelineSettings* sheet = window.openTimelineSettings();
  ASSERT_NE(sheet, nullptr);
  EXPECT_TRUE(QTest::qWaitForWindowExposed(sheet));
  QCoreApplication::processEvents();
  shot.save(sheet->grab().toImage(), "timeline_settings");
  sheet->close();
}

}  // namespace ombrik::test
