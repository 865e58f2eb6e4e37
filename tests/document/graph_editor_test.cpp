#include <gtest/gtest.h>

#include "document/graph_editor.h"
#include "document/key_anim.h"
#include "platform/scheduler.h"

using namespace ombrik;

namespace {
Keyframe key(std::int64_t f, double v, KeyInterp interp = KeyInterp::linear) {
  Keyframe k;
  k.f = f, k.v = v, k.interp = interp;
  return k;
}
struct Editor {
  AppModel m{AppModel::Options{.withEngine = false, .scheduler = std::make_shared<ManualScheduler>()}};
  GraphEditor g;
  Uuid id;
  Size canvas{116, 116};  // with margins of 8: 100 points of frames and values
  Editor() {
    g.mx = g.my = 8;
    Node n(NodeKind::color());
    n.anim["exposure"] = {key(0, 0), key(50, 1), key(100, 0)};
    id = n.id;
    m._nodes.push_back(n);
    m._frameCount = 101;  // a frame a point
    m.inspectedID = id;
  }
  std::vector<Keyframe>& ks() { return m.nodeByID(id)->anim.at("exposure"); }
  GraphEditor::Range r() { return GraphEditor::range(ks()); }
  Point at(double frame, double value) { return {g.xOf(frame, m._frameCount, canvas.width), g.yOf(value, r(), canvas.height)}; }
};
}  // namespace

TEST(GraphEditorModel, CurvesRangesMappingAndHandles) {
  Node n(NodeKind::color());
  n.anim["sat"] = {key(0, 1)};
  n.anim["exposure"] = {key(0, 0)};
  n.anim["gain"] = {};  // skipped, but it keeps its place in the colour order
  n.anim["_custom"] = {key(3, 2)};
  const auto cs = GraphEditor::curves(n);
  ASSERT_EQ(cs.size(), 3u);
  EXPECT_EQ(cs[0].key, "_custom");
  EXPECT_EQ(cs[0].label, "_custom");  // no spec: the key itself
  EXPECT_EQ(cs[2].key, "sat");
  EXPECT_EQ(cs[2].color, (std::array<int, 3>{224, 120, 138}));  // fourth entry: "gain" took the third

  // Value ranges are padded and include a Bézier overshoot.
  auto r = GraphEditor::range({key(0, 5), key(10, 5)});
  EXPECT_DOUBLE_EQ(r.lo, 4);
  EXPECT_DOUBLE_EQ(r.hi, 6);
  r = GraphEditor::range({key(0, 0), key(10, 1)});
  EXPECT_DOUBLE_EQ(r.lo, -0.12);
  EXPECT_DOUBLE_EQ(r.hi, 1.12);
  Keyframe a = key(0, 0, KeyInterp::bezier), b = key(100, 0);
  a.outSlope = 0.05;  // the curve rises between two keys at 0
  r = GraphEditor::range({a, b});
  double peak = 0;
  for (int f = 0; f <= 100; ++f) peak = std::max(peak, KeyAnim::value({a, b}, f));
  EXPECT_GT(peak, 0.5);
  EXPECT_NEAR(r.hi, peak + 0.12 * peak, 0.05 * peak);

  // Frames and values to points and back; handle tips.
  GraphEditor g;
  g.mx = g.my = 10;
  for (int frames : {0, 1}) EXPECT_DOUBLE_EQ(g.xOf(1, frames, 120), 110);  // divides by 1
  EXPECT_DOUBLE_EQ(g.frameAt(g.xOf(37, 200, 500), 200, 500), 37);
  EXPECT_DOUBLE_EQ(g.valueAt(g.yOf(0.3, {0, 2}, 300), {0, 2}, 300), 0.3);
  EXPECT_DOUBLE_EQ(g.frameAt(5, 100, 10), -5 * 99);  // a canvas narrower than its margins divides by 1

  a = key(0, 0, KeyInterp::bezier), b = key(30, 3);
  const Keyframe c = key(60, 0);
  a.outInf = 1, b.inInf = 1, b.outSlope = 0.1;  // normalised to 0.5 each
  const auto [in, out] = GraphEditor::handlePoints({a, b, c}, 1);
  ASSERT_TRUE(in && out);
  EXPECT_DOUBLE_EQ(in->x, 15);
  EXPECT_DOUBLE_EQ(in->y, 3);
  EXPECT_DOUBLE_EQ(out->x, 40);  // 1/3 of the next segment
  EXPECT_DOUBLE_EQ(out->y, 3 + 1.0 / 3 * 0.1 * 30);
  EXPECT_FALSE(GraphEditor::handlePoints({a, b, c}, 0).first);
}

