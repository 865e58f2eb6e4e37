// The main window: its title and world name, saving when it closes, and its menus.
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QShortcut>
#include <QTreeWidget>
#include <sys/stat.h>
#include <unistd.h>

#include "document/help_topics.h"
#include "platform/app_paths.h"
#include "shell/curve_editor_widget.h"
#include "shell/qt_translations.h"
#include "shell/shown_text.h"
#include "shell_app.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
QAction* actionNamed(QMenu* menu, const char* name) { return menu ? menu->findChild<QAction*>(name) : nullptr; }
using test::menuTitled, test::triggerEntry;
}  // namespace

// The title names the project, untitled until saved, with "*" while changes aren't saved; the
// status line names the world. Édition works on the graph's nodes; Affichage opens the curve
// editor, by its entry and by its keys.
TEST(MainWindow, TitledByTheProjectAndTheEditAndViewMenusWorkOnTheGraph) {
  test::WindowDesk d;
  MainWindow& window = *d.window;
  EXPECT_FALSE(window.isWindowModified());
  auto* label = d.find<QLabel>("worldName");
  ASSERT_NE(label, nullptr);
  d.m->addNode(NodeKind::color(), {300, 100});
  window.refresh();
  EXPECT_TRUE(window.isWindowModified()) << "a change not saved";
  ASSERT_TRUE(d.m->write(d.dir.path / "Plan 12.tarvom"));
  d.m->_batches[0].name = "Plan_07";
  window.refresh();
  EXPECT_EQ(window.windowTitle(), "Plan 12[*] — Ombrik");
  EXPECT_FALSE(window.isWindowModified()) << "saved";
  EXPECT_EQ(label->text(), "Plan_07");

  QMenu* edit = menuTitled(window, "Édition");
  ASSERT_NE(edit, nullptr);
  const std::size_t nodes = d.m->_nodes.size();
  actionNamed(edit, "selectAll")->trigger();
  EXPECT_EQ(d.m->_selection.size(), nodes);
  actionNamed(edit, "copyNodes")->trigger();
  actionNamed(edit, "pasteNodes")->trigger();
  EXPECT_EQ(d.m->_nodes.size(), 2 * nodes) << "the copies of every node";
  actionNamed(edit, "deleteSelection")->trigger();
  EXPECT_EQ(d.m->_nodes.size(), nodes + 1) << "the pasted copies went but the output's: an output never goes";
  EXPECT_TRUE(actionNamed(edit, "deleteSelection")->shortcut().isEmpty())
      << "Delete belongs to where the focus is: a mask's points in the viewer, nodes in the graph";

  QAction* curves = actionNamed(menuTitled(window, "Affichage"), "curveEditor");
  ASSERT_NE(curves, nullptr);
  curves->trigger();
  EXPECT_TRUE(window.curveEditor()->isVisible());
  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_FALSE(window.curveEditor()->isVisible()) << "Ctrl+Shift+G, one action only";
}

// Mondes makes a world and chooses its LUT among the camera curves, and the LUT at render once
// there is one; Langue ticks the language chosen, before the restart that brings it; Aide shows
// the version, the keys and the folders, and every key it lists as working anywhere in the window
// is one the window answers.
TEST(MainWindow, TheWorldsLanguageAndHelpMenus) {
  test::WindowDesk d;
  MainWindow& window = *d.window;
  QMenu* worlds = menuTitled(window, "Mondes");
  ASSERT_NE(worlds, nullptr);
  const std::size_t before = d.m->_batches.size();
  ASSERT_TRUE(triggerEntry(worlds, "Nouveau monde"));
  EXPECT_EQ(d.m->_batches.size(), before + 1);
  EXPECT_EQ(*d.m->_currentBatchID, d.m->_batches.back().id) << "the new world is opened";
  QMenu* lut = nullptr;
  ASSERT_TRUE(triggerEntry(worlds, "LUT du monde", &lut));
  ASSERT_TRUE(triggerEntry(lut, "Sony S-Log3 / S-Gamut3.Cine → Rec.709"));
  EXPECT_EQ(d.m->currentBatch()->lut, std::optional<std::string>("auto:slog3"));
  ASSERT_TRUE(triggerEntry(worlds, "LUT du monde", &lut));
  ASSERT_TRUE(triggerEntry(lut, "Appliquer la LUT au rendu"));
  EXPECT_EQ(d.m->currentBatch()->lutRender, std::optional<bool>(true));

  QMenu* language = menuTitled(window, "Langue");
  QAction *french = actionNamed(language, "language:fr"), *english = actionNamed(language, "language:en");
  ASSERT_TRUE(french && english);
  EXPECT_TRUE(french->isChecked()) << "a development tree speaks French";
  english->trigger();
  window.refresh();
  EXPECT_EQ(d.m->chosenLanguage(), AppLanguage::english);
  EXPECT_TRUE(english->isChecked());
  EXPECT_FALSE(french->isChecked());

  QMenu* help = menuTitled(window, "Aide");
  ASSERT_NE(help, nullptr);
  QList<QKeySequence> bound;
  for (QAction* a : window.findChildren<QAction*>()) bound += a->shortcuts();
  for (QShortcut* s : window.findChildren<QShortcut*>()) bound += s->key();
  for (const HelpKeyGroup& group : helpKeyGroups()) {
    if (!group.windowWide) continue;
    for (const HelpKey& key : group.keys) {
      const QKeySequence seq = QKeySequence::fromString(linuxKeys(QString::fromUtf8(key.keys)), QKeySequence::PortableText);
      EXPECT_FALSE(seq.isEmpty()) << key.keys;
      EXPECT_TRUE(bound.contains(seq)) << key.keys << " (" << key.what << ") is listed but not bound";
    }
  }
  actionNamed(help, "shortcuts")->trigger();
  auto* keys = d.find<QDialog>("shortcutsPanel");
  ASSERT_TRUE(keys && keys->isVisible());
  QTreeWidget* tree = keys->findChild<QTreeWidget*>("shortcuts");
  ASSERT_EQ(tree->topLevelItemCount(), int(helpKeyGroups().size()));
  EXPECT_EQ(tree->topLevelItem(0)->child(0)->text(0), "Ctrl+N") << "the keys as the desktop writes them";
  keys->close();
  actionNamed(help, "folders")->trigger();
  auto* folders = d.find<QDialog>("foldersPanel");
  ASSERT_TRUE(folders && folders->isVisible());
  QStringList texts;
  for (QLabel* l : folders->findChildren<QLabel*>()) texts << l->text();
  EXPECT_TRUE(texts.contains(QString::fromStdString(AppPaths::shared().logs.string()))) << texts.join(" | ").toStdString();
  folders->close();
}

