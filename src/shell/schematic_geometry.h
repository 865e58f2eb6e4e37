#pragma once
// The node editor's geometry, free of any widget: node sizes, port positions, wire curves, the
// view transform and the hit tests that turn a pointer position into a node, a port or a wire.
// Positions are graph points (the layout's space) unless a name says "view".
#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"
#include "graph/point.h"
#include "graph/uuid.h"

namespace ombrik::schematic {

constexpr double kNodeRadius = 34;  // the normal node; its box is 68 x 68
constexpr double kNodeSize = 2 * kNodeRadius;
constexpr double kMinZoom = 0.08;
constexpr double kMaxZoom = 3;
constexpr double kFrameZoomLimit = 1.2;  // framing never enlarges past this
// Wires bend at least this much: drawn and cut tests use the first, distance tests the second.
constexpr double kDrawBend = 30;
constexpr double kHitBend = 40;
constexpr int kCurveSegments = 32;

double radius(std::string_view kindID);
inline double radius(const Node& node) { return radius(node.kind->id); }

// Offsets from a node's centre. Inputs gather on the left; y grows down the screen.
Point inPort(int i, int count, double r);
Point outPort(int port, int count, double r);
// Outputs a node offers: the picture and its alpha (ports 0 and 1), then port i + 2 for each mask i
// of a shape node that has an output of its own.
std::vector<int> outputPorts(const Node& node);
int outputCount(const Node& node);
// The input chosen by the vertical offset of a contact.
int portFor(double offset, int count);
// The letter shown inside a node without a picture: the first letter or digit of its name.
std::string letter(std::string_view name);

// A wire: cubic Bézier with horizontal tangents, bent by max(|dx| / 2, minBend).
struct Curve {
  Point p0, p1, p2, p3;
  Point at(double t) const;
};
Curve wireCurve(Point from, Point to, double minBend);
double distanceToCurve(Point p, Point from, Point to);
// The segment a–b properly crosses one of the curve's chords.
bool crossesCurve(Point a, Point b, Point from, Point to);

struct View {
  Point pan;  // view position of the graph's origin
  double zoom = 1;
  Point toView(Point g) const { return {g.x * zoom + pan.x, g.y * zoom + pan.y}; }
  Point toGraph(Point v) const { return {(v.x - pan.x) / zoom, (v.y - pan.y) / zoom}; }
  // Zoom about a view point, which stays where it is.
  View zoomedAbout(Point v, double factor) const;
};
// The view that shows every centre, at most at kFrameZoomLimit.
// `reach`, when given, is how far each node extends from its centre (a large node with its label
// reaches further than one node size); otherwise one node size.
std::optional<View> frameAll(const std::vector<Point>& centres, double viewWidth, double viewHeight,
                             const std::vector<double>& reach = {});
// The view moved the least so that the graph box lo–hi lies `margin` view points inside the
// view; zoomed out about the view's centre first when the box can't fit at the present zoom.
View revealed(const View& v, Point lo, Point hi, double viewWidth, double viewHeight, double margin);

// ---- the graph as drawn
using Positions = std::map<Uuid, Point>;

Point outPos(const Node& node, Point centre, int fromPort);
Point inPos(const Node& node, Point centre, int port);

// The topmost node whose disc holds the point (the last drawn wins).
const Node* nodeAt(const std::vector<Node>& nodes, const Positions& positions, Point g);

struct PortHit {
  Uuid node;
  int port = 0;
  bool isOutput = false;
  bool operator==(const PortHit&) const = default;
};
// The nearest port within `reach` graph units of the point.
std::optional<PortHit> portAt(const std::vector<Node>& nodes, const Positions& positions, Point g, double reach);

// Where a wire from `from` dropped at `g` connects: the nearest free input of the nearest node
// close enough that accepts what the wire carries (a matte goes to a matte input if there is
// one, a picture never does). Nothing when no node is close or none of its inputs is free.
std::optional<PortHit> wireTarget(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                  const Positions& positions, const Uuid& from, int fromPort, Point g);

// The wires a cut stroke a–b crosses.
std::vector<Uuid> edgesCrossed(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                               const Positions& positions, Point a, Point b);

// ---- a node dragged alone: what letting it go where it is would do
constexpr double kContactGap = 6;    // between two discs still counted as touching
constexpr double kInsertReach = 16;  // from the dragged centre to a wire it goes into

struct Snap {
  enum class Kind { link, insert, disconnect };
  Kind kind = Kind::link;
  Uuid from, to;  // link: a new wire from `from` into input `port` of `to`
  int port = 0;
  Uuid edge;      // insert: the wire the dragged node goes into
  static Snap link(const Uuid& from, const Uuid& to, int port) { return {Kind::link, from, to, port, {}}; }
  static Snap insert(const Uuid& edge) { return {Kind::insert, {}, {}, 0, edge}; }
  static Snap disconnect(const Uuid& edge) { return {Kind::disconnect, {}, {}, 0, edge}; }
  bool operator==(const Snap&) const = default;
};

// Wires between `dragged` and the nodes it touches where it stands: pulled away from them, it
// cuts them.
std::vector<Uuid> touchingWires(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                const Positions& positions, const Uuid& dragged);
// How far apart the two ends of `edge` stand beyond touching (negative: touching).
double pullDistance(const std::vector<Node>& nodes, const std::vector<Edge>& edges, const Positions& positions,
                    const Uuid& edge);
constexpr double kPullLimit = 60;  // pulled further than this, a touching wire is cut on release

// The node the dragged one, centred at `at`, touches: the one `held` so far while it stays
// close, else the nearest.
std::optional<Uuid> contactOf(const std::vector<Node>& nodes, const Positions& positions, const Uuid& dragged,
                              Point at, std::optional<Uuid> held);
// A wire between the dragged node and its contact (the one on the left feeds the other, on
// the input facing it) when that input is free, takes what the source carries and closes no
// loop; else the nearest wire not already on the node, if close enough, to slip it into. A
// loop there is left to the model to refuse: taken out of its place first, the node may fit.
std::optional<Snap> computeSnap(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                const Positions& positions, const Uuid& dragged, Point at,
                                std::optional<Uuid> contact);

// ---- the drop bands along the bottom of the editor while a node is dragged, in view points
enum class DropBand { none, trash, context };
struct Band {
  double x = 0, y = 0, width = 0, height = 0;
};
Band bandRect(DropBand band, double viewWidth, double viewHeight);
DropBand bandAt(Point v, double viewWidth, double viewHeight);

}  // namespace ombrik::schematic
