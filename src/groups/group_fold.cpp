#include "groups/group_fold.h"

#include <algorithm>
#include <map>


namespace ombrik {

namespace {

double xOf(const GraphSnapshot& g, const Uuid& id) {
  auto it = g.positions.find(id);
  return it == g.positions.end() ? 0 : it->second.x;
}

const Node* nodeIn(const std::vector<Node>& nodes, const Uuid& id) {
  for (const auto& n : nodes)
    if (n.id == id) return &n;
  return nullptr;
}

const PortSpec* portOf(const std::vector<Node>& nodes, const GroupTarget& t) {
  const Node* n = nodeIn(nodes, t.node);
  if (!n || !n->kind || t.port < 0 || t.port >= int(n->kind->inputs.size())) return nullptr;
  return &n->kind->inputs[std::size_t(t.port)];
}

// The group's outside inputs: one per distinct source, fed to every inner port it reached;
// sources ordered by where they entered (left to right), matte inputs last.
std::vector<GroupInput> inputsOf(const GraphSnapshot& graph, const std::vector<Node>& members, std::vector<Edge> incoming,
                                 std::vector<std::pair<Uuid, int>>& sources) {
  std::stable_sort(incoming.begin(), incoming.end(), [&](const Edge& a, const Edge& b) {
    const double xa = xOf(graph, a.to), xb = xOf(graph, b.to);
    return xa != xb ? xa < xb : a.port < b.port;
  });
  std::vector<std::vector<GroupTarget>> targets;
  for (const auto& e : incoming) {
    const std::pair<Uuid, int> source{e.from, e.fromPort};
    auto at = std::find(sources.begin(), sources.end(), source);
    if (at == sources.end()) {
      sources.push_back(source);
      targets.emplace_back();
      at = sources.end() - 1;
    }
    targets[std::size_t(at - sources.begin())].push_back({e.to, e.port});
  }
  std::vector<std::size_t> order(sources.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  auto isMatte = [&](std::size_t i) {
    const PortSpec* p = portOf(members, targets[i].front());
    return p && p->isMatte;
  };
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return !isMatte(a) && isMatte(b); });

  std::vector<GroupInput> inputs;
  std::vector<std::pair<Uuid, int>> sorted;
  std::map<std::string, int> seen;
  for (std::size_t i : order) {
    const PortSpec* p = portOf(members, targets[i].front());
    // Stored as written, not translated: "Entrée" is also the Enter key in the catalogue, and
    // the project file shouldn't depend on the language it was saved in.
    std::string name = p ? p->name : std::string("Entrée");
    if (int n = ++seen[name]; n > 1) name += " " + std::to_string(n);
    inputs.push_back({name, p && p->isMatte, targets[i]});
    sorted.push_back(sources[i]);
  }
  sources = sorted;
  return inputs;
}

}  // namespace

Folded foldGroup(GraphSnapshot& graph, const FoldRequest& request) {
  std::vector<Node> members;
  for (const auto& n : graph.nodes)
    if (request.ids.count(n.id)) members.push_back(n);
  auto isMember = [&](const Uuid& id) { return request.ids.count(id) && nodeIn(members, id); };

  std::vector<Edge> incoming, outgoing, inner, rest;
  for (const auto& e : graph.edges) {
    const bool from = isMember(e.from), to = isMember(e.to);
    (from && to ? inner : to ? incoming : from ? outgoing : rest).push_back(e);
  }
  Folded result;
  if (members.empty()) return result;
  for (const auto& e : outgoing)
    if (e.fromPort > 1) {
      result.refusal = "Impossible de fusionner : une sortie de masque séparée d'un masque de forme sort de la sélection.";
      return result;
    }
  std::set<Uuid> leaving;
  for (const auto& e : outgoing) leaving.insert(e.from);
  if (leaving.size() > 1) {
    result.refusal = "Impossible de fusionner : la sélection a plusieurs sorties. Fusionnez une chaîne qui se termine par un seul node.";
    return result;
  }

  NodeGroup group;
  if (!leaving.empty()) {
    group.output = *leaving.begin();
  } else {  // nothing leaves: the rightmost member that feeds no other
    std::optional<Uuid> best;
    for (const auto& m : members) {
      const bool feeds = std::any_of(inner.begin(), inner.end(), [&](const Edge& e) { return e.from == m.id; });
      if (!feeds && (!best || xOf(graph, m.id) > xOf(graph, *best))) best = m.id;
    }
    group.output = best ? *best : members.back().id;
  }
  std::vector<std::pair<Uuid, int>> sources;
  group.inputs = inputsOf(graph, members, incoming, sources);
  for (const auto& m : members)
    if (auto it = graph.positions.find(m.id); it != graph.positions.end()) group.positions[m.id] = it->second;
  group.nodes = members;
  group.edges = inner;
  for (const auto& c : request.controls)
    if (nodeIn(members, c.node)) group.controls.push_back(c);
  group.info = request.info;
  group.author = request.author;

  Node node(NodeKind::group(request.name, group), request.keep ? *request.keep : Uuid::generate());
  node.params.clear();
  for (std::size_t i = 0; i < group.controls.size(); ++i) {
    const GroupControl& c = group.controls[i];
    const Node* m = nodeIn(members, c.node);
    if (auto v = m->params.find(c.key); v != m->params.end()) node.params[controlKey(i)] = v->second;
  }
  node.group = std::move(group);

  Point at{300, 400};
  if (!node.group->positions.empty()) {
    at = {0, 0};
    for (const auto& [id, p] : node.group->positions) at.x += p.x, at.y += p.y;
    at.x /= double(node.group->positions.size()), at.y /= double(node.group->positions.size());
  }
  std::vector<Node> kept;
  for (auto& n : graph.nodes)
    if (!isMember(n.id)) kept.push_back(std::move(n));
  for (const auto& m : members) graph.positions.erase(m.id);
  kept.push_back(node);
  graph.nodes = std::move(kept);
  graph.positions[node.id] = at;
  for (std::size_t i = 0; i < sources.size(); ++i)
    rest.push_back(Edge{Uuid::generate(), sources[i].first, node.id, int(i), sources[i].second});
  for (const auto& e : outgoing) rest.push_back(Edge{Uuid::generate(), node.id, e.to, e.port, e.fromPort});
  graph.edges = std::move(rest);
  result.id = node.id;
  result.count = int(members.size());
  return result;
}

