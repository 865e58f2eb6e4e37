#include "shell/user_node_menu.h"

#include <QMenu>

#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
template <typename F>
QAction* item(QMenu& menu, const QString& text, const QString& name, F&& action) {
  QAction* a = menu.addAction(menuText(text));
  a->setObjectName(name);
  QObject::connect(a, &QAction::triggered, &menu, std::forward<F>(action));
  return a;
}
}  // namespace

void fillUserNodeMenu(QMenu& menu, AppModel& model) {
  // clear() leaves the submenus alive as children: each opening would keep the last one's.
  for (QMenu* sub : menu.findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) delete sub;
  menu.clear();
  AppModel* m = &model;
  item(menu, shown("Importer un node (.ombrik)…"), "importNode", [m] { m->importOmbrikPanel(); });
  const Node* selected = model._selected ? model.nodeByID(*model._selected) : nullptr;
  const bool group = selected && selected->group;
  const Uuid selectedID = selected ? selected->id : Uuid();
  item(menu, shown("Enregistrer le groupe dans Mes nodes"), "saveGroup", [m, selectedID] {
    m->saveGroupToLibrary(selectedID);
  })->setEnabled(group);
  item(menu, shown("Exporter le groupe (.ombrik)…"), "exportGroup", [m, selectedID] {
    if (auto def = m->groupDef(selectedID)) m->exportUserNode(*def);
  })->setEnabled(group);
  item(menu, shown("Fusionner tout l'arbre en un node"), "compileTree", [m] { m->compileWholeTree("Arbre"); });
  menu.addSeparator();

  const auto& defs = model.userNodes.defs();
  if (defs.empty()) menu.addAction(shown("Mes nodes est vide : enregistrez un groupe ou importez un node."))->setEnabled(false);
  for (const UserNodeDef& def : defs) {
    QMenu* sub = menu.addMenu(menuText(QString::fromStdString(def.name)));
    const QString id = QString::fromStdString(def.id);
    const std::string defID = def.id;
    item(*sub, shown("Poser dans le graphe"), "place:" + id, [m, defID] {
      if (KindRef kind = m->userNodes.kind(defID)) m->addEffect(kind);
    });
    if (def.versions && !def.versions->empty()) {
      QMenu* versions = sub->addMenu(shown("Versions"));
      for (const UserNodeVersion& v : *def.versions) {
        QAction* a = item(*versions, QString::fromStdString(v.label()), id + ":" + QString::number(v.n),
                          [m, defID, n = v.n] { m->revertUserNode(defID, n); });
        a->setObjectName("version:" + id + ":" + QString::number(v.n));
        a->setCheckable(true);
        a->setChecked(def.version == v.n);
      }
    }
    item(*sub, shown("Exporter (.ombrik)…"), "export:" + id, [m, def] { m->exportUserNode(def); });
    item(*sub, shown("Retirer de Mes nodes"), "remove:" + id, [m, defID] { m->deleteUserNode(defID); });
  }
}

}  // namespace ombrik
