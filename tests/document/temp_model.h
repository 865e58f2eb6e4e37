#pragma once
// A model kept apart for a test: a blank world, the test's clock, settings and data inside a
// temporary folder, never the user's.
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

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

// A model apart (with the engine unless told) whose file panels and alerts answer from a script;
// `make` opens another on the same folder.
struct ScriptedDesk {
  explicit ScriptedDesk(bool engine = true) : m(make(engine)) {}
  TempDir dir;
  std::shared_ptr<ScriptedDialogs> dialogs = std::make_shared<ScriptedDialogs>();
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> m;
  std::unique_ptr<AppModel> make(bool engine = true) {
    AppModel::Options options = tempModelOptions(dir, clock, engine);
    options.dialogs = dialogs;
    return std::make_unique<AppModel>(options);
  }
};

// The first node of `kind` in the open world (a null id when there is none).
inline Uuid nodeOfKind(const AppModel& m, std::string_view kind) {
  for (const Node& n : m._nodes)
    if (n.kind->id == kind) return n.id;
  return Uuid();
}

// Runs the clock, letting the threads work, while `busy()` holds; `seconds` of waiting at most.
template <class Busy>
bool waitWhile(ManualScheduler& clock, Busy busy, double seconds = 20) {
  for (int i = 0; busy() && i < int(seconds / 0.05); ++i) {
    clock.waitForThreads(0.05);
    clock.runAll();
  }
  return !busy();
}

// Lets the decoders finish the seeks in flight of the model's clips and hand their ends to the
// main thread; the caller then moves the clock for the pump and the render.
inline void settleSeeks(ManualScheduler& clock, const AppModel& m) {
  waitWhile(clock, [&] {
    for (const auto& [id, v] : m.videos)
      if (v->seekBusy()) return true;
    return false;
  });
}

// A flat still of one colour, written by OpenImageIO's command-line tool (`format`: a -d type, or the tool's own);
// the path, or an empty one when it couldn't be written.
inline std::filesystem::path writeStill(const std::filesystem::path& p, int w, int h, std::array<double, 3> rgb = {0.5, 0.5, 0.5},
                                        const std::string& format = "") {
  const std::string cmd = "oiiotool --pattern constant:color=" + std::to_string(rgb[0]) + "," + std::to_string(rgb[1]) + "," +
                          std::to_string(rgb[2]) + " " + std::to_string(w) + "x" + std::to_string(h) + " 3 " +
                          (format.empty() ? "" : "-d " + format) + " -o '" + p.string() + "'";
  return std::system(cmd.c_str()) == 0 ? p : std::filesystem::path();
}

// The mean of one channel of an RGBA picture.
inline double meanChannel(const std::vector<float>& rgba, int channel) {
  double sum = 0;
  for (std::size_t i = channel; i < rgba.size(); i += 4) sum += rgba[i];
  return rgba.empty() ? 0 : sum / double(rgba.size() / 4);
}

}  // namespace ombrik::test
