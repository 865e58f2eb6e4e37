// The render queue: worlds rendered one after the other into their output folder, or the queue's.
#include "document/app_model.h"
#include "platform/dialogs.h"
#include "platform/user_defaults.h"

namespace ombrik {

namespace fs = std::filesystem;
using State = RenderJob::State;

fs::path AppModel::queueFolder() {
  if (auto chosen = defaults_->string("renderQueueFolder"); chosen && !chosen->empty()) return *chosen;
  return dataDir_ / "Renders";
}

void AppModel::chooseQueueFolder() {
  if (!dialogs_) return;
  OpenPanel panel;
  panel.title = "Dossier de sortie de la file de rendu";
  panel.directory = queueFolder();
  if (auto chosen = dialogs_->folder(panel)) defaults_->set("renderQueueFolder", chosen->string());
}

void AppModel::enqueueRender(const std::vector<Uuid>& batchIDs) {
  saveCurrentBatch();
  std::vector<std::pair<Uuid, std::string>> worlds;
  for (const Uuid& id : batchIDs)
    for (const Batch& b : _batches)
      if (b.id == id) worlds.emplace_back(b.id, b.name);
  auto& queue = delivery.renderQueue;
  const int added = renderqueue::enqueue(queue, worlds);
  _status = renderqueue::addedText(added, renderqueue::count(queue, State::waiting));
  runQueue();
}

void AppModel::runQueue() {
  auto& queue = delivery.renderQueue;
  if (rendering || renderqueue::count(queue, State::running) > 0) return;
  RenderJob* job = renderqueue::nextWaiting(queue);
  if (!job) return;
  const Uuid jobID = job->id;
  auto find = [this, jobID]() -> RenderJob* {
    for (RenderJob& j : delivery.renderQueue)
      if (j.id == jobID) return &j;
    return nullptr;
  };
  auto fail = [&](const std::string& message) {
    if (RenderJob* j = find()) j->state = State::failed, j->message = message;
    later(0, [this] { runQueue(); });
  };
  const bool exists = std::any_of(_batches.begin(), _batches.end(), [&](const Batch& b) { return b.id == job->batchID; });
  if (!exists) return fail("monde introuvable");
  stopPlayback();
  if (!_currentBatchID || *_currentBatchID != job->batchID) openBatch(job->batchID);
  const std::optional<Uuid> out = outputNode();
  if (!out) return fail("pas de node Sortie");
  if (nodeByID(*out)->path.empty()) {
    std::error_code ec;
    fs::create_directories(queueFolder(), ec);
    nodeByID(*out)->path = queueFolder().string();
    storedNodes();
  }
  find()->state = State::running;
  delivery.onRenderFinished = [this, find](std::optional<std::string> error) {
    if (RenderJob* j = find()) {
      if (error) j->state = State::failed, j->message = *error;
      else j->state = State::done, j->output = delivery.lastRender;
    }
    later(0, [this] {
      runQueue();
      const auto& q = delivery.renderQueue;
      if (!rendering && renderqueue::count(q, State::waiting) == 0 && renderqueue::count(q, State::running) == 0)
        _status = renderqueue::finishedText(renderqueue::count(q, State::done), queueFolder().filename().string());
    });
  };
  renderSequence(*out);
  if (!rendering) {  // refused to start: the refusal is in the status
    delivery.onRenderFinished = nullptr;
    fail(_status);
  }
}

void AppModel::stopQueue() { renderqueue::removeWaiting(delivery.renderQueue); }

void AppModel::removeRenderJob(const Uuid& jobID) { renderqueue::remove(delivery.renderQueue, jobID); }

void AppModel::stopAllRenders() {
  if (rendering) delivery.renderCancel = true;
  _status = renderqueue::stoppedText(renderqueue::removeWaiting(delivery.renderQueue));
}

void AppModel::clearFinishedRenders() { renderqueue::clearFinished(delivery.renderQueue); }

}  // namespace ombrik
