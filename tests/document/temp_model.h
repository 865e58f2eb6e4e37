#pragma once
// A model kept apart for a test: a blank world, the test's clock, settings and data inside a
// temporary folder, never the user's.
#include <memory>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "media/video_source.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"

namespace ombrik::test {

// A blank model with no engine and no files, on the test's clock: for edits of the graph alone.
struct GraphDesk {
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel m{AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock}};
  Uuid add(const char* kind, Point at = {0, 0}) { return m.addNode(*NodeKind::find(kind), at); }
  const Node& node(const Uuid& id) { return *m.nodeByID(id); }
  // Lets the history take what changed as one step of its own.
  void settle() { clock->advance(1); }
  // Adds `kind` and starts the history after it, so the node itself is no step.
  Uuid start(const char* kind, Point at = {0, 0}) {
    const Uuid id = add(kind, at);
    settle();
    m.resetHistory();
    return id;
  }
};

inline AppModel::Options tempModelOptions(const TempDir& dir, std::shared_ptr<Scheduler> clock, bool withEngine = true) {
  return AppModel::Options{.blankStart = true, .withEngine = withEngine, .scheduler = std::move(clock),
                           .defaultsFile = (dir.path / "defaults.conf").string(), .dataDir = dir.path / "data",
                           .userNodesDir = dir.path / "Nodes"};
}

// A model apart whose file panels and alerts answer from a script.
struct ScriptedDesk {
  TempDir dir;
  std::shared_ptr<ScriptedDialogs> dialogs = std::make_shared<ScriptedDialogs>();
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> m = [this] {
    AppModel::Options options = tempModelOptions(dir, clock);
    options.dialogs = dialogs;
    return std::make_unique<AppModel>(options);
  }();
};

// Lets the decoders finish the seeks in flight of the model's clips and hand their ends to the
// main thread (20 s at most); the caller then moves the clock for the pump and the render.
inline void settleSeeks(ManualScheduler& clock, const AppModel& m) {
  for (int i = 0; i < 400; ++i) {
    bool busy = false;
    for (const auto& [id, v] : m.videos) busy |= v->seekBusy();
    if (!busy) return;
    clock.waitForThreads(0.05);
    clock.runAll();
  }
}

}  // namespace ombrik::test
