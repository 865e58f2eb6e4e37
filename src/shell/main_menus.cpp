#include "shell/main_menus.h"

#include <QActionGroup>
#include <QDockWidget>
#include <QMainWindow>
#include <QMenuBar>

#include "document/app_model.h"
#include "platform/app_language.h"
#include "shell/help_menu.h"
#include "shell/ocio_menu.h"
#include "shell/render_section.h"
#include "shell/shown_text.h"
#include "shell/user_node_menu.h"
#include "shell/viewer_widget.h"
#include "shell/world_lut_menu.h"

namespace ombrik {

namespace {
template <typename F>
QAction* entry(QMenu* menu, const char* text, const QKeySequence& keys, QObject* owner, F&& action) {
  QAction* a = menu->addAction(menuText(shown(text)));
  a->setShortcut(keys);
  QObject::connect(a, &QAction::triggered, owner, std::forward<F>(action));
  return a;
}
}  // namespace

template <typename T>
std::vector<std::pair<T, QAction*>> MainMenus::choices(QMenu* menu, std::initializer_list<std::pair<T, const char*>> items,
                                                      std::function<void(T)> pick) {
  // One of several: checkable entries in a group, each with the value it stands for.
  auto* group = new QActionGroup(this);
  std::vector<std::pair<T, QAction*>> out;
  for (const auto& [value, text] : items) {
    QAction* a = menu->addAction(menuText(shown(text)));
    a->setCheckable(true);
    group->addAction(a);
    connect(a, &QAction::triggered, this, [pick, v = value] { pick(v); });
    out.emplace_back(value, a);
  }
  return out;
}

MainMenus::MainMenus(QMainWindow& window, AppModel& model, ViewerWidget& viewer, Panels panels)
    : QObject(&window), model_(model) {
  fileMenu(window);
  editMenu(window);
  viewMenu(window, viewer, std::move(panels.toggleCurves));
  worldsMenu(window);
  timelineMenu(window, std::move(panels.timelineSettings));
  userNodesMenu(window);
  renderMenu(window, std::move(panels.showQueue));
  languageMenu(window);
  helpMenu(window);
  refresh();
}

void MainMenus::userNodesMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Mes nodes"));
  m->setObjectName("userNodesMenu");
  connect(m, &QMenu::aboutToShow, this, [this, m] { fillUserNodeMenu(*m, model_); });
  fillUserNodeMenu(*m, model_);  // filled at once too, so its entries can be found before it opens
}

void MainMenus::fileMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Fichier"));
  entry(m, "Nouveau projet", QKeySequence::New, this, [this] { model_.newProject(); });
  entry(m, "Ouvrir un projet…", QKeySequence::Open, this, [this] { model_.openProjectPanel(); });
  entry(m, "Enregistrer", QKeySequence::Save, this, [this] { model_.saveProject(); });
  entry(m, "Enregistrer sous…", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S), this, [this] { model_.saveProjectAs(); });
  m->addSeparator();
  entry(m, "Importer des médias…", QKeySequence(Qt::CTRL | Qt::Key_I), this, [this] { model_.importPanel(); });
  entry(m, "Exporter l'image…", QKeySequence(Qt::CTRL | Qt::Key_E), this, [this] { model_.exportPanel(); });
  m->addSeparator();
  entry(m, "Quitter", QKeySequence::Quit, this, [&window] { window.close(); });
}

void MainMenus::editMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Édition"));
  entry(m, "Annuler la modification", QKeySequence(Qt::CTRL | Qt::Key_Z), this, [this] { model_.undo(); });
  entry(m, "Rétablir", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), this, [this] { model_.redo(); });
  m->addSeparator();
  // Text fields keep these keys for their text: they claim them before the window's shortcuts.
  entry(m, "Copier", QKeySequence::Copy, this, [this] { model_.copyNodes(); })->setObjectName("copyNodes");
  entry(m, "Coller", QKeySequence::Paste, this, [this] {
    model_.pasteNodes(Point{40, 40});  // beside the originals, as the graph's own Ctrl+V
  })->setObjectName("pasteNodes");
  // Delete is only named here: in the viewer it deletes a mask's points, in the graph its nodes.
  QAction* del = m->addAction(shown("Supprimer") + "\t" + QKeySequence(Qt::Key_Delete).toString(QKeySequence::NativeText));
  del->setObjectName("deleteSelection");
  connect(del, &QAction::triggered, this, [this] { model_.deleteSelection(); });
  entry(m, "Tout sélectionner", QKeySequence::SelectAll, this, [this] { model_.selectAll(); })->setObjectName("selectAll");
  m->addSeparator();
  // One key folds the selection or closes the open group it belongs to; the other undoes a group.
  entry(m, "Grouper / refermer le groupe", QKeySequence(Qt::CTRL | Qt::Key_G), this, [this] { model_.groupKey(); })
      ->setObjectName("groupKey");
  entry(m, "Défaire le groupe", QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_G), this, [this] { model_.dissolveGroup(); })
      ->setObjectName("dissolveGroup");
}

