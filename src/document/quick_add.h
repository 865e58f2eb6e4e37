#pragma once
// The Tab search of the node editor: the kinds a few words find, by their shown name, category,
// description and internal name, in any order and case.
#include <string>
#include <string_view>
#include <vector>

#include "graph/node_kind.h"

namespace ombrik {

// Every term of `query` (split at blanks) must be found; the matches come sorted by shown name.
// An empty query gives the recent kinds that still exist first, then the others in the
// catalogue's order. `own`: the user's library ("Mes nodes"), offered after the catalogue.
std::vector<KindRef> quickAddResults(std::string_view query, const std::vector<std::string>& recents,
                                     const std::vector<KindRef>& own = {});

}  // namespace ombrik
