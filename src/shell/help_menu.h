#pragma once
// The Aide menu: the program's version, the keys by where they work, and the folders where the
// projects, logs and models are, each with a way to open it.
class QDialog;
class QMainWindow;
class QWidget;

namespace ombrik {

struct AppPaths;

void addHelpMenu(QMainWindow& window);
// The two panels the menu opens; they close themselves and go when closed.
QDialog* showShortcuts(QWidget* parent);
QDialog* showFolders(QWidget* parent, const AppPaths& paths);

}  // namespace ombrik
