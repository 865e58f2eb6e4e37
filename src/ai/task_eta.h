#pragma once
// How a long task shows its time (percentage, remaining, elapsed) and whether its end rings.
#include <map>
#include <optional>
#include <string>

namespace ombrik {

// "45 s", "3 min 07", "1 h 05".
std::string etaFmt(double seconds);
// The progress text: the percentage alone while too early to guess (p <= 0.02, t <= 2 s or no start
// known), else "42 % · reste ~1 min 05 · 47 s". `progress` is clamped to 0..1.
std::string etaText(double progress, std::optional<double> elapsedSeconds);

// A task that ends rings only when it lasted more than 3 s, wasn't cancelled and the user wants it.
bool shouldPlayTaskSound(double elapsedSeconds, bool cancelled, bool enabled);

// Start times of the running tasks by key ("track", "magic", "fill", "film"), in the scheduler's
// seconds; `enabled` follows the user default taskSound.
struct TaskSound {
  std::map<std::string, double> started;
  bool enabled = true;

  std::optional<double> elapsed(const std::string& key, double now) const;
  // A task's progress went from `wasRunning` to `isRunning`: notes or drops its start, and says
  // whether the end sound plays now.
  bool change(const std::string& key, bool wasRunning, bool isRunning, double now, bool cancelled);
};

}  // namespace ombrik
