#include <gtest/gtest.h>

#include <cmath>

#include "document/app_model.h"
#include "document/key_anim.h"
#include "platform/scheduler.h"

using namespace ombrik;

namespace {
Keyframe key(std::int64_t f, double v, KeyInterp interp = KeyInterp::linear) {
  Keyframe k;
  k.f = f;
  k.v = v;
  k.interp = interp;
  return k;
}

// The Bézier segment's value at frame f by dense sampling of the parametric curve and linear
// interpolation between samples: an independent route to the same number.
double bezierBySampling(const Keyframe& a, const Keyframe& b, double f) {
  const auto [out, in] = KeyAnim::influences(a, b);
  const double s = double(b.f - a.f);
  const double px[4] = {double(a.f), a.f + out * s, b.f - in * s, double(b.f)};
  const double py[4] = {a.v, a.v + out * a.outSlope * s, b.v - in * b.inSlope * s, b.v};
  auto at = [](const double* p, double t) {
    const double u = 1 - t;
    return u * u * u * p[0] + 3 * u * u * t * p[1] + 3 * u * t * t * p[2] + t * t * t * p[3];
  };
  const int n = 200000;
  double prevX = at(px, 0), prevY = at(py, 0);
  for (int i = 1; i <= n; ++i) {
    const double t = double(i) / n, x = at(px, t), y = at(py, t);
    if (x >= f) return prevY + (y - prevY) * (f - prevX) / std::max(1e-12, x - prevX);
    prevX = x, prevY = y;
  }
  return b.v;
}

struct Model {
  std::shared_ptr<ManualScheduler> scheduler = std::make_shared<ManualScheduler>();
  AppModel m{AppModel::Options{.withEngine = false, .scheduler = scheduler}};
  Uuid id;
  Model() {
    Node n(NodeKind::color());
    id = n.id;
    m._nodes.push_back(n);
    m._frameCount = 100;
  }
  std::vector<Keyframe>& keys(const std::string& k) { return m.nodeByID(id)->anim.at(k); }
};
}  // namespace

TEST(KeyCurve, HandleLengthsAreClampedAndNeverCross) {
  Keyframe a = key(0, 0), b = key(10, 1);
  auto check = [&](double outInf, double inInf, double wantOut, double wantIn) {
    a.outInf = outInf;
    b.inInf = inInf;
    const auto [out, in] = KeyAnim::influences(a, b);
    EXPECT_DOUBLE_EQ(out, wantOut) << outInf << "," << inInf;
    EXPECT_DOUBLE_EQ(in, wantIn) << outInf << "," << inInf;
  };
  check(0, 0, 0.001, 0.001);
  check(3, 0.2, 1 / 1.2, 0.2 / 1.2);  // 3 reads as 1, then normalised
  check(1, 1, 0.5, 0.5);
  check(0.6, 0.4, 0.6, 0.4);  // a sum of exactly 1 stays
}

TEST(KeyCurve, ValuesOfListsAndSegments) {
  EXPECT_EQ(KeyAnim::value({}, 3), 0);
  const std::vector<Keyframe> one = {key(5, 2.5)};
  for (double f : {-10.0, 0.0, 5.0, 7.5, 1e6}) EXPECT_EQ(KeyAnim::value(one, f), 2.5);

  const std::vector<Keyframe> lin = {key(10, 1), key(11, 3), key(20, 0)};
  EXPECT_EQ(KeyAnim::value(lin, 0), 1);   // constant before the first key
  EXPECT_EQ(KeyAnim::value(lin, 99), 0);  // and after the last
  EXPECT_DOUBLE_EQ(KeyAnim::value(lin, 10.25), 1.5);  // adjacent keys, fractional frame
  EXPECT_EQ(KeyAnim::value(lin, 11), 3);  // on an inner key: the start of the next segment

  const std::vector<Keyframe> hold = {key(0, 4, KeyInterp::hold), key(10, 9)};
  EXPECT_EQ(KeyAnim::value(hold, 9.999), 4);
  EXPECT_EQ(KeyAnim::value(hold, 10), 9);  // jumps exactly at the next key
  EXPECT_EQ(KeyAnim::segment(key(5, 1), key(5, 7), 5), 7);  // empty span: the second value
}

