// The OpenColorIO submenu: the config's views, the choice ticked and sent, an unreadable config.
#include <cstdlib>

#include "../color/ocio_config.h"
#include "shell/ocio_menu.h"
#include "shell_app.h"

using namespace ombrik;

namespace {
struct Desk : test::ScriptedDesk {
  QApplication& app = test::shellApp();
  QMenu view;
  Desk() : ScriptedDesk(false) {}

  // The submenu as it opens now: each entry's object name (its text when it has none) and tick.
  std::vector<std::pair<QString, bool>> open(QMenu* ocio) {
    emit ocio->aboutToShow();
    std::vector<std::pair<QString, bool>> out;
    for (QAction* a : ocio->actions()) {
      if (a->isSeparator()) continue;
      if (QMenu* sub = a->menu())
        for (QAction* v : sub->actions()) out.emplace_back(v->objectName(), v->isChecked());
      else out.emplace_back(a->isEnabled() ? a->text() : "(" + a->text() + ")", a->isChecked());
    }
    return out;
  }
  QAction* entry(QMenu* ocio, const QString& name) { return ocio->findChild<QAction*>(name); }
};
using Entries = std::vector<std::pair<QString, bool>>;
}  // namespace

TEST(OcioMenu, OffersTheConfigsViewsTicksTheChoiceAndSaysWhenItCantReadIt) {
  Desk d;
  if (!std::getenv("OCIO")) {
    EXPECT_FALSE(addOcioMenu(&d.view, *d.m)) << "no config, no submenu";
  }
  d.m->setOcioConfig(test::writeText(d.dir.path / "config.ocio", test::kOcioConfig));
  QMenu* ocio = addOcioMenu(&d.view, *d.m);
  ASSERT_TRUE(ocio);
  EXPECT_EQ(d.open(ocio), (Entries{{"Aucun", true}, {"ocio:Moniteur/Brut", false}, {"ocio:Moniteur/Film", false}}));
  d.entry(ocio, "ocio:Moniteur/Film")->trigger();
  EXPECT_EQ(d.m->_ocioView, (OcioView{"Moniteur", "Film"}));
  EXPECT_EQ(d.open(ocio), (Entries{{"Aucun", false}, {"ocio:Moniteur/Brut", false}, {"ocio:Moniteur/Film", true}}));
  ocio->actions().front()->trigger();
  EXPECT_FALSE(d.m->_ocioView);
  EXPECT_EQ(ocio->findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly).size(), 1u) << "reopening leaves one submenu per display";

  // A config that can't be read, named by the environment: the menu says so and offers no view.
  d.m->setOcioConfig(test::writeText(d.dir.path / "cassée.ocio", "ocio_profile_version: 2\ndisplays: [\n"));
  qputenv("OCIO", QByteArray::fromStdString((d.dir.path / "cassée.ocio").string()));
  QMenu view;
  QMenu* broken = addOcioMenu(&view, *d.m);
  qunsetenv("OCIO");
  ASSERT_TRUE(broken);
  EXPECT_EQ(d.open(broken), (Entries{{"Aucun", true}, {"(Configuration OCIO illisible)", false}}));
}