TEST(GraphEditorModel, DraggingAKeyMovesItByWholeFrames) {
  Editor t;
  const auto r = t.r();
  const Point grab = t.at(50, 1);
  t.g.handleDrag(t.m, grab, grab, false, t.canvas);
  EXPECT_EQ(t.g.hit(), GraphEditor::Hit::keys);
  EXPECT_EQ(t.m._keySel, (std::set<KeySel>{{"exposure", 1}}));
  t.g.handleDrag(t.m, grab, {grab.x + 7.4, grab.y + 10}, false, t.canvas);  // 7.4 frames right, 10 points down
  t.g.handleEnd(t.m, {grab.x + 7.4, grab.y + 10}, t.canvas);
  EXPECT_EQ(t.ks()[1].f, 57);
  EXPECT_NEAR(t.ks()[1].v, 1 - 10.0 / 100 * (r.hi - r.lo), 1e-9);  // the range frozen at the start
}

TEST(GraphEditorModel, DraggingAHandleSetsItsLengthAndSlope) {
  Editor t;
  t.m._keySel = {{"exposure", 1}};
  const auto [in, out] = GraphEditor::handlePoints(t.ks(), 1);
  const Point start = t.at(out->x, out->y);
  const Point now = t.at(75, 1.2);
  t.g.handleDrag(t.m, start, start, false, t.canvas);
  EXPECT_EQ(t.g.hit(), GraphEditor::Hit::handle);
  t.g.handleDrag(t.m, start, now, false, t.canvas);
  const Keyframe& k = t.ks()[1];
  EXPECT_EQ(k.interp, KeyInterp::bezier);
  EXPECT_NEAR(k.outInf, 25.0 / 50, 1e-9);
  EXPECT_NEAR(k.outSlope, 0.2 / (0.5 * 50), 1e-9);
}

TEST(GraphEditorModel, MarqueeSelectsAndAClickSeeks) {
  Editor t;
  const Point a{t.g.xOf(-1, 101, 116), 0}, b{t.g.xOf(60, 101, 116), 116};
  t.g.handleDrag(t.m, a, a, false, t.canvas);
  EXPECT_EQ(t.g.hit(), GraphEditor::Hit::marquee);
  t.g.handleDrag(t.m, a, b, false, t.canvas);
  t.g.handleEnd(t.m, b, t.canvas);
  EXPECT_EQ(t.m._keySel, (std::set<KeySel>{{"exposure", 0}, {"exposure", 1}}));
  const Point c{t.g.xOf(80, 101, 116), 3};  // empty canvas, a click: seek
  t.g.handleDrag(t.m, c, {c.x + 2, c.y + 2}, false, t.canvas);
  t.g.handleEnd(t.m, {c.x + 2, c.y + 2}, t.canvas);
  EXPECT_EQ(t.m._currentFrame, 82);
  EXPECT_EQ(t.m._keySel.size(), 2u);  // a click doesn't change the selection
  const Point far{500, 3};
  t.g.handleDrag(t.m, far, far, false, t.canvas);
  t.g.handleEnd(t.m, far, t.canvas);
  EXPECT_EQ(t.m._currentFrame, 100);  // clamped to the last frame
}
