// Texts as the desktop shows them: Linux key names, and the window in English when asked.
#include <QLabel>
#include <QToolButton>

#include "platform/string_catalogue.h"
#include "shell/shown_text.h"
#include "shell_app.h"

using namespace ombrik;

TEST(ShownText, KeyGlyphsTakeTheirLinuxNames) {
  EXPECT_EQ(linuxKeys("Ajuster à la fenêtre (⌘0)"), "Ajuster à la fenêtre (Ctrl+0)");
  EXPECT_EQ(linuxKeys("Éditeur de courbes : images clés (⇧⌘G)"), "Éditeur de courbes : images clés (Ctrl+Shift+G)");
  EXPECT_EQ(linuxKeys("Ralentit au départ de la clé (⌥⇧F9)"), "Ralentit au départ de la clé (Alt+Shift+F9)");
  EXPECT_EQ(linuxKeys("Clic = ajouter · ⌥ + clic = retirer"), "Clic = ajouter · Alt + clic = retirer");
  EXPECT_EQ(linuxKeys("⌫ : supprimer"), "Backspace : supprimer");
  EXPECT_EQ(linuxKeys("Image précédente (←)"), "Image précédente (←)") << "arrows are the same everywhere";
  EXPECT_EQ(linuxKeys("fin ⌘"), "fin Ctrl");
}

namespace {
struct LanguageGuard {
  AppLanguage saved = interfaceLanguage();
  ~LanguageGuard() { setInterfaceLanguage(saved); }
};

// Every text of a fresh window, in the order the widgets were made.
std::vector<QString> windowTexts(AppLanguage lang) {
  setInterfaceLanguage(lang);
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>()});
  MainWindow window(model);
  std::vector<QString> out;
  for (QAction* a : window.findChildren<QAction*>())
    if (!a->text().isEmpty()) out.push_back(a->text());
  for (QToolButton* b : window.findChildren<QToolButton*>())
    if (!b->toolTip().isEmpty()) out.push_back(b->toolTip());
  out.push_back(window.findChild<QLabel*>("inspectorTitle")->text());
  return out;
}
}  // namespace

TEST(ShownText, TheWindowSpeaksEnglishWhenAsked) {
  test::shellApp();
  LanguageGuard guard;
  const std::vector<QString> french = windowTexts(AppLanguage::french);
  const std::vector<QString> english = windowTexts(AppLanguage::english);
  ASSERT_EQ(french.size(), english.size());
  EXPECT_GT(french.size(), 20u);
  for (std::size_t i = 0; i < french.size(); ++i) {
    if (french[i] == "Français" || french[i] == "English") continue;  // each language named in itself
    if (french[i].startsWith("Source\t")) continue;                     // the same word in both
    EXPECT_NE(french[i], english[i]) << "not translated: " << french[i].toStdString();
  }
  EXPECT_NE(std::find(english.begin(), english.end(), "Fit to window (Ctrl+0)"), english.end()) << "with Linux keys";
}
