#include "shell/help_menu.h"

#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <QWidgetAction>
#include <algorithm>
#include <filesystem>

#include "document/help_topics.h"
#include "platform/app_paths.h"
#include "platform/version.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
QDialog* panel(QWidget* parent, const char* title, const char* name) {
  auto* d = new QDialog(parent);
  d->setObjectName(name);
  d->setWindowTitle(shown(title));
  d->setAttribute(Qt::WA_DeleteOnClose);
  return d;
}

void addClose(QDialog* d, QVBoxLayout* column) {
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, d);
  QObject::connect(buttons, &QDialogButtonBox::rejected, d, &QDialog::close);
  column->addWidget(buttons);
}

// Window-wide keys are written as Qt reads them, and named the way the desktop names them in the
// running language; the others are gestures in words.
QString keysText(const HelpKeyGroup& group, const HelpKey& key) {
  if (!group.windowWide) return shown(key.keys);
  return QKeySequence::fromString(linuxKeys(QString::fromUtf8(key.keys)), QKeySequence::PortableText)
      .toString(QKeySequence::NativeText);
}
}  // namespace

QDialog* showShortcuts(QWidget* parent) {
  QDialog* d = panel(parent, "Raccourcis clavier", "shortcutsPanel");
  auto* column = new QVBoxLayout(d);
  auto* tree = new QTreeWidget(d);
  tree->setObjectName("shortcuts");
  tree->setColumnCount(2);
  tree->setHeaderLabels({shown("Touches"), shown("Action")});
  tree->setRootIsDecorated(false);
  tree->setSelectionMode(QAbstractItemView::NoSelection);
  for (const HelpKeyGroup& group : helpKeyGroups()) {
    auto* heading = new QTreeWidgetItem(tree, {shown(group.title)});
    heading->setFirstColumnSpanned(true);
    QFont bold = heading->font(0);
    bold.setBold(true);
    heading->setFont(0, bold);
    for (const HelpKey& key : group.keys) new QTreeWidgetItem(heading, {keysText(group, key), shown(key.what)});
  }
  tree->expandAll();
  tree->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  column->addWidget(tree);
  addClose(d, column);
  d->resize(560, 620);
  d->show();
  return d;
}

QDialog* showFolders(QWidget* parent, const AppPaths& paths) {
  QDialog* d = panel(parent, "Dossiers et journaux", "foldersPanel");
  auto* column = new QVBoxLayout(d);
  auto* grid = new QGridLayout;
  int row = 0;
  for (const HelpFolder& folder : helpFolders(paths)) {
    const QString path = QString::fromStdString(folder.path.string());
    auto* label = new QLabel(shown(folder.label), d);
    auto* where = new QLabel(path, d);
    where->setTextInteractionFlags(Qt::TextSelectableByMouse);  // to copy it into a terminal
    std::error_code ec;
    // A folder not made yet has nothing to open; the program makes it when it needs it.
    const bool there = std::filesystem::is_directory(folder.path, ec);
    auto* open = new QPushButton(shown(there ? "Ouvrir" : "Pas encore créé"), d);
    open->setObjectName(QStringLiteral("open:%1").arg(row));
    open->setEnabled(there);
    open->setMinimumWidth(open->fontMetrics().horizontalAdvance(open->text()) + 32);  // the theme's padding
    QObject::connect(open, &QPushButton::clicked, d, [path] { QDesktopServices::openUrl(QUrl::fromLocalFile(path)); });
    grid->addWidget(label, row, 0);
    grid->addWidget(where, row, 1);
    grid->addWidget(open, row, 2);
    ++row;
  }
  grid->setColumnStretch(1, 1);
  column->addLayout(grid);
  column->addStretch(1);
  addClose(d, column);
  d->resize(std::max(760, d->sizeHint().width()), d->sizeHint().height());
  d->show();
  return d;
}

void addHelpMenu(QMainWindow& window) {
  QMenu* m = window.menuBar()->addMenu(shown("Aide"));
  m->setObjectName("helpMenu");
  // A line to read, not a command: a label, which a disabled entry's etched text would blur.
  auto* version = new QWidgetAction(m);
  auto* label = new QLabel(shown("Ombrik, version %s").replace("%s", QString::fromUtf8(ombrikVersion())), m);
  label->setObjectName("versionLabel");
  label->setContentsMargins(12, 6, 12, 4);
  QFont bold = label->font();
  bold.setBold(true);
  label->setFont(bold);
  version->setDefaultWidget(label);
  version->setObjectName("version");
  m->addAction(version);
  m->addSeparator();
  QAction* keys = m->addAction(shown("Raccourcis clavier…"));
  keys->setObjectName("shortcuts");
  QObject::connect(keys, &QAction::triggered, &window, [&window] { showShortcuts(&window); });
  QAction* folders = m->addAction(shown("Dossiers et journaux…"));
  folders->setObjectName("folders");
  QObject::connect(folders, &QAction::triggered, &window, [&window] { showFolders(&window, AppPaths::shared()); });
}

}  // namespace ombrik
