#include "editorial/render_queue.h"

#include <algorithm>

namespace ombrik::renderqueue {

int enqueue(std::vector<RenderJob>& queue, const std::vector<std::pair<Uuid, std::string>>& worlds) {
  int added = 0;
  for (const auto& [batch, name] : worlds) {
    const bool busy = std::any_of(queue.begin(), queue.end(), [&](const RenderJob& j) {
      return j.batchID == batch && (j.state == RenderJob::State::waiting || j.state == RenderJob::State::running);
    });
    if (busy) continue;
    queue.push_back({Uuid::generate(), batch, name, RenderJob::State::waiting, {}, std::nullopt});
    ++added;
  }
  return added;
}

int count(const std::vector<RenderJob>& queue, RenderJob::State state) {
  return int(std::count_if(queue.begin(), queue.end(), [&](const RenderJob& j) { return j.state == state; }));
}

RenderJob* nextWaiting(std::vector<RenderJob>& queue) {
  auto it = std::find_if(queue.begin(), queue.end(), [](const RenderJob& j) { return j.state == RenderJob::State::waiting; });
  return it == queue.end() ? nullptr : &*it;
}

int removeWaiting(std::vector<RenderJob>& queue) {
  return int(std::erase_if(queue, [](const RenderJob& j) { return j.state == RenderJob::State::waiting; }));
}

bool remove(std::vector<RenderJob>& queue, const Uuid& jobID) {
  return std::erase_if(queue, [&](const RenderJob& j) { return j.id == jobID && j.state != RenderJob::State::running; }) > 0;
}

void clearFinished(std::vector<RenderJob>& queue) {
  std::erase_if(queue, [](const RenderJob& j) { return j.state == RenderJob::State::done || j.state == RenderJob::State::failed; });
}

std::string addedText(int added, int waiting) {
  if (added == 0) return "Déjà dans la file de rendu.";
  const std::string s = added > 1 ? "s" : "";
  return std::to_string(added) + " rendu" + s + " ajouté" + s + " · " + std::to_string(waiting) + " en attente.";
}

std::string finishedText(int done, const std::string& folderName) {
  return "File de rendu terminée : " + std::to_string(done) + " rendu" + (done > 1 ? "s" : "") + " dans " + folderName +
         "/ (ou le dossier de chaque node Sortie).";
}

std::string stoppedText(int cancelled) {
  if (cancelled == 0) return "Rendus arrêtés";
  return "Rendus arrêtés · " + std::to_string(cancelled) + " en attente annulé" + (cancelled > 1 ? "s" : "");
}

}  // namespace ombrik::renderqueue
