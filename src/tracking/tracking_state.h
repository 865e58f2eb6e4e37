#pragma once
// What the document holds for mask tracking: the settings of the next run, the weak zones found,
// and the run under way with its one-shot controls (limits and hooks of runs chained by pins or
// by a forward-then-back request).
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "graph/node.h"
#include "graph/uuid.h"
#include "tracking/mask_track_run.h"
#include "tracking/pin_plan.h"

namespace ombrik {

class FastRun;

enum class TrackEngine { fast, precise };

inline const char* trackEngineName(TrackEngine e) { return e == TrackEngine::fast ? "Rapide" : "Précis (IA)"; }
inline const char* trackModeName(TrackMode m) { return m == TrackMode::planar ? "Planar" : "Position"; }

// A track between pins under way: its runs, what each left, and the node as it was before, which
// comes back whole if a run fails or is stopped.
struct PinPlanRun {
  Uuid nodeID;
  std::vector<PinRun> plan;
  std::vector<PinResult> results;
  Node before;
  int returnFrame = 0;  // where the user was: the viewer goes back there at the end
};

struct TrackingState {
  TrackMode mode = TrackMode::planar;
  TrackEngine engine = TrackEngine::fast;
  int pointCount = 100;   // 25, 50, 100, 200 or 400 seeds
  int resolution = 512;   // the precise engine's working size: 512 or 1920
  bool correct = true;    // dragging a tracked mask makes offset keys
  std::map<Uuid, int> weak;  // the first frame of a weak or lost zone, by node

  // The run under way.
  std::optional<Uuid> nodeID;
  std::shared_ptr<MaskTrackRun> run;
  std::shared_ptr<FastRun> fastRun;  // the fast engine's process, for a stop
  std::thread thread;
  double lastSeek = -1e9;
  // Read and cleared by the next run.
  std::optional<int> limit;
  bool noRecenter = false;
  std::function<void(bool)> finishHook;
  std::optional<std::pair<Uuid, int>> thenBack;           // the node and frame the back run starts from
  std::optional<std::pair<Uuid, std::string>> backNote;   // the forward run's outcome, for the back run's status
  bool stoppedByUser = false;  // how the last run ended, for its finish hook
  std::optional<PinPlanRun> pins;
};

}  // namespace ombrik
