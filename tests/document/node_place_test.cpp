// Where a new node lands: kept where it was asked for when free, else moved the least distance
// that clears every other node and its name.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "document/node_place.h"

using namespace ombrik;

namespace {

const NodeRoom kPlain{40, 34, 40, 58};  // a plain node and the name under it

NodeFootprint at(double x, double y, NodeRoom room = kPlain) { return {{x, y}, room}; }

struct Case {
  const char* what;
  Point wanted;
  std::vector<NodeFootprint> others;
  Point expected;
};

}  // namespace

TEST(NodePlace, NearestFreeSpot) {
  // Without a gap the numbers are plain: a plain node is 80 wide and 92 high.
  const std::vector<Case> cases = {
      {"nothing around: kept", {10, 20}, {}, {10, 20}},
      {"clear of its neighbour: kept", {200, 0}, {at(0, 0)}, {200, 0}},
      {"edge to edge counts as free", {80, 0}, {at(0, 0)}, {80, 0}},
      {"just over the right edge: pushed right", {70, 0}, {at(0, 0)}, {80, 0}},
      {"just over the bottom: pushed down", {0, 80}, {at(0, 0)}, {0, 92}},
      {"straight on top: the nearer side wins (left and right tie, the right is taken)", {0, 0}, {at(0, 0)}, {80, 0}},
      {"above a node: pushed up", {0, -85}, {at(0, 0)}, {0, -92}},
      {"between two nodes side by side: out past the nearer edge",
       {60, 10}, {at(0, 0), at(100, 0)}, {60, 92}},
      {"in a row with no room between: below the row", {40, 0}, {at(0, 0), at(80, 0)}, {40, 92}},
      {"a wider node reaches further", {100, 0}, {at(0, 0, {120, 34, 120, 58})}, {160, 0}},
  };
  for (const Case& c : cases) {
    const Point got = clearPlace(c.wanted, kPlain, c.others, 0);
    EXPECT_NEAR(got.x, c.expected.x, 1e-9) << c.what;
    EXPECT_NEAR(got.y, c.expected.y, 1e-9) << c.what;
  }
}

TEST(NodePlace, ThePlaceFoundOverlapsNothingAndIsTheClosestFree) {
  // A crowded grid with a single hole: whatever is asked for nearby ends free, and no free
  // point of a fine search is closer.
  std::vector<NodeFootprint> crowd;
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 4; ++j)
      if (!(i == 2 && j == 2)) crowd.push_back(at(i * 100.0, j * 110.0));
  for (Point wanted : {Point{200, 220}, Point{150, 150}, Point{0, 0}, Point{410, 330}, Point{-30, 500}}) {
    const Point got = clearPlace(wanted, kPlain, crowd);
    for (const auto& o : crowd) EXPECT_FALSE(footprintsOverlap({got, kPlain}, o)) << wanted.x << "," << wanted.y;
    const double found = std::hypot(got.x - wanted.x, got.y - wanted.y);
    for (double dx = -300; dx <= 300; dx += 5)
      for (double dy = -300; dy <= 300; dy += 5) {
        const Point p{wanted.x + dx, wanted.y + dy};
        const bool free = std::none_of(crowd.begin(), crowd.end(), [&](const auto& o) { return footprintsOverlap({p, kPlain}, o); });
        if (free) {
          EXPECT_GE(std::hypot(dx, dy), found - 1e-9) << "a free spot closer than " << found;
        }
      }
  }
}

TEST(NodePlace, TheGapKeepsNodesApart) {
  EXPECT_TRUE(footprintsOverlap(at(0, 0), at(80 + kNodeGap - 1, 0)));
  EXPECT_FALSE(footprintsOverlap(at(0, 0), at(80 + kNodeGap, 0)));
  EXPECT_FALSE(footprintsOverlap(at(0, 0), at(80, 0), 0));
  const Point got = clearPlace({0, 0}, kPlain, {at(0, 0)});
  EXPECT_NEAR(std::abs(got.x), 80 + kNodeGap, 1e-9);
}
