#include "shell/world_lut_menu.h"

#include <QMenu>
#include <filesystem>
#include <string>

#include "color/lut_lib.h"
#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

void fillWorldLutMenu(QMenu* m, AppModel& model, const Batch& world) {
  // None, or one of the camera curves; a .cube of the world's own comes with the project.
  const Uuid id = world.id;
  const std::string current = world.lut.value_or("");
  auto pick = [&](const QString& text, const std::string& key) {
    QAction* a = m->addAction(menuText(text));
    a->setCheckable(true);
    a->setChecked(current == key);
    QObject::connect(a, &QAction::triggered, m, [&model, id, key] { model.setWorldLUT(id, key); });
  };
  pick(shown("Aucune"), "");
  for (const auto& g : LUTLib::generics()) pick(QString::fromStdString(g.label), std::string(LUTLib::kAutoPrefix) + g.id);
  if (!current.empty() && current.rfind(LUTLib::kAutoPrefix, 0) != 0)
    pick(QString::fromStdString(std::filesystem::path(current).filename().string()), current);
  QAction* file = m->addAction(shown("Fichier .cube…"));
  file->setObjectName("chooseLutFile");
  QObject::connect(file, &QAction::triggered, m, [&model, id] { model.chooseWorldLUTFile(id); });
  m->addSeparator();
  QAction* atRender = m->addAction(shown("Appliquer la LUT au rendu"));
  atRender->setObjectName("lutAtRender");
  atRender->setCheckable(true);
  atRender->setChecked(world.lutRender == true);
  atRender->setEnabled(!current.empty());
  QObject::connect(atRender, &QAction::triggered, m, [&model, id] { model.toggleWorldLUTRender(id); });
}

}  // namespace ombrik