TEST(KeyCurve, BezierFollowsItsControlPoints) {
  Keyframe a = key(0, 2, KeyInterp::bezier), b = key(24, 2);
  for (double f : {1.0, 7.3, 12.0, 23.5}) EXPECT_NEAR(KeyAnim::segment(a, b, f), 2.0, 1e-12);  // flat, same value

  a = key(3, 0, KeyInterp::bezier);
  b = key(27, 10);
  a.outInf = 0.8, a.outSlope = 1.5;
  b.inInf = 0.05, b.inSlope = -2;
  for (double f : {3.5, 8.0, 15.25, 22.0, 26.9}) {
    const double got = KeyAnim::segment(a, b, f);
    EXPECT_NEAR(got, bezierBySampling(a, b, f), 2e-4) << f;
  }
  EXPECT_NEAR(KeyAnim::value({a, b}, 27), 10, 0);
}

// Each parameter of the colour node below has its own story; they share one node.
TEST(KeyOperations, ToggleAnimationSetKeyAndAnimatedCopies) {
  Model t;
  // Animation on keeps the value on screen; off, the value at the current frame becomes the constant.
  t.m._currentFrame = 4;
  t.m.toggleAnim(t.id, "sat");
  ASSERT_EQ(t.keys("sat").size(), 1u);
  EXPECT_EQ(t.keys("sat")[0].f, 4);
  EXPECT_DOUBLE_EQ(t.keys("sat")[0].v, 0.92);
  t.m.setKey(t.id, "sat", 20, 0.2);
  t.m._currentFrame = 12;
  t.m.toggleAnim(t.id, "sat");
  EXPECT_FALSE(t.m.nodeByID(t.id)->anim.count("sat"));
  EXPECT_NEAR(t.m.nodeByID(t.id)->params.at("sat"), 0.92 + (0.2 - 0.92) * 8 / 16, 1e-12);

  // A key inserted in a stretch takes the stretch's style; one set on a key's frame keeps its style.
  t.m.setKey(t.id, "gain", 10, 1.0);
  t.m.setKey(t.id, "gain", 0, 0.5);
  t.m.setKeyStyle(t.id, "gain", 0, AppModel::KeyStyle::hold);
  t.m.setKey(t.id, "gain", 5, 0.7);  // inside the held stretch
  auto& ks = t.keys("gain");
  ASSERT_EQ(ks.size(), 3u);
  EXPECT_EQ(ks[1].f, 5);
  EXPECT_EQ(ks[1].interp, KeyInterp::hold);
  t.m.setKeyStyle(t.id, "gain", 1, AppModel::KeyStyle::easeOut);
  t.m.setHandle(t.id, "gain", 1, true, 0.6, 0.02);
  t.m.setKey(t.id, "gain", 5, 0.9);  // same frame: only the value changes
  EXPECT_DOUBLE_EQ(ks[1].v, 0.9);
  EXPECT_EQ(ks[1].interp, KeyInterp::bezier);
  EXPECT_DOUBLE_EQ(ks[1].outInf, 0.6);

  // The animated copy of a node, at a frame or at the evaluated one, leaves the stored node alone.
  t.m.setKey(t.id, "gamma", 0, 1);
  t.m.setKey(t.id, "gamma", 10, 2);
  const Node& stored = *t.m.nodeByID(t.id);
  EXPECT_DOUBLE_EQ(t.m.animated(stored, 5).params.at("gamma"), 1.5);
  t.m.evalFrameOverride = 10;
  EXPECT_DOUBLE_EQ(t.m.animated(stored).params.at("gamma"), 2);
  EXPECT_DOUBLE_EQ(stored.params.at("gamma"), 1.06);  // the stored constant is not touched
  auto b = t.m.binding(t.id, "gamma");
  t.m.evalFrameOverride.reset();
  t.m._currentFrame = 7;
  b.set(3);  // an animated parameter: a key at the current frame
  EXPECT_EQ(t.keys("gamma").size(), 3u);
}

