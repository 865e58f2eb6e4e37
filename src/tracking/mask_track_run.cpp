#include "tracking/mask_track_run.h"

#include <cmath>
#include <cstdio>

#include "tracking/planar_track.h"

namespace ombrik {

MaskTrackRun::MaskTrackRun(TrackRunSetup setup) : setup_(std::move(setup)) {}

double MaskTrackRun::progress(int frame) const {
  return std::min(1.0, std::abs(frame - setup_.start) / double(std::max(1, setup_.budget)));
}

MaskTrackRun::Step MaskTrackRun::report(int frame, const std::vector<TrackPoint>& points, bool weak, double now) {
  Step step;
  if (cancelled) return step;
  if (setup_.limit && (setup_.forward ? frame > *setup_.limit : frame < *setup_.limit)) {
    limitReached = true;
    step.stop = true;
    return step;
  }
  std::optional<MaskKey> k = setup_.fitter.key(points);
  if (k) {
    last_ = k;
    weak_.note(frame, !weak);
  } else {
    ++misses;
    weak_.note(frame, false);
    k = setup_.fitter.forced(points, last_);
    if (!k) {
      lostAt = frame;
      weakAt = weak_.weakAt;
      step.stop = true;
      return step;
    }
  }
  weakAt = weak_.weakAt;
  k->cx -= setup_.offset.x, k->cy -= setup_.offset.y;  // `track` stays the raw track

  std::optional<std::vector<double>> h;
  if (setup_.H0)
    if (auto H = planarFrameH(setup_.fitter.p0, points, setup_.fitter.W, setup_.fitter.H, *setup_.H0, setup_.offset, rng_))
      h = H->toArray();
  std::vector<Point> dots;
  for (const auto& p : points)
    if (p.visible) dots.push_back(p.p);
  {
    std::lock_guard<std::mutex> g(lock_);
    pending_.keys[frame] = *k;
    if (h) pending_.planarH[frame] = *h;
    pending_.dots[frame] = std::move(dots);
    pending_.lastFrame = frame;
  }

  if (!firstAt_) firstAt_ = now;
  ++frames_;
  const int every = setup_.fast ? 15 : 10;
  if (frames_ % every == 0 && now > *firstAt_) {
    char text[64];
    const double fps = (frames_ - 1) / (now - *firstAt_);
    std::snprintf(text, sizeof text, setup_.fast ? "Tracking rapide : %.0f images/s" : "Tracking : %.1f images/s", fps);
    step.status = text;
  }
  return step;
}

void MaskTrackRun::setSeeds(const std::vector<Point>& seeds) {
  setup_.fitter.p0.clear();
  for (const auto& p : seeds) setup_.fitter.p0.push_back({p.x * setup_.fitter.W, p.y * setup_.fitter.H});
}

bool MaskTrackRun::batchReady() const {
  std::lock_guard<std::mutex> g(lock_);
  return int(pending_.keys.size()) > (setup_.fast ? 2 : 7);
}

TrackBatch MaskTrackRun::take() {
  std::lock_guard<std::mutex> g(lock_);
  TrackBatch out = std::move(pending_);
  pending_ = {};
  return out;
}

}  // namespace ombrik