void MainMenus::viewMenu(QMainWindow& window, ViewerWidget& viewer, std::function<void()> toggleCurves) {
  QMenu* m = window.menuBar()->addMenu(shown("Affichage"));
  // The viewer owns Ctrl+0 and Ctrl+1; the texts already name the keys.
  connect(m->addAction(shown("Ajuster à la fenêtre (⌘0)")), &QAction::triggered, &viewer, [&viewer] { viewer.fit(); });
  connect(m->addAction(shown("100 % — pixels réels (⌘1)")), &QAction::triggered, &viewer, [&viewer] { viewer.actualPixels(); });
  entry(m, "Éditeur de courbes", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_G), this, std::move(toggleCurves))
      ->setObjectName("curveEditor");
  m->addSeparator();
  QMenu* quality = m->addMenu(shown("Qualité d'affichage"));
  quality->setToolTip(shown("Qualité d'affichage : réduit la résolution de calcul pour une lecture plus fluide."));
  quality->setToolTipsVisible(true);
  scales_ = choices<double>(quality, {{1.0, "Pleine résolution"}, {0.5, "1/2 — plus rapide"}, {0.25, "1/4 — le plus rapide"}},
                            [this](double scale) { model_.setPreviewScale(scale); });
  playSizeMenu(m);
  m->addSeparator();
  compareMenu(m);
  addOcioMenu(m, model_);
}

void MainMenus::playSizeMenu(QMenu* view) {
  QMenu* m = view->addMenu(shown("Résolution de la prévisu en lecture"));
  playSizes_ = choices<int>(m, {{1024, "1K — le plus d'images"}, {2048, "2K (conseillé)"}, {0, "Pleine résolution"}},
                            [this](int side) { model_.setPlayMaxSide(side); });
}

void MainMenus::compareMenu(QMenu* view) {
  // The channels have their keys on the viewer; the menu names them.
  const char* channels[] = {"Source", "Fond", "Masque / alpha du node", "Résultat"};
  const Qt::Key fkeys[] = {Qt::Key_F1, Qt::Key_F2, Qt::Key_F3, Qt::Key_F4};
  QMenu* c = view->addMenu(shown("Canal"));
  for (int k = 1; k <= 4; ++k) {
    QAction* a = c->addAction(shown(channels[k - 1]) + "\t" + QKeySequence(fkeys[k - 1]).toString(QKeySequence::NativeText));
    connect(a, &QAction::triggered, this, [this, k] { model_.flameView(k); });
  }
  compare_ = view->addAction(shown("Comparer au rush"));
  compare_->setCheckable(true);
  connect(compare_, &QAction::triggered, this, [this](bool on) { model_.setCompareMode(on); });
  QMenu* m = view->addMenu(shown("Style de comparaison"));
  styles_ = choices<int>(m, {{0, "Bascule (bouton ou \\ : résultat ⇄ rush natif)"}, {1, "Volet (curseur)"}, {2, "Différence (×4)"}},
                         [this](int style) {
                           model_.setCompareStyle(style);
                           model_.setCompareMode(true);
                         });
}

void MainMenus::worldsMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Mondes"));
  // Filled when opened, as worlds come and go with imports and projects.
  connect(m, &QMenu::aboutToShow, this, [this, m, &window] {
    m->clear();
    const Batch* open = model_.currentBatch();
    for (const Batch& b : model_._batches) {
      if (b.placeholder) continue;
      QAction* a = m->addAction(menuText(b.name));
      a->setCheckable(true);
      a->setChecked(open && open->id == b.id);
      const Uuid id = b.id;
      connect(a, &QAction::triggered, this, [this, id] { model_.openBatch(id); });
    }
    m->addSeparator();
    entry(m, "Nouveau monde", {}, this, [this] { model_.newBatch(); });
    entry(m, "Importer un monde rassemblé…", {}, this, [this] { model_.unpackWorldPanel(); });
    // The panel's own show/hide entry, ticked while it is on screen.
    if (auto* panel = window.findChild<QDockWidget*>("worldsPanel")) m->addAction(panel->toggleViewAction());
    if (!open) return;
    const Uuid id = open->id;
    entry(m, "Dupliquer le monde", {}, this, [this, id] { model_.duplicateBatch(id); });
    entry(m, "Rassembler le monde (arbre + rushs)…", {}, this, [this, id] { model_.packWorld(id); });
    entry(m, "Supprimer le monde…", {}, this, [this, id] { model_.deleteWorlds({id}, true); });
    fillWorldLutMenu(m->addMenu(shown("LUT du monde")), model_, *open);
  });
}

