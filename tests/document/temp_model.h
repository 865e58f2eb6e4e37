#pragma once
// A model kept apart for a test: a blank world, the test's clock, settings and data inside a
// temporary folder, never the user's.
#include <memory>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "platform/scheduler.h"

namespace ombrik::test {

inline AppModel::Options tempModelOptions(const TempDir& dir, std::shared_ptr<Scheduler> clock, bool withEngine = true) {
  return AppModel::Options{.blankStart = true, .withEngine = withEngine, .scheduler = std::move(clock),
                           .defaultsFile = (dir.path / "defaults.conf").string(), .dataDir = dir.path / "data"};
}

}  // namespace ombrik::test
