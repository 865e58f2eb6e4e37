// The evaluation: cut set, needed set, memoised pull through inputs, alpha side-channels.
#include <algorithm>

#include "engine/engine.h"
#include "engine/engine_eval_state.h"
#include "groups/group_flatten.h"

namespace ombrik {

namespace {
bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
bool isMatteKind(const Node* n) { return n && n->kind && n->kind->makesMatte(); }
}  // namespace

void Engine::evaluate(const std::vector<Node>& nodes, const std::vector<Edge>& edges, float time,
                      std::optional<Uuid> ignoreMatte) {
  // Groups become plain nodes first, so nothing below ever meets one.
  if (holdsGroups(nodes)) {
    const FlatGraph flat = flattenGroups(nodes, edges);
    evaluate(flat.nodes, flat.edges, time, ignoreMatte);
    return;
  }
  evalTime = time;
  ++evalCount;
  outputs.clear();
  produced_ = 0;
  if (compW < 1 || compH < 1) return;
  auto commands = device_->begin();
  if (!commands) return;

  ev_ = std::make_unique<Eval>();
  ev_->commands = std::move(commands);
  ev_->ignoreMatte = ignoreMatte;
  ev_->nodeStore = nodes;
  for (const auto& n : ev_->nodeStore) ev_->nodes.emplace(n.id, &n);
  ev_->edges = edges;
  ev_->into.emplace(ev_->edges);
  alphaSide_.clear();
  maskSide_.clear();

  // Nodes whose result comes from a file: their upstream needs no work.
  std::unordered_set<Uuid>& cut = ev_->cut;
  for (const auto& n : ev_->nodeStore) {
    if (n.bypass) continue;
    const std::string& kind = n.kind->id;
    if ((kind == "mux" && n.on("checkpoint") && n.magicFile) || (kind == "comp" && n.magicFile && endsWith(*n.magicFile, ".dn")) ||
        n.cacheFile)
      cut.insert(n.id);
  }

  std::vector<Uuid> roots;
  if (cut.empty() && !leanEval) {
    for (const auto& n : ev_->nodeStore) roots.push_back(n.id);
  } else {
    std::vector<Uuid> stack;
    if (leanEval) {
      for (const auto& n : ev_->nodeStore)
        if (n.kind->id == "output" || n.kind->id == "mux") stack.push_back(n.id);
      stack.insert(stack.end(), alwaysEval.begin(), alwaysEval.end());
      stack.insert(stack.end(), cut.begin(), cut.end());
      if (viewAlphaOf) stack.push_back(*viewAlphaOf);
    } else {
      std::unordered_set<Uuid> hasOut;
      for (const auto& e : ev_->edges) hasOut.insert(e.from);
      for (const auto& n : ev_->nodeStore)
        if (!hasOut.count(n.id)) stack.push_back(n.id);
      stack.insert(stack.end(), alwaysEval.begin(), alwaysEval.end());
    }
    std::unordered_set<Uuid> needed;
    while (!stack.empty()) {
      const Uuid id = stack.back();
      stack.pop_back();
      if (!needed.insert(id).second || cut.count(id)) continue;
      for (const Edge* e : ev_->edgesInto(id)) stack.push_back(e->from);
    }
    for (const auto& n : ev_->nodeStore)
      if (needed.count(n.id)) roots.push_back(n.id);
  }
  // Upstream first, so that pulling an input finds it done: the pull never recurses down a long
  // chain, which would be as deep as the graph is long.
  for (const Uuid& id : upstreamFirst(roots)) eval(id);

  muxAlpha.clear();
  for (const auto& n : ev_->nodeStore)
    if (n.kind->id == "mux")
      if (Tex a = alphaOut(n.id)) muxAlpha[n.id] = a;
  compAlpha.clear();
  for (const auto& id : cacheAlphaFor)
    if (Tex a = alphaOut(id)) compAlpha[id] = a;
  viewAlpha = viewAlphaOf ? alphaOut(*viewAlphaOf) : nullptr;

  recordPlan();
  device_->submitAndWait(*ev_->commands);
  outputs = std::move(ev_->done);
  // A node whose picture stayed in a merged kernel's registers has no result to show.
  for (auto it = outputs.begin(); it != outputs.end();)
    if (it->second && fusion_->last().unwritten.count(it->second.get())) it = outputs.erase(it);
    else ++it;
  ev_.reset();
}

void Engine::recordPlan() {
  // What is read after the evaluation: every node's result (when lean, only those asked for and
  // those of nodes feeding two consumers), and the side textures kept between evaluations.
  std::set<const gpu::Texture*> visible;
  auto add = [&](const Tex& t) {
    if (t) visible.insert(t.get());
  };
  // A node feeding two consumers keeps its picture too: one of them may read it after the
  // evaluation rather than in a pass (an AI tool's input).
  std::unordered_map<Uuid, int> consumers;
  for (const auto& e : ev_->edges) ++consumers[e.from];
  for (const auto& [id, t] : ev_->done) {
    const Node* n = ev_->node(id);
    const bool asked = !leanEval || (n && (n->kind->id == "output" || n->kind->id == "mux")) || alwaysEval.count(id) ||
                       ev_->cut.count(id) || (viewAlphaOf && *viewAlphaOf == id) || consumers[id] > 1;
    if (asked) add(t);
  }
  for (const auto* side : {&muxAlpha, &compAlpha, &alphaSide_, &mergedSide, &ev_->muxCached})
    for (const auto& [id, t] : *side) add(t);
  for (const auto& [key, t] : maskSide_) add(t);
  add(viewAlpha);
  fusion_->enabled = fusePasses;
  fusion_->record(ev_->plan, *ev_->commands, visible);
}

Engine::FusionStats Engine::lastFusion() const {
  const auto& s = fusion_->last();
  return {s.passes, s.runs, s.merged};
}

std::vector<Uuid> Engine::upstreamFirst(const std::vector<Uuid>& roots) const {
  // Depth-first through the inputs with an explicit stack; a node is listed once all its inputs
  // are. Nodes read from a file don't walk their upstream; a cycle's back edge is skipped.
  std::vector<Uuid> order;
  order.reserve(roots.size());
  std::unordered_map<Uuid, bool> seen;  // false while on the stack, true once listed
  std::vector<std::pair<Uuid, std::size_t>> stack;
  for (const Uuid& root : roots) {
    if (seen.count(root)) continue;
    seen[root] = false;
    stack.push_back({root, 0});
    while (!stack.empty()) {
      auto& [id, next] = stack.back();
      const auto& in = ev_->cut.count(id) ? std::vector<const Edge*>{} : ev_->edgesInto(id);
      if (next < in.size()) {
        const Uuid from = in[next++]->from;
        if (!seen.count(from) && ev_->node(from)) {
          seen[from] = false;
          stack.push_back({from, 0});
        }
        continue;
      }
      seen[id] = true;
      order.push_back(id);
      stack.pop_back();
    }
  }
  return order;
}

Engine::Tex Engine::eval(const Uuid& id) {
  if (auto it = ev_->done.find(id); it != ev_->done.end()) return it->second;
  if (ev_->empty.count(id)) return nullptr;
  const Node* node = ev_->node(id);
  if (!node) return nullptr;
  if (ev_->visiting.count(id)) {  // a cycle reads as unconnected
    ++ev_->cycleHits;
    return nullptr;
  }
  ev_->visiting.insert(id);
  const int cycles = ev_->cycleHits;
  Tex t = produce(*node);
  ++produced_;
  if (t) ev_->done[id] = t;
  else if (cycles == ev_->cycleHits) ev_->empty.insert(id);  // inside a cycle, another entry may see more
  ev_->visiting.erase(id);
  return t;
}

const Edge* Engine::edgeInto(const Uuid& id, int port) const { return ev_->into->into(id, port); }

Engine::Tex Engine::input(const Uuid& id, int port) {
  if (ev_->ignoreMatte && *ev_->ignoreMatte == id)
    if (const Node* n = ev_->node(id); n && port >= 0 && port < int(n->kind->inputs.size()) && n->kind->inputs[port].isMatte)
      return nullptr;
  const Edge* e = edgeInto(id, port);
  if (!e) return nullptr;
  if (e->fromPort == 0) return eval(e->from);
  if (e->fromPort == 1) return alphaOut(e->from);
  return maskOut(e->from, e->fromPort - 2);
}

Engine::Tex Engine::readCacheFile(const Node& node, const std::string& path) {
  // A file of the tree cache or a cached comp: the picture, then its alpha beside it.
  const bool cap = std::max(compW, compH) <= 2048;
  auto sized = [&](Tex t, int slot) -> Tex {
    if (!t) return nullptr;
    if (t->width() == compW && t->height() == compH) return t;
    Tex out = tex(node.id, slot);
    rescale(t, out);
    return out;
  };
  Tex picture = sized(rawNoise(path, cap), 0);
  if (!picture) return nullptr;
  const std::string alphaPath = path.substr(0, path.size() - 3) + "_a.dn";
  if (Tex alpha = sized(rawNoise(alphaPath, cap), 1)) ev_->muxCached[node.id] = alpha;
  return picture;
}

Engine::Tex Engine::produce(const Node& node) {
  if (!node.bypass) {
    std::optional<std::string> file = node.cacheFile;
    if (!file && node.kind->id == "comp" && node.magicFile && endsWith(*node.magicFile, ".dn")) file = node.magicFile;
    if (file)
      if (Tex t = readCacheFile(node, *file)) return t;
  }
  Tex t = produceLimited(node);
  if (node.kind->id == "mask" && !node.bypass && t && node.on("outinv")) {
    Tex out = tex(node.id, 31);
    dispatch("k_mattecombine", {t, t, out}, {0, 1, 1, 0});
    return out;
  }
  return t;
}

Engine::Tex Engine::produceLimited(const Node& node) {
  Tex t = produceMasked(node);
  if (!node.kind->makesMatte() || node.bypass || !t) return t;
  const int q = firstMattePort(node);
  const Edge* e = q >= 0 ? edgeInto(node.id, q) : nullptr;
  if (!e) return t;
  // A picture wired to the matte port of a matte kind is ignored.
  if (!(e->fromPort == 1 || (e->fromPort == 0 && isMatteKind(ev_->node(e->from))))) return t;
  Tex m = input(node.id, q);
  if (!m) return t;
  Tex out = tex(node.id, 8);
  if (node.kind->id == "mask" && node.on("outwhite")) {
    Tex cut = tex(node.id, 32);
    dispatch("k_mattecombine", {t, m, cut}, {1, 0, 0, 0});
    dispatch("k_mattecombine", {cut, cut, out}, {0, 1, 1, 0});
  } else {
    dispatch("k_mattemul", {t, m, out}, {});
  }
  return out;
}

Engine::Tex Engine::limitToMatte(const Node& node, const Tex& front, const Tex& result) {
  for (int q = 0; q < int(node.kind->inputs.size()); ++q) {
    if (!node.kind->inputs[q].isMatte) continue;
    if (Tex m = input(node.id, q)) {
      Tex out = tex(node.id, 3);
      dispatch("k_mattemix", {front, result, m, out}, {});
      return out;
    }
  }
  return result;
}

Engine::Tex Engine::alphaOut(const Uuid& id) {
  if (auto it = alphaSide_.find(id); it != alphaSide_.end()) return it->second;
  if (ev_->alphaEmpty.count(id)) return nullptr;
  const Node* node = ev_->node(id);
  if (!node || ev_->alphaVisiting.count(id)) return nullptr;
  if (!ev_->alphaWarming) {
    // Alpha mostly passes down the main input: ask for it from the bottom of that chain up, so
    // that each step finds the one below it done instead of recursing the chain's whole length.
    ev_->alphaWarming = true;
    std::vector<Uuid> chain;
    std::unordered_set<Uuid> onChain{id};
    for (const Edge* e = edgeInto(id, 0); e && !ev_->cut.count(e->to) && onChain.insert(e->from).second;
         e = edgeInto(e->from, 0))
      chain.push_back(e->from);
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) alphaOut(*it);
    ev_->alphaWarming = false;
  }
  ev_->alphaVisiting.insert(id);
  struct Leave {
    Engine::Eval& e;
    Uuid id;
    ~Leave() { e.alphaVisiting.erase(id); }
  } leave{*ev_, id};

