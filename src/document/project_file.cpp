#include "document/project_file.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "platform/bounded_json.h"
#include "platform/json_fields.h"
#include "editorial/timeline_codec.h"

namespace ombrik {

namespace {

using json = nlohmann::json;

// ---- reading: a missing required field or a wrong type makes the file unreadable (json_fields.h)
using namespace jsonfields;

// Groups inside groups are read to this many levels; a deeper file is refused whole. The text's
// own nesting bound (bounded_json.h) would stop them near 170, but the walks of a group's inner
// nodes (nodeFrom and groupFrom here, the history's texture sweep, copying a group, Node's
// equality through Indirect) recurse once a level with large frames: as groups only come from
// files, this bound is what keeps all of them shallow.
constexpr int kMaxGroupDepth = 64;
// Not an Unreadable: a damaged group only drops its node, a too-deep one refuses the file.
struct GroupsTooDeep : std::runtime_error {
  GroupsTooDeep() : std::runtime_error("groupes imbriqués sur plus de " + std::to_string(kMaxGroupDepth) + " niveaux") {}
};

std::optional<std::int64_t> frameKey(const std::string& s) {
  if (s.empty() || s.size() > 18) return std::nullopt;
  std::size_t i = s[0] == '-' ? 1 : 0;
  if (i == s.size()) return std::nullopt;
  for (std::size_t k = i; k < s.size(); ++k)
    if (s[k] < '0' || s[k] > '9') return std::nullopt;
  return std::stoll(s);
}
// A frame-keyed object: keys that aren't integers are skipped with their value.
template <class T, class F>
std::map<int, T> frames(const json& v, F decodeValue) {
  std::map<int, T> out;
  for (const auto& [k, val] : object(v).items())
    if (auto f = frameKey(k); f && *f >= INT32_MIN && *f <= INT32_MAX)
      if (auto decoded = decodeValue(val)) out[int(*f)] = *decoded;
  return out;
}

// Bare arrays of fixed shape: a shorter one is skipped, a longer one's surplus ignored.
std::optional<MaskKey> maskKey(const json& v) {
  const auto n = numbers(v);
  if (n.size() < 5) return std::nullopt;
  return MaskKey{n[0], n[1], n[2], n[3], n[4]};
}
std::optional<SplinePoint> spline(const json& v) {
  // A coordinate that was not a number when saved is written as null: the point is kept as
  // unplaceable, so the file still opens and that shape alone draws nothing.
  std::vector<double> n;
  for (const auto& x : array(v)) n.push_back(x.is_null() ? std::nan("") : number(x));
  if (n.size() < 6) return std::nullopt;
  return SplinePoint{{n[0], n[1]}, {n[2], n[3]}, {n[4], n[5]}};
}
std::optional<MagicPoint> magic(const json& v) {
  const auto n = numbers(v);
  if (n.size() < 3) return std::nullopt;
  return MagicPoint{{n[0], n[1]}, n[2] > 0.5};
}
std::optional<Point> point(const json& v) {
  const auto n = numbers(v);
  if (n.size() < 2) return std::nullopt;
  return Point{n[0], n[1]};
}
std::optional<Keyframe> keyShape(const json& v) {
  const auto n = numbers(v);
  if (n.size() < 7) return std::nullopt;
  Keyframe k;
  k.f = std::isfinite(n[0]) ? std::int64_t(n[0]) : 0;
  k.v = n[1];
  k.interp = n[2] == 1 ? KeyInterp::bezier : n[2] == 2 ? KeyInterp::hold : KeyInterp::linear;
  k.inInf = n[3], k.inSlope = n[4], k.outInf = n[5], k.outSlope = n[6];
  return k;
}
std::vector<Point> flatPoints(const json& v) {
  const auto n = numbers(v);
  std::vector<Point> out;
  for (std::size_t i = 0; i + 1 < n.size(); i += 2) out.push_back({n[i], n[i + 1]});
  return out;
}
template <class T, class F>
std::vector<T> list(const json& v, F decodeValue) {
  std::vector<T> out;
  for (const auto& x : array(v))
    if (auto d = decodeValue(x)) out.push_back(*d);
  return out;
}
std::map<std::string, double> paramsOf(const json& v) {
  std::map<std::string, double> out;
  for (const auto& [k, val] : object(v).items()) out[k] = number(val);
  return out;
}

// ---- writing

json maskKeyJ(const MaskKey& k) { return json::array({k.cx, k.cy, k.rx, k.ry, k.rot}); }
json pointJ(const Point& p) { return json::array({p.x, p.y}); }
template <class T, class F>
json framesJ(const std::map<int, T>& m, F encodeValue) {
  json o = json::object();
  for (const auto& [f, v] : m) o[std::to_string(f)] = encodeValue(v);
  return o;
}
json numbersJ(const std::vector<double>& v) { return json(v); }

GMask gmaskFrom(const json& j) {
  GMask m;
  m.params = paramsOf(field(j, "params"));
  m.track = frames<MaskKey>(field(j, "track"), maskKey);
  m.shape = list<SplinePoint>(field(j, "shape"), spline);
  m.shapeClosed = boolean(field(j, "shapeClosed"));
  m.ellipse = boolean(field(j, "ellipse"));
  if (auto* v = optField(j, "trackRef")) m.trackRef = int32(*v);
  if (auto* v = optField(j, "pins")) m.pins = frames<MaskKey>(*v, maskKey);
  if (auto* v = optField(j, "trackOff")) m.trackOff = frames<std::vector<double>>(*v, [](const json& x) { return std::optional(numbers(x)); });
  if (auto* v = optField(j, "planarH")) m.planarH = frames<std::vector<double>>(*v, [](const json& x) { return std::optional(numbers(x)); });
  if (auto* v = optField(j, "shapeBase")) m.shapeBase = maskKey(*v);
  return m;
}

json gmaskJ(const GMask& m) {
  json j;
  j["params"] = m.params;
  j["track"] = framesJ(m.track, maskKeyJ);
  json shape = json::array();
  for (const auto& s : m.shape) shape.push_back({s.p.x, s.p.y, s.inT.x, s.inT.y, s.outT.x, s.outT.y});
  j["shape"] = shape;
  j["shapeClosed"] = m.shapeClosed;
  j["ellipse"] = m.ellipse;
  if (m.trackRef) j["trackRef"] = *m.trackRef;
  if (!m.pins.empty()) j["pins"] = framesJ(m.pins, maskKeyJ);
  if (!m.trackOff.empty()) j["trackOff"] = framesJ(m.trackOff, numbersJ);
  if (!m.planarH.empty()) j["planarH"] = framesJ(m.planarH, numbersJ);
  if (m.shapeBase) j["shapeBase"] = maskKeyJ(*m.shapeBase);
  return j;
}

json trackerJ(const TrackerPt& t) {
  json j;
  j["id"] = t.id.toString();
  j["name"] = t.name;
  j["x"] = t.p0.x;
  j["y"] = t.p0.y;
  j["ref"] = t.ref;
  j["on"] = t.on;
  j["path"] = framesJ(t.path, pointJ);
  j["off"] = framesJ(t.off, numbersJ);
  if (t.weakAt) j["weakAt"] = *t.weakAt;
  if (t.half) j["hw"] = t.half->width, j["hh"] = t.half->height;
  return j;
}

TrackerPt trackerFrom(const json& j) {
  TrackerPt t;
  t.id = uuid(field(j, "id"));
  if (auto* v = optField(j, "name")) t.name = text(*v);
  if (auto* v = optField(j, "x")) t.p0.x = number(*v);
  if (auto* v = optField(j, "y")) t.p0.y = number(*v);
  if (auto* v = optField(j, "ref")) t.ref = int32(*v);
  if (auto* v = optField(j, "on")) t.on = boolean(*v);
  if (auto* v = optField(j, "path")) t.path = frames<Point>(*v, point);  // fewer than two numbers: dropped
  if (auto* v = optField(j, "off")) t.off = frames<std::vector<double>>(*v, [](const json& x) { return std::optional(numbers(x)); });
  if (auto* v = optField(j, "weakAt")) t.weakAt = int32(*v);
  auto* hw = optField(j, "hw");
  auto* hh = optField(j, "hh");
  if (hw && hh) t.half = Size{number(*hw), number(*hh)};
  return t;
}

json nodeJ(const Node& n);
// `depth`: how many groups hold the node; `kinds`: the kinds beyond the catalogue.
std::optional<Node> nodeFrom(const json& j, int depth, const KindLookup& kinds);

// Edges are stored without their id (reading gives new ones); positions by UUID text.
json edgesJ(const std::vector<Edge>& edges) {
  json a = json::array();
  for (const auto& e : edges)
    a.push_back({{"from", e.from.toString()}, {"to", e.to.toString()}, {"port", e.port}, {"fromPort", e.fromPort}});
  return a;
}
std::vector<Edge> edgesFrom(const json& a) {
  std::vector<Edge> out;
  for (const auto& e : array(a)) {
    Edge edge{Uuid::generate(), uuid(field(e, "from")), uuid(field(e, "to")), int32(field(e, "port")), 0};
    if (auto* fp = optField(e, "fromPort")) edge.fromPort = int32(*fp);
    out.push_back(edge);
  }
  return out;
}
json positionsJ(const std::map<Uuid, Point>& positions) {
  json o = json::object();
  for (const auto& [id, p] : positions) o[id.toString()] = pointJ(p);
  return o;
}
std::map<Uuid, Point> positionsFrom(const json& o) {  // bad keys and short arrays are skipped
  std::map<Uuid, Point> out;
  for (const auto& [k, v] : object(o).items())
    if (auto id = Uuid::parse(k))
      if (auto p = point(v)) out[*id] = *p;
  return out;
}

// A group's stored form: its inner graph, ports, controls, and the values of its controls.
json groupRefJ(const NodeGroup& g, const std::string& name, const std::map<std::string, double>& params) {
  json nodes = json::array();
  for (const auto& inner : g.nodes) nodes.push_back(nodeJ(inner));
  json inputs = json::array();
  for (const auto& in : g.inputs) {
    json targets = json::array();
    for (const auto& t : in.targets) targets.push_back({{"node", t.node.toString()}, {"port", t.port}});
    inputs.push_back({{"name", in.name}, {"isMatte", in.isMatte}, {"targets", targets}});
  }
  json controls = json::array();
  for (const auto& c : g.controls) controls.push_back({{"node", c.node.toString()}, {"key", c.key}, {"label", c.label}});
  json j = {{"name", name}, {"nodes", nodes}, {"edges", edgesJ(g.edges)}, {"positions", positionsJ(g.positions)},
            {"inputs", inputs},          {"output", g.output.toString()}, {"controls", controls}};
  if (!g.info.empty()) j["info"] = g.info;
  if (!g.author.empty()) j["author"] = g.author;
  json values = json::object();
  for (const auto& [k, v] : params)
    if (k.size() > 1 && k[0] == 'c' && std::all_of(k.begin() + 1, k.end(), ::isdigit)) values[k] = v;
  if (!values.empty()) j["values"] = values;
  return j;
}

// Without its output among the nodes read (an unknown kind drops a node) the group is unreadable.
StoredGroup groupFrom(const json& j, int depth, const KindLookup& kinds) {
  NodeGroup g;
  const std::string name = text(field(j, "name"));
  for (const auto& n : array(field(j, "nodes")))
    if (auto node = nodeFrom(n, depth + 1, kinds)) g.nodes.push_back(std::move(*node));
  std::set<Uuid> alive;
  for (const auto& n : g.nodes) alive.insert(n.id);
  for (const auto& e : edgesFrom(field(j, "edges")))
    if (alive.count(e.from) && alive.count(e.to)) g.edges.push_back(e);
  for (const auto& [id, p] : positionsFrom(field(j, "positions")))
    if (alive.count(id)) g.positions[id] = p;
  for (const auto& in : array(field(j, "inputs"))) {
    GroupInput input{text(field(in, "name")), boolean(field(in, "isMatte")), {}};
    for (const auto& t : array(field(in, "targets"))) input.targets.push_back({uuid(field(t, "node")), int32(field(t, "port"))});
    g.inputs.push_back(input);
  }
  g.output = uuid(field(j, "output"));
  for (const auto& c : array(field(j, "controls")))
    g.controls.push_back({uuid(field(c, "node")), text(field(c, "key")), text(field(c, "label"))});
  if (auto* v = optField(j, "info")) g.info = text(*v);
  if (auto* v = optField(j, "author")) g.author = text(*v);
  if (std::none_of(g.nodes.begin(), g.nodes.end(), [&](const Node& n) { return n.id == g.output; }))
    throw Unreadable("sortie du groupe absente");
  std::map<std::string, double> values;
  if (auto* v = optField(j, "values")) values = paramsOf(*v);
  return {name, std::move(g), std::move(values)};
}

json openGroupJ(const OpenGroup& g) {
  json controls = json::array();
  for (const auto& c : g.controls) controls.push_back({{"node", c.node.toString()}, {"key", c.key}, {"label", c.label}});
  json members = json::array();
  for (const auto& m : g.members) members.push_back(m.toString());
  return {{"id", g.id.toString()}, {"name", g.name}, {"members", members},
          {"controls", controls}, {"info", g.info}, {"author", g.author}};
}

OpenGroup openGroupFrom(const json& j) {
  OpenGroup g;
  g.id = uuid(field(j, "id"));
  g.name = text(field(j, "name"));
  for (const auto& m : array(field(j, "members"))) g.members.push_back(uuid(m));
  for (const auto& c : array(field(j, "controls")))
    g.controls.push_back({uuid(field(c, "node")), text(field(c, "key")), text(field(c, "label"))});
  g.info = text(field(j, "info"));
  g.author = text(field(j, "author"));
  return g;
}

json nodeJ(const Node& n) {
  json j;
  j["id"] = n.id.toString();
  j["kind"] = n.kind->id;
  j["params"] = n.params;
  j["bypass"] = n.bypass;
  if (n.mediaID) j["mediaID"] = n.mediaID->toString();
  j["track"] = framesJ(n.track, maskKeyJ);
  json shape = json::array();
  for (const auto& s : n.shape) shape.push_back({s.p.x, s.p.y, s.inT.x, s.inT.y, s.outT.x, s.outT.y});
  j["shape"] = shape;
  j["shapeClosed"] = n.shapeClosed;
  if (n.shapeBase) j["shapeBase"] = maskKeyJ(*n.shapeBase);
  j["ellipse"] = n.ellipse;
  json magicPoints = json::array();
  for (const auto& m : n.magicPoints) magicPoints.push_back({m.p.x, m.p.y, m.positive ? 1 : 0});
  j["magicPoints"] = magicPoints;
  j["magicFrame"] = n.magicFrame;
  j["prompt"] = n.prompt;
  if (!n.path.empty()) j["path"] = n.path;
  if (!n.name.empty()) j["name"] = n.name;
  auto points = [](const std::vector<Point>& ps) {
    json a = json::array();
    for (const auto& p : ps) a.push_back(pointJ(p));
    return a;
  };
  if (!n.mesh.empty()) j["mesh"] = points(n.mesh);
  if (!n.meshBase.empty()) j["meshBase"] = points(n.meshBase);
  if (!n.meshTrack.empty())
    j["meshTrack"] = framesJ(n.meshTrack, [](const std::vector<Point>& ps) {
      json a = json::array();
      for (const auto& p : ps) a.push_back(p.x), a.push_back(p.y);
      return a;
    });
  if (!n.meshTracked.empty()) j["meshTracked"] = n.meshTracked;
  if (!n.faceStrokes.empty()) j["faceStrokes"] = n.faceStrokes;
  if (n.trackRef) j["trackRef"] = *n.trackRef;
  if (!n.pins.empty()) j["pins"] = framesJ(n.pins, maskKeyJ);
  if (!n.trackOff.empty()) j["trackOff"] = framesJ(n.trackOff, numbersJ);
  if (!n.keySamples.empty()) j["keySamples"] = n.keySamples;
  if (!n.followPts.empty()) j["followPts"] = n.followPts;
  if (!n.paintLayers.empty()) {
    json layers = json::array();
    for (const auto& l : n.paintLayers) layers.push_back({{"params", l.params}, {"strokes", l.strokes}});
    j["paintLayers"] = layers;
    j["paintIndex"] = n.paintIndex;
  }
  if (n.followSrc) j["followSrc"] = n.followSrc->toString();
  if (!n.trackers.empty()) {
    json t = json::array();
    for (const auto& tr : n.trackers) t.push_back(trackerJ(tr));
    j["trackers"] = t;
  }
  if (!n.trackerLinks.empty()) {
    json links = json::array();
    for (const auto& l : n.trackerLinks) links.push_back(l.toString());
    j["trackerLinks"] = links;
  }
  if (!n.planarH.empty()) j["planarH"] = framesJ(n.planarH, numbersJ);
  if (!n.masks.empty()) {
    // Every mask, the active one from the node's own fields (the stored copy of it is stale).
    json masks = json::array();
    for (const GMask& m : n.allMasks()) masks.push_back(gmaskJ(m));
    j["masks"] = masks;
    j["maskIndex"] = n.maskIndex;
  }
  if (n.group) j["group"] = groupRefJ(*n.group, n.kind->title.raw, n.params);
  if (!n.anim.empty()) {
    json anim = json::object();
    for (const auto& [key, ks] : n.anim) {
      json rows = json::array();
      for (const auto& k : ks) rows.push_back({double(k.f), k.v, int(k.interp), k.inInf, k.inSlope, k.outInf, k.outSlope});
      anim[key] = rows;
    }
    j["anim"] = anim;
  }
  return j;
}

std::optional<Node> nodeFrom(const json& j, int depth, const KindLookup& kinds) {
  const Uuid id = uuid(field(j, "id"));
  const std::string& kindID = text(field(j, "kind"));
  KindRef groupKind;
  std::optional<NodeGroup> group;
  if (kindID == "group")
    if (auto* g = optField(j, "group")) {
      if (depth >= kMaxGroupDepth) throw GroupsTooDeep();
      std::optional<StoredGroup> parsed;
      try {
        parsed = groupFrom(*g, depth, kinds);
      } catch (const Unreadable&) {  // a group that doesn't convert gives no group
      }
      if (parsed) {
        group = parsed->group;
        groupKind = NodeKind::group(parsed->name.empty() ? "Groupe" : parsed->name, *group);
      }
    }
  // An unknown kind (a group without its graph among them) drops the node, and its edges with it.
  const KindRef* builtIn = NodeKind::find(kindID);
  const KindRef found = groupKind ? groupKind : builtIn ? *builtIn : kinds ? kinds(kindID) : KindRef();
  const KindRef* kind = found ? &found : nullptr;
  const auto params = paramsOf(field(j, "params"));
  const bool bypass = boolean(field(j, "bypass"));
  const auto track = frames<MaskKey>(field(j, "track"), maskKey);
  const auto shape = list<SplinePoint>(field(j, "shape"), spline);
  const bool shapeClosed = boolean(field(j, "shapeClosed"));
  const bool ellipse = boolean(field(j, "ellipse"));
  const auto magicPoints = list<MagicPoint>(field(j, "magicPoints"), magic);
  const int magicFrame = int32(field(j, "magicFrame"));
  const std::string prompt = text(field(j, "prompt"));
  if (!kind) return std::nullopt;

  Node n(*kind, id);
  if (group) n.group = std::move(*group);
  for (const auto& [k, v] : params) n.params[k] = v;
  n.bypass = bypass;
  n.track = track;
  n.shape = shape;
  n.shapeClosed = shapeClosed;
  n.ellipse = ellipse;
  n.magicPoints = magicPoints;
  n.magicFrame = magicFrame;
  n.prompt = prompt;
  auto numberRows = [](const json& x) { return std::optional(numbers(x)); };
  if (auto* v = optField(j, "mediaID")) n.mediaID = uuid(*v);
  if (auto* v = optField(j, "shapeBase")) n.shapeBase = maskKey(*v);
  if (auto* v = optField(j, "path")) n.path = text(*v);
  if (auto* v = optField(j, "name")) n.name = text(*v);
  if (auto* v = optField(j, "mesh")) n.mesh = list<Point>(*v, point);
  if (auto* v = optField(j, "meshBase")) n.meshBase = list<Point>(*v, point);
  if (auto* v = optField(j, "meshTrack"))
    n.meshTrack = frames<std::vector<Point>>(*v, [](const json& x) { return std::optional(flatPoints(x)); });
  if (auto* v = optField(j, "meshTracked"))
    for (const auto& x : array(*v)) n.meshTracked.push_back(int32(x));
  if (auto* v = optField(j, "faceStrokes"))
    for (const auto& row : array(*v)) n.faceStrokes.push_back(numbers(row));
  if (auto* v = optField(j, "trackRef")) n.trackRef = int32(*v);
  if (auto* v = optField(j, "pins")) n.pins = frames<MaskKey>(*v, maskKey);
  if (auto* v = optField(j, "trackOff")) n.trackOff = frames<std::vector<double>>(*v, numberRows);
  if (auto* v = optField(j, "keySamples"))
    for (const auto& row : array(*v)) n.keySamples.push_back(numbers(row));
  if (auto* v = optField(j, "followPts"))
    for (const auto& x : array(*v)) n.followPts.push_back(int32(x));
  if (auto* v = optField(j, "paintLayers"))
    for (const auto& l : array(*v)) {
      PaintLayer layer;
      layer.params = paramsOf(field(l, "params"));
      for (const auto& row : array(field(l, "strokes"))) layer.strokes.push_back(numbers(row));
      n.paintLayers.push_back(layer);
    }
  if (auto* v = optField(j, "paintIndex")) n.paintIndex = int32(*v);
  if (auto* v = optField(j, "followSrc")) n.followSrc = uuid(*v);
  if (auto* v = optField(j, "trackers"))
    for (const auto& t : array(*v)) n.trackers.push_back(trackerFrom(t));
  if (auto* v = optField(j, "trackerLinks"))
    for (const auto& x : array(*v)) n.trackerLinks.push_back(uuid(x));
  if (auto* v = optField(j, "planarH")) n.planarH = frames<std::vector<double>>(*v, numberRows);
  if (auto* v = optField(j, "masks"))
    for (const auto& m : array(*v)) n.masks.push_back(gmaskFrom(m));
  if (auto* v = optField(j, "maskIndex")) n.maskIndex = int32(*v);
  n.maskIndex = n.masks.empty() ? 0 : std::clamp(n.maskIndex, 0, int(n.masks.size()) - 1);
  if (auto* v = optField(j, "anim"))
    for (const auto& [key, rows] : object(*v).items()) {
      auto ks = list<Keyframe>(rows, keyShape);
      std::sort(ks.begin(), ks.end(), [](const Keyframe& a, const Keyframe& b) { return a.f < b.f; });
      if (!ks.empty()) n.anim[key] = ks;
    }

  if (kindID == "bodymask") {  // files from before the matte defaults changed
    const std::map<std::string, double> old = {{"smooth", 0}, {"contrast", 1}, {"feather", 0}, {"chatter", 0.3}};
    bool isOld = true;
    for (const auto& [k, v] : old)
      if (!params.count(k) || params.at(k) != v) isOld = false;
    if (isOld) n.params["smooth"] = 2, n.params["contrast"] = 3, n.params["feather"] = 1, n.params["chatter"] = 0.5;
  }
  return n;
}

json batchJ(const Batch& b) {
  json j;
  j["id"] = b.id.toString();
  j["name"] = b.name;
  json nodes = json::array();
  for (const auto& n : b.nodes) nodes.push_back(nodeJ(n));
  j["nodes"] = nodes;
  j["edges"] = edgesJ(b.edges);
  j["positions"] = positionsJ(b.positions);
  if (b.mediaID) j["mediaID"] = b.mediaID->toString();
  if (b.worldPos) j["world"] = pointJ(*b.worldPos);
  if (b.film)
    j["film"] = {{"timelineID", b.film->timelineID.toString()}, {"index", b.film->index}, {"start", b.film->start},
                 {"count", b.film->count}};
  if (b.lut) j["lut"] = *b.lut;
  if (b.lutRender) j["lutRender"] = *b.lutRender;
  if (b.filmTimeline) j["filmTimeline"] = b.filmTimeline->toString();
  if (b.group) j["group"] = b.group->toString();
  if (b.lastUsed)
    j["lastUsed"] = std::chrono::duration<double>(b.lastUsed->time_since_epoch()).count();
  if (b.shotsFolded) j["shotsFolded"] = true;
  if (!b.openGroups.empty()) {
    json groups = json::array();
    for (const auto& g : b.openGroups) groups.push_back(openGroupJ(g));
    j["openGroups"] = groups;
  }
  if (b.creator) j["creator"] = true;
  if (b.placeholder) j["placeholder"] = true;
  return j;
}

Batch batchFrom(const json& j, const KindLookup& kinds) {
  Batch b;
  b.id = uuid(field(j, "id"));
  b.name = text(field(j, "name"));
  if (auto* v = optField(j, "placeholder")) b.placeholder = boolean(*v);
  for (const auto& n : array(field(j, "nodes")))
    if (auto node = nodeFrom(n, 0, kinds)) b.nodes.push_back(std::move(*node));

  for (auto& n : b.nodes)  // motion fields saved before their vector version existed
    if (n.kind->id == "motionvec" && !n.params.count("mvv")) {
      if (n.params["soft"] == 60 && n.params["tsmooth"] == 6) n.params["soft"] = 12, n.params["tsmooth"] = 0;
      n.params["mvv"] = 2;
    }

  std::set<Uuid> alive;
  for (const auto& n : b.nodes) alive.insert(n.id);
  for (const auto& edge : edgesFrom(field(j, "edges")))  // only between nodes that survived
    if (alive.count(edge.from) && alive.count(edge.to)) b.edges.push_back(edge);
  std::unordered_map<Uuid, int> highest;  // a Composite wired before it counted its mattes shows all its inputs
  for (const auto& e : b.edges) highest[e.to] = std::max(highest.count(e.to) ? highest[e.to] : -1, e.port);
  for (auto& n : b.nodes)
    if (n.kind->id == "comp" && highest.count(n.id) && highest[n.id] >= 3)
      // The stored double, not p(): through a float, a second reading would move a large count.
      n.params["mattes"] = std::max(double(highest[n.id] - 1), n.params["mattes"]);
  b.positions = positionsFrom(field(j, "positions"));
  if (auto* v = optField(j, "mediaID")) b.mediaID = uuid(*v);
  if (auto* v = optField(j, "world")) b.worldPos = point(*v);
  if (auto* v = optField(j, "film"))
    b.film = FilmShot{uuid(field(*v, "timelineID")), int32(field(*v, "index")), int32(field(*v, "start")),
                      int32(field(*v, "count"))};
  if (auto* v = optField(j, "lut")) b.lut = text(*v);
  if (auto* v = optField(j, "lutRender")) b.lutRender = boolean(*v);
  if (auto* v = optField(j, "filmTimeline")) b.filmTimeline = uuid(*v);
  if (auto* v = optField(j, "group")) b.group = uuid(*v);
  using Clock = std::chrono::system_clock;
  if (auto* v = optField(j, "lastUsed")) {
    const double s = number(*v);
    if (!std::isfinite(s) || std::abs(s) > 1e11) throw Unreadable("date illisible");
    b.lastUsed = Clock::time_point(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s)));
  } else {
    b.lastUsed = Clock::now();
  }
  if (auto* v = optField(j, "shotsFolded")) b.shotsFolded = boolean(*v);
  if (auto* v = optField(j, "openGroups"))
    for (const auto& g : array(*v)) b.openGroups.push_back(openGroupFrom(g));
  if (auto* v = optField(j, "creator")) b.creator = boolean(*v);
  return b;
}

