// The viewer's OpenColorIO display transform: the config, the chosen display/view, and the
// choice kept in the user's settings.
#include <string>
#include <vector>

#include "document/app_model.h"
#include "platform/user_defaults.h"

namespace ombrik {

namespace {
// Display then view. Not one of the program's own settings keys: a config's names change with it.
constexpr const char* kOcioViewKey = "ocioDisplayView";
}  // namespace

void AppModel::setOcioConfig(const std::optional<std::filesystem::path>& config) {
  const std::optional<OcioView> before = _ocioView;
  ocio.reset();
  _ocioView.reset();
  std::string why;
  if (config && !(ocio = OcioDisplay::open(*config, &why))) _status = why;  // the viewer stays as it is
  // The remembered choice comes back while the config still offers it; a broken config doesn't
  // erase it, so a repaired one finds it again.
  const auto saved = defaults_->stringList(kOcioViewKey);
  if (ocio && saved.size() == 2 && ocio->offers({saved[0], saved[1]})) _ocioView = OcioView{saved[0], saved[1]};
  if (before || _ocioView) requestRender();
}

void AppModel::setOcioView(const std::optional<OcioView>& view) {
  if (view && !(ocio && ocio->offers(*view))) {
    _status = "Affichage OCIO introuvable : " + view->display + " / " + view->view;
    return;
  }
  _ocioView = view;
  if (view) defaults_->set(kOcioViewKey, std::vector<std::string>{view->display, view->view});
  else defaults_->remove(kOcioViewKey);
  _status = view ? "Affichage OCIO : " + view->display + " / " + view->view : "Affichage OCIO : Aucun";
  // A new evaluation stamp: the viewer reads its picture back anew.
  requestRender();
}

}  // namespace ombrik
