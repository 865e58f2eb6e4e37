// The node editor's geometry without a display: ports, wires, the view and the hit tests.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "graph/node.h"
#include "shell/schematic_geometry.h"

using namespace ombrik;
using namespace ombrik::schematic;

namespace {

Node make(const char* kind) {
  const KindRef* k = NodeKind::find(kind);
  EXPECT_NE(k, nullptr) << kind;
  return Node(*k);
}

double length(Point p) { return std::hypot(p.x, p.y); }

// A small graph: a picture source, a correction it feeds, a shape mask beside them.
struct Graph {
  std::vector<Node> nodes{make("media"), make("color"), make("mask")};
  std::vector<Edge> edges;
  Positions at;
  Graph() {
    at[nodes[0].id] = {0, 0};
    at[nodes[1].id] = {300, 0};
    at[nodes[2].id] = {0, 300};
  }
  const Uuid& media() const { return nodes[0].id; }
  const Uuid& color() const { return nodes[1].id; }
  const Uuid& mask() const { return nodes[2].id; }
};

}  // namespace

TEST(SchematicGeometry, OutputsPortsAndLettersFollowTheNode) {
  EXPECT_GT(radius("media"), radius("color")) << "a picture's source is drawn bigger";
  EXPECT_LT(radius("dot"), radius("color"));
  EXPECT_EQ(outputCount(make("output")), 0) << "the output feeds nothing";
  EXPECT_EQ(outputCount(make("color")), 2);
  Node mask = make("mask");
  mask.masks.resize(1);
  EXPECT_EQ(outputCount(mask), 2) << "one mask is the node's own picture";
  mask.masks.resize(3);
  EXPECT_EQ(outputCount(mask), 5);
  // The contact's offset across the 68-high box picks the input: each end, the middle, and just
  // past either edge still the end ports.
  const std::array<int, 3> ports[] = {{25, 1, 0}, {-1000, 3, 0}, {-34, 3, 0}, {0, 3, 1}, {-1, 2, 0},
                                      {34, 3, 2}, {1000, 4, 3}, {-35, 2, 0}, {35, 2, 1}};
  for (const auto& [offset, count, port] : ports) EXPECT_EQ(portFor(offset, count), port) << offset << " of " << count;
  for (const auto& [title, shown] : {std::pair("Réglage couleur", "R"), {"éclat", "É"}, {"  3D keyer", "3"}, {" · — ", "•"}, {"", "•"}})
    EXPECT_EQ(letter(title), shown) << title;

  // Inputs on the circle's left, the first above (y grows downwards), mirrored about the axis;
  // outputs on its right, the alpha below the picture's, each mask's output higher than the last.
  const double r = 34;
  EXPECT_NEAR(inPort(0, 1, r).x, -r, 1e-9);
  const Point a = inPort(0, 2, r), b = inPort(1, 2, r);
  EXPECT_NEAR(length(a), r, 1e-9);
  EXPECT_LT(a.y, 0);
  EXPECT_NEAR(b.x, a.x, 1e-9);
  EXPECT_NEAR(b.y, -a.y, 1e-9);
  EXPECT_NEAR(inPort(1, 3, r).y, 0, 1e-9) << "an odd count's middle input is straight left";
  for (int i = 0; i < 6; ++i) EXPECT_LT(inPort(i, 6, r).x, 0) << "input " << i;
  EXPECT_NEAR(outPort(0, 1, r).x, r, 1e-9);
  EXPECT_NEAR(length(outPort(1, 1, r)), r, 1e-6);
  EXPECT_GT(outPort(1, 1, r).y, 0) << "the alpha output sits below the picture's";
  for (int port = 3; port < 5; ++port) EXPECT_LT(outPort(port, 5, r).y, outPort(port - 1, 5, r).y) << port;
}

