#include "shell/render_queue_panel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "document/app_model.h"
#include "shell/path_label.h"
#include "shell/render_section.h"
#include "shell/shown_text.h"

namespace ombrik {

using State = RenderJob::State;

namespace {
QColor stateColour(State state) {
  switch (state) {
    case State::waiting: return QColor(0x9a, 0x9a, 0xa2);
    case State::running: return QColor(0xf0, 0x96, 0x46);
    case State::done: return QColor(0x6c, 0xc0, 0x6c);
    case State::failed: return QColor(0xe0, 0x5a, 0x50);
  }
  return {};
}

// The state of a job as its row reads.
QString jobStateText(const RenderJob& job) {
  switch (job.state) {
    case State::waiting: return shown("En attente");
    case State::running: return shown("En cours");
    case State::done: return shown("Terminé");
    case State::failed: return shown("Échec : ") + shown(job.message);
  }
  return {};
}
}  // namespace

RenderQueuePanel::RenderQueuePanel(AppModel& model, QWidget* parent) : QDialog(parent), model_(model) {
  setObjectName("renderQueuePanel");
  setWindowTitle(shown("File de rendu"));
  setModal(false);
  resize(560, 320);
  auto* column = new QVBoxLayout(this);
  auto* header = new QLabel(shown("Clic droit sur un monde › « Exporter (file de rendu) ». Plusieurs mondes peuvent attendre leur tour."), this);
  header->setWordWrap(true);
  column->addWidget(header);

  auto* where = new QHBoxLayout;
  where->addWidget(new QLabel(shown("Dossier de sortie (si le node Sortie du monde n'en a pas) : "), this));
  folder_ = new PathLabel(this);
  folder_->setObjectName("queueFolder");
  auto* choose = new QPushButton(shown("Choisir…"), this);
  choose->setObjectName("chooseQueueFolder");
  where->addWidget(folder_, 1);
  where->addWidget(choose);
  column->addLayout(where);

  jobs_ = new QTreeWidget(this);
  jobs_->setObjectName("renderJobs");
  jobs_->setRootIsDecorated(false);
  jobs_->setSelectionMode(QAbstractItemView::SingleSelection);
  jobs_->setFocusPolicy(Qt::ClickFocus);
  jobs_->setHeaderLabels({shown("Monde"), shown("État"), shown("Fichier")});
  jobs_->header()->setStretchLastSection(true);
  column->addWidget(jobs_, 1);

  auto* buttons = new QHBoxLayout;
  remove_ = new QPushButton(shown("Retirer de la file"), this);
  remove_->setObjectName("removeWaiting");
  clear_ = new QPushButton(shown("Vider les terminés"), this);
  clear_->setObjectName("clearFinished");
  stop_ = new QPushButton(shown("Arrêter"), this);
  stop_->setObjectName("stopRenders");
  buttons->addWidget(remove_);
  buttons->addWidget(clear_);
  buttons->addStretch(1);
  buttons->addWidget(stop_);
  column->addLayout(buttons);
  // Return never presses a button of the panel by surprise.
  for (QPushButton* b : findChildren<QPushButton*>()) b->setAutoDefault(false);

  // Every button does its work, then the panel shows the result at once.
  auto act = [this](QPushButton* button, auto work) {
    connect(button, &QPushButton::clicked, this, [this, work] {
      work();
      refresh();
    });
  };
  act(choose, [this] { model_.chooseQueueFolder(); });
  // The job picked in the list, else every waiting one.
  act(remove_, [this] {
    const int i = jobs_->indexOfTopLevelItem(jobs_->currentItem());
    if (i >= 0 && i < int(shown_.size()) && jobs_->currentItem()->isSelected()) model_.removeRenderJob(shown_[i].id);
    else model_.stopQueue();
  });
  act(clear_, [this] { model_.clearFinishedRenders(); });
  act(stop_, [this] { model_.stopAllRenders(); });
  connect(jobs_, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem* item) {
    const int i = jobs_->indexOfTopLevelItem(item);
    if (i >= 0 && i < int(shown_.size()) && shown_[i].output) revealRender(*shown_[i].output);
  });
  refresh();
}

void RenderQueuePanel::refresh() {
  if (!isVisible() && shownOnce_) return;
  folder_->setPath(qs(model_.queueFolder().string()));
  const auto& queue = model_.delivery.renderQueue;
  if (!shownOnce_ || queue != shown_) {
    shown_ = queue;
    shownOnce_ = true;
    showJobs();
  }
  const int waiting = renderqueue::count(queue, State::waiting);
  remove_->setEnabled(int(queue.size()) > renderqueue::count(queue, State::running));
  clear_->setEnabled(renderqueue::count(queue, State::done) + renderqueue::count(queue, State::failed) > 0);
  stop_->setEnabled(model_.rendering || waiting > 0);
}

void RenderQueuePanel::showJobs() {
  jobs_->clear();
  for (const RenderJob& job : shown_) {
    const QString file = job.output ? qs(job.output->filename().string()) : QString();
    auto* row = new QTreeWidgetItem(jobs_, {qs(job.name), jobStateText(job), file});
    row->setForeground(1, stateColour(job.state));
    row->setToolTip(1, jobStateText(job));
    if (job.output) row->setToolTip(2, qs(job.output->string()));
  }
  jobs_->resizeColumnToContents(0);
  jobs_->resizeColumnToContents(1);
}

}  // namespace ombrik
