// Placements fitted from tracked points (known motions, the held position, the weak-zone watch)
// and the seed grids they start from.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "tracking/roto.h"
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

// Known motions of the seeds, with the placement they must give: planar mode fits a similarity
// through outliers (hidden points ignored); point mode moves the centre by the upper median
// (element count/2 of the sorted moves) and keeps the rest.
TEST(TrackFitter, KeysFromKnownMotions) {
  const double turn = 10 * M_PI / 180, scale = 1.1;
  const Similarity move{scale * std::cos(turn), scale * std::sin(turn), 40, -25};
  const MaskKey planar0{40, 55, 12, 18, 20}, point0{50, 50, 10, 10, 15};
  const Point c = move.apply({planar0.cx / 100 * W, planar0.cy / 100 * H});
  struct Case {
    const char* what;
    TrackMode mode;
    MaskKey k0;
    std::function<std::vector<TrackPoint>(const TrackFitter&)> points;
    MaskKey want;
    double tol, shapeTol;
  };
  const Case cases[] = {
      {"planar similarity", TrackMode::planar, planar0,
       [&](const TrackFitter& f) {
         auto pts = moved(f, move);
         for (std::size_t i = 0; i < pts.size(); i += 5) pts[i].p.x += 0.05;  // a fifth drift off
         for (std::size_t i = 2; i < pts.size(); i += 9) pts[i] = {{0.99, 0.01}, false};  // hidden
         return pts;
       },
       {c.x / W * 100, c.y / H * 100, planar0.rx * scale, planar0.ry * scale, 30}, 1e-6, 1e-6},
      {"point, 5 moves", TrackMode::point, point0,
       [](const TrackFitter& f) { return displaced(f, {{1, -4}, {3, 0}, {2, 5}, {100, 1}, {-7, 2}}); },
       {50 + 2 / W * 100, 50 + 1 / H * 100, 10, 10, 15}, 1e-9, 0},
      {"point, 4 moves", TrackMode::point, point0,
       [](const TrackFitter& f) { return displaced(f, {{1, 8}, {2, 6}, {3, 4}, {40, 2}}); },
       {50 + 3 / W * 100, 50 + 6 / H * 100, 10, 10, 15}, 1e-9, 0},
  };
  for (const Case& c : cases) {
    TrackFitter f = fitterFor(c.k0, c.mode);
    ASSERT_GT(f.p0.size(), 60u);
    const auto k = f.key(c.points(f));
    ASSERT_TRUE(k) << c.what;
    EXPECT_NEAR(k->cx, c.want.cx, c.tol) << c.what;
    EXPECT_NEAR(k->cy, c.want.cy, c.tol) << c.what;
    EXPECT_NEAR(k->rx, c.want.rx, c.shapeTol) << c.what;
    EXPECT_NEAR(k->ry, c.want.ry, c.shapeTol) << c.what;
    EXPECT_NEAR(k->rot, c.want.rot, c.shapeTol) << c.what;
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

// Known similarities recovered from pairs, or refused: a least-squares fit needs two spread pairs;
// RANSAC refits on its tight core, leaving out two points inside the threshold but off the map.
TEST(TrackFitter, SimilaritiesFromKnownPairs) {
  const Similarity truth{0.9, 0.2, 30, -12};
  std::vector<Point> p, q;
  for (int i = 0; i < 12; ++i) {
    p.push_back({100.0 + 37 * (i % 4), 200.0 + 53 * (i / 4)});
    q.push_back(truth.apply(p.back()));
  }
  q[3].x += 8, q[9].x += 8;
  struct Case {
    const char* what;
    bool ransac;
    std::vector<Point> p, q;
    std::optional<Similarity> want;
    double tol, shiftTol;
  };
  const Case cases[] = {
      {"one pair", false, {{1, 1}}, {{2, 2}}, std::nullopt, 0, 0},
      {"two equal points", false, {{1, 1}, {1, 1}}, {{2, 2}, {3, 3}}, std::nullopt, 0, 0},
      {"turned 90°, doubled", false, {{0, 0}, {1, 0}}, {{5, 5}, {5, 7}}, Similarity{0, 2, 5, 5}, 1e-12, 1e-12},
      {"ransac, one pair", true, {{0, 0}}, {{1, 1}}, std::nullopt, 0, 0},
      {"ransac, tight core", true, p, q, truth, 1e-9, 1e-7},
  };
  for (const Case& c : cases) {
    std::mt19937 rng(2);
    const auto s = c.ransac ? TrackFitter::ransacSimilarity(c.p, c.q, 10, rng) : TrackFitter::similarity(c.p, c.q);
    ASSERT_EQ(bool(s), bool(c.want)) << c.what;
    if (!s) continue;
    EXPECT_NEAR(s->a, c.want->a, c.tol) << c.what;
    EXPECT_NEAR(s->b, c.want->b, c.tol) << c.what;
    EXPECT_NEAR(s->tx, c.want->tx, c.shiftTol) << c.what;
    EXPECT_NEAR(s->ty, c.want->ty, c.shiftTol) << c.what;
  }
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

TEST(TrackSeeds, EllipseSeedsLieInsideTheRotatedEllipseAndOnTheImage) {
  struct Case {
    MaskKey key;
    std::size_t min, max;
  };
  // 100 asked: an 11 x 11 grid, about π/4 of it inside; at the left edge about half is off the image.
  const Case cases[] = {{{50, 50, 20, 10, 30}, 80, 100}, {{0, 50, 20, 10, 0}, 35, 55}};
  for (const Case& c : cases) {
    const auto seeds = seedPoints(c.key, W, H, 100);
    EXPECT_GE(seeds.size(), c.min);
    EXPECT_LE(seeds.size(), c.max);
    const double a = c.key.rot * M_PI / 180;
    for (const Point& s : seeds) {
      EXPECT_TRUE(s.x >= 0 && s.x < 1 && s.y >= 0 && s.y < 1);
      const double dx = s.x * W - c.key.cx / 100 * W, dy = s.y * H - c.key.cy / 100 * H;
      const double u = (dx * std::cos(a) + dy * std::sin(a)) / (c.key.rx / 100 * W * 0.92);
      const double v = (dy * std::cos(a) - dx * std::sin(a)) / (c.key.ry / 100 * H * 0.92);
      EXPECT_LE(u * u + v * v, 1 + 1e-9);
    }
  }
}

TEST(TrackSeeds, PolygonSeedsFillTheShapeAndRefineWhenTooFewLand) {
  const std::vector<Point> ell = {{0.1, 0.1}, {0.5, 0.1}, {0.5, 0.3}, {0.3, 0.3}, {0.3, 0.5}, {0.1, 0.5}};
  const std::vector<Point> square = {{0.2, 0.2}, {0.6, 0.2}, {0.6, 0.6}, {0.2, 0.6}};
  // Mostly off the image: 4 passes (g 10, 14, 19, 25), the last keeping 2 columns of 25.
  const std::vector<Point> offImage = {{0.9, 0.2}, {1.9, 0.2}, {1.9, 0.6}, {0.9, 0.6}};
  struct Case {
    const std::vector<Point>* poly;
    std::size_t count;
    const char* what;
  };
  const Case cases[] = {{&ell, 75, "L: the notch's 5 x 5 cells left out"},
                        {&square, 100, "square: the whole first grid"},
                        {&offImage, 50, "off the image"}};
  for (const Case& c : cases) {
    const auto seeds = seedPoints(*c.poly, W, H, 100);
    EXPECT_EQ(seeds.size(), c.count) << c.what;
    for (const Point& s : seeds) {
      EXPECT_TRUE(Roto::contains(*c.poly, s)) << c.what;
      EXPECT_TRUE(s.x < 1 && s.y < 1) << c.what;
      EXPECT_FALSE(s.x > 0.3 && s.y > 0.3 && c.poly == &ell) << "in the notch";
    }
  }
  EXPECT_TRUE(seedPoints(std::vector<Point>{{0.1, 0.1}, {0.5, 0.5}}, W, H, 100).empty());
}