TEST(SchematicGeometry, WiresBendAndCutStrokesMustProperlyCrossThem) {
  const Point from{0, 0}, to{0, 100};
  EXPECT_NEAR(wireCurve({0, 0}, {200, 50}, kDrawBend).p1.x, 100, 1e-9) << "half the horizontal distance";
  // The point at t = 1/4 of the same wire bent by 40 (by the Bézier formula) is on the hit curve.
  const double t = 0.25, u = 0.75;
  const Point quarter{3 * u * u * t * 40 + 3 * u * t * t * -40, 3 * u * t * t * 100 + t * t * t * 100};
  EXPECT_NEAR(distanceToCurve(quarter, from, to), 0, 1e-9);
  EXPECT_NEAR(distanceToCurve({quarter.x + 5, quarter.y}, from, to), 5, 0.5);
  // A stroke between the two curves crosses the drawn one (bend 30, x = 8.44 at t = 1/4) only.
  const double y = quarter.y + 0.5;  // off the sampled point, so it meets a chord inside
  EXPECT_TRUE(crossesCurve({7.5, y}, {10, y}, from, to));
  EXPECT_FALSE(crossesCurve({9.5, y}, {10.5, y}, from, to));

  // A stroke across a straight wire.
  const Point a{0, 0}, b{100, 0};
  EXPECT_TRUE(crossesCurve({51, -20}, {51, 20}, a, b));
  EXPECT_FALSE(crossesCurve({51, -20}, {51, -5}, a, b)) << "short of the wire";
  EXPECT_FALSE(crossesCurve({51, -20}, {51, 0}, a, b)) << "ending on the wire is touching, not cutting";
  EXPECT_FALSE(crossesCurve({10, -5}, {90, -5}, a, b)) << "alongside";
  EXPECT_FALSE(crossesCurve({150, -20}, {150, 20}, a, b)) << "past its end";
}

TEST(SchematicGeometry, ViewTransformZoomAndFraming) {
  View v{{100, 50}, 2};
  const Point g{12, -7};
  EXPECT_EQ(v.toView(g), (Point{124, 36}));
  EXPECT_EQ(v.toGraph(v.toView(g)), g);
  const Point pivot{300, 200};
  EXPECT_NEAR(v.zoomedAbout(pivot, 1.3).zoom, 2.6, 1e-12);
  EXPECT_EQ(v.zoomedAbout(pivot, 100).zoom, kMaxZoom);
  EXPECT_EQ(v.zoomedAbout(pivot, 1e-4).zoom, kMinZoom);

  // Framing shows every node.
  EXPECT_FALSE(frameAll({}, 800, 600));
  EXPECT_FALSE(frameAll({{0, 0}}, 0, 600));
  // Two nodes far apart: the box (one node size beyond each centre) fits the width.
  const auto two = frameAll({{0, 0}, {2000, 0}}, 800, 600);
  ASSERT_TRUE(two);
  EXPECT_NEAR(two->zoom, 800.0 / (2000 + 2 * kNodeSize), 1e-12);
  EXPECT_NEAR(two->toView({-kNodeSize, 0}).x, 0, 1e-9);
  EXPECT_NEAR(two->toView({2000 + kNodeSize, 0}).x, 800, 1e-9);
  EXPECT_EQ(frameAll({{0, 0}, {1e6, 0}}, 800, 600)->zoom, kMinZoom);
  // A large node reaches further: its whole circle is in the frame.
  const auto big = frameAll({{0, 0}, {2000, 0}}, 800, 600, {150, 10});
  EXPECT_NEAR(big->toView({-150, 0}).x, 0, 1e-9);
  EXPECT_NEAR(big->toView({2000 + kNodeSize, 0}).x, 800, 1e-9);
}

