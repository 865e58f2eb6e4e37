#pragma once
// One tracking run of a mask: the frame reports of either engine turned into placements,
// homographies and dots, held until the document takes them in batches. Reports come in on the
// run's own thread; the document takes what waits from the main thread.
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "graph/mask_key.h"
#include "graph/point.h"
#include "tracking/homography.h"
#include "tracking/track_fitter.h"

namespace ombrik {

struct TrackRunSetup {
  TrackFitter fitter;
  int start = 0;
  bool forward = true;
  int budget = 1;             // frames to go in the run's direction, at least 1
  std::optional<int> limit;   // the last frame to reach (runs between pins)
  Point offset;               // the hand offset at the start frame, percent: kept out of the raw track
  std::optional<Homography> H0;  // planar runs: the homography at the start frame
  bool fast = false;          // the fast engine (batches of 3, speed every 15 frames)
};

// What waits for the document: keys and homographies by frame, and the visible points for the viewer.
struct TrackBatch {
  std::map<int, MaskKey> keys;
  std::map<int, std::vector<double>> planarH;
  std::map<int, std::vector<Point>> dots;
  std::optional<int> lastFrame;
  bool empty() const { return keys.empty() && planarH.empty() && dots.empty(); }
};

class MaskTrackRun {
public:
  explicit MaskTrackRun(TrackRunSetup setup);

  struct Step {
    bool stop = false;                  // the limit is passed or the mask is lost: cancel the tracker
    std::optional<std::string> status;  // the speed, now and then
  };
  // One frame's points, in seed order. `weak`: the fast engine flagged this report. `now`: seconds.
  Step report(int frame, const std::vector<TrackPoint>& points, bool weak, double now);
  // The fast engine lays its own seeds (normalised): they replace the ones the run was set up with.
  void setSeeds(const std::vector<Point>& seeds);
  bool batchReady() const;  // enough keys wait to be worth a push
  TrackBatch take();        // what waits, emptied

  double progress(int frame) const;  // |frame - start| / budget, at most 1
  const TrackRunSetup& setup() const { return setup_; }

  std::atomic<bool> cancelled{false};
  // How the run ended, read once it has.
  std::optional<int> lostAt, weakAt;
  bool limitReached = false;
  int misses = 0;

private:
  TrackRunSetup setup_;
  std::optional<MaskKey> last_;
  WeakWatch weak_;
  std::mt19937 rng_{7u};
  std::optional<double> firstAt_;
  int frames_ = 0;
  mutable std::mutex lock_;
  TrackBatch pending_;
};

}  // namespace ombrik
