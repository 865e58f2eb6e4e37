#pragma once
// The render queue: worlds rendered one after the other, each job waiting, running, done or failed.
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "graph/uuid.h"

namespace ombrik {

struct RenderJob {
  enum class State { waiting, running, done, failed };
  Uuid id;
  Uuid batchID;
  std::string name;
  State state = State::waiting;
  std::string message;  // why it failed
  std::optional<std::filesystem::path> output;
  bool operator==(const RenderJob&) const = default;
};

// A render of frames in progress and what it leaves: the guard against a second one, the cancel
// flag read once per frame, the progress (set while running), the last file or folder written.
struct RenderState {
  bool renderCancel = false;
  std::optional<double> renderProgress;
  std::optional<std::filesystem::path> lastRender;
  std::function<void(std::optional<std::string>)> onRenderFinished;
  bool forceFullRes = false;
  std::vector<RenderJob> renderQueue;
};

namespace renderqueue {
// Jobs for the worlds not already waiting or running; `exists` says whether a world is still there.
// Gives how many were added.
int enqueue(std::vector<RenderJob>& queue, const std::vector<std::pair<Uuid, std::string>>& worlds);
int count(const std::vector<RenderJob>& queue, RenderJob::State state);
RenderJob* nextWaiting(std::vector<RenderJob>& queue);
int removeWaiting(std::vector<RenderJob>& queue);
bool remove(std::vector<RenderJob>& queue, const Uuid& jobID);  // any job but the running one
void clearFinished(std::vector<RenderJob>& queue);

// The status texts of the queue.
std::string addedText(int added, int waiting);
std::string finishedText(int done, const std::string& folderName);
std::string stoppedText(int cancelled);
}  // namespace renderqueue

}  // namespace ombrik
