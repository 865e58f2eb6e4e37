#include "ai/task_eta.h"

#include <algorithm>
#include <cstdio>

namespace ombrik {

std::string etaFmt(double seconds) {
  const long s = std::max(0L, static_cast<long>(seconds));
  char buf[64];
  if (s < 60) std::snprintf(buf, sizeof buf, "%ld s", s);
  else if (s < 3600) std::snprintf(buf, sizeof buf, "%ld min %02ld", s / 60, s % 60);
  else std::snprintf(buf, sizeof buf, "%ld h %02ld", s / 3600, s / 60 % 60);
  return buf;
}

std::string etaText(double progress, std::optional<double> elapsedSeconds) {
  const double p = std::clamp(progress, 0.0, 1.0);
  const std::string percent = std::to_string(static_cast<int>(p * 100)) + " %";
  if (p <= 0.02 || !elapsedSeconds || *elapsedSeconds <= 2) return percent;
  const double t = *elapsedSeconds;
  return percent + " · reste ~" + etaFmt(t * (1 - p) / p) + " · " + etaFmt(t);
}

bool shouldPlayTaskSound(double elapsedSeconds, bool cancelled, bool enabled) {
  return elapsedSeconds > 3 && !cancelled && enabled;
}

std::optional<double> TaskSound::elapsed(const std::string& key, double now) const {
  const auto it = started.find(key);
  if (it == started.end()) return std::nullopt;
  return now - it->second;
}

bool TaskSound::change(const std::string& key, bool wasRunning, bool isRunning, double now, bool cancelled) {
  if (!wasRunning && isRunning) started[key] = now;
  if (!wasRunning || isRunning) return false;
  const std::optional<double> t = elapsed(key, now);
  started.erase(key);
  return t && shouldPlayTaskSound(*t, cancelled, enabled);
}

}  // namespace ombrik
