#include "ai/magic_job.h"

#include "tracking/tap_server.h"

namespace ombrik {

std::string aiStoppedText(const std::filesystem::path& log) {
  return "le calcul IA s'est arrêté (voir " + log.string() + ")";
}

std::optional<std::string> magicJob(TapServer& server, const std::optional<std::filesystem::path>& python,
                                    const nlohmann::json& job, const MagicJobHooks& hooks,
                                    const std::atomic<bool>& cancelFlag) {
  if (!python) return std::string(kAiNoPython);
  if (auto error = server.ensureRunning(*python, hooks.onStatus)) return cancelFlag ? std::string(kAiCancelled) : *error;
  const JobResult r = server.runJob(job, [&](const nlohmann::json& m) {
    if (const auto seg = m.find("seg"); seg != m.end() && seg->is_number_integer()) {
      if (hooks.onSeg) hooks.onSeg(seg->get<int>());
    } else if (const auto status = m.find("status"); status != m.end() && status->is_string()) {
      if (hooks.onStatus) hooks.onStatus(status->get<std::string>());
    }
  });
  if (r.ok()) return std::nullopt;
  // A worker that answered `error` keeps serving; one whose stream ended (crash, kill, hang,
  // stop) is gone by now.
  if (r.end == JobResult::End::error && server.running()) return r.text;
  if (cancelFlag) return std::string(kAiCancelled);
  return aiStoppedText(server.logFile());
}

}  // namespace ombrik
