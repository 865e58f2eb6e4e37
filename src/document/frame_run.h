#pragma once
// A run of frames to files, shared by renders and the Relais cache; private to the model's files.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "document/app_model.h"
#include "media/forward_readers.h"

namespace ombrik {

struct AppModel::FrameRun {
  int frames = 1;
  double fps = 25;
  int rememberFrame = 0;
  std::vector<Node> nodes;  // the graph as it was when the run started
  std::vector<Edge> edges;
  std::unique_ptr<ForwardReaders> readers;
  // The work of frame i once evaluated: nothing, or why the run stops.
  std::function<std::optional<std::string>(int)> write;
  // The end, with the reason the run stopped if any; may turn success into an error.
  std::function<void(std::optional<std::string>&)> close;
  // The status once finished, from the error (none: success).
  std::function<std::string(const std::optional<std::string>&)> ended;
};

}  // namespace ombrik