// The pointer finds a node or a port; a wire let go on a node takes a fitting free input.
TEST(SchematicGeometry, PointerFindsNodesAndPortsAndWiresTheirInputs) {
  Graph g;
  // Radius by kind: 50 from the media centre is inside it, 50 from the correction is not.
  EXPECT_EQ(nodeAt(g.nodes, g.at, {50, 0})->id, g.media());
  EXPECT_EQ(nodeAt(g.nodes, g.at, {350, 0}), nullptr);
  EXPECT_EQ(nodeAt(g.nodes, g.at, {320, 10})->id, g.color());
  // Overlapping nodes: the one drawn last is on top.
  g.at[g.color()] = {40, 0};
  EXPECT_EQ(nodeAt(g.nodes, g.at, {40, 0})->id, g.color());
  g.at[g.color()] = {300, 0};
  // A port within reach of the pointer (wires drawn from ports: the node editor's tests).
  EXPECT_EQ(portAt(g.nodes, g.at, {92 + 3, 2}, 8), (PortHit{g.media(), 0, true}));
  EXPECT_FALSE(portAt(g.nodes, g.at, {92 + 12, 0}, 8)) << "out of reach";

  // The correction's input a wire from `from`'s output `out` let go on it takes; -1 for none.
  const Point onColor{305, 5};
  auto input = [&](const Uuid& from, int out) {
    const auto t = wireTarget(g.nodes, g.edges, g.at, from, out, onColor);
    return t && t->node == g.color() && !t->isOutput ? t->port : -1;
  };
  EXPECT_EQ(input(g.media(), 0), 0) << "a picture goes to the main input, never to the matte";
  EXPECT_EQ(input(g.mask(), 0), 1) << "a mask's picture is a matte";
  EXPECT_EQ(input(g.media(), 1), 1) << "so is an alpha output";
  g.edges.push_back({Uuid::generate(), g.media(), g.color(), 0, 0});
  EXPECT_EQ(input(g.media(), 0), -1) << "the main input taken: a picture has nowhere to go";
  g.edges = {{Uuid::generate(), g.media(), g.color(), 1, 1}};
  EXPECT_EQ(input(g.mask(), 0), 0) << "the matte input taken: a matte falls back to the main one";

  // Near enough is the node's radius and 30 more (a loop refused: the node editor's tests).
  EXPECT_TRUE(wireTarget(g.nodes, {}, g.at, g.media(), 0, {300 + 34 + 29, 0}));
  EXPECT_FALSE(wireTarget(g.nodes, {}, g.at, g.media(), 0, {300 + 34 + 31, 0}));
  EXPECT_FALSE(wireTarget(g.nodes, {}, g.at, g.color(), 0, onColor)) << "not onto itself";

  // A cut stroke across both of the correction's wires cuts both (one alone: the node editor's tests).
  g.edges = {{Uuid::generate(), g.media(), g.color(), 0, 0}, {Uuid::generate(), g.mask(), g.color(), 1, 0}};
  EXPECT_EQ(edgesCrossed(g.nodes, g.edges, g.at, {200, -60}, {200, 400}).size(), 2u);
}

namespace {
// A correction and a grain far apart on one line, with a blur, a shape mask and a media node to
// drag about.
struct Drag {
  std::vector<Node> nodes{make("color"), make("grain"), make("blur"), make("mask"), make("media")};
  std::vector<Edge> edges;
  Positions at;
  Drag() {
    at[color()] = {0, 0};
    at[grain()] = {1000, 0};
    at[blur()] = {500, 400};
    at[mask()] = {0, 600};
    at[media()] = {1000, 600};
  }
  const Uuid& color() const { return nodes[0].id; }
  const Uuid& grain() const { return nodes[1].id; }
  const Uuid& blur() const { return nodes[2].id; }
  const Uuid& mask() const { return nodes[3].id; }
  const Uuid& media() const { return nodes[4].id; }
  Edge wire(const Uuid& from, const Uuid& to, int port) {
    edges.push_back({Uuid::generate(), from, to, port, 0});
    return edges.back();
  }
  // What letting `dragged` go at `p` would do; the other nodes stay where they are.
  std::optional<Snap> snap(const Uuid& dragged, Point p) const {
    Positions moved = at;
    moved[dragged] = p;
    return computeSnap(nodes, edges, moved, dragged, p, contactOf(nodes, moved, dragged, p, std::nullopt));
  }
};
}  // namespace

TEST(SchematicGeometry, TouchingNodesAreWiredLeftToRightOnTheFacingInput) {
  Drag g;
  // Right of the correction and a little lower, the correction feeds the blur (the node editor's
  // tests); left of it and a little lower: the blur would feed the correction's matte, which only a
  // shape, a transform or a warp may.
  EXPECT_FALSE(g.snap(g.blur(), {-60, 10}));
  EXPECT_EQ(g.snap(g.mask(), {-60, 10}), Snap::link(g.mask(), g.color(), 1));
  EXPECT_EQ(g.snap(g.blur(), {-60, -10}), Snap::link(g.blur(), g.color(), 0));
  // Touching means closer than both radii and 6 more.
  EXPECT_TRUE(g.snap(g.blur(), {73, 5}));
  EXPECT_FALSE(g.snap(g.blur(), {75, 5}));
  EXPECT_EQ(g.snap(g.media(), {-120, -10}), Snap::link(g.media(), g.color(), 0)) << "a big node touches farther";
  EXPECT_FALSE(g.snap(g.media(), {120, -10})) << "nothing feeds a media node";

  // An input already taken, or a wire that would close a loop, snaps to nothing.
  g.wire(g.grain(), g.blur(), 0);
  EXPECT_FALSE(g.snap(g.blur(), {60, 10}));
  g.edges = {{Uuid::generate(), g.blur(), g.grain(), 0, 0}, {Uuid::generate(), g.grain(), g.color(), 0, 0}};
  EXPECT_FALSE(g.snap(g.blur(), {60, 10})) << "the blur already feeds the correction";
}

