// The user node library from the document's side: saving groups to it, going back in a node's
// history, importing and exporting ".ombrik" files. The library itself is src/groups/user_nodes.
#include <QString>
#include <set>

#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/dialogs.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

double seconds(std::chrono::system_clock::time_point t) {
  return std::chrono::duration<double>(t.time_since_epoch()).count();
}

// The first `n` characters (not bytes) of a compiler's message.
std::string firstChars(const std::string& s, int n) { return QString::fromStdString(s).left(n).toStdString(); }

// The library's definition of a group node: the one of its name, else a new one, with the
// group as it stands kept as a version.
UserNodeDef groupDefinition(const Node& node, const UserNodes& library, double now) {
  const std::string name = node.kind->title.raw;
  UserNodeDef def;
  const auto& defs = library.defs();
  auto same = std::find_if(defs.begin(), defs.end(), [&](const UserNodeDef& d) { return d.isGroup() && d.name == name; });
  if (same != defs.end()) {
    def = *same;
  } else {
    def.id = UserNodeDef::newID(true);
    def.created = now;
    def.name = name;
    def.info = node.group->info;
    def.author = node.group->author;
  }
  def.group = GroupRef(*node.group, name, node.params);
  def.snapshot(now);
  return def;
}

// Placed nodes of a code node take its new kind (its sliders may have changed), at any depth.
void rekind(std::vector<Node>& nodes, const KindRef& kind) {
  for (auto& n : nodes) {
    if (n.group) rekind(n.group.mutate().nodes, kind);
    if (n.kind->id != kind->id) continue;
    n.kind = kind;
    for (const auto& p : kind->params) n.params.try_emplace(p.key, p.def);
  }
}

}  // namespace

UserNodes::Compile AppModel::userKernelCompiler() {
  if (!engine) return {};
  return [this](const std::string& name, const std::string& helpers, const std::string& code,
                const std::vector<std::string>& params) -> std::optional<std::string> {
    if (!engine) return std::nullopt;
    return engine->compileUserKernel(name, helpers, code, params);
  };
}

Node AppModel::newNode(const KindRef& kind) const {
  if (kind->id.starts_with("usergroup"))
    if (auto n = userNodes.instance(kind->id)) return std::move(*n);
  return Node(kind);
}

void AppModel::saveGroupToLibrary(const Uuid& id) {
  const Node* node = nodeByID(id);
  if (!node || !node->group) return;
  const UserNodeDef def = groupDefinition(*node, userNodes, seconds(wallNow()));
  userNodes.register_(def, userKernelCompiler(), true);
  _status = "« " + def.name + " » enregistré dans Mes nodes (v" + std::to_string(def.version.value_or(1)) +
            ") · exportable en .ombrik pour la communauté.";
}

std::optional<UserNodeDef> AppModel::groupDef(const Uuid& id) const {
  const Node* node = nodeByID(id);
  if (!node || !node->group) return std::nullopt;
  return groupDefinition(*node, userNodes, seconds(wallNow()));
}

void AppModel::revertUserNode(const std::string& id, int n) {
  const UserNodeDef* known = userNodes.known(id);
  if (!known || !known->versions ||
      std::none_of(known->versions->begin(), known->versions->end(), [&](const UserNodeVersion& v) { return v.n == n; }))
    return;
  UserNodeDef def = *known;
  def.restore(n);
  const auto message = userNodes.register_(def, userKernelCompiler(), true);
  const std::string v = std::to_string(n);
  if (def.isGroup()) {
    // Group nodes already placed keep their own inner graph.
    _status = "« " + def.name + " » revenu à la v" + v + " : les prochains posés seront ceux de cette version.";
    return;
  }
  const KindRef kind = userNodes.kind(id);
  saveCurrentBatch();
  for (auto& b : _batches) rekind(b.nodes, kind);
  rekind(_nodes, kind);
  storedNodes();
  _status = message ? "La v" + v + " de « " + def.name + " » ne compile plus : " + firstChars(*message, 140)
                    : "« " + def.name + " » revenu à la v" + v + ".";
}

void AppModel::deleteUserNode(const std::string& id) {
  const UserNodeDef* def = userNodes.known(id);
  if (!def) return;
  const std::string name = def->name;
  userNodes.remove(id);
  _status = "« " + name + " » retiré de Mes nodes (fichier dans la Corbeille) · les nodes déjà posés continuent de marcher.";
}

void AppModel::exportUserNode(const UserNodeDef& def) {
  if (!dialogs_) return;
  SavePanel panel;
  panel.title = "Exporter le node";
  panel.types = {"ombrik"};
  panel.proposedName = def.name + ".ombrik";
  const auto to = dialogs_->save(panel);
  if (!to) return;
  try {
    UserNodes::export_(def, *to);
    _status = to->filename().string() + " (à partager ; il s'importe par glisser-déposer dans le graphe).";
  } catch (const UserNodeFileError& e) {
    _status = std::string("Export impossible : ") + e.what();
  }
}

void AppModel::importOmbrikPanel() {
  if (!dialogs_) return;
  OpenPanel panel;
  panel.title = "Importer un node (.ombrik)";
  panel.types = {"ombrik"};
  if (const auto url = dialogs_->open(panel)) importOmbrik(*url);
}

void AppModel::importOmbrik(const fs::path& url, std::optional<Point> at) {
  UserNodeDef def;
  try {
    def = userNodes.read(url);
  } catch (const UserNodeFileError& e) {
    _status = std::string("Import impossible : ") + e.what();
    return;
  }
  const auto message = userNodes.register_(def, userKernelCompiler(), true);
  const KindRef kind = userNodes.kind(def.id);
  // A code node that doesn't compile is placed all the same: its text can be mended in place.
  if (at) addNode(kind, *at);
  else addEffect(kind);
  _status = message ? "« " + def.name + " » importé, mais son code ne compile pas : " + firstChars(*message, 160)
                    : "« " + def.name + " » importé dans Mes nodes.";
}

std::vector<UserNodeDef> AppModel::usedUserDefs() const {
  std::set<std::string, std::less<>> ids;
  auto walk = [&](auto& self, const std::vector<Node>& nodes) -> void {
    for (const auto& n : nodes) {
      if (n.kind) ids.insert(n.kind->id);
      if (n.group) self(self, n.group->nodes);
    }
  };
  for (const auto& b : _batches) walk(walk, b.nodes);
  walk(walk, _nodes);
  std::vector<UserNodeDef> used;
  for (const auto& id : ids)
    if (const UserNodeDef* def = userNodes.known(id)) used.push_back(*def);
  sortByName(used);
  return used;
}

}  // namespace ombrik
