// Poses between pins and offset keys, the run plan of a pinned track and the fusion of its runs.
#include <gtest/gtest.h>

#include "tracking/pin_plan.h"
#include "tracking/roto.h"
#include "tracking/track_offset.h"

using namespace ombrik;

TEST(TrackOffset, ClampsOutsideTheKeysAndIsLinearBetween) {
  const std::map<int, std::vector<double>> keys = {{10, {2, 4}}, {20, {4, 0}}, {30, {1}}};
  struct Case {
    int frame;
    Point value;
  };
  const Case cases[] = {{0, {2, 4}}, {10, {2, 4}}, {15, {3, 2}}, {20, {4, 0}}, {25, {2.5, 0}}, {30, {1, 0}}, {99, {1, 0}}};
  for (const Case& c : cases) EXPECT_EQ(trackOffsetValue(keys, c.frame), c.value) << c.frame;
  EXPECT_EQ(trackOffsetValue({}, 5), (Point{}));
}

TEST(PinPose, ClampsOutsideThePinsAndIsLinearBetween) {
  const MaskKey a{10, 20, 5, 5, 0}, b{20, 40, 15, 25, 90};
  EXPECT_FALSE(pinPose({}, 3));
  struct Case {
    std::map<int, MaskKey> pins;
    int frame;
    MaskKey pose;
  };
  const Case cases[] = {{{{10, a}, {11, b}}, 10, a},  {{{10, a}, {11, b}}, 11, b},
                        {{{10, a}, {11, b}}, 2, a},   {{{10, a}, {11, b}}, 50, b},
                        {{{0, a}, {10, b}}, 5, {15, 30, 10, 15, 45}}, {{{4, b}}, 0, b}};
  for (const Case& c : cases) EXPECT_EQ(pinPose(c.pins, c.frame), c.pose) << c.frame;
}

TEST(PinPlan, RunsOutwardThenBothWaysOverEachSegment) {
  const MaskKey k{};
  EXPECT_TRUE(planPinRuns({{5, k}}).empty());
  const std::vector<PinRun> want = {{0, false, std::nullopt, std::nullopt}, {0, true, 10, 0}, {10, false, 0, 0},
                                    {10, true, 30, 1}, {30, false, 10, 1}, {30, true, std::nullopt, std::nullopt}};
  EXPECT_EQ(planPinRuns({{30, k}, {0, k}, {10, k}}), want);
}

TEST(PinPlan, FusionBlendsBothRunsOfASegmentAndKeepsTheOuterOnes) {
  const std::map<int, MaskKey> pins = {{5, {}}, {15, {}}};
  const auto plan = planPinRuns(pins);
  ASSERT_EQ(plan.size(), 4u);
  auto key = [](double x) { return MaskKey{x, x, 10, 10, x}; };
  auto shift = [](double dx, double m22) {
    Homography h = Homography::translation(dx, 0);
    for (double& e : h.m) e *= m22;  // the same map, scaled
    return h.toArray();
  };
  std::vector<PinResult> runs(4);
  runs[0].track = {{3, key(1)}, {4, key(2)}, {5, key(3)}};
  runs[0].planarH = {{3, shift(0.5, 1)}};
  for (int f = 5; f <= 12; ++f) {  // forward, lost after 12
    runs[1].track[f] = key(f);
    runs[1].planarH[f] = shift(0.01 * f, 2);
  }
  for (int f = 8; f <= 15; ++f) {  // backward, from 15 down to 8
    runs[2].track[f] = key(2 * f);
    runs[2].planarH[f] = shift(-0.01 * f, 1);
  }
  runs[2].planarH[9] = {1, 2, 3};  // a broken entry: that side is skipped
  runs[3].track = {{15, key(30)}, {16, key(40)}};
  runs[3].planarH = {{16, shift(0.7, 3)}};
  const std::map<int, Homography> poseH = {{5, Homography::translation(0, 0.1)}, {15, Homography::translation(0, 0.2)}};
  const PinResult out = fusePinRuns(plan, runs, poseH);

  EXPECT_EQ(out.track.at(3), key(1));   // outer runs as they are
  EXPECT_EQ(out.track.at(16), key(40));
  // Outer homographies made absolute from their pin too: (0.7, 0) after the pin's (0, 0.2).
  const std::vector<double> outer = out.planarH.at(16), want16 = Homography::translation(0.7, 0.2).toArray();
  for (int e = 0; e < 9; ++e) EXPECT_NEAR(outer[e], want16[e], 1e-12) << e;
  EXPECT_EQ(out.track.at(5), key(5));   // forward only, at the pin
  EXPECT_EQ(out.track.at(14), key(28)); // backward only
  for (int f : {8, 10, 12}) {
    const double t = (f - 5) / 10.0;
    const MaskKey want = {f * (1 - t) + 2 * f * t, f * (1 - t) + 2 * f * t, 10, 10, f * (1 - t) + 2 * f * t};
    const MaskKey got = out.track.at(f);
    EXPECT_NEAR(got.cx, want.cx, 1e-12) << f;
    EXPECT_NEAR(got.rot, want.rot, 1e-12) << f;
    // Forward: T(0.01 f) after T(0, 0.1); backward: T(-0.01 f) after T(0, 0.2).
    const auto h = Homography::fromArray(out.planarH.at(f));
    ASSERT_TRUE(h);
    EXPECT_NEAR(h->m[2], (1 - t) * 0.01 * f - t * 0.01 * f, 1e-12) << f;
    EXPECT_NEAR(h->m[5], (1 - t) * 0.1 + t * 0.2, 1e-12) << f;
    EXPECT_NEAR(h->m[8], 1, 1e-12) << f;
  }
  const auto h9 = Homography::fromArray(out.planarH.at(9));  // only the forward side usable
  EXPECT_NEAR(h9->m[2], 0.09, 1e-12);
  EXPECT_NEAR(h9->m[5], 0.1, 1e-12);
  EXPECT_EQ(out.track.size(), 14u);  // 3..16
}

TEST(PinPlan, PoseHomographyMovesAnchorsLikeThePlacement) {
  const std::vector<SplinePoint> shape = {{{0.4, 0.4}, {}, {}}, {{0.6, 0.4}, {}, {}}, {{0.5, 0.6}, {}, {}}};
  const MaskKey base{50, 50, 10, 10, 0}, pin{55, 45, 20, 10, 30};
  EXPECT_FALSE(pinPoseH(shape, std::nullopt, pin, 1920, 1080));
  EXPECT_FALSE(pinPoseH({shape[0], shape[1]}, base, pin, 1920, 1080));
  const auto h = pinPoseH(shape, base, pin, 1920, 1080);
  ASSERT_TRUE(h);
  for (const Point p : {Point{0.45, 0.5}, Point{0.7, 0.3}}) {
    const Point want = Roto::xform(p, base, pin, 1920, 1080), got = Homography::apply(*h, p);
    EXPECT_NEAR(got.x, want.x, 1e-9);
    EXPECT_NEAR(got.y, want.y, 1e-9);
  }
}
