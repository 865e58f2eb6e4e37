// Mask nodes against the geometry worked out here: ellipses, outlines (feather, edge coverage,
// winding), blended layers, solo, per-mask outputs, mattes, and shapes that can't be drawn.
#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
using Vec = std::vector<float>;

float smoothstep(float a, float b, float x) {
  const float t = std::clamp((x - a) / (b - a), 0.0f, 1.0f);
  return t * t * (3 - 2 * t);
}

GMask ellipse(double cx, double cy, double rx, double ry, double rot = 0, double feather = 0.35, bool invert = false) {
  GMask m;
  m.ellipse = true;
  m.params = {{"cx", cx}, {"cy", cy}, {"rx", rx}, {"ry", ry}, {"rot", rot}, {"feather", feather}, {"invert", invert ? 1 : 0}};
  return m;
}

GMask polygon(std::vector<Point> pts, double feather = 0, double blend = 0) {
  GMask m;
  for (Point p : pts) m.shape.push_back({p, {}, {}});
  m.shapeClosed = true;
  m.params = {{"feather", feather}, {"blend", blend}};
  return m;
}

// The ellipse's value at a pixel centre, from its definition.
float ellipseAt(const GMask& m, int W, int H, int x, int y) {
  const double cx = m.params.at("cx") / 100 * W, cy = m.params.at("cy") / 100 * H;
  const double rx = std::max(1.0, m.params.at("rx") / 100 * W), ry = std::max(1.0, m.params.at("ry") / 100 * H);
  const double a = m.params.at("rot") * std::numbers::pi / 180;
  const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
  const double lx = dx * std::cos(a) + dy * std::sin(a), ly = -dx * std::sin(a) + dy * std::cos(a);
  const float v = 1 - smoothstep(float(1 - m.params.at("feather")), 1.0001f, float(std::hypot(lx / rx, ly / ry)));
  return m.params.at("invert") > 0.5 ? 1 - v : v;
}

// Signed distance from a pixel centre to a polygon in pixels (negative inside, non-zero winding).
double signedDistance(const std::vector<Point>& px, double qx, double qy) {
  double d = 1e30;
  int winding = 0;
  for (std::size_t i = 0; i < px.size(); ++i) {
    const Point a = px[i], b = px[(i + 1) % px.size()];
    const double ex = b.x - a.x, ey = b.y - a.y;
    const double t = std::clamp(((qx - a.x) * ex + (qy - a.y) * ey) / std::max(ex * ex + ey * ey, 1e-6), 0.0, 1.0);
    d = std::min(d, std::hypot(qx - a.x - ex * t, qy - a.y - ey * t));
    const double side = ex * (qy - a.y) - (qx - a.x) * ey;
    if (a.y <= qy && b.y > qy && side > 0) ++winding;
    if (a.y > qy && b.y <= qy && side < 0) --winding;
  }
  return winding ? -d : d;
}

// A straight-edged outline: full inside, the pixel's inside share within half a pixel of the edge,
// the outward feather beyond.
float polygonAt(const std::vector<Point>& norm, double fpx, int W, int H, int x, int y) {
  std::vector<Point> px;
  for (Point p : norm) px.push_back({p.x * W, p.y * H});
  const double s = signedDistance(px, x + 0.5, y + 0.5);
  const float c = float(std::clamp(0.5 - s, 0.0, 1.0));
  const float f = fpx > 0 ? 1 - smoothstep(0, float(fpx), float(std::max(s, 0.0))) : 0;
  return c + (1 - c) * f;
}

class MaskRenderTest : public EngineTest {
protected:
  // The mask node's picture (red channel) for these layers.
  Vec render(std::vector<GMask> layers, int W, int H, bool solo = false, int index = 0) {
    Engine& e = engine();
    e.setComp(W, H, true);
    Node mask = node("mask");
    mask.maskLayers = std::move(layers);
    mask.maskSolo = solo;
    mask.maskIndex = index;
    e.evaluate({mask}, {}, 0);
    return red(pixels(mask.id));
  }
  static Vec red(const Vec& rgba) {
    Vec r;
    for (std::size_t i = 0; i < rgba.size(); i += 4) r.push_back(rgba[i]);
    return r;
  }
  static void expectPicture(const Vec& got, int W, int H, const std::function<float(int, int)>& want, float tol,
                            const std::string& what) {
    ASSERT_EQ(got.size(), std::size_t(W) * H) << what;
    int bad = 0;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x)
        if (std::abs(got[std::size_t(y) * W + x] - want(x, y)) > tol && bad++ < 5)
          ADD_FAILURE() << what << " at (" << x << ", " << y << "): " << got[std::size_t(y) * W + x] << " vs "
                        << want(x, y);
  }
};
}  // namespace

