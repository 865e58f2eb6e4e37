#pragma once
// A model kept apart for a test: a blank world, the test's clock, settings and data inside a
// temporary folder, never the user's.
#include <memory>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "media/video_source.h"
#include "platform/scheduler.h"

namespace ombrik::test {

inline AppModel::Options tempModelOptions(const TempDir& dir, std::shared_ptr<Scheduler> clock, bool withEngine = true) {
  return AppModel::Options{.blankStart = true, .withEngine = withEngine, .scheduler = std::move(clock),
                           .defaultsFile = (dir.path / "defaults.conf").string(), .dataDir = dir.path / "data"};
}

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
