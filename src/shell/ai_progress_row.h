#pragma once
// The progress of the running AI job: a bar, the percentage with the time left and spent, and
// "Annuler l'IA". The inspector shows one in the panel of the node the job works for, the status
// bar one for whatever job runs.
#include <QWidget>
#include <optional>

class QLabel;
class QProgressBar;
class QPushButton;

namespace ombrik {

class AppModel;

class AiProgressRow : public QWidget {
public:
  AiProgressRow(AppModel& model, const char* name, QWidget* parent = nullptr);
  void refresh(std::optional<double> progress);  // hidden without a progress
  QString etaShown() const;

private:
  AppModel& model_;
  QProgressBar* bar_ = nullptr;
  QLabel* eta_ = nullptr;
  QPushButton* cancel_ = nullptr;
};

}  // namespace ombrik
