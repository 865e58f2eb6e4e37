// Homography fits checked against maps known in advance, exact and with outliers; the homographies
// of planar tracks: how a frame's is made and stored raw, shifted, and shown.
#include <gtest/gtest.h>

#include <cmath>

#include "graph/node.h"
#include "graph/node_kind.h"
#include "tracking/homography.h"
#include "tracking/planar_track.h"
#include "tracking/track_seeds.h"

using namespace ombrik;

namespace {

Homography known() {
  Homography h;
  h.m = {1.2, 0.1, 30, -0.05, 0.9, 20, 1e-4, -2e-4, 1};
  return h;
}

// Points scattered over a 1920 x 1080 frame, the same on every call.
std::vector<Point> spread(int n) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> x(100, 1800), y(80, 1000);
  std::vector<Point> pts;
  for (int i = 0; i < n; ++i) pts.push_back({x(rng), y(rng)});
  return pts;
}

std::vector<Point> mapped(const Homography& h, const std::vector<Point>& pts) {
  std::vector<Point> out;
  for (const Point& p : pts) out.push_back(Homography::apply(h, p));
  return out;
}

void expectNear(const Homography& a, const Homography& b, double tol, const std::string& what) {
  for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(a.m[i], b.m[i], tol * std::max(1.0, std::abs(b.m[i]))) << what << " m" << i;
}

// How far `after` has moved past `before`; -1 beyond `limit` draws.
int drawsBetween(std::mt19937 before, const std::mt19937& after, int limit) {
  for (int n = 0; n <= limit; ++n, before.discard(1))
    if (before == after) return n;
  return -1;
}

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

// Each estimator on pairs made from a known map: recovered within `tol`, or refused (no `want`).
TEST(Homography, EstimatorsRecoverKnownMapsOrRefuse) {
  enum Estimator { fit, affine, ransac };
  Homography aff;
  aff.m = {0.8, -0.3, 12, 0.25, 1.1, -7, 0, 0, 1};
  const auto src = spread(40);
  auto far = mapped(known(), src);
  for (std::size_t i = 0; i < 12; ++i) far[i * 3].x += 150 + 10.0 * double(i);  // 30 % far off
  auto five = mapped(known(), src);
  for (std::size_t i = 5; i < five.size(); ++i) five[i] = {std::fmod(i * 733.0, 1900), std::fmod(i * 377.0, 1000)};
  const std::vector<Point> line = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};
  struct Case {
    const char* what;
    Estimator est;
    std::vector<Point> src, dst;
    std::optional<Homography> want;
    double tol = 1e-9, threshold = 3.0;
  };
  const Case cases[] = {
      {"fit, 4 exact pairs", fit, spread(4), mapped(known(), spread(4)), known()},
      {"fit, 20 exact pairs", fit, spread(20), mapped(known(), spread(20)), known()},
      {"fit, 5 exact pairs", fit, spread(5), mapped(known(), spread(5)), known()},
      {"fit, only the first min(src, dst) pairs count", fit, spread(9), mapped(known(), spread(6)), known()},
      {"fit, 3 pairs", fit, spread(3), mapped(known(), spread(3)), std::nullopt},
      {"affine, exact", affine, spread(7), mapped(aff, spread(7)), aff},
      {"affine, collinear", affine, line, mapped(aff, line), std::nullopt},
      {"affine, 2 pairs", affine, spread(2), mapped(aff, spread(2)), std::nullopt},
      {"ransac through 30 % outliers", ransac, src, far, known(), 1e-7},
      {"ransac, 5 exact pairs: too few to trust", ransac, spread(5), mapped(known(), spread(5)), std::nullopt},
      {"ransac, 5 inliers among scattered outliers", ransac, src, five, std::nullopt, 0, 1.0},
  };
  for (const Case& c : cases) {
    std::mt19937 rng(7);
    const auto h = c.est == fit      ? Homography::fit(c.src, c.dst)
                   : c.est == affine ? Homography::affine(c.src, c.dst)
                                     : Homography::ransac(c.src, c.dst, c.threshold, rng);
    ASSERT_EQ(bool(h), bool(c.want)) << c.what;
    if (h) expectNear(*h, *c.want, c.tol, c.what);
  }
}

