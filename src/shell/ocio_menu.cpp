#include "shell/ocio_menu.h"

#include <QMenu>

#include "color/ocio_display.h"
#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

QMenu* addOcioMenu(QMenu* view, AppModel& model) {
  if (!model.ocio && !OcioDisplay::envConfig()) return nullptr;
  QMenu* m = view->addMenu(shown("Affichage OCIO"));
  m->setObjectName("ocioMenu");
  QObject::connect(m, &QMenu::aboutToShow, m, [m, &model] {
    // Display submenus are children of the menu: clear() alone would keep the old ones.
    for (QMenu* sub : m->findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly)) delete sub;
    m->clear();
    QAction* none = m->addAction(shown("Aucun"));
    none->setCheckable(true);
    none->setChecked(!model._ocioView);
    QObject::connect(none, &QAction::triggered, m, [&model] { model.setOcioView(std::nullopt); });
    if (!model.ocio) {
      // The status said why at start; the menu keeps saying it.
      m->addAction(shown("Configuration OCIO illisible"))->setEnabled(false);
      return;
    }
    m->addSeparator();
    for (const OcioDisplay::Display& d : model.ocio->displays()) {
      QMenu* views = m->addMenu(menuText(d.name));
      for (const std::string& v : d.views) {
        const OcioView choice{d.name, v};
        QAction* a = views->addAction(menuText(v));
        a->setObjectName(qs("ocio:" + d.name + "/" + v));
        a->setCheckable(true);
        a->setChecked(model._ocioView == choice);
        QObject::connect(a, &QAction::triggered, m, [&model, choice] { model.setOcioView(choice); });
      }
    }
  });
  return m;
}

}  // namespace ombrik
