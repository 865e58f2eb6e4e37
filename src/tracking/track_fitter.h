#pragma once
// Turns the points a tracker reports for one frame into a mask placement. Seeds are laid at the
// start frame (p0, pixels); each frame's points come back normalised, in seed order, with a
// visibility flag. Planar mode fits a similarity (move, turn, scale), point mode only a move.
#include <optional>
#include <random>
#include <vector>

#include "graph/mask_key.h"
#include "graph/point.h"

namespace ombrik {

enum class TrackMode { planar, point };

// A tracked point: normalised to the video, visible when the tracker's visibility was above 0.5.
struct TrackPoint {
  Point p;
  bool visible = true;
};

// q = A p + t with A = [a -b; b a].
struct Similarity {
  double a = 1, b = 0, tx = 0, ty = 0;
  Point apply(Point p) const { return {a * p.x - b * p.y + tx, b * p.x + a * p.y + ty}; }
};

struct TrackFitter {
  MaskKey k0;             // placement at the start frame
  std::vector<Point> p0;  // the seeds, pixels
  double W = 0, H = 0;    // video size, pixels
  TrackMode mode = TrackMode::planar;
  std::mt19937 rng{20240611u};  // fixed seed: a run can be replayed exactly

  // The placement for a frame; none with fewer than 4 visible points or when no fit holds.
  std::optional<MaskKey> key(const std::vector<TrackPoint>& points);
  // "Position held": the median move of whatever is visible added to k0's centre, with the radii
  // and rotation of `last`; `last` itself when nothing is visible; none without `last`.
  std::optional<MaskKey> forced(const std::vector<TrackPoint>& points, const std::optional<MaskKey>& last) const;

  // Least-squares similarity from at least 2 pairs; none when p has no spread.
  static std::optional<Similarity> similarity(const std::vector<Point>& p, const std::vector<Point>& q);
  // Robust similarity: 200 rounds of 2 pairs, refit on the inliers, then on the tighter core.
  static std::optional<Similarity> ransacSimilarity(const std::vector<Point>& p, const std::vector<Point>& q,
                                                    double threshold, std::mt19937& rng);

private:
  // Seeds and their points in pixels, over the visible points.
  void pairs(const std::vector<TrackPoint>& points, std::vector<Point>& from, std::vector<Point>& to) const;
  Point medianMove(const std::vector<Point>& from, const std::vector<Point>& to) const;
};

// Watches a run for weak stretches: four weak frames in a row mark the first of them, once.
struct WeakWatch {
  std::optional<int> weakAt;
  void note(int frame, bool strong);

private:
  int run_ = 0;
  int runStart_ = 0;
};

}  // namespace ombrik
