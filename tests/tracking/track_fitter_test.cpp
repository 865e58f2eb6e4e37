// Placements fitted from tracked points: a known similarity recovered through outliers, the
// point mode's median, the held position and the weak-zone watch.
#include <gtest/gtest.h>

#include <cmath>

#include "tracking/track_fitter.h"
#include "tracking/track_seeds.h"

using namespace ombrik;

namespace {

constexpr double W = 1920, H = 1080;

TrackFitter fitterFor(const MaskKey& k0, TrackMode mode) {
  TrackFitter f;
  f.k0 = k0;
  f.W = W, f.H = H;
  f.mode = mode;
  for (const Point& s : seedPoints(k0, W, H, 100)) f.p0.push_back({s.x * W, s.y * H});
  return f;
}

// Every seed moved by `move`, normalised, all visible.
std::vector<TrackPoint> moved(const TrackFitter& f, const Similarity& move) {
  std::vector<TrackPoint> pts;
  for (const Point& p : f.p0) {
    const Point q = move.apply(p);
    pts.push_back({{q.x / W, q.y / H}, true});
  }
  return pts;
}

// Points displaced by the given amounts in pixels (dx, dy each).
std::vector<TrackPoint> displaced(const TrackFitter& f, const std::vector<Point>& d) {
  std::vector<TrackPoint> pts;
  for (std::size_t i = 0; i < d.size(); ++i) pts.push_back({{(f.p0[i].x + d[i].x) / W, (f.p0[i].y + d[i].y) / H}, true});
  return pts;
}

}  // namespace

TEST(TrackFitter, PlanarKeyRecoversASimilarityThroughOutliers) {
  const MaskKey k0{40, 55, 12, 18, 20};
  TrackFitter f = fitterFor(k0, TrackMode::planar);
  ASSERT_GT(f.p0.size(), 60u);
  const double turn = 10 * M_PI / 180, scale = 1.1;
  const Similarity move{scale * std::cos(turn), scale * std::sin(turn), 40, -25};
  auto pts = moved(f, move);
  for (std::size_t i = 0; i < pts.size(); i += 5) pts[i].p.x += 0.05;  // a fifth drift off
  for (std::size_t i = 2; i < pts.size(); i += 9) pts[i] = {{0.99, 0.01}, false};  // hidden: ignored
  const auto k = f.key(pts);
  ASSERT_TRUE(k);
  const Point c = move.apply({k0.cx / 100 * W, k0.cy / 100 * H});
  EXPECT_NEAR(k->cx, c.x / W * 100, 1e-6);
  EXPECT_NEAR(k->cy, c.y / H * 100, 1e-6);
  EXPECT_NEAR(k->rx, k0.rx * scale, 1e-6);
  EXPECT_NEAR(k->ry, k0.ry * scale, 1e-6);
  EXPECT_NEAR(k->rot, 30, 1e-6);
}

TEST(TrackFitter, PointModeMovesTheCentreByTheUpperMedian) {
  const MaskKey k0{50, 50, 10, 10, 15};
  TrackFitter f = fitterFor(k0, TrackMode::point);
  struct Case {
    std::vector<Point> d;
    Point median;  // element count/2 of the sorted moves
  };
  const Case cases[] = {{{{1, -4}, {3, 0}, {2, 5}, {100, 1}, {-7, 2}}, {2, 1}},
                        {{{1, 8}, {2, 6}, {3, 4}, {40, 2}}, {3, 6}}};
  for (const Case& c : cases) {
    const auto k = f.key(displaced(f, c.d));
    ASSERT_TRUE(k);
    EXPECT_NEAR(k->cx, 50 + c.median.x / W * 100, 1e-9);
    EXPECT_NEAR(k->cy, 50 + c.median.y / H * 100, 1e-9);
    EXPECT_EQ(k->rx, k0.rx);
    EXPECT_EQ(k->rot, k0.rot);
  }
}

