// The kind of a group node, built from the group itself.
#include "graph/node_kind.h"
#include "groups/node_group.h"
#include "platform/string_catalogue.h"

namespace ombrik {

KindRef NodeKind::group(const std::string& name, const NodeGroup& g) {
  auto k = std::make_shared<NodeKind>();
  k->id = "group";
  k->title = {name, true};
  k->tag.raw = "Groupe";
  k->category.raw = "Mes nodes";
  k->tintHex = 0x8E9198;
  for (const auto& in : g.inputs) k->inputs.push_back({in.name, in.isMatte});
  for (std::size_t i = 0; i < g.controls.size(); ++i) {
    const GroupControl& c = g.controls[i];
    ParamSpec spec;
    spec.key = controlKey(i);
    spec.label.raw = c.label;
    for (const auto& n : g.nodes) {
      if (n.id != c.node) continue;
      if (const ParamSpec* inner = n.kind ? n.kind->param(c.key) : nullptr) {
        spec.min = inner->min, spec.max = inner->max, spec.step = inner->step, spec.unit = inner->unit;
        spec.isToggle = inner->isToggle, spec.options = inner->options;
        if (auto it = n.params.find(c.key); it != n.params.end()) spec.def = it->second;
      }
    }
    k->params.push_back(spec);
  }
  std::string contents;
  for (const auto& n : g.nodes) {
    if (!contents.empty()) contents += " → ";
    contents += n.kind ? n.kind->title.value() : std::string("?");
  }
  // Put together in the running language, once: the joined text isn't a catalogue key.
  k->info = {(g.info.empty() ? tr("Node fusionné") : g.info) + tr(" · Contient : ") + contents + ".", true};
  k->hint.raw = "Double-clic : ouvrir le groupe (ses nodes reviennent dans le graphe) · ⌘G : le refermer · ⌘⌥G : le défaire.";
  k->hasOutput = true;
  return KindRef(std::move(k));
}

}  // namespace ombrik
