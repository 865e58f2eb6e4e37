#pragma once
// The "Mes nodes" menu: importing a node file, saving the selected group to the library, and for
// each node of the library placing it, going back to one of its versions, exporting or removing it.
class QMenu;

namespace ombrik {

class AppModel;

// Fills `menu` from the library as it stands; called each time the menu opens. Entries are named
// ("importNode", "saveGroup", "exportGroup", "compileTree", and "place:<id>", "version:<id>:<n>",
// "export:<id>", "remove:<id>") so scripts and tests can find them.
void fillUserNodeMenu(QMenu& menu, AppModel& model);

}  // namespace ombrik