TEST(KeyOperations, ToggleMoveHandlesStylesAndDeletion) {
  Model t;
  // K in a held stretch adds the held value; on a key it removes it; the last key turns animation off.
  t.m.setKey(t.id, "gain", 0, 0.5);
  t.m.setKey(t.id, "gain", 10, 1.2);
  t.m.setKeyStyle(t.id, "gain", 0, AppModel::KeyStyle::hold);
  t.m._currentFrame = 6;
  t.m.toggleKey(t.id, "gain");
  ASSERT_EQ(t.keys("gain").size(), 3u);
  EXPECT_EQ(t.keys("gain")[1].v, 0.5);
  EXPECT_EQ(t.keys("gain")[1].interp, KeyInterp::hold);
  t.m.toggleKey(t.id, "gain");
  EXPECT_EQ(t.keys("gain").size(), 2u);
  t.m._currentFrame = 10;
  t.m.toggleKey(t.id, "gain");
  t.m._currentFrame = 0;
  t.m.toggleKey(t.id, "gain");
  EXPECT_FALSE(t.m.nodeByID(t.id)->anim.count("gain"));
  EXPECT_EQ(t.m.nodeByID(t.id)->params.at("gain"), 0.5);

  // A moved key never crosses its neighbours; values have no limit; the last key may leave the end.
  for (int f : {10, 20, 21, 30}) t.m.setKey(t.id, "lift", f, f / 100.0);
  const struct {
    int index, to, frame;
  } moves[] = {{0, 25, 19}, {0, -5, 0}, {1, 5, 5}, {2, 2, 6}, {3, 500, 500}, {3, 3, 7}};
  for (const auto& mv : moves) {
    t.m.moveKey(t.id, "lift", mv.index, mv.to, 7);
    EXPECT_EQ(t.keys("lift")[mv.index].f, mv.frame) << "key " << mv.index << " to " << mv.to;
  }
  EXPECT_EQ(t.keys("lift")[0].v, 7);
  for (int f : {40, 41, 42}) t.m.setKey(t.id, "exposure", f, 0);  // keys one frame apart keep their frame
  t.m.moveKey(t.id, "exposure", 1, 80, 1);
  EXPECT_EQ(t.keys("exposure")[1].f, 41);

  // Handles and styles.
  for (int f : {0, 10, 30}) t.m.setKey(t.id, "temp", f, f / 10.0);
  t.m.setHandle(t.id, "temp", 1, false, 0.4, 0.3);  // incoming: the previous segment turns Bézier
  EXPECT_EQ(t.keys("temp")[0].interp, KeyInterp::bezier);
  EXPECT_EQ(t.keys("temp")[1].interp, KeyInterp::linear);
  EXPECT_DOUBLE_EQ(t.keys("temp")[1].inInf, 0.4);
  t.m.setHandle(t.id, "temp", 0, false, 0.2, 9);  // no previous key: stored, nothing else
  EXPECT_DOUBLE_EQ(t.keys("temp")[0].inSlope, 9);
  t.m.setKeyStyle(t.id, "temp", 1, AppModel::KeyStyle::smooth);
  EXPECT_DOUBLE_EQ(t.keys("temp")[1].outSlope, (3.0 - 0.0) / 30);
  t.m.setKeyStyle(t.id, "temp", 0, AppModel::KeyStyle::smooth);  // first key: flat
  EXPECT_EQ(t.keys("temp")[0].outSlope, 0);
  t.m.setKeyStyle(t.id, "temp", 2, AppModel::KeyStyle::smooth);  // last key: flat
  EXPECT_EQ(t.keys("temp")[2].inSlope, 0);
  t.m.setKeyStyle(t.id, "temp", 1, AppModel::KeyStyle::linear);
  EXPECT_EQ(t.keys("temp")[0].interp, KeyInterp::linear);
  EXPECT_EQ(t.keys("temp")[1].interp, KeyInterp::linear);

  // Every selected key deleted: removed from the highest index, the last removal takes key 0 alone.
  t.m.inspectedID = t.id;
  t.m._currentFrame = 5;
  t.m._keySel = {{"temp", 0}, {"temp", 1}, {"temp", 2}, {"temp", 9}};
  t.m.deleteSelectedKeys();
  EXPECT_FALSE(t.m.nodeByID(t.id)->anim.count("temp"));
  EXPECT_EQ(t.m.nodeByID(t.id)->params.at("temp"), 0);
  EXPECT_TRUE(t.m._keySel.empty());
}
