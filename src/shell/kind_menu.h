#pragma once
// The menu of node kinds, one submenu per category of the catalogue.
#include <functional>

#include "graph/node_kind.h"

class QMenu;

namespace ombrik {

// Each kind's action is named "kind:<id>", so scripts and tests can find it.
void fillKindMenu(QMenu& menu, const std::function<void(const KindRef&)>& chosen);

}  // namespace ombrik
