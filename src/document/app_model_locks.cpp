// A node held on the viewer or in the inspector whatever is selected, and a node set aside
// (bypassed) without unwiring it.
#include "document/app_model.h"

namespace ombrik {

void AppModel::toggleViewLock(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n) return;
  if (_viewLocked && _viewedNode == id) {
    _viewLocked = false;
    _viewedNode.reset();  // back to following the selection
    _status = "Vue verrouillée retirée : le viewer suit à nouveau la sélection.";
  } else {
    _viewedNode = id;
    _viewLocked = true;
    _status = "Vue verrouillée : " + n->title() +
              " · sélectionnez et réglez n'importe quel node, le viewer (et F4) montre ce résultat.";
  }
  requestRender();
}

void AppModel::toggleInspectorLock(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n) return;
  if (inspectorLock == id) {
    inspectorLock.reset();
    inspectedID.reset();
    _status = "Réglages libérés : le panneau suit à nouveau la sélection.";
  } else {
    inspectorLock = id;
    inspectedID = id;  // the curve editor and the key operations follow the panel
    _status = "Réglages verrouillés sur " + n->title() + " · double-clic pour libérer ou changer.";
  }
}

void AppModel::setBypass(const Uuid& id, bool bypass) {
  Node* n = nodeByID(id);
  if (!n || n->bypass == bypass) return;
  n->bypass = bypass;
  storedNodes();
}

}  // namespace ombrik
