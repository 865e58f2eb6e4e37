#include "shell/kind_menu.h"

#include <QMenu>

#include "shell/shown_text.h"

namespace ombrik {

void fillKindMenu(QMenu& menu, const std::function<void(const KindRef&)>& chosen) {
  for (const KindCategory& category : NodeKind::categories()) {
    if (category.kinds.empty()) continue;
    QMenu* sub = menu.addMenu(menuText(category.name.value()));
    sub->setObjectName(qs("category:" + category.name.raw));
    for (const KindRef& kind : category.kinds) {
      QAction* a = sub->addAction(menuText(kind->title.value()));
      a->setObjectName(qs("kind:" + kind->id));
      a->setToolTip(linuxKeys(qs(kind->info.value())));
      QObject::connect(a, &QAction::triggered, &menu, [chosen, kind] { chosen(kind); });
    }
  }
}

}  // namespace ombrik
