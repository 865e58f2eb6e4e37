#pragma once
// The viewer's OpenColorIO display transforms in the view menu: none, or one view of one of the
// config's displays. Only offered when the environment names a config ($OCIO) or the model has one.
class QMenu;

namespace ombrik {

class AppModel;

// Adds the "Affichage OCIO" submenu to `view` and returns it; nothing without a config. Filled
// each time it opens, so it follows the model.
QMenu* addOcioMenu(QMenu* view, AppModel& model);

}  // namespace ombrik
