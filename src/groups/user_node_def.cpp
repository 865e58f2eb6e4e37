#include "groups/user_node_def.h"

#include <QDateTime>
#include <QString>
#include <algorithm>
#include <cmath>
#include <memory>

namespace ombrik {

ParamSpec UserParam::spec() const {
  ParamSpec s;
  s.key = key;
  s.label.raw = label;
  s.min = min, s.max = max, s.def = def;
  s.unit = unit.value_or("");
  s.isToggle = toggle.value_or(false);
  if (options) s.options.raw = *options;
  // A range of zero still gives a step a slider can move by.
  s.step = step ? *step : !s.options.empty() || s.isToggle ? 1.0 : std::max((max - min) / 100, 0.001);
  return s;
}

GroupRef::GroupRef(const NodeGroup& group, const std::string& name, const std::map<std::string, double>& params)
    : name_(name), inputs_(group.inputs), stored_(ProjectCodec::encodeGroup(group, name, params)) {}

GroupRef GroupRef::fromStored(const std::string& json) {
  // The form alone is judged here: every kind is taken, so that a node whose kind is registered
  // later (or never) doesn't refuse the file.
  const KindLookup anyKind = [](std::string_view id) {
    auto k = std::make_shared<NodeKind>();
    k->id = std::string(id);
    return KindRef(std::move(k));
  };
  std::string why;
  auto read = ProjectCodec::decodeGroup(json, &why, anyKind);
  if (!read) throw UserNodeFileError("groupe illisible (" + why + ")");
  GroupRef ref;
  ref.name_ = read->name;
  ref.inputs_ = read->group.inputs;
  ref.stored_ = json;
  return ref;
}

std::optional<StoredGroup> GroupRef::nodeGroup(const KindLookup& kinds) const {
  return ProjectCodec::decodeGroup(stored_, nullptr, kinds);
}

std::string UserNodeVersion::label() const {
  const QDateTime at = QDateTime::fromMSecsSinceEpoch(std::llround(date * 1000));
  std::string label = "v";  // appended: GCC 12 misreports "v" + string as overlapping
  label += std::to_string(n) + " · " + at.toString("dd/MM HH:mm").toStdString();
  return label;
}

std::string UserNodeDef::newID(bool group) {
  return (group ? "usergroup." : "user.") + QString::fromStdString(Uuid::generate().toString()).toLower().left(8).toStdString();
}

std::string UserNodeDef::kernelName() const {
  std::string name = "u_" + id;
  std::replace(name.begin(), name.end(), '.', '_');
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

std::vector<std::string> UserNodeDef::paramKeys() const {
  std::vector<std::string> keys;
  for (const auto& p : params) keys.push_back(p.key);
  return keys;
}

void UserNodeDef::snapshot(double now) {
  std::vector<UserNodeVersion>& all = versions ? *versions : versions.emplace();
  const UserNodeVersion* ref = nullptr;
  for (const auto& v : all)
    if (version && v.n == *version) ref = &v;
  if (!ref && !all.empty()) ref = &all.back();
  if (!group && ref && helpers == ref->helpers && code == ref->code && params == ref->params && back == ref->back)
    return;
  int n = 0;
  for (const auto& v : all) n = std::max(n, v.n);
  all.push_back({n + 1, now, name, info, params, helpers, code, back, group});
  version = n + 1;
}

void UserNodeDef::restore(int n) {
  if (!versions) return;
  for (const auto& v : *versions)
    if (v.n == n) {
      name = v.name, info = v.info, params = v.params, helpers = v.helpers, code = v.code, back = v.back;
      group = v.group;
      version = n;
      return;
    }
}

KindRef UserNodeDef::kind() const {
  auto k = std::make_shared<NodeKind>();
  k->id = id;
  k->title.raw = name;
  k->tag.raw = k->category.raw = "Mes nodes";
  k->tintHex = 0x8E9198;
  k->hasOutput = true;
  if (group) {
    for (const auto& in : group->inputs()) k->inputs.push_back({in.name, in.isMatte});
    k->info.raw = info.empty() ? "Node fusionné, enregistré dans Mes nodes." : info;
    k->hint.raw = "Réglez l'effet à droite. Reliez un masque de forme à l'entrée Masque (bleue) pour limiter l'effet à "
                  "une zone.";
    return KindRef(std::move(k));
  }
  k->inputs.push_back({"Front", false});
  if (back) k->inputs.push_back({"Back", false});
  k->inputs.push_back({"Matte", true});
  for (const auto& p : params) k->params.push_back(p.spec());
  k->info.raw = info.empty() ? "Node codé dans le Node Creator." : info;
  k->hint.raw = "Node codé (Node Creator) : son code GPU se modifie dans l'onglet Node Creator. Reliez une matte à "
                "l'entrée Masque pour limiter l'effet.";
  k->kernel = kernelName();
  return KindRef(std::move(k));
}

}  // namespace ombrik
