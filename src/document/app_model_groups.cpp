// Groups in the open world: folding, opening, closing and dissolving, with the status of each.
// The graph work is in groups/group_fold; this file keeps the selection, view and locks in step.
#include <algorithm>

#include "document/app_model.h"
#include "groups/group_fold.h"
#include "platform/trimmed.h"

namespace ombrik {

namespace {

std::string plural(int n) { return n > 1 ? "s" : ""; }

bool isMediaOrOutput(const Node& n) { return n.kind && (n.kind->id == "media" || n.kind->id == "output"); }

}  // namespace

const Node* AppModel::innerNode(const Uuid& id, const std::vector<Node>& nodes) { return findInnerNode(id, nodes); }

std::optional<Uuid> AppModel::collapse(const std::set<Uuid>& ids, const std::string& name, std::optional<Uuid> keep,
                                       const std::vector<GroupControl>& controls, const std::string& info,
                                       const std::string& author) {
  GraphSnapshot graph = snapshot();
  const Folded folded = foldGroup(graph, {ids, name, keep, controls, info, author});
  if (!folded.id) {
    if (!folded.refusal.empty()) _status = folded.refusal;
    return std::nullopt;
  }
  const Uuid id = *folded.id;
  layout.replaceAll(graph.positions);
  _edges = std::move(graph.edges);
  storedEdges();
  _nodes = std::move(graph.nodes);
  storedNodes();
  if (_viewedNode && ids.count(*_viewedNode)) _viewedNode = id;
  if (inspectorLock && ids.count(*inspectorLock)) inspectorLock = id;
  _selection.clear();
  _selected = id;
  const int n = folded.count;
  _status = "« " + name + " » · " + std::to_string(n) + " node" + plural(n) + " fusionné" + plural(n) +
            " · double-clic pour l'ouvrir, réglages montrés dans ses Réglages.";
  return id;
}

std::optional<Uuid> AppModel::mergeSelection(const std::string& name) {
  std::set<Uuid> ids = _selection;
  if (ids.empty() && _selected) ids.insert(*_selected);
  std::erase_if(ids, [&](const Uuid& id) {
    const Node* n = nodeByID(id);
    return !n || isMediaOrOutput(*n);
  });
  if (ids.empty()) {
    _status = "Sélectionnez les nodes à fusionner (le Media et le node Sortie restent dehors).";
    return std::nullopt;
  }
  return collapse(ids, name, std::nullopt, {}, "", "");
}

std::optional<Uuid> AppModel::compileWholeTree(const std::string& name) {
  std::set<Uuid> ids;
  for (const auto& n : _nodes)
    if (!isMediaOrOutput(n)) ids.insert(n.id);
  if (ids.empty()) {
    _status = "Rien à compiler : l'arbre ne contient que le Media et le node Sortie.";
    return std::nullopt;
  }
  return collapse(ids, name, std::nullopt, {}, "", "");
}

void AppModel::expandGroup(Uuid id, bool permanent) {
  GraphSnapshot graph = snapshot();
  std::optional<Unfolded> unfolded = unfoldGroup(graph, id);
  if (!unfolded) return;
  layout.replaceAll(graph.positions);
  _edges = std::move(graph.edges);
  storedEdges();
  _nodes = std::move(graph.nodes);
  if (_viewedNode == id) _viewedNode = unfolded->output;
  const std::string& name = unfolded->open.name;
  if (permanent) {
    _status = "« " + name + " » défait : ses nodes sont redevenus des nodes ordinaires.";
  } else {
    _openGroups.push_back(unfolded->open);
    _status = "« " + name + " » ouvert : modifiez ses nodes, puis ⌘G (ou « Refermer ») pour le refermer.";
  }
  storedNodes();  // after the open group is noted, so the undo step holds both
  _selection = std::set<Uuid>(unfolded->inner.begin(), unfolded->inner.end());
  _selected = unfolded->output;
}

void AppModel::closeGroup(Uuid id) {
  auto it = std::find_if(_openGroups.begin(), _openGroups.end(), [&](const OpenGroup& g) { return g.id == id; });
  if (it == _openGroups.end()) return;
  const OpenGroup open = *it;
  const std::set<Uuid> members = closingMembers(snapshot(), open);
  const std::size_t at = std::size_t(it - _openGroups.begin());
  _openGroups.erase(it);
  if (members.empty()) {  // its nodes were all deleted: nothing is left to fold, the frame goes
    historyChanged();
    _status = "Groupe « " + open.name + " » défait.";
    return;
  }
  if (!collapse(members, open.name, open.id, open.controls, open.info, open.author))
    _openGroups.insert(_openGroups.begin() + std::ptrdiff_t(at), open);  // refused: it stays open
}

void AppModel::groupKey() {
  std::set<Uuid> ids = _selection;
  if (ids.empty() && _selected) ids.insert(*_selected);
  for (const auto& g : _openGroups)
    if (std::any_of(g.members.begin(), g.members.end(), [&](const Uuid& m) { return ids.count(m); })) {
      closeGroup(g.id);
      return;
    }
  mergeSelection("Groupe");
}

void AppModel::dissolveGroup() {
  if (_selected)
    if (const Node* n = nodeByID(*_selected); n && n->group) {
      expandGroup(n->id, true);
      return;
    }
  std::set<Uuid> ids = _selection;
  if (ids.empty() && _selected) ids.insert(*_selected);
  for (auto it = _openGroups.begin(); it != _openGroups.end(); ++it)
    if (std::any_of(it->members.begin(), it->members.end(), [&](const Uuid& m) { return ids.count(m); })) {
      const std::string name = it->name;
      _openGroups.erase(it);
      historyChanged();
      _status = "Groupe « " + name + " » défait.";
      return;
    }
}

void AppModel::renameGroup(const Uuid& id, const std::string& name) {
  const std::string given = trimmed(name);
  if (given.empty()) return;
  Node* node = nodeByID(id);
  if (!node || !node->group) return;
  node->kind = NodeKind::group(given, *node->group);
  storedNodes();
}

void AppModel::setGroupControls(const Uuid& id, const std::vector<GroupControl>& controls) {
  Node* node = nodeByID(id);
  if (!node || !node->group) return;
  NodeGroup& g = node->group.mutate();
  // The values shown on the group go down into the inner nodes before the list changes; the keys
  // of a control that stays follow it to its new place.
  std::map<std::string, std::vector<Keyframe>> anim;
  for (std::size_t i = 0; i < g.controls.size(); ++i) {
    const std::string key = controlKey(i);
    if (auto v = node->params.find(key); v != node->params.end()) {
      for (auto& inner : g.nodes)
        if (inner.id == g.controls[i].node) inner.params[g.controls[i].key] = v->second;
      node->params.erase(v);
    }
    auto keys = node->anim.find(key);
    if (keys == node->anim.end()) continue;
    for (std::size_t j = 0; j < controls.size(); ++j)
      if (controls[j].node == g.controls[i].node && controls[j].key == g.controls[i].key) anim[controlKey(j)] = keys->second;
    node->anim.erase(keys);
  }
  node->anim.merge(anim);
  g.controls = controls;
  node->kind = NodeKind::group(node->kind->title.raw, g);
  for (std::size_t i = 0; i < controls.size(); ++i)
    for (const auto& inner : g.nodes)
      if (inner.id == controls[i].node)
        if (auto v = inner.params.find(controls[i].key); v != inner.params.end())
          node->params[controlKey(i)] = v->second;
  storedNodes();
}

}  // namespace ombrik