std::optional<Unfolded> unfoldGroup(GraphSnapshot& graph, const Uuid& id) {
  auto it = std::find_if(graph.nodes.begin(), graph.nodes.end(), [&](const Node& n) { return n.id == id; });
  if (it == graph.nodes.end() || !it->group) return std::nullopt;
  const Node node = *it;
  const NodeGroup& g = *node.group;
  std::vector<Node> inner = g.nodes;
  for (std::size_t i = 0; i < g.controls.size(); ++i)
    if (auto v = node.params.find(controlKey(i)); v != node.params.end())
      for (auto& n : inner)
        if (n.id == g.controls[i].node) n.params[g.controls[i].key] = v->second;

  // The inner layout lands around the place where the group node stood.
  Point mean{0, 0};
  for (const auto& [_, p] : g.positions) mean.x += p.x, mean.y += p.y;
  if (!g.positions.empty()) mean.x /= double(g.positions.size()), mean.y /= double(g.positions.size());
  const auto at = graph.positions.find(id);
  const Point place = at == graph.positions.end() ? Point{0, 0} : at->second;

  std::vector<Edge> into, from, rest;
  for (const auto& e : graph.edges) (e.to == id ? into : e.from == id ? from : rest).push_back(e);
  graph.nodes.erase(it);
  graph.positions.erase(id);
  Unfolded out;
  for (const auto& n : inner) {
    graph.nodes.push_back(n);
    out.inner.push_back(n.id);
  }
  rest.insert(rest.end(), g.edges.begin(), g.edges.end());
  for (const auto& [nid, p] : g.positions) graph.positions[nid] = {p.x - mean.x + place.x, p.y - mean.y + place.y};
  for (const auto& e : into)
    if (e.port >= 0 && e.port < int(g.inputs.size()))
      for (const auto& t : g.inputs[std::size_t(e.port)].targets)
        rest.push_back(Edge{Uuid::generate(), e.from, t.node, t.port, e.fromPort});
  for (const auto& e : from) rest.push_back(Edge{Uuid::generate(), g.output, e.to, e.port, e.fromPort});
  graph.edges = std::move(rest);
  out.output = g.output;
  out.open = OpenGroup{id, node.kind->title.raw, out.inner, g.controls, g.info, g.author};
  return out;
}

std::optional<GroupFrame> openGroupFrame(const GraphSnapshot& graph, const OpenGroup& open) {
  std::optional<GroupFrame> f;
  for (const auto& id : open.members) {
    auto it = graph.positions.find(id);
    if (it == graph.positions.end()) continue;
    if (!nodeIn(graph.nodes, id)) continue;
    const Point p = it->second;
    if (!f) f = GroupFrame{p.x, p.y, p.x, p.y};
    f->minX = std::min(f->minX, p.x), f->maxX = std::max(f->maxX, p.x);
    f->minY = std::min(f->minY, p.y), f->maxY = std::max(f->maxY, p.y);
  }
  if (f) f->minX -= 80, f->minY -= 80, f->maxX += 80, f->maxY += 80;
  return f;
}

std::set<Uuid> closingMembers(const GraphSnapshot& graph, const OpenGroup& open) {
  std::set<Uuid> members;
  for (const auto& id : open.members)
    if (nodeIn(graph.nodes, id)) members.insert(id);
  const std::optional<GroupFrame> frame = openGroupFrame(graph, open);
  if (!frame) return members;
  for (const auto& n : graph.nodes) {
    if (members.count(n.id) || !n.kind || n.kind->id == "media" || n.kind->id == "output") continue;
    if (auto p = graph.positions.find(n.id); p != graph.positions.end() && frame->contains(p->second)) members.insert(n.id);
  }
  return members;
}

const Node* findInnerNode(const Uuid& id, const std::vector<Node>& nodes) {
  for (const auto& n : nodes) {
    if (n.id == id) return &n;
    if (n.group)
      if (const Node* inner = findInnerNode(id, n.group->nodes)) return inner;
  }
  return nullptr;
}

}  // namespace ombrik
