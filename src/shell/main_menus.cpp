#include "shell/main_menus.h"

#include <QActionGroup>
#include <QMainWindow>
#include <QMenuBar>

#include "document/app_model.h"
#include "platform/app_language.h"
#include "shell/shown_text.h"
#include "shell/viewer_widget.h"

namespace ombrik {

namespace {
template <typename F>
QAction* entry(QMenu* menu, const char* text, const QKeySequence& keys, QObject* owner, F&& action) {
  QAction* a = menu->addAction(shown(text));
  a->setShortcut(keys);
  QObject::connect(a, &QAction::triggered, owner, std::forward<F>(action));
  return a;
}
}  // namespace

MainMenus::MainMenus(QMainWindow& window, AppModel& model, ViewerWidget& viewer) : QObject(&window), model_(model) {
  fileMenu(window);
  editMenu(window);
  viewMenu(window, viewer);
  languageMenu(window);
  refresh();
}

void MainMenus::fileMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Fichier"));
  // A fresh project and the media panel have no model operation yet: shown, not offered.
  m->addAction(shown("Nouveau projet"))->setEnabled(false);
  entry(m, "Ouvrir un projet…", QKeySequence::Open, this, [this] { model_.openProjectPanel(); });
  entry(m, "Enregistrer", QKeySequence::Save, this, [this] { model_.saveProject(); });
  entry(m, "Enregistrer sous…", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S), this, [this] { model_.saveProjectAs(); });
  m->addSeparator();
  m->addAction(shown("Importer des médias…"))->setEnabled(false);
  m->addSeparator();
  entry(m, "Quitter", QKeySequence::Quit, this, [&window] { window.close(); });
}

void MainMenus::editMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Édition"));
  entry(m, "Annuler la modification", QKeySequence(Qt::CTRL | Qt::Key_Z), this, [this] { model_.undo(); });
  entry(m, "Rétablir", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), this, [this] { model_.redo(); });
}

void MainMenus::viewMenu(QMainWindow& window, ViewerWidget& viewer) {
  QMenu* m = window.menuBar()->addMenu(shown("Affichage"));
  // The viewer owns Ctrl+0 and Ctrl+1; the texts already name the keys.
  connect(m->addAction(shown("Ajuster à la fenêtre (⌘0)")), &QAction::triggered, &viewer, [&viewer] { viewer.fit(); });
  connect(m->addAction(shown("100 % — pixels réels (⌘1)")), &QAction::triggered, &viewer, [&viewer] { viewer.actualPixels(); });
  m->addSeparator();
  QMenu* quality = m->addMenu(shown("Qualité d'affichage"));
  quality->setToolTip(shown("Qualité d'affichage : réduit la résolution de calcul pour une lecture plus fluide."));
  quality->setToolTipsVisible(true);
  auto* group = new QActionGroup(this);
  const std::pair<double, const char*> scales[] = {
      {1.0, "Pleine résolution"}, {0.5, "1/2 — plus rapide"}, {0.25, "1/4 — le plus rapide"}};
  for (const auto& [scale, text] : scales) {
    QAction* a = quality->addAction(shown(text));
    a->setCheckable(true);
    group->addAction(a);
    connect(a, &QAction::triggered, this, [this, scale] { model_.setPreviewScale(scale); });
    scales_.emplace_back(scale, a);
  }
}

void MainMenus::languageMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Langue"));
  // Each language is named in itself, so that anyone can find their own.
  connect(m->addAction(QStringLiteral("Français")), &QAction::triggered, this,
          [this] { model_.switchLanguage(AppLanguage::french); });
  connect(m->addAction(QStringLiteral("English")), &QAction::triggered, this,
          [this] { model_.switchLanguage(AppLanguage::english); });
}

void MainMenus::refresh() {
  if (model_._previewScale == shownScale_) return;
  shownScale_ = model_._previewScale;
  for (const auto& [scale, action] : scales_) action->setChecked(scale == shownScale_);
}

}  // namespace ombrik