bool finiteEverywhere(const json& j) {
  if (j.is_number_float()) return std::isfinite(j.get<double>());
  if (j.is_structured())
    for (const auto& x : j)
      if (!finiteEverywhere(x)) return false;
  return true;
}

}  // namespace

std::optional<std::string> ProjectCodec::encode(const ProjectFile& f, std::string* error) {
  json j;
  j["version"] = f.version;
  json media = json::array();
  for (const auto& m : f.media) media.push_back({{"id", m.id.toString()}, {"name", m.name}, {"path", m.path}});
  j["media"] = media;
  json batches = json::array();
  for (const auto& b : f.batches) batches.push_back(batchJ(b));
  j["batches"] = batches;
  if (f.current) j["current"] = f.current->toString();
  j["recent"] = f.recent;
  if (f.folders) j["folders"] = *f.folders;
  if (!f.groups.empty()) {
    json groups = json::array();
    for (const auto& g : f.groups) {
      json one = {{"id", g.id.toString()}, {"name", g.name}};
      if (g.pos) one["pos"] = numbersJ(*g.pos);
      groups.push_back(one);
    }
    j["groups"] = groups;
  }
  if (!f.timelines.empty()) j["timelines"] = timelinecodec::encode(f.timelines);
  if (f.userNodesJSON) {
    std::string why;
    auto carried = parseBoundedJson(*f.userNodesJSON, &why);
    if (!carried) {
      if (error) *error = "userNodes : " + why;
      return std::nullopt;
    }
    j["userNodes"] = std::move(*carried);
  }
  if (f.confidential) j["confidential"] = true;
  if (!finiteEverywhere(j)) {
    if (error) *error = "une valeur n'est pas un nombre fini";
    return std::nullopt;
  }
  return j.dump(2) + "\n";
}

