#include "shell/kind_menu.h"

#include <QMenu>

#include "shell/shown_text.h"

namespace ombrik {

void fillKindMenu(QMenu& menu, const std::function<void(const KindRef&)>& chosen, const std::vector<KindRef>& own) {
  auto addCategory = [&](const Localized& name, const std::vector<KindRef>& kinds) {
    if (kinds.empty()) return;
    QMenu* sub = menu.addMenu(menuText(name.value()));
    sub->setObjectName(qs("category:" + name.raw));
    for (const KindRef& kind : kinds) {
      QAction* a = sub->addAction(menuText(kind->title.value()));
      a->setObjectName(qs("kind:" + kind->id));
      a->setToolTip(linuxKeys(qs(kind->info.value())));
      QObject::connect(a, &QAction::triggered, &menu, [chosen, kind] { chosen(kind); });
    }
  };
  for (const KindCategory& category : NodeKind::categories()) addCategory(category.name, category.kinds);
  addCategory(Localized{"Mes nodes"}, own);
}

}  // namespace ombrik
