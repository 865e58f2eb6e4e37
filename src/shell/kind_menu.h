#pragma once
// The menu of node kinds, one submenu per category of the catalogue.
#include <functional>
#include <vector>

#include "graph/node_kind.h"

class QMenu;

namespace ombrik {

// Each kind's action is named "kind:<id>", so scripts and tests can find it. `own`: the user's
// library, in a last submenu "Mes nodes" when it isn't empty.
void fillKindMenu(QMenu& menu, const std::function<void(const KindRef&)>& chosen, const std::vector<KindRef>& own = {});

}  // namespace ombrik
