// The armed input: a tap of Alt near a node sets one of its inputs waiting, a node whose output is
// brought close to it is wired there on release, and that wire then survives the nodes being
// pulled apart, which would cut a wire made by plain contact.
#include <algorithm>

#include "document/app_model.h"
#include "shell/node_editor.h"
#include "shell/schematic_picks.h"

namespace ombrik {

namespace {
std::string filled(std::string text, std::initializer_list<std::string> fields) {
  for (const std::string& f : fields)
    if (const auto at = text.find("%s"); at != std::string::npos) text.replace(at, 2, f);
  return text;
}
}  // namespace

std::string NodeEditor::armedName() const {
  const Node* n = armed_ ? model_.nodeByID(armed_->node) : nullptr;
  if (!n) return {};
  const auto& inputs = n->kind->inputs;
  const std::string port = armed_->port < int(inputs.size()) ? inputs[armed_->port].label() : std::to_string(armed_->port + 1);
  return n->title() + " · " + port;
}

void NodeEditor::armNextInput() {
  const Node* near = gesture_ == Gesture::moveNodes
                         ? nullptr
                         : schematic::armableNodeAt(model_._nodes, model_.layout.positions(), toGraph(pointer()));
  if (near && (!armed_ || armed_->node != near->id)) {
    armed_ = schematic::PortHit{near->id, schematic::firstArmedInput(*near, model_._edges), false};
  } else if (armed_) {
    const Node* n = model_.nodeByID(armed_->node);
    if (!n || n->inputCount() == 0) return cancelArmed();
    armed_->port = (armed_->port + 1) % n->inputCount();
  } else {
    return;
  }
  if (gesture_ == Gesture::moveNodes) followArmedContact();
  else model_._status = filled("%s en attente : approchez-la de la sortie (RVB ou Alpha) d'un node · ⌥ : entrée suivante · Échap : annuler",
                               {armedName()});
  update();
}

void NodeEditor::cancelArmed() {
  armed_.reset();
  armedContact_.reset();
  model_._status = "Entrée en attente annulée.";
  update();
}

void NodeEditor::followArmedContact() {
  if (!armed_ || !pressedNode_) return;
  armedContact_ = schematic::armedSource(model_._nodes, model_.layout.positions(), *armed_, *pressedNode_);
  if (!armedContact_) {
    model_._status = filled("%s en attente : approchez-la de la sortie (RVB ou Alpha) d'un node · ⌥ : entrée suivante · Échap : annuler",
                            {armedName()});
    return;
  }
  snap_.reset();  // the armed input wins over what plain contact would do
  const Node* from = model_.nodeByID(armedContact_->node);
  model_._status = filled("%s ← %s · ⌥ : entrée suivante · relâchez pour brancher", {armedName(), from ? from->title() : ""});
}

bool NodeEditor::tryArmedConnect() {
  if (!armed_ || !armedContact_) return false;
  const schematic::PortHit to = *armed_, from = *armedContact_;
  const std::string name = armedName();
  model_.connect(from.node, to.node, to.port, from.port);
  const auto made = std::find_if(model_._edges.begin(), model_._edges.end(), [&](const Edge& e) {
    return e.from == from.node && e.fromPort == from.port && e.to == to.node && e.port == to.port;
  });
  if (made == model_._edges.end()) return true;  // refused: the model's status says why
  lockedEdges_.insert(made->id);
  armed_.reset();
  armedContact_.reset();
  const Node* source = model_.nodeByID(from.node);
  model_._status = filled("%s ← %s · lien verrouillé", {name, source ? source->title() : ""});
  return true;
}

}  // namespace ombrik
