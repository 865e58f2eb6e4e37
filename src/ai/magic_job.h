#pragma once
// One AI job on the worker, from start to end, on the calling thread (the application puts it on a
// thread of its own). Progress and statuses come through the hooks, on that same thread.
#include <atomic>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace ombrik {

class TapServer;

// Texts of the job's ends, French keys of the catalogue.
inline const char* const kAiNoPython = "Python 3 introuvable : le tracker ne peut pas démarrer.";
inline const char* const kAiCancelled = "annulé";
inline const char* const kAiCancelledStatus = "Calcul IA annulé (les images déjà calculées sont gardées).";
// The stream ended without "done" and nobody cancelled: the log says why.
std::string aiStoppedText(const std::filesystem::path& log);

struct MagicJobHooks {
  std::function<void(int)> onSeg;                       // frames finished so far
  std::function<void(const std::string&)> onStatus;     // may be empty
};

// Starts the worker if needed, sends `job` and follows its replies until it ends. Nothing when it
// ended with "done"; else the worker's `error` text, kAiCancelled when the stream ended after
// `cancelFlag` was set (a cancel stops the server, which is what ends the job), aiStoppedText
// otherwise, or kAiNoPython when there is no interpreter. The caller clears `cancelFlag` before.
std::optional<std::string> magicJob(TapServer& server, const std::optional<std::filesystem::path>& python,
                                    const nlohmann::json& job, const MagicJobHooks& hooks,
                                    const std::atomic<bool>& cancelFlag);

}  // namespace ombrik
