#pragma once
// Where a mask track starts: seed points laid on a grid inside the mask, normalised to the video.
#include <vector>

#include "graph/mask_key.h"
#include "graph/point.h"

namespace ombrik {

// Inside an ellipse placement (cx, cy, rx, ry in percent, rot in degrees) of a W x H video,
// pulled in to 92 % of the radii so seeds stay off the edge; points off the image are dropped.
std::vector<Point> seedPoints(const MaskKey& key, double W, double H, int count);
// Inside a normalised polygon (even-odd), on a grid over its bounds that is refined until it
// keeps 70 % of `count`, four passes at most. W and H are not needed: the grid is normalised.
std::vector<Point> seedPoints(const std::vector<Point>& polygon, double W, double H, int count);

}  // namespace ombrik
