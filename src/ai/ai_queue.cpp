#include "ai/ai_queue.h"

#include <algorithm>

namespace ombrik {

std::string aiKey(std::string_view prefix, const Uuid& id) { return std::string(prefix) + id.toString(); }

std::string denoiseFrameKey(const Uuid& id, int frame) {
  return aiKey(aiprefix::denoiseFrame, id) + "-" + std::to_string(frame);
}

std::string aiWaitingText(const std::string& label) {
  return label + " en attente : il démarre dès que le calcul en cours est terminé.";
}

std::string AiQueue::enqueue(const std::string& key, const std::string& label, std::function<void()> run) {
  if (!contains(key)) entries_.push_back({key, std::move(run)});
  return aiWaitingText(label);
}

std::optional<AiQueue::Entry> AiQueue::take() {
  if (entries_.empty()) return std::nullopt;
  Entry e = std::move(entries_.front());
  entries_.pop_front();
  return e;
}

bool AiQueue::contains(const std::string& key) const {
  return std::any_of(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.key == key; });
}

}  // namespace ombrik
