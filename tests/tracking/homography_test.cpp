// Homography fits checked against maps known in advance, exact and with outliers.
#include <gtest/gtest.h>

#include <cmath>

#include "tracking/homography.h"

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

}  // namespace

TEST(Homography, FitRecoversAKnownMapFromExactPairs) {
  for (int n : {4, 20}) {
    const auto src = spread(n);
    const auto h = Homography::fit(src, mapped(known(), src));
    ASSERT_TRUE(h) << n;
    expectNear(*h, known(), 1e-9, std::to_string(n) + " pairs");
  }
  EXPECT_FALSE(Homography::fit(spread(3), mapped(known(), spread(3))));
  // Only the first min(src, dst) pairs count: a longer source list is no error.
  EXPECT_TRUE(Homography::fit(spread(9), mapped(known(), spread(6))));
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

TEST(Homography, AffineIsExactForAnAffineMapAndRefusesCollinearPoints) {
  Homography a;
  a.m = {0.8, -0.3, 12, 0.25, 1.1, -7, 0, 0, 1};
  const auto src = spread(7);
  const auto h = Homography::affine(src, mapped(a, src));
  ASSERT_TRUE(h);
  expectNear(*h, a, 1e-9, "affine");
  const std::vector<Point> line = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};
  EXPECT_FALSE(Homography::affine(line, mapped(a, line)));
  EXPECT_FALSE(Homography::affine(spread(2), mapped(a, spread(2))));
}

TEST(Homography, RansacIgnoresOutliersAndNeedsSixInliers) {
  auto src = spread(40);
  auto dst = mapped(known(), src);
  for (std::size_t i = 0; i < 12; ++i) dst[i * 3].x += 150 + 10.0 * double(i);  // 30 % far off
  std::mt19937 rng(7);
  const auto h = Homography::ransac(src, dst, 3.0, rng);
  ASSERT_TRUE(h);
  expectNear(*h, known(), 1e-7, "ransac");

  // Five exact pairs do have a fit, but too few to trust.
  const auto five = spread(5);
  ASSERT_TRUE(Homography::fit(five, mapped(known(), five)));
  EXPECT_FALSE(Homography::ransac(five, mapped(known(), five), 3.0, rng));
  // Five inliers among scattered outliers: none as well.
  auto few = mapped(known(), src);
  for (std::size_t i = 5; i < few.size(); ++i) few[i] = {std::fmod(i * 733.0, 1900), std::fmod(i * 377.0, 1000)};
  EXPECT_FALSE(Homography::ransac(src, few, 1.0, rng));
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
  const double W = 1920, H = 1080;
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
