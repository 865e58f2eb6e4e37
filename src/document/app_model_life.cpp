// Saving under a name, opening through a panel, the automatic file, reopening at start, and
// the restart that a change of language asks for.
#include <algorithm>

#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/app_language.h"
#include "platform/dialogs.h"
#include "platform/user_defaults.h"

namespace ombrik {

namespace fs = std::filesystem;

fs::path AppModel::projectsDir() {
  const fs::path dir = dataDir_ / "Projets";
  std::error_code ec;
  fs::create_directories(dir, ec);
  return dir;
}

void AppModel::saveProject() {
  if (!_projectURL) {
    saveProjectAs();
    return;
  }
  if (write(*_projectURL)) _status = "Projet enregistré : " + _projectURL->filename().string();
}

void AppModel::saveProjectAs() {
  if (!dialogs_) return;
  SavePanel panel;
  panel.title = "Enregistrer le projet";
  panel.directory = _projectURL ? _projectURL->parent_path() : projectsDir();
  panel.proposedName = _projectURL ? _projectURL->filename().string() : "Projet_01.tarvom";
  panel.types = {"tarvom"};
  auto url = dialogs_->save(panel);
  if (!url) return;
  if (url->extension() != ".tarvom") *url = url->string() + ".tarvom";
  if (write(*url)) _status = "Projet enregistré : " + url->filename().string();
}

void AppModel::openProjectPanel() {
  if (!dialogs_) return;
  OpenPanel panel;
  panel.title = "Ouvrir un projet";
  panel.directory = projectsDir();
  panel.types = {"tarvom", "json"};
  auto url = dialogs_->open(panel);
  if (!url) return;
  if (_projectURL) autosave();  // an untitled project isn't written to the automatic file here
  if (load(*url)) _status = "Projet ouvert : " + url->filename().string();
}

std::optional<std::string> AppModel::autosave() {
  if (_batches.empty()) return std::nullopt;
  const bool untitled = !_projectURL;
  const fs::path target = untitled ? projectsDir() / kAutoFileName : *_projectURL;
  std::string why;
  const bool saved = write(target, &why);
  if (untitled) _projectURL.reset();  // still untitled; "lastProjectPath" keeps the automatic file
  if (saved) return std::nullopt;
  return why;
}

bool AppModel::openLastProject() {
  const auto last = defaults_->string("lastProjectPath");
  std::error_code ec;
  if (!last || last->empty() || !fs::exists(*last, ec)) return false;
  const std::string status = _status;
  if (!load(*last)) {
    _status = status;  // no message at start
    return false;
  }
  if (fs::path(*last).filename() == kAutoFileName) _projectURL.reset();  // the work comes back, untitled
  return true;
}

void AppModel::switchLanguage(AppLanguage lang) {
  if (AppLanguage::current(*defaults_, installed_) == lang) return;
  AppLanguage::choose(*defaults_, lang);
  if (!dialogs_) return;
  Alert alert;
  if (lang == AppLanguage::french) {
    alert = {"Ombrik passera en français.", "Redémarrer maintenant ? Votre projet est enregistré avant.",
             {"Redémarrer", "Plus tard"}};
  } else {
    alert = {"Ombrik will switch to English.", "Restart now? Your project is saved first.", {"Restart", "Later"}};
  }
  if (dialogs_->alert(alert) == 0) {
    autosave();
    relaunchNow();
  }
}

AppLanguage AppModel::chosenLanguage() const { return AppLanguage::current(*defaults_, installed_); }

void AppModel::relaunchNow() {
  defaults_->sync();
  if (relaunch_) relaunch_();
}

void AppModel::newProject() {
  if (_isPlaying) stopPlayback();
  autosave();  // the project left is on disk, titled or in the automatic file
  if (engine)
    for (const auto& m : _media) engine->addSource(std::nullopt, m.id);
  _media.clear();
  videos.clear();
  missingMedia.clear();
  mediaTroubles.clear();
  _batches.clear();
  worldUndo.clear();  // another project's worlds never come back into this one
  _nodes.clear();
  _edges.clear();
  layout.replaceAll({});
  _openGroups.clear();
  _folders.clear();
  tl = TimelineState{};
  _worldGroups.clear();
  _openGroup.reset();
  _confidential = false;
  _projectURL.reset();
  _selected.reset();
  _selection.clear();
  _viewedNode.reset();
  _viewLocked = false;
  inspectorLock.reset();
  inspectedID.reset();
  _keySel.clear();
  startBlankWorld(false);
  resetHistory();
  history.dirty = false;
  resetTime();
  _status = "Nouveau projet";
}

}  // namespace ombrik