TEST(Homography, DegenerateInputGivesNoneOrAFiniteMapButNeverNaN) {
  const std::vector<Point> collinear3 = {{0, 0}, {10, 10}, {20, 20}, {30, 5}, {7, 40}};
  const std::vector<Point> allSame(6, Point{5, 5});
  for (const auto* src : {&collinear3, &allSame}) {
    const auto h = Homography::fit(*src, mapped(known(), *src));
    if (!h) continue;
    for (double v : h->m) EXPECT_TRUE(std::isfinite(v));
  }
  EXPECT_FALSE(Homography::fit(allSame, allSame));
}

TEST(Homography, RansacStopsEarlyOnlyAboveNinetyTwoPercent) {
  struct Case {
    std::size_t inliers;
    bool early;
  };
  for (const Case c : {Case{93, true}, Case{92, false}}) {
    const auto src = spread(100);
    auto dst = mapped(known(), src);
    for (std::size_t i = c.inliers; i < 100; ++i) dst[i].y += 300;
    std::mt19937 rng(3);
    const std::mt19937 before = rng;
    ASSERT_TRUE(Homography::ransac(src, dst, 2.0, rng));
    const int draws = drawsBetween(before, rng, 1000);
    if (c.early) EXPECT_TRUE(draws >= 4 && draws < 100) << draws;
    else EXPECT_EQ(draws, -1) << "all 300 rounds take at least 1200 draws";
  }
}

TEST(Homography, NormalizedMapsNormalisedPointsLikeThePixelMap) {
  const Homography n = Homography::normalized(known(), W, H);
  EXPECT_DOUBLE_EQ(n.m[8], 1);
  for (const Point& p : spread(6)) {
    const Point px = Homography::apply(known(), p);
    const Point q = Homography::apply(n, {p.x / W, p.y / H});
    EXPECT_NEAR(q.x, px.x / W, 1e-12);
    EXPECT_NEAR(q.y, px.y / H, 1e-12);
  }
}

TEST(Homography, ArraysProductsAndInverse) {
  EXPECT_FALSE(Homography::fromArray({1, 0, 0, 0, 1, 0, 0, 0}));
  EXPECT_FALSE(Homography::fromArray({1, 0, 0, 0, 1, 0, 0, 0, 1, 0}));
  const auto back = Homography::fromArray(known().toArray());
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, known());
  EXPECT_EQ(known().toArray()[2], 30);  // row by row: m02 is the x shift

  const Point p = Homography::apply(Homography::translation(3, -2) * known(), {10, 20});
  const Point q = Homography::apply(known(), {10, 20});
  EXPECT_NEAR(p.x, q.x + 3, 1e-12);
  EXPECT_NEAR(p.y, q.y - 2, 1e-12);
  expectNear(*known().inverse() * known(), Homography::identity(), 1e-12, "inverse");
  Homography flat;
  flat.m = {1, 2, 3, 2, 4, 6, 0, 0, 1};
  EXPECT_FALSE(flat.inverse());
  // w = 0: the point comes back undivided.
  Homography atInfinity;
  atInfinity.m = {1, 0, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_EQ(Homography::apply(atInfinity, {4, 5}), (Point{4, 5}));
}

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

TEST(PlanarTrack, StartTakesTheNearestKeyAndTheOffsetAndShiftsPremultiply) {
  const std::map<int, std::vector<double>> planarH = {{0, Homography::identity().toArray()},
                                                      {10, perspective().toArray()}};
  EXPECT_FALSE(planarStartH({}, 3, {}));
  EXPECT_EQ(*planarStartH(planarH, 4, {}), Homography::identity());
  EXPECT_EQ(*planarStartH(planarH, 7, {}), perspective());
  expectSameMap(*planarStartH(planarH, 10, {10, 5}), Homography::translation(0.1, 0.05) * perspective(), "T(o) H");
  // A shift premultiplies every stored entry and skips broken ones.
  std::map<int, std::vector<double>> stored = {{0, perspective().toArray()}, {1, {1, 0, 0, 0, 1, 0, 0, 0}}};
  shiftPlanar(stored, 0.1, -0.2);
  expectSameMap(*Homography::fromArray(stored[0]), Homography::translation(0.1, -0.2) * perspective(), "shift");
  EXPECT_EQ(stored[1], (std::vector<double>{1, 0, 0, 0, 1, 0, 0, 0}));
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
