#pragma once
#include <optional>

#include <QString>

#include "platform/dialogs.h"

class QWidget;

namespace ombrik {

// The desktop's file panels and alerts.
class QtDialogs final : public Dialogs {
public:
  explicit QtDialogs(QWidget* parent = nullptr) : parent_(parent) {}
  void setParent(QWidget* parent) { parent_ = parent; }
  std::optional<std::filesystem::path> save(const SavePanel& panel) override;
  std::optional<std::filesystem::path> open(const OpenPanel& panel) override;
  std::vector<std::filesystem::path> openMany(const OpenPanel& panel) override;
  int alert(const Alert& alert) override;
  std::optional<std::filesystem::path> folder(const OpenPanel& panel) override;

private:
  QWidget* parent_;
};

// One line of text asked in a small dialog named `objectName`, starting from `present`; none when
// cancelled.
std::optional<QString> askLine(QWidget* parent, const char* objectName, const QString& title, const QString& label,
                               const QString& present);

}  // namespace ombrik