TEST_F(MaskRenderTest, ShapesMatchTheirGeometryOrLeaveTheMaskEmpty) {
  const int W = 64, H = 36;
  const GMask ellipses[] = {ellipse(50, 50, 25, 40), ellipse(30, 60, 20, 30, 35, 0.6), ellipse(70, 40, 15, 25, -20, 0),
                            ellipse(50, 50, 30, 30, 0, 0.35, true)};
  for (const GMask& m : ellipses)
    expectPicture(render({m}, W, H), W, H, [&](int x, int y) { return ellipseAt(m, W, H, x, y); }, 2e-3f,
                  "ellipse rot " + std::to_string(m.params.at("rot")));
  // Straight outlines are filled, covered at their edge and feathered outward.
  struct Case { std::vector<Point> pts; double feather; float pxScale; const char* what; };
  const std::vector<Point> square = {{0.25, 0.25}, {0.75, 0.25}, {0.75, 0.75}, {0.25, 0.75}};
  // Edges off the pixel grid, drawn the other way round: coverage at every edge pixel.
  const std::vector<Point> offGrid = {{0.2539, 0.2083}, {0.2539, 0.8194}, {0.6602, 0.8194}, {0.6602, 0.2083}};
  const std::vector<Point> triangle = {{0.1, 0.9}, {0.5, 0.05}, {0.93, 0.8}};
  // An outer square and an inner one the other way round, joined by a cut: a frame with a hole.
  const std::vector<Point> frame = {{0.1, 0.1}, {0.9, 0.1}, {0.9, 0.9}, {0.1, 0.9}, {0.1, 0.5},
                                    {0.3, 0.5}, {0.3, 0.7}, {0.7, 0.7}, {0.7, 0.3}, {0.3, 0.3}, {0.3, 0.5}, {0.1, 0.5}};
  const Case cases[] = {{square, 0, 1, "square, hard"}, {frame, 0, 1, "frame with a hole"}, {offGrid, 0, 1, "off-grid, reversed"},
                        {triangle, 0.1, 1, "triangle, feather 8 px"}, {triangle, 0.1, 0.5f, "triangle at half size"}};
  for (const Case& c : cases) {
    engine().pxScale = c.pxScale;
    const double fpx = c.pxScale * c.feather * 80;
    expectPicture(render({polygon(c.pts, c.feather)}, W, H), W, H, [&](int x, int y) { return polygonAt(c.pts, fpx, W, H, x, y); },
                  3e-3f, c.what);
  }
  engine().pxScale = 1;
  const Vec holed = render({polygon(frame)}, W, H);
  EXPECT_EQ(holed[18 * W + 32], 0.0f);  // the reference agrees, and the hole is really there
  EXPECT_EQ(holed[5 * W + 32], 1.0f);

  // Curved outlines match the circle their tangents describe.
  const int S = 64;
  const double k = 0.5523 * 0.3;  // four cubic arcs of a circle of radius 0.3 around the centre
  GMask circle;
  circle.shapeClosed = true;
  circle.params = {{"feather", 0}};
  circle.shape = {{{0.5, 0.2}, {-k, 0}, {k, 0}}, {{0.8, 0.5}, {0, -k}, {0, k}},
                  {{0.5, 0.8}, {k, 0}, {-k, 0}}, {{0.2, 0.5}, {0, k}, {0, -k}}};
  const Vec round = render({circle}, S, S);
  for (int y = 0; y < S; ++y)
    for (int x = 0; x < S; ++x) {
      const double r = std::hypot(x + 0.5 - 32, y + 0.5 - 32) - 0.3 * 64;
      if (std::abs(r) < 1.2) continue;  // the arcs and their 10 samples differ from a circle by < 0.1 px
      EXPECT_EQ(round[y * S + x], r < 0 ? 1.0f : 0.0f) << x << "," << y;
    }

  // Outlines that cannot be drawn leave the mask empty; huge and wide ones are drawn whole.
  const int w = 32, h = 16;
  const double nan = std::nan("");
  const std::vector<std::vector<Point>> broken = {
      {}, {{0.5, 0.5}}, {{0.1, 0.1}, {0.9, 0.9}}, {{0.1, 0.1}, {nan, 0.5}, {0.9, 0.9}, {0.1, 0.9}}};
  for (const auto& pts : broken) {
    GMask m = polygon(pts, 0.3);
    const Vec got = render({m}, w, h);
    ASSERT_EQ(got.size(), std::size_t(w) * h);
    EXPECT_TRUE(std::all_of(got.begin(), got.end(), [](float v) { return v == 0; })) << pts.size() << " points";
    m.params["invert"] = 1;
    const Vec inverted = render({m}, w, h);
    EXPECT_TRUE(std::all_of(inverted.begin(), inverted.end(), [](float v) { return v == 1; }));
  }
  // 10⁵ points on a circle still draw it, thinned, without stalling the frame.
  std::vector<Point> many;
  for (int i = 0; i < 100000; ++i) {
    const double a = 2 * std::numbers::pi * i / 100000;
    many.push_back({0.5 + 0.3 * std::cos(a), 0.5 + 0.3 * std::sin(a)});
  }
  const Vec big = render({polygon(many)}, w, h);
  EXPECT_EQ(big[8 * w + 16], 1.0f);
  EXPECT_EQ(big[0], 0.0f);
  // A wide comp: tiles far right of the outline's start and a list longer than one tile can hold.
  const int Wide = 4096;
  std::vector<Point> zigzag = {{0.001, 0.1}};
  for (int i = 0; i <= 2500; ++i) zigzag.push_back({0.001 + 0.998 * i / 2500, i % 2 ? 0.4 : 0.45});
  zigzag.insert(zigzag.end(), {{0.999, 0.9}, {0.001, 0.9}});
  expectPicture(render({polygon(zigzag)}, Wide, 8), Wide, 8, [&](int x, int y) { return polygonAt(zigzag, 0, Wide, 8, x, y); }, 3e-3f, "zigzag");
}

