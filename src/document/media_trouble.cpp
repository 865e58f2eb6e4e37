#include "document/media_trouble.h"

#include <unordered_map>
#include <unordered_set>

#include "groups/node_group.h"

namespace ombrik {

namespace {
std::string joined(const std::vector<std::string>& parts) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : ", ") + p;
  return out;
}

// What a node makes pictures from, outside its inputs: its media, a group's insides, or itself
// when it needs no input.
struct Sources {
  const std::map<Uuid, MediaTrouble>& troubles;
  std::vector<const MediaTrouble*> found;
  bool any = false;

  void look(const Node& n) {
    if (n.kind->id == "media") {
      if (!n.mediaID) return;
      if (auto t = troubles.find(*n.mediaID); t != troubles.end()) found.push_back(&t->second);
      else any = true;
    } else if (n.kind->id == "group") {
      if (n.group)
        for (const Node& inner : n.group->nodes) look(inner);
    } else if (n.kind->inputs.empty() && n.kind->hasOutput) {
      any = true;
    }
  }
};
}  // namespace

std::string troubleSummary(const std::vector<MediaTrouble>& troubles) {
  std::vector<std::string> missing, unreadable;
  for (const auto& t : troubles) {
    if (t.why == kNotFound) missing.push_back(t.name);
    else unreadable.push_back(t.name + " (" + t.why + ")");
  }
  std::string out;
  if (!missing.empty()) out = "Médias introuvables : " + joined(missing);
  if (!unreadable.empty())
    out += (out.empty() ? "" : " · ") + std::string(unreadable.size() > 1 ? "Médias illisibles : " : "Média illisible : ") +
           joined(unreadable);
  return out;
}

std::string whyNoPicture(const std::vector<Node>& nodes, const std::vector<Edge>& edges, const Uuid& output,
                         const std::map<Uuid, MediaTrouble>& troubles) {
  std::unordered_map<Uuid, const Node*> byID;
  for (const Node& n : nodes) byID.emplace(n.id, &n);
  std::unordered_map<Uuid, std::vector<Uuid>> feeders;
  for (const Edge& e : edges) feeders[e.to].push_back(e.from);
  // Everything upstream of the output, groups passed through like any node.
  Sources sources{troubles, {}, false};
  std::unordered_set<Uuid> seen{output};
  std::vector<Uuid> todo{output};
  while (!todo.empty()) {
    const Uuid at = todo.back();
    todo.pop_back();
    for (const Uuid& from : feeders[at]) {
      if (!seen.insert(from).second) continue;
      todo.push_back(from);
      if (auto n = byID.find(from); n != byID.end()) sources.look(*n->second);
    }
  }
  if (!sources.found.empty()) {
    std::vector<std::string> said;
    std::unordered_set<const MediaTrouble*> once;
    for (const MediaTrouble* t : sources.found)
      if (once.insert(t).second)
        said.push_back(t->name + (t->why == kNotFound ? " est introuvable" : " est illisible (" + t->why + ")"));
    return joined(said);
  }
  return sources.any ? "le calcul n'a rien donné" : "rien n'y est relié ?";
}

}  // namespace ombrik