std::optional<ProjectFile> ProjectCodec::decode(const std::string& text_, std::string* error, const KindsFor& kindsFor) {
  auto j = parseBoundedJson(text_, error);
  if (!j) return std::nullopt;
  try {
    ProjectFile f;
    f.version = int32(field(*j, "version"));
    for (const auto& m : array(field(*j, "media")))
      f.media.push_back({uuid(field(m, "id")), text(field(m, "name")), text(field(m, "path"))});
    // The file's own user nodes are known before any world refers to them.
    if (auto* v = optField(*j, "userNodes")) f.userNodesJSON = array(*v).dump();
    const KindLookup kinds = kindsFor ? kindsFor(f.userNodesJSON) : KindLookup();
    for (const auto& b : array(field(*j, "batches"))) f.batches.push_back(batchFrom(b, kinds));
    if (auto* v = optField(*j, "current")) f.current = uuid(*v);
    for (const auto& r : array(field(*j, "recent"))) f.recent.push_back(text(r));
    if (auto* v = optField(*j, "folders")) {
      f.folders.emplace();
      for (const auto& p : array(*v)) f.folders->push_back(text(p));
    }
    if (auto* v = optField(*j, "timelines")) f.timelines = timelinecodec::decode(*v);
    if (auto* v = optField(*j, "groups"))
      for (const auto& g : array(*v)) {
        f.groups.push_back({uuid(field(g, "id")), text(field(g, "name")), std::nullopt});
        if (auto* pos = optField(g, "pos")) f.groups.back().pos = numbers(*pos);
      }
    if (auto* v = optField(*j, "confidential")) f.confidential = boolean(*v);
    return f;
  } catch (const std::exception& e) {
    if (error) *error = e.what();
    return std::nullopt;
  }
}

std::string ProjectCodec::encodeBatch(const Batch& batch) { return batchJ(batch).dump(2); }

std::optional<Batch> ProjectCodec::decodeBatch(const std::string& s, std::string* error, const KindLookup& kinds) {
  auto j = parseBoundedJson(s, error);
  if (!j) return std::nullopt;
  try {
    return batchFrom(*j, kinds);
  } catch (const std::exception& e) {
    if (error) *error = e.what();
    return std::nullopt;
  }
}

std::string ProjectCodec::encodeGroup(const NodeGroup& group, const std::string& name,
                                      const std::map<std::string, double>& params) {
  return groupRefJ(group, name, params).dump();
}

std::optional<StoredGroup> ProjectCodec::decodeGroup(const std::string& s, std::string* error, const KindLookup& kinds) {
  auto j = parseBoundedJson(s, error);
  if (!j) return std::nullopt;
  try {
    return groupFrom(*j, 0, kinds);
  } catch (const std::exception& e) {
    if (error) *error = e.what();
    return std::nullopt;
  }
}

}  // namespace ombrik
