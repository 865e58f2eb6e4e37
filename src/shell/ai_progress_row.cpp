#include "shell/ai_progress_row.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <algorithm>
#include <cmath>

#include "ai/task_eta.h"
#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

AiProgressRow::AiProgressRow(AppModel& model, const char* name, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName(name);
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(6);
  bar_ = new QProgressBar(this);
  bar_->setObjectName(QString(name) + "Bar");
  bar_->setRange(0, 1000);
  bar_->setTextVisible(false);
  bar_->setFixedHeight(8);
  bar_->setMinimumWidth(80);
  eta_ = new QLabel(this);
  eta_->setObjectName(QString(name) + "Eta");
  eta_->setStyleSheet("QLabel { font: 11px monospace; color: #b4b4bc; }");
  cancel_ = new QPushButton(shown("Annuler l'IA"), this);
  cancel_->setObjectName(QString(name) + "Cancel");
  row->addWidget(bar_, 1);
  row->addWidget(eta_);
  row->addWidget(cancel_);
  connect(cancel_, &QPushButton::clicked, this, [this] { model_.cancelAI(); });
  hide();
}

void AiProgressRow::refresh(std::optional<double> progress) {
  const std::optional<double> elapsed = model_.aiElapsed();
  if (isHidden() == progress.has_value()) setVisible(progress.has_value());
  if (!progress) return;
  const double p = std::clamp(*progress, 0.0, 1.0);
  bar_->setValue(int(std::lround(p * 1000)));
  const QString text = QString::fromStdString(etaText(p, elapsed)).replace("reste", shown("reste"));
  if (eta_->text() != text) eta_->setText(text);
}

QString AiProgressRow::etaShown() const { return isHidden() ? QString() : eta_->text(); }

}  // namespace ombrik
