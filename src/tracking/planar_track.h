#pragma once
// Planar mask tracks: the per-frame homographies of `planarH` (normalised image space, raw, i.e.
// without the hand offsets of `trackOff`), how a frame's homography is made from tracked points,
// and the homography the viewer shows.
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "graph/node.h"
#include "tracking/homography.h"
#include "tracking/track_fitter.h"

namespace ombrik {

// The stored homography at `frame` (else the nearest key), reduced to what the node's switches
// allow: perspective off gives the affine (skew on) or similarity (skew off) that best matches it
// on the shape's outline in comp pixels. None unless the node is a mask with `planarH` and its
// position, rotation and scale switches are on, or when that reduction fails.
std::optional<Homography> planarHomographyRaw(const Node& node, int frame, double compW, double compH);
// The same with the hand offset at `frame` added: T(o / 100) * H.
std::optional<Homography> planarHomography(const Node& node, int frame, double compW, double compH);

// Premultiplies every stored homography by T(dx, dy), normalised units; entries that are not 9
// numbers are left alone.
void shiftPlanar(std::map<int, std::vector<double>>& planarH, double dx, double dy);

// The homography a planar run starts from at frame s: planarH[s] or the nearest key, with the
// run's offset o (percent) put in front. None when planarH holds nothing usable.
std::optional<Homography> planarStartH(const std::map<int, std::vector<double>>& planarH, int s, Point o);

// One frame of a planar run: seeds (pixels) against the visible tracked points (normalised), a
// robust fit in pixels (threshold 0.3 % of the larger side), normalised, chained after H0, with
// the run's offset o (percent) taken back out so the stored value stays raw. None when the fit fails.
std::optional<Homography> planarFrameH(const std::vector<Point>& seedsPx, const std::vector<TrackPoint>& points,
                                       double W, double H, const Homography& H0, Point o, std::mt19937& rng);

}  // namespace ombrik
