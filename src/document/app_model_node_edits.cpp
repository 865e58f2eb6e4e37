// The edits a node's own menu offers beside bypass and delete: renaming and duplicating.
#include <algorithm>

#include "document/app_model.h"
#include "platform/trimmed.h"

namespace ombrik {

void AppModel::renameNode(const Uuid& id, const std::string& name) {
  Node* n = nodeByID(id);
  if (!n) return;
  if (n->group) {  // a group's name is its kind's: the one it opens, closes and is saved under
    renameGroup(id, name);
    return;
  }
  std::string given = trimmed(name);
  // Typing the kind's title back is undoing the rename; kept empty, it follows the language.
  if (n->kind && given == n->kind->title.value()) given.clear();
  if (given == n->name) return;
  n->name = std::move(given);
  storedNodes();
}

void AppModel::duplicateNodes(const std::set<Uuid>& ids, Point offset) {
  std::vector<Node> nodes = std::move(copiedNodes);
  std::vector<Edge> edges = std::move(copiedEdges);
  copiedNodes.clear();
  copiedEdges.clear();
  for (const auto& n : _nodes)
    if (ids.count(n.id) && n.kind && n.kind->id != "output") copiedNodes.push_back(n);
  for (const auto& e : _edges)
    if (ids.count(e.from) && ids.count(e.to)) copiedEdges.push_back(e);
  pasteNodes(offset);
  copiedNodes = std::move(nodes);
  copiedEdges = std::move(edges);
}

}  // namespace ombrik