// Closing the window saves the project; a save that fails asks, and quits only when told to quit
// without saving. A project in a folder that can't be written: a tmpfs made read-only under root,
// a folder without the right to write otherwise.
TEST(MainWindow, ClosingSavesAndAFailedSaveAsksBeforeQuitting) {
  test::WindowDesk d;
  const fs::path folder = d.dir.path / "disque", project = folder / "Projet.tarvom";
  fs::create_directories(folder);
  const bool root = ::geteuid() == 0;
  if (root && std::system(("mount -t tmpfs -o size=256k tmpfs '" + folder.string() + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no tmpfs can be mounted here";
  struct Restore {
    fs::path at;
    bool root;
    ~Restore() { root ? (void)std::system(("umount '" + at.string() + "'").c_str()) : (void)::chmod(at.c_str(), 0755); }
  } restore{folder, root};
  ASSERT_TRUE(d.m->write(project));
  const std::string before = slurp(project);
  d.m->_nodes.push_back(Node(NodeKind::glow()));
  ASSERT_EQ(root ? std::system(("mount -o remount,ro '" + folder.string() + "'").c_str()) : ::chmod(folder.c_str(), 0555), 0);

  d.dialogs->alertAnswers = {0, 1};  // stay, then quit without saving
  EXPECT_FALSE(d.window->close());
  ASSERT_EQ(d.dialogs->alerts.size(), 1u);
  EXPECT_EQ(d.dialogs->alerts[0].title, std::string("Le projet n'a pas pu être enregistré : ") +
                                            (root ? "le disque est en lecture seule." : "écriture interdite."));
  EXPECT_TRUE(d.window->isVisible());
  EXPECT_EQ(slurp(project), before);
  EXPECT_TRUE(d.window->close());
  EXPECT_FALSE(d.window->isVisible());
  EXPECT_EQ(d.dialogs->alerts.size(), 2u);
  EXPECT_EQ(slurp(project), before);

  // Where the save can be made, nothing is asked: a titled project is written over itself, an
  // untitled one to the automatic file, and it stays untitled.
  for (const std::optional<fs::path>& url : {std::optional(d.dir.path / "Ailleurs.tarvom"), std::optional<fs::path>()}) {
    d.m->_projectURL = url;
    d.window->show();
    EXPECT_TRUE(d.window->close());
    EXPECT_EQ(d.dialogs->alerts.size(), 2u);
    EXPECT_EQ(d.m->_projectURL, url);
    const fs::path written = url ? *url : d.dir.path / "data" / "Projets" / AppModel::kAutoFileName;
    EXPECT_NE(slurp(written).find("\"glow\""), std::string::npos) << written;
  }
}

// Qt's own buttons and dialogs speak the interface's language.
TEST(MainWindow, QtsOwnTextsFollowTheLanguage) {
  test::shellApp();
  struct Back {
    ~Back() { useQtTranslations(AppLanguage::english); }
  } back;
  auto cancel = [] {
    QDialogButtonBox box(QDialogButtonBox::Cancel);
    return box.button(QDialogButtonBox::Cancel)->text().remove('&');
  };
  ASSERT_TRUE(useQtTranslations(AppLanguage::french)) << "Qt's translations are installed";
  EXPECT_EQ(cancel(), "Annuler");
  ASSERT_TRUE(useQtTranslations(AppLanguage::english));
  EXPECT_EQ(cancel(), "Cancel");
}
