// Shape geometry and the masks of a node, checked against values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "graph/node.h"
#include "tracking/mask_pose.h"
#include "tracking/roto.h"

using namespace ombrik;

namespace {
SplinePoint corner(double x, double y) { return {{x, y}, {}, {}}; }
void near(Point a, Point b, const std::string& what, double tol = 1e-9) {
  EXPECT_NEAR(a.x, b.x, tol) << what;
  EXPECT_NEAR(a.y, b.y, tol) << what;
}
}  // namespace

TEST(RotoGeometry, FlattenSamplesCurvesAndKeepsStraightSegmentsWhole) {
  const std::vector<SplinePoint> tri = {corner(0, 0), corner(1, 0), corner(0, 1)};
  std::vector<SplinePoint> curved = tri;
  curved[0].outT = {0.1, -0.2};  // only the first segment bends
  struct Case {
    std::vector<SplinePoint> pts;
    bool closed;
    std::size_t count;
  };
  const Case cases[] = {{{}, true, 0},      {{corner(0.3, 0.4)}, false, 1}, {tri, true, 3},
                        {tri, false, 3},    {curved, true, 12},             {curved, false, 12}};
  for (const auto& c : cases) EXPECT_EQ(Roto::flatten(c.pts, c.closed, 10).size(), c.count);
  const auto one = Roto::flatten({corner(0.3, 0.4)}, true, 10);
  near(one[0], {0.3, 0.4}, "single point");
  const auto open = Roto::flatten(curved, false, 10);
  near(open.back(), {0, 1}, "open ends on its last anchor");
  near(open[5], Roto::bezier(curved, 0, 0.5), "samples lie on the cubic");
  // The cubic's midpoint with control points 0 + (0.1,-0.2) and (1,0): (0.125 * 0 + 0.375 * 0.1 + 0.375 * 1 + 0.125 * 1).
  near(Roto::bezier(curved, 0, 0.5), {0.0375 + 0.375 + 0.125, -0.075}, "cubic at 0.5");
}

TEST(RotoGeometry, XformMovesAPointBetweenPlacements) {
  const double W = 200, H = 100;
  struct Case {
    MaskKey from, to;
    Point in, out;
    const char* what;
  };
  const Case cases[] = {
      {{50, 50, 0, 0, 0}, {50, 50, 0, 0, 0}, {0.7, 0.2}, {0.7, 0.2}, "same placement, zero radii"},
      {{50, 50, 20, 20, 0}, {60, 30, 20, 20, 0}, {0.5, 0.5}, {0.6, 0.3}, "moved"},
      {{50, 50, 20, 20, 0}, {50, 50, 40, 10, 0}, {0.6, 0.6}, {0.7, 0.55}, "scaled per axis"},
      // 20 px right of the centre turned a quarter clockwise (y down) lands 20 px below it.
      {{50, 50, 20, 20, 0}, {50, 50, 20, 20, 90}, {0.6, 0.5}, {0.5, 0.7}, "turned"},
  };
  for (const auto& c : cases) near(Roto::xform(c.in, c.from, c.to, W, H), c.out, c.what, 1e-12);
}

TEST(RotoGeometry, SplitKeepsTheCourseOfTheCurve) {
  std::vector<SplinePoint> s = {{{0, 0}, {}, {0.3, 0.4}}, {{1, 0}, {-0.2, 0.5}, {}}, corner(0.5, 1)};
  const auto cut = Roto::split(s, 0, 0.3);
  ASSERT_EQ(cut.size(), 4u);
  near(cut[1].p, Roto::bezier(s, 0, 0.3), "new point on the curve");
  for (double t : {0.2, 0.5, 0.9}) {
    near(Roto::bezier(cut, 0, t), Roto::bezier(s, 0, 0.3 * t), "first half", 1e-12);
    near(Roto::bezier(cut, 1, t), Roto::bezier(s, 0, 0.3 + 0.7 * t), "second half", 1e-12);
  }
  // Splitting the closing segment of a closed shape wraps to the first point.
  const auto wrap = Roto::split(s, 2, 0.5);
  ASSERT_EQ(wrap.size(), 4u);
  near(wrap[3].p, {0.25, 0.5}, "closing segment's middle");
}