TEST(SchematicGeometry, AContactHoldsUntilItIsBroken) {
  Drag g;
  g.at[g.grain()] = {100, 0};
  const Point between{55, 0};  // 55 from the correction, 45 from the grain
  EXPECT_EQ(contactOf(g.nodes, g.at, g.blur(), between, std::nullopt), g.grain()) << "the nearest";
  EXPECT_EQ(contactOf(g.nodes, g.at, g.blur(), between, g.color()), g.color()) << "the one held";
  EXPECT_EQ(contactOf(g.nodes, g.at, g.blur(), {80, 0}, g.color()), g.grain()) << "broken past 74";
  EXPECT_FALSE(contactOf(g.nodes, g.at, g.blur(), {500, 300}, g.color()));
}

TEST(SchematicGeometry, ANodeAloneSlipsIntoTheNearestWire) {
  Drag g;
  const Edge line = g.wire(g.color(), g.grain(), 0);
  const Point from = outPos(g.nodes[0], g.at[g.color()], 0), to = inPos(g.nodes[1], g.at[g.grain()], 0);
  const Point middle = wireCurve(from, to, kHitBend).at(0.5);
  EXPECT_EQ(g.snap(g.blur(), middle), Snap::insert(line.id));
  EXPECT_EQ(g.snap(g.blur(), {middle.x, middle.y + 15}), Snap::insert(line.id));
  EXPECT_FALSE(g.snap(g.blur(), {middle.x, middle.y + 20}));
  EXPECT_FALSE(g.snap(g.media(), middle)) << "a node without inputs can't pass the picture on";

  // The nearer of two wires wins: a second one runs about 38 lower.
  g.at[g.mask()] = {0, 40};
  const Edge lower = g.wire(g.mask(), g.grain(), 1);
  EXPECT_EQ(g.snap(g.blur(), {middle.x, middle.y + 4}), Snap::insert(line.id));
  EXPECT_EQ(g.snap(g.blur(), {middle.x, middle.y + 30}), Snap::insert(lower.id));

  // The node's own wires are not candidates.
  EXPECT_FALSE(g.snap(g.color(), middle));
  g.edges = {line, {Uuid::generate(), g.grain(), g.blur(), 0, 0}};
  EXPECT_EQ(g.snap(g.blur(), middle), Snap::insert(line.id)) << "another wire still is";
}

// The corners themselves: the node editor's drops.
TEST(SchematicGeometry, DropBandsLeaveTheMiddleOfTheBottomEdgeFree) {
  EXPECT_EQ(bandAt({400, 590}, 800, 600), DropBand::none);
  EXPECT_EQ(bandAt({10, 500}, 800, 600), DropBand::none) << "above the trash";
  const Band trash = bandRect(DropBand::trash, 300, 200);
  EXPECT_LE(trash.x + trash.width, bandRect(DropBand::context, 300, 200).x) << "the two never overlap";
}

TEST(SchematicGeometry, RevealingABoxMovesTheViewTheLeast) {
  // An 800 × 600 view at zoom 1 with the graph origin in its corner, 20 points of margin.
  const View v{{0, 0}, 1};
  struct Case {
    const char* what;
    Point lo, hi;
    View expected;
  };
  const std::vector<Case> cases = {
      {"already inside: unchanged", {100, 100}, {200, 200}, v},
      {"below the bottom: the view goes down just enough", {100, 650}, {200, 700}, {{0, -120}, 1}},
      {"left of the view: it goes left", {-90, 100}, {-10, 200}, {{110, 0}, 1}},
      {"too big to fit: zoomed out about the centre, then moved", {0, 0}, {1520, 100}, {{20, 150}, 0.5}},
  };
  for (const Case& c : cases) {
    const View got = revealed(v, c.lo, c.hi, 800, 600, 20);
    EXPECT_NEAR(got.zoom, c.expected.zoom, 1e-9) << c.what;
    EXPECT_NEAR(got.pan.x, c.expected.pan.x, 1e-9) << c.what;
    EXPECT_NEAR(got.pan.y, c.expected.pan.y, 1e-9) << c.what;
    const Point a = got.toView(c.lo), b = got.toView(c.hi);
    EXPECT_TRUE(a.x >= 20 - 1e-9 && a.y >= 20 - 1e-9 && b.x <= 780 + 1e-9 && b.y <= 580 + 1e-9) << c.what;
  }
}