TEST(TrackFitter, ThreeVisiblePointsGiveNoKeyAndForcedHoldsThePosition) {
  const MaskKey k0{50, 50, 10, 10, 0};
  for (TrackMode mode : {TrackMode::planar, TrackMode::point}) {
    TrackFitter f = fitterFor(k0, mode);
    auto pts = displaced(f, {{4, 2}, {6, 2}, {5, 2}, {0, 0}});
    pts[3].visible = false;
    EXPECT_FALSE(f.key(pts));
    const MaskKey last{47, 52, 13, 9, 33};
    EXPECT_FALSE(f.forced(pts, std::nullopt));
    const auto held = f.forced(pts, last);
    ASSERT_TRUE(held);
    EXPECT_NEAR(held->cx, 50 + 5 / W * 100, 1e-9);  // from k0's centre, not from last
    EXPECT_NEAR(held->cy, 50 + 2 / H * 100, 1e-9);
    EXPECT_EQ(held->rx, last.rx);
    EXPECT_EQ(held->ry, last.ry);
    EXPECT_EQ(held->rot, last.rot);
    for (auto& p : pts) p.visible = false;
    EXPECT_EQ(f.forced(pts, last), last);
  }
}

TEST(TrackFitter, SimilarityNeedsTwoSpreadPairs) {
  EXPECT_FALSE(TrackFitter::similarity({{1, 1}}, {{2, 2}}));
  EXPECT_FALSE(TrackFitter::similarity({{1, 1}, {1, 1}}, {{2, 2}, {3, 3}}));
  const auto s = TrackFitter::similarity({{0, 0}, {1, 0}}, {{5, 5}, {5, 7}});  // turned 90°, doubled
  ASSERT_TRUE(s);
  EXPECT_NEAR(s->a, 0, 1e-12);
  EXPECT_NEAR(s->b, 2, 1e-12);
  EXPECT_NEAR(s->tx, 5, 1e-12);
  EXPECT_NEAR(s->ty, 5, 1e-12);
  std::mt19937 rng(1);
  EXPECT_FALSE(TrackFitter::ransacSimilarity({{0, 0}}, {{1, 1}}, 1, rng));
}

TEST(TrackFitter, RansacSimilarityRefitsOnTheTightCore) {
  // Two points sit inside the threshold but off the true map; the final refit leaves them out.
  const Similarity truth{0.9, 0.2, 30, -12};
  std::vector<Point> p, q;
  for (int i = 0; i < 12; ++i) {
    p.push_back({100.0 + 37 * (i % 4), 200.0 + 53 * (i / 4)});
    q.push_back(truth.apply(p.back()));
  }
  q[3].x += 8, q[9].x += 8;
  std::mt19937 rng(2);
  const auto s = TrackFitter::ransacSimilarity(p, q, 10, rng);
  ASSERT_TRUE(s);
  EXPECT_NEAR(s->a, truth.a, 1e-9);
  EXPECT_NEAR(s->b, truth.b, 1e-9);
  EXPECT_NEAR(s->tx, truth.tx, 1e-7);
  EXPECT_NEAR(s->ty, truth.ty, 1e-7);
}

TEST(WeakWatch, FourWeakFramesInARowMarkTheFirstOnce) {
  struct Case {
    const char* frames;  // from frame 0: 'w' weak, 's' strong
    std::optional<int> weakAt;
  };
  const Case cases[] = {{"wwws", std::nullopt},   {"wwwswww", std::nullopt}, {"swwww", 1},
                        {"wwwswwwws", 4},         {"wwwwsswwww", 0},        {"sssssss", std::nullopt}};
  for (const Case& c : cases) {
    WeakWatch w;
    for (int i = 0; c.frames[i]; ++i) w.note(i, c.frames[i] == 's');
    EXPECT_EQ(w.weakAt, c.weakAt) << c.frames;
  }
}
