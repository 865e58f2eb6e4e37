#include "shell/main_window.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QUrl>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <utility>

#include "document/app_model.h"
#include "shell/ai_progress_row.h"
#include "shell/curve_editor_widget.h"
#include "shell/inspector_widget.h"
#include "shell/main_menus.h"
#include "shell/node_editor.h"
#include "shell/qt_dialogs.h"
#include "shell/render_queue_panel.h"
#include "shell/roto_tool_bar.h"
#include "shell/shown_text.h"
#include "shell/timeline_settings.h"
#include "shell/timeline_view.h"
#include "shell/transport_bar.h"
#include "shell/viewer_widget.h"
#include "shell/worlds_panel.h"

namespace ombrik {

namespace {
constexpr int kRefreshMs = 33;  // about 30 times a second: renders land at most that often
}

MainWindow::MainWindow(AppModel& model, QWidget* parent) : QMainWindow(parent), model_(model) {
  model_.playTaskSound = [] { QApplication::beep(); };  // a long tracking or AI job has ended

  auto* picture = new QWidget(this);
  auto* pictureColumn = new QVBoxLayout(picture);
  pictureColumn->setContentsMargins(0, 0, 0, 0);
  pictureColumn->setSpacing(0);
  rotoBar_ = new RotoToolBar(model_, picture);
  viewer_ = new ViewerWidget(model_, picture);
  transport_ = new TransportBar(model_, picture);
  pictureColumn->addWidget(rotoBar_);
  pictureColumn->addWidget(viewer_, 1);
  pictureColumn->addWidget(transport_);

  auto* left = left_ = new QSplitter(Qt::Vertical, this);
  editors_ = new QStackedWidget(left);
  nodeEditor_ = new NodeEditor(model_, editors_);
  timeline_ = new TimelineView(model_, editors_);
  editors_->addWidget(nodeEditor_);
  editors_->addWidget(timeline_);
  curves_ = new CurveEditorWidget(model_, left);
  curves_->hide();  // shown on demand, under the graph
  left->addWidget(picture);
  left->addWidget(editors_);
  left->addWidget(curves_);
  left->setStretchFactor(0, 3);
  left->setStretchFactor(1, 2);

  auto* columns = new QSplitter(Qt::Horizontal, this);
  inspector_ = new InspectorWidget(model_, columns);
  columns->addWidget(left);
  columns->addWidget(inspector_);
  columns->setStretchFactor(0, 1);
  columns->setStretchFactor(1, 0);
  setCentralWidget(columns);

  status_ = new QLabel(this);
  status_->setObjectName("status");
  world_ = new QLabel(this);
  world_->setObjectName("worldName");
  world_->setAlignment(Qt::AlignCenter);
  statusBar()->addWidget(status_, 1);
  // A render's progress and its stop, shown only while it runs.
  progress_ = new QProgressBar(this);
  progress_->setObjectName("renderProgress");
  progress_->setRange(0, 1000);
  progress_->setTextVisible(false);
  progress_->setFixedWidth(180);
  cancelRender_ = new QPushButton(shown("Annuler le rendu"), this);
  cancelRender_->setObjectName("cancelRender");
  connect(cancelRender_, &QPushButton::clicked, this, [this] { model_.stopAllRenders(); });
  statusBar()->addPermanentWidget(progress_);
  statusBar()->addPermanentWidget(cancelRender_);
  progress_->hide();
  cancelRender_->hide();
  aiProgress_ = new AiProgressRow(model_, "aiStatusProgress", this);
  aiProgress_->setFixedWidth(360);
  statusBar()->addPermanentWidget(aiProgress_);
  statusBar()->addPermanentWidget(world_);
  dialogs_ = std::make_shared<QtDialogs>(this);

  worlds_ = new WorldsPanel(model_, this);
  addDockWidget(Qt::LeftDockWidgetArea, worlds_);
  worlds_->hide();  // the Mondes menu shows it
  setAcceptDrops(true);

  // A node dragged from the graph onto the picture is shown there.
  nodeEditor_->setShowTarget(viewer_, [this](bool over) { viewer_->setDropHint(over); });
  menus_ = new MainMenus(*this, model_, *viewer_,
                         {[this] { showRenderQueue(); }, [this] { toggleCurveEditor(); }, [this] { openTimelineSettings(); }});
  resize(1280, 800);
  columns->setSizes({910, 370});
  left->setSizes({470, 330});

  ticker_ = new QTimer(this);
  connect(ticker_, &QTimer::timeout, this, [this] { refresh(); });
  ticker_->start(kRefreshMs);
  refresh();
}

void MainWindow::toggleCurveEditor() {
  const bool show = !curves_->isVisible();
  curves_->setVisible(show);
  if (!show) return;
  // The curves take a third of the graph's height when they open.
  QList<int> sizes = left_->sizes();
  if (sizes.size() == 3 && sizes[2] < 80) {
    const int share = std::max(120, sizes[1] / 3);
    sizes[1] = std::max(60, sizes[1] - share);
    sizes[2] = share;
    left_->setSizes(sizes);
  }
  curves_->refresh();
}

TimelineSettings* MainWindow::openTimelineSettings() {
  if (!model_.tl.current()) return nullptr;
  if (settings_) settings_->close();
  settings_ = new TimelineSettings(model_, *model_.tl.currentTimelineID, this);
  settings_->setAttribute(Qt::WA_DeleteOnClose);
  connect(settings_, &QObject::destroyed, this, [this, sheet = settings_] {
    if (settings_ == sheet) settings_ = nullptr;
  });
  settings_->open();
  return settings_;
}

RenderQueuePanel* MainWindow::showRenderQueue() {
  if (!queue_) queue_ = new RenderQueuePanel(model_, this);
  queue_->show();
  queue_->raise();
  queue_->activateWindow();
  queue_->refresh();
  return queue_;
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (model_.rendering && dialogs_) {
    const Alert ask{shown("Un rendu est en cours. Quitter l'arrête.").toStdString(), "",
                    {shown("Continuer le rendu").toStdString(), shown("Quitter").toStdString()}};
    if (dialogs_->alert(ask) == 0) {
      event->ignore();
      return;
    }
  }
  // Saved while the window is still there, so that a failed save can keep it open.
  if (const auto why = model_.autosave(); why && dialogs_) {
    const QString title = shown("Le projet n'a pas pu être enregistré : %s.").replace("%s", shown(*why));
    const Alert ask{title.toStdString(), "",
                    {shown("Ne pas quitter").toStdString(), shown("Quitter sans enregistrer").toStdString()}};
    if (dialogs_->alert(ask) == 0) {
      event->ignore();  // a render asked about goes on
      return;
    }
  }
  if (model_.rendering) model_.stopAllRenders();  // an unfinished movie is removed with its writer
  QMainWindow::closeEvent(event);
}

void MainWindow::refreshProgress() {
  const std::optional<double> progress = model_.delivery.renderProgress;
  if (progress_->isHidden() == progress.has_value()) {
    progress_->setVisible(progress.has_value());
    cancelRender_->setVisible(progress.has_value());
  }
  if (progress) progress_->setValue(int(std::lround(std::clamp(*progress, 0.0, 1.0) * 1000)));
  aiProgress_->refresh(model_._magicProgress);
}

QString MainWindow::worldName() const {
  const Batch* world = model_.currentBatch();
  return world ? QString::fromStdString(world->name) : QString();
}

void MainWindow::refreshTitle() {
  // As Linux applications do: the document's name first, "*" after it while changes are unsaved.
  const QString project = model_._projectURL ? QString::fromStdString(model_._projectURL->stem().string())
                                             : shown("Sans titre");
  const QString title = project + QStringLiteral("[*] — Ombrik");
  if (windowTitle() != title) setWindowTitle(title);
  if (isWindowModified() != model_.history.dirty) setWindowModified(model_.history.dirty);
}

void MainWindow::refresh() {
  refreshTitle();
  const QString name = worldName();
  if (world_->text() != name) world_->setText(name);
  if (model_._status != shownStatus_) {
    shownStatus_ = model_._status;
    status_->setText(shown(shownStatus_));
  }
  rotoBar_->refresh();
  viewer_->refresh();
  transport_->refresh();
  inspector_->refresh();
  // The timeline stands in for the graph while it is in front; a new one opens its settings.
  QWidget* editor = model_.shownTimeline() ? static_cast<QWidget*>(timeline_) : nodeEditor_;
  if (editors_->currentWidget() != editor) {
    editors_->setCurrentWidget(editor);
    editor->setFocus();
  }
  if (editor == timeline_) timeline_->refresh();
  else nodeEditor_->refresh();
  if (std::exchange(model_.tl.timelineSettingsOpen, false)) openTimelineSettings();
  if (curves_->isVisible()) curves_->refresh();
  menus_->refresh();
  refreshProgress();
  if (queue_) queue_->refresh();
  // What brings the world map forward shows the list, which holds its place until the map exists.
  if (model_._worldView && !worldView_) worlds_->show();
  worldView_ = model_._worldView;
  worlds_->refresh();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  if (dropUrls(event->mimeData()->urls())) event->acceptProposedAction();
}

bool MainWindow::dropUrls(const QList<QUrl>& urls) {
  std::vector<std::filesystem::path> files;
  for (const QUrl& url : urls)
    if (url.isLocalFile()) files.push_back(url.toLocalFile().toStdString());
  if (files.empty()) return false;
  model_.importFromFinder(files);
  refresh();
  return true;
}

}  // namespace ombrik
