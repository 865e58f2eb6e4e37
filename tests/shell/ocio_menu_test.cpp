// The OpenColorIO submenu of the view menu: its displays and views as the config lists them, the
// choice ticked and sent to the model, and a config that can't be read offering nothing.
#include <cstdlib>

#include "../color/ocio_config.h"
#include "shell/ocio_menu.h"
#include "shell_app.h"

using namespace ombrik;

namespace {
struct Desk {
  QApplication& app = test::shellApp();
  TempDir dir;
  std::unique_ptr<AppModel> m =
      std::make_unique<AppModel>(test::tempModelOptions(dir, std::make_shared<ManualScheduler>(), false));
  QMenu view;

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

TEST(OcioMenu, OffersTheConfigsViewsAndTicksTheChoice) {
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
}

TEST(OcioMenu, AnUnreadableConfigOffersNoView) {
  Desk d;
  d.m->setOcioConfig(test::writeText(d.dir.path / "cassée.ocio", "ocio_profile_version: 2\ndisplays: [\n"));
  qputenv("OCIO", QByteArray::fromStdString((d.dir.path / "cassée.ocio").string()));
  QMenu* ocio = addOcioMenu(&d.view, *d.m);
  qunsetenv("OCIO");
  ASSERT_TRUE(ocio) << "the environment names a config: the menu says it can't be read";
  EXPECT_EQ(d.open(ocio), (Entries{{"Aucun", true}, {"(Configuration OCIO illisible)", false}}));
}