TEST_F(MaskRenderTest, LayersBlendSoloOutputsAndMattes) {
  const int W = 48, H = 32;
  const GMask a = ellipse(40, 50, 30, 40, 0, 0.5);
  const GMask b = polygon({{0.45, 0.1}, {0.9, 0.1}, {0.9, 0.9}, {0.45, 0.9}}, 0.05);
  const GMask c = ellipse(70, 30, 15, 20, 0, 0.8);
  const Vec va = render({a}, W, H), vb = render({b}, W, H), vc = render({c}, W, H);
  const std::function<float(float, float)> ops[] = {
      [](float x, float y) { return x + y - x * y; }, [](float x, float y) { return x * (1 - y); },
      [](float x, float y) { return x * y; },         [](float x, float y) { return std::abs(x - y); },
      [](float x, float y) { return std::max(x, y); }, [](float x, float y) { return std::min(x, y); }};
  for (int op = 0; op < 6; ++op) {
    GMask second = b;
    second.params["blend"] = op;
    const Vec got = render({a, second}, W, H);
    expectPicture(got, W, H, [&](int x, int y) { return ops[op](va[y * W + x], vb[y * W + x]); }, 2e-3f,
                  "blend " + std::to_string(op));
  }
  // Three layers: the running result and the next layer alternate between the node's textures.
  GMask sub = b, add = c;
  sub.params["blend"] = 1;
  add.params["blend"] = 0;
  const Vec three = render({a, sub, add}, W, H);
  expectPicture(three, W, H, [&](int x, int y) { return ops[0](ops[1](va[y * W + x], vb[y * W + x]), vc[y * W + x]); },
                3e-3f, "three layers");
  // Solo: the active mask alone, its own blend mode dropped.
  expectPicture(render({a, sub, add}, W, H, true, 1), W, H, [&](int x, int y) { return vb[y * W + x]; }, 1e-3f, "solo");

  // Per-mask outputs limited by a matte, a mask limiting an effect, and summed mattes on a transform.
  {
    const int W = 32, H = 16;
    Engine& e = engine();
    e.setComp(W, H, true);
    std::vector<float> ramp;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) ramp.insert(ramp.end(), {x / float(W), 0.9f, y / float(H), 1});
    Node media = mediaOf(SourcePicture::fromFloats(W, H, ramp));
    {  // Each mask has its own output (ports 2, 3); a matte on the node limits them all.
      const GMask a = ellipse(30, 50, 20, 40, 0, 0.3), b = ellipse(70, 50, 20, 40, 0, 0.3);
      Node mask = node("mask"), limit = node("mask"), colA = node("color"), colB = node("color");
      mask.maskLayers = {a, b};
      limit.maskLayers = {polygon({{0, 0}, {1, 0}, {1, 0.5}, {0, 0.5}})};  // the top half
      const Edge toA = wire(mask, colA, 1, 2), toB = wire(mask, colB, 1, 3), matte = wire(limit, mask, 1, 0);
      e.evaluate({media, mask, limit, colA, colB}, {wire(media, colA), wire(media, colB), toA, toB, matte}, 0);
      auto half = [&](float v, int y) { return y < H / 2 ? v : 0.0f; };
      expectPicture(red(e.readPixels(e.inputTexture(toA))), W, H, [&](int x, int y) { return half(ellipseAt(a, W, H, x, y), y); },
                    2e-3f, "port 2");
      expectPicture(red(e.readPixels(e.inputTexture(toB))), W, H, [&](int x, int y) { return half(ellipseAt(b, W, H, x, y), y); },
                    2e-3f, "port 3");
      expectPicture(red(pixels(mask.id)), W, H, [&](int x, int y) {
        const float va = ellipseAt(a, W, H, x, y), vb = ellipseAt(b, W, H, x, y);
        return half(va + vb - va * vb, y);
      }, 2e-3f, "merged");
      const Edge past = wire(mask, colA, 1, 4);  // a port past the last mask gives nothing
      e.evaluate({media, mask, colA}, {wire(media, colA), past}, 0);
      EXPECT_EQ(e.inputTexture(past), nullptr);
    }
    // A mask on an effect's matte port mixes the effect's result over Front by its value.
    Node glow = node("glow"), plain = node("glow"), mask = node("mask");
    const GMask m = ellipse(50, 50, 30, 40, 0, 0.7);
    mask.maskLayers = {m};
    e.evaluate({media, glow, plain, mask}, {wire(media, glow), wire(media, plain), wire(mask, glow, 1)}, 0);
    const Vec front = e.readPixels(e.outputs.at(media.id)), full = pixels(plain.id), limited = pixels(glow.id);
    for (int i = 0; i < W * H * 4; ++i)
      if (i % 4 != 3) {
        const float k = ellipseAt(m, W, H, i / 4 % W, i / 4 / W);
        EXPECT_NEAR(limited[i], front[i] + (full[i] - front[i]) * k, 4e-3) << "limited glow at " << i / 4;
      }
    // Two mattes on a transform's alpha port add up (a + b - ab) and move with the picture.
    Node xform = node("xform"), ma = node("mask"), mb = node("mask");
    xform.params["tx"] = 25;  // a quarter of the width to the right: 8 px
    const GMask ea = ellipse(25, 50, 15, 30, 0, 0.4), eb = ellipse(40, 50, 15, 30, 0, 0.4);
    ma.maskLayers = {ea};
    mb.maskLayers = {eb};
    e.viewAlphaOf = xform.id;
    e.evaluate({media, xform, ma, mb}, {wire(media, xform), wire(ma, xform, 2), wire(mb, xform, 2)}, 0);
    ASSERT_TRUE(e.viewAlpha);
    expectPicture(red(e.readPixels(e.viewAlpha)), W, H, [&](int x, int y) {
      if (x < 8) return 0.0f;  // moved in from outside the picture
      const float va = ellipseAt(ea, W, H, x - 8, y), vb = ellipseAt(eb, W, H, x - 8, y);
      return va + vb - va * vb;
    }, 4e-3f, "transform alpha");
  }
}
