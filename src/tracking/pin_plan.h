#pragma once
// Tracking between pins (hand-placed placements of a mask): the pose the pins give on their own,
// the sequence of tracker runs that goes from each pin to its neighbours, and the fusion of those
// runs into one track that passes through every pin.
#include <map>
#include <optional>
#include <vector>

#include "graph/mask_key.h"
#include "tracking/homography.h"

namespace ombrik {

// Linear between the two pins around `frame`, each end pin's pose beyond them; none without pins.
std::optional<MaskKey> pinPose(const std::map<int, MaskKey>& pins, int frame);

// One tracker run of a plan.
struct PinRun {
  int frame = 0;             // the pin it starts from
  bool forward = true;
  std::optional<int> limit;  // the last frame to reach
  std::optional<int> seg;    // the segment between pins seg and seg + 1; none for the two outer runs
  bool operator==(const PinRun&) const = default;
};

// What one run left: its track and its homographies, relative to its start.
struct PinResult {
  std::map<int, MaskKey> track;
  std::map<int, std::vector<double>> planarH;
};

// For pins f0 < ... < fn-1: backward from f0, then forward and backward over each segment, then
// forward from fn-1. Empty with fewer than 2 pins.
std::vector<PinRun> planPinRuns(const std::map<int, MaskKey>& pins);

// The homography taking a shape's anchors (normalised, drawn at placement `base`) to where
// placement `pin` puts them; none without a base or with fewer than 3 points.
std::optional<Homography> pinPoseH(const std::vector<SplinePoint>& shape, const std::optional<MaskKey>& base,
                                   const MaskKey& pin, double W, double H);

// Fuses the results of a plan (results[i] from plan[i]). Inside a segment each frame blends the
// forward and backward runs with t = (f - fi) / (fi+1 - fi), keys per field and homographies
// element-wise once made absolute (run homography * poseH of its start pin, a pin without an
// entry in `poseH` counting as identity, each scaled to m22 = 1). A frame only one run reached
// takes that run's value. The outer runs keep their keys and their homographies, made absolute
// the same way; the segments win at the pins.
PinResult fusePinRuns(const std::vector<PinRun>& plan, const std::vector<PinResult>& results,
                      const std::map<int, Homography>& poseH);

}  // namespace ombrik
