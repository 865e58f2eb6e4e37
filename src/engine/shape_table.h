#pragma once
// What the shape kernel reads for one filled outline, worked out on the CPU so that a pixel walks
// only what concerns it: for each pixel row, where the outline crosses it (x and direction: the
// non-zero winding of a pixel is the sum of the crossings right of it), and for each 16 x 16 tile,
// the segments near enough to matter for its edge coverage and feather.
//
// Layout, all floats: a header of 9 (rows, tiles across, tiles down, vertex count, then the offsets
// of the row starts, the crossings, the tile starts, the tile lists and the vertices), rows + 1 row
// starts, crossing pairs (x, +1 or -1), tiles + 1 tile starts, segment indices, vertex pairs.
#include <vector>

namespace ombrik {

// `px`: vertex pairs in pixels of a W x H picture, the outline closed from the last back to the
// first. `reach`: how far from a segment, in pixels, a pixel still needs its distance.
std::vector<float> shapeTable(const std::vector<float>& px, int W, int H, float reach);

}  // namespace ombrik