TEST(RotoGeometry, ContainsAndNearestSegment) {
  const std::vector<Point> square = {{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.2, 0.8}};
  EXPECT_TRUE(Roto::contains(square, {0.5, 0.5}));
  EXPECT_FALSE(Roto::contains(square, {0.9, 0.5}));
  EXPECT_FALSE(Roto::contains({{0, 0}, {1, 1}}, {0.5, 0.5}));
  std::vector<SplinePoint> pts;
  for (Point p : square) pts.push_back({p, {}, {}});
  EXPECT_FALSE(Roto::nearestSegment({pts[0]}, true, {0, 0}, 1));
  // Right of the right edge by 0.1 of the width: 0.2 picture heights at aspect 2.
  auto hit = Roto::nearestSegment(pts, true, {0.9, 0.5}, 2);
  ASSERT_TRUE(hit);
  EXPECT_EQ(hit->segment, 1);
  EXPECT_NEAR(hit->t, 0.5, 1e-12);
  EXPECT_NEAR(hit->distance, 0.2, 1e-12);
  // The closing edge counts only on a closed shape.
  EXPECT_EQ(Roto::nearestSegment(pts, true, {0.1, 0.5}, 1)->segment, 3);
  EXPECT_EQ(Roto::nearestSegment(pts, false, {0.1, 0.5}, 1)->segment, 0);
}

TEST(NodeMasks, TheLiveFieldsAreTheActiveMaskAndOutputsNeedSeveral) {
  Node n(*NodeKind::find("mask"));
  ASSERT_EQ(n.allMasks().size(), 1u);
  EXPECT_EQ(n.allMasks()[0].params.at("cx"), n.kind->param("cx")->def);
  const GMask fresh = n.freshMask();
  EXPECT_TRUE(fresh.shape.empty() && !fresh.ellipse && !fresh.shapeBase);
  // The stored copy of the active mask is stale: readers see the live fields.
  GMask other = fresh;
  other.ellipse = true;
  other.params.erase("feather");  // a key missing in a mask takes the kind's default when loaded
  n.masks = {fresh, other};
  n.maskIndex = 0;
  n.shape = {corner(0.1, 0.1)};
  EXPECT_EQ(n.allMasks()[0].shape.size(), 1u);
  n.params["mouts"] = 0;
  EXPECT_TRUE(n.maskOutputs().empty());
  n.params["mouts"] = 1;
  EXPECT_TRUE(Node(*NodeKind::find("mask")).maskOutputs().empty());  // one mask has no port of its own
  EXPECT_EQ(n.maskOutputs(), (std::vector<int>{0, 1}));
  n.masks[1].params["out"] = 0;
  EXPECT_EQ(n.maskOutputs(), (std::vector<int>{0}));
  EXPECT_TRUE(n.sourceMask(3).ellipse);
  EXPECT_EQ(n.sourceMask(9).shape.size(), 1u);  // out of range: the active mask
  n.loadMask(other);
  EXPECT_TRUE(n.ellipse && n.shape.empty());
  EXPECT_EQ(n.params.at("feather"), n.kind->param("feather")->def);
}

TEST(MaskPose, ShapesFollowTheirPlacementAndPortsCloseUp) {
  Node n(*NodeKind::find("mask"));
  n.shape = {{{0.6, 0.5}, {0, -0.1}, {0, 0.1}}};
  n.shapeBase = MaskKey{50, 50, 20, 20, 0};
  const Node moved = placeShape(n, {60, 50, 40, 20, 0}, 100, 100);
  near(moved.shape[0].p, {0.8, 0.5}, "anchor: twice as far right of a centre moved by 0.1");
  near(moved.shape[0].outT, {0, 0.1}, "tangent tips move with the anchor");
  ASSERT_TRUE(moved.trackNow);
  EXPECT_EQ(moved.trackNow->cx, 60);
  EXPECT_EQ(placeShape(n, *n.shapeBase, 100, 100).shape, n.shape);

  const Uuid m = Uuid::generate(), other = Uuid::generate(), to = Uuid::generate();
  const std::vector<Edge> edges = {{Uuid::generate(), m, to, 1, 2}, {Uuid::generate(), m, to, 1, 3},
                                   {Uuid::generate(), m, to, 1, 4}, {Uuid::generate(), other, to, 0, 3},
                                   {Uuid::generate(), m, to, 0, 0}};
  const auto after = edgesAfterMaskRemoved(edges, m, 0);
  std::vector<int> ports;
  for (const Edge& e : after) ports.push_back(e.from == m ? e.fromPort : 100 + e.fromPort);
  EXPECT_EQ(ports, (std::vector<int>{2, 3, 103, 0}));

  std::vector<SplinePoint> open = {corner(0, 0), corner(0.6, 0), corner(0.6, 0.6)};
  toggleSmooth(open, false, 0);  // its own position stands in for the missing neighbour
  near(open[0].outT, {0.1, 0}, "first point");
  toggleSmooth(open, false, 0);
  EXPECT_EQ(open[0].outT, Point{});
  toggleSmooth(open, true, 0);  // closed: the last point is the previous one
  near(open[0].outT, {0, -0.1}, "wrapping");
  near(open[0].inT, {0, 0.1}, "mirrored");
}