void MainMenus::timelineMenu(QMainWindow& window, std::function<void()> openSettings) {
  QMenu* m = window.menuBar()->addMenu(shown("Timeline"));
  m->setObjectName("timelineMenu");
  entry(m, "Nouvelle timeline", {}, this, [this] { model_.newTimeline(); })->setObjectName("newTimeline");
  QAction* settings = entry(m, "Réglages de la timeline…", QKeySequence(Qt::CTRL | Qt::Key_K), this, std::move(openSettings));
  settings->setObjectName("timelineSettings");
  m->addSeparator();
  QAction* movie = entry(m, "Exporter le film…", {}, this, [this] {
    if (model_.tl.currentTimelineID) model_.exportTimelineMovie(*model_.tl.currentTimelineID);
  });
  QAction* otio = entry(m, "Exporter en OTIO…", {}, this, [this] { model_.exportTimelineOTIOPanel(); });
  entry(m, "Importer un OTIO…", {}, this, [this] { model_.importTimelineOTIOPanel(); })->setObjectName("importOTIO");
  m->addSeparator();
  backToBatch_ = entry(m, "Retour au graphe", {}, this, [this] { model_.backToBatch(); });
  backToBatch_->setObjectName("backToBatch");
  timelineOnly_ = {settings, movie, otio};
}

void MainMenus::renderMenu(QMainWindow& window, std::function<void()> showQueue) {
  QMenu* m = window.menuBar()->addMenu(shown("Rendus"));
  renderWorld_ = entry(m, "Rendre le monde", {}, this, [this] {
    if (auto out = model_.outputNode()) model_.renderSequence(*out);
  });
  queueWorld_ = entry(m, "Ajouter à la file de rendu", {}, this, [this] {
    if (model_._currentBatchID) model_.enqueueRender({*model_._currentBatchID});
  });
  entry(m, "Ajouter tous les mondes à la file de rendu", {}, this, [this] {
    std::vector<Uuid> worlds;
    for (const Batch& b : model_._batches)
      if (!b.placeholder) worlds.push_back(b.id);
    model_.enqueueRender(worlds);
  });
  entry(m, "File de rendu…", {}, this, std::move(showQueue));
  m->addSeparator();
  stopRenders_ = entry(m, "Arrêter les rendus", {}, this, [this] { model_.stopAllRenders(); });
  showLast_ = entry(m, "Afficher le dernier rendu", {}, this, [this] {
    if (model_.delivery.lastRender) revealRender(*model_.delivery.lastRender);
  });
}

void MainMenus::languageMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Langue"));
  // Each language is named in itself, so that anyone can find their own. The tick is on the
  // language chosen, which a restart brings if it isn't spoken yet.
  auto* group = new QActionGroup(this);
  for (const auto& [lang, name] : {std::pair{AppLanguage::french, "Français"}, std::pair{AppLanguage::english, "English"}}) {
    QAction* a = m->addAction(QString::fromUtf8(name));
    a->setCheckable(true);
    a->setObjectName(QString::fromStdString("language:" + AppLanguage(lang).code()));
    group->addAction(a);
    connect(a, &QAction::triggered, this, [this, l = lang] { model_.switchLanguage(l); });
    languages_.emplace_back(int(lang), a);
  }
}

void MainMenus::helpMenu(QMainWindow& window) { addHelpMenu(window); }

void MainMenus::refresh() {
  if (model_._previewScale != shownScale_) {
    shownScale_ = model_._previewScale;
    for (const auto& [scale, action] : scales_) action->setChecked(scale == shownScale_);
  }
  compare_->setChecked(model_.isCompare());
  for (const auto& [style, action] : styles_) action->setChecked(model_._compareStyle == style);
  const int side = std::max(0, model_.playMaxSide());
  for (const auto& [s, action] : playSizes_) action->setChecked(s == side);
  renderWorld_->setEnabled(!model_.rendering && model_.outputNode());
  queueWorld_->setEnabled(model_._currentBatchID.has_value());
  stopRenders_->setEnabled(model_.rendering || renderqueue::count(model_.delivery.renderQueue, RenderJob::State::waiting) > 0);
  showLast_->setEnabled(model_.delivery.lastRender.has_value());
  for (QAction* a : timelineOnly_) a->setEnabled(model_.tl.current() != nullptr);
  backToBatch_->setEnabled(model_.tl.workspace == Workspace::timeline);
  const int chosen = int(AppLanguage::Value(model_.chosenLanguage()));
  for (const auto& [lang, action] : languages_) action->setChecked(lang == chosen);
}

}  // namespace ombrik
