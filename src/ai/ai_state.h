#pragma once
// What the application model holds of the AI jobs: the node the running job belongs to, the
// waiting line, the cancel flag the worker thread reads, and the task sounds.
#include <atomic>
#include <memory>
#include <optional>
#include <set>

#include "ai/ai_queue.h"
#include "ai/task_eta.h"
#include "graph/uuid.h"

namespace ombrik {

struct AiState {
  std::optional<Uuid> aiNodeID;  // none: the job's bar shows on every AI panel
  AiQueue queue;
  // Set by a cancel, cleared when a job starts; shared with the job's thread, which only reads it.
  std::shared_ptr<std::atomic<bool>> cancelFlag = std::make_shared<std::atomic<bool>>(false);
  bool videoJobRunning = false;  // a whole-shot job runs
  TaskSound sound;  // start times by key, and whether the end sound is wanted
  std::set<Uuid> bodyWired;  // body and hair mattes with a Front: a new one computes what it lacks

  bool cancelled() const { return cancelFlag->load(); }
};

}  // namespace ombrik