  Tex t = eval(id);
  if (!t) return nullptr;
  if (auto it = alphaSide_.find(id); it != alphaSide_.end()) return it->second;
  if (auto it = ev_->muxCached.find(id); it != ev_->muxCached.end()) return alphaSide_[id] = it->second;

  const std::string& kind = node->kind->id;
  const int q = firstMattePort(*node);
  auto moved = [&](Tex a) -> Tex {  // a transform carries its alpha with the picture
    auto it = ev_->xformParams.find(id);
    if (!a || it == ev_->xformParams.end()) return a;
    Tex out = tex(id, 7);
    const auto& m = it->second;
    dispatch("k_xform", {a, out}, {m[0], m[1], m[2], m[3], m[4], m[5]});
    return out;
  };
  Tex a;
  if (node->kind->makesMatte()) a = t;
  else if (kind == "comp" && (a = combinedMattes(*node))) {
  } else if (kind != "xform" && kind != "meshwarp" && q >= 0 && (a = input(id, q))) {
  } else if (kind == "media") {
    a = tex(id, 7);
    dispatch("k_alpha2gray", {t, a}, {});
  } else if (kind == "xform" && node->maskSolo && !node->maskLayers.empty() && !edgeInto(id, 2)) {
    a = moved(renderLayers(node->maskLayers, *node, 24));
  } else if (kind == "xform" && (a = alphasSum(*node, 2, 12))) {
    a = moved(a);
  } else if (kind == "comp" && edgeInto(id, 0) &&
             (edgeInto(id, 0)->fromPort > 0 || isMatteKind(ev_->node(edgeInto(id, 0)->from)))) {
    a = t;
  } else if (const Edge* e = edgeInto(id, 0); e && !ev_->cut.count(id)) {
    // A node read from a file keeps its upstream asleep: its alpha is the file beside it or none.
    a = alphaOut(e->from);
    if (kind == "xform") a = moved(a);
  }
  if (!a) {
    ev_->alphaEmpty.insert(id);
    return nullptr;
  }
  return alphaSide_[id] = a;
}

}  // namespace ombrik
