// The homographies of planar tracks: how a frame's is made and stored raw, shifted, and shown.
#include <gtest/gtest.h>

#include <cmath>

#include "graph/node.h"
#include "graph/node_kind.h"
#include "tracking/planar_track.h"
#include "tracking/track_seeds.h"

using namespace ombrik;

namespace {

constexpr double W = 1920, H = 1080;

Homography perspective() {
  Homography h;
  h.m = {1.05, 0.04, 0.02, -0.03, 0.97, 0.01, 0.05, -0.04, 1};
  return h;
}

void expectSameMap(const Homography& a, const Homography& b, const std::string& what, double tol = 1e-9) {
  for (const Point p : {Point{0.3, 0.3}, Point{0.7, 0.4}, Point{0.5, 0.8}}) {
    const Point pa = Homography::apply(a, p), pb = Homography::apply(b, p);
    EXPECT_NEAR(pa.x, pb.x, tol) << what;
    EXPECT_NEAR(pa.y, pb.y, tol) << what;
  }
}

Node planarMask(const Homography& h) {
  Node n(*NodeKind::find("mask"));
  n.shape = {{{0.4, 0.4}, {}, {}}, {{0.6, 0.4}, {}, {}}, {{0.6, 0.6}, {}, {}}, {{0.4, 0.6}, {}, {}}};
  n.shapeClosed = true;
  n.planarH = {{0, Homography::identity().toArray()}, {10, h.toArray()}};
  return n;
}

}  // namespace

TEST(PlanarTrack, FrameHomographyIsChainedAfterTheStartAndStoredWithoutTheOffset) {
  std::vector<Point> seeds;
  for (const Point& s : seedPoints({50, 50, 20, 20, 0}, W, H, 100)) seeds.push_back({s.x * W, s.y * H});
  const Homography moveN = perspective();  // the plate's move, normalised
  std::vector<TrackPoint> pts;
  for (const Point& s : seeds) pts.push_back({Homography::apply(moveN, {s.x / W, s.y / H}), true});
  const Homography H0 = Homography::translation(0.1, -0.05);
  const Point o{4, -2};
  std::mt19937 rng(5);
  const auto h = planarFrameH(seeds, pts, W, H, H0, o, rng);
  ASSERT_TRUE(h);
  expectSameMap(*h, Homography::translation(-0.04, 0.02) * moveN * H0, "T(-o) Hn H0");
  // With nothing visible there is nothing to fit.
  for (auto& p : pts) p.visible = false;
  EXPECT_FALSE(planarFrameH(seeds, pts, W, H, H0, o, rng));
}

TEST(PlanarTrack, StartHomographyTakesTheNearestKeyAndTheOffset) {
  const std::map<int, std::vector<double>> planarH = {{0, Homography::identity().toArray()},
                                                      {10, perspective().toArray()}};
  EXPECT_FALSE(planarStartH({}, 3, {}));
  EXPECT_EQ(*planarStartH(planarH, 4, {}), Homography::identity());
  EXPECT_EQ(*planarStartH(planarH, 7, {}), perspective());
  expectSameMap(*planarStartH(planarH, 10, {10, 5}), Homography::translation(0.1, 0.05) * perspective(), "T(o) H");
}

TEST(PlanarTrack, ShiftPremultipliesAndSkipsBrokenEntries) {
  std::map<int, std::vector<double>> planarH = {{0, perspective().toArray()}, {1, {1, 0, 0, 0, 1, 0, 0, 0}}};
  shiftPlanar(planarH, 0.1, -0.2);
  expectSameMap(*Homography::fromArray(planarH[0]), Homography::translation(0.1, -0.2) * perspective(), "shift");
  EXPECT_EQ(planarH[1], (std::vector<double>{1, 0, 0, 0, 1, 0, 0, 0}));
}

TEST(PlanarTrack, DisplayedHomographyFollowsTheSwitches) {
  const double turn = 0.3;
  Homography sim;  // a similarity in pixels, normalised: representable by all three reductions
  sim.m = {1.2 * std::cos(turn), -1.2 * std::sin(turn), 100, 1.2 * std::sin(turn), 1.2 * std::cos(turn), -40, 0, 0, 1};
  const Homography simN = Homography::normalized(sim, W, H);
  struct Case {
    std::map<std::string, double> params;
    Homography stored;
    bool some;
    bool affine;  // the result keeps no perspective row
  };
  const Case cases[] = {{{}, perspective(), true, false},
                        {{{"trk_persp", 0}}, perspective(), true, true},
                        {{{"trk_persp", 0}, {"trk_skew", 0}}, simN, true, true},
                        {{{"trk_persp", 0}, {"trk_skew", 1}}, simN, true, true},
                        {{{"trk_pos", 0}}, perspective(), false, false},
                        {{{"trk_scale", 0}}, perspective(), false, false}};
  for (const Case& c : cases) {
    Node n = planarMask(c.stored);
    for (const auto& [k, v] : c.params) n.params[k] = v;
    const auto h = planarHomographyRaw(n, 9, W, H);
    ASSERT_EQ(bool(h), c.some);
    if (!h) continue;
    if (c.affine) {
      EXPECT_NEAR(h->m[6], 0, 1e-12);
      EXPECT_NEAR(h->m[7], 0, 1e-12);
    } else {
      EXPECT_EQ(*h, c.stored);
    }
    if (c.stored == simN) expectSameMap(*h, simN, "a similarity survives reduction");
  }
  Node other = planarMask(perspective());
  other.kind = *NodeKind::find("xform");
  EXPECT_FALSE(planarHomographyRaw(other, 10, W, H));
  Node offset = planarMask(perspective());
  offset.trackOff = {{0, {10, 0}}};
  expectSameMap(*planarHomography(offset, 10, W, H), Homography::translation(0.1, 0) * perspective(), "offset added");
}
