#include "shell/qt_dialogs.h"

#include <QInputDialog>

#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QStringList>

#include "platform/string_catalogue.h"

namespace ombrik {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }
QString filterFor(const std::vector<std::string>& types, bool others) {
  QStringList patterns;
  for (const auto& t : types) patterns << "*." + q(t);
  QString filter = patterns.join(' ').isEmpty() ? QString() : "(" + patterns.join(' ') + ")";
  if (others) filter += ";;(*)";
  return filter;
}
}  // namespace

std::optional<std::filesystem::path> QtDialogs::save(const SavePanel& panel) {
  QFileDialog dialog(parent_, q(tr(panel.title)), q((panel.directory / panel.proposedName).string()),
                     filterFor(panel.types, panel.otherTypesAllowed));
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  if (!panel.message.empty()) dialog.setWindowTitle(q(tr(panel.title)) + " — " + q(tr(panel.message)));
  if (!panel.canCreateFolders) dialog.setOption(QFileDialog::ReadOnly);
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
  return dialog.selectedFiles().front().toStdString();
}

std::optional<std::filesystem::path> QtDialogs::open(const OpenPanel& panel) {
  const QString file = QFileDialog::getOpenFileName(parent_, q(tr(panel.title)), q(panel.directory.string()),
                                                    filterFor(panel.types, false));
  if (file.isEmpty()) return std::nullopt;
  return file.toStdString();
}

std::vector<std::filesystem::path> QtDialogs::openMany(const OpenPanel& panel) {
  QFileDialog dialog(parent_, q(tr(panel.title)), q(panel.directory.string()), filterFor(panel.types, true));
  dialog.setFileMode(QFileDialog::ExistingFiles);
  // Qt's panel has no message area: the message follows the title.
  if (!panel.message.empty()) dialog.setWindowTitle(q(tr(panel.title)) + " — " + q(tr(panel.message)));
  std::vector<std::filesystem::path> chosen;
  if (dialog.exec() != QDialog::Accepted) return chosen;
  for (const QString& f : dialog.selectedFiles()) chosen.push_back(f.toStdString());
  return chosen;
}

std::optional<std::filesystem::path> QtDialogs::folder(const OpenPanel& panel) {
  const QString dir = QFileDialog::getExistingDirectory(parent_, q(tr(panel.title)), q(panel.directory.string()),
                                                        QFileDialog::ShowDirsOnly);
  if (dir.isEmpty()) return std::nullopt;
  return dir.toStdString();
}

int QtDialogs::alert(const Alert& a) {
  QMessageBox box(parent_);
  // The model writes French; templates in the catalogue carry names and counts across.
  box.setText(q(tr(a.title)));
  box.setInformativeText(q(tr(a.text)));
  std::vector<QPushButton*> buttons;
  for (const auto& b : a.buttons) buttons.push_back(box.addButton(q(tr(b)), QMessageBox::AcceptRole));
  if (!buttons.empty()) box.setDefaultButton(buttons.front());
  box.exec();
  for (std::size_t i = 0; i < buttons.size(); ++i)
    if (box.clickedButton() == buttons[i]) return int(i);
  return int(buttons.size()) - 1;
}

std::optional<QString> askLine(QWidget* parent, const char* objectName, const QString& title, const QString& label,
                               const QString& present) {
  QInputDialog ask(parent);
  ask.setObjectName(objectName);
  ask.setWindowTitle(title);
  ask.setLabelText(label);
  ask.setTextValue(present);
  if (ask.exec() != QDialog::Accepted) return std::nullopt;
  return ask.textValue();
}

}  // namespace ombrik
