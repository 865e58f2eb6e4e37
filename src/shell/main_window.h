#pragma once
// The main window: viewer and transport over the node editor (or the timeline), the inspector beside them, the
// status line below, with a render's or an AI job's progress while one runs. It only places the widgets and
// keeps them in step with the model.
#include <QList>
#include <QMainWindow>
#include <QUrl>
#include <memory>
#include <string>

class QLabel;
class QProgressBar;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTimer;

namespace ombrik {

class AiProgressRow;
class AppModel;
class InspectorWidget;
class MainMenus;
class NodeEditor;
class RotoToolBar;
class TransportBar;
class TimelineSettings;
class TimelineView;
class ViewerWidget;

class CurveEditorWidget;
class Dialogs;
class RenderQueuePanel;
class WorldsPanel;

class MainWindow : public QMainWindow {
public:
  explicit MainWindow(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // re-reads the model; cheap when nothing changed
  QString worldName() const;

  ViewerWidget* viewer() const { return viewer_; }
  TransportBar* transport() const { return transport_; }
  RotoToolBar* rotoToolBar() const { return rotoBar_; }
  InspectorWidget* inspector() const { return inspector_; }
  NodeEditor* nodeEditor() const { return nodeEditor_; }
  // In the node editor's place while the timeline workspace is in front.
  TimelineView* timelineView() const { return timeline_; }
  // The current timeline's settings sheet, opened without waiting on it; none without a timeline.
  TimelineSettings* openTimelineSettings();
  TimelineSettings* timelineSettings() const { return settings_; }
  CurveEditorWidget* curveEditor() const { return curves_; }
  void toggleCurveEditor();
  RenderQueuePanel* showRenderQueue();
  RenderQueuePanel* renderQueue() const { return queue_; }  // none until first opened
  QProgressBar* renderProgress() const { return progress_; }
  AiProgressRow* aiProgress() const { return aiProgress_; }
  WorldsPanel* worldsPanel() const { return worlds_; }  // docked on the left, hidden until asked for
  // Where the window asks its questions (the desktop's alerts unless set).
  void setDialogs(std::shared_ptr<Dialogs> dialogs) { dialogs_ = std::move(dialogs); }
  // What a drop on the window brings: files and folders as worlds, world packs whole. False when
  // none of them is a local file.
  bool dropUrls(const QList<QUrl>& urls);

protected:
  // A render running is not left without asking; quitting stops it. The project is saved first,
  // and a save that fails asks whether to quit without it.
  void closeEvent(QCloseEvent* event) override;
  // Files and folders dropped on the window come in as worlds; a world pack comes back whole.
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

private:
  void refreshProgress();
  void refreshTitle();  // the project's name, with the mark of unsaved changes

  AppModel& model_;
  QLabel* world_ = nullptr;
  QLabel* status_ = nullptr;
  std::string shownStatus_;
  ViewerWidget* viewer_ = nullptr;
  TransportBar* transport_ = nullptr;
  RotoToolBar* rotoBar_ = nullptr;  // over the picture while a mask node is edited
  InspectorWidget* inspector_ = nullptr;
  NodeEditor* nodeEditor_ = nullptr;
  TimelineView* timeline_ = nullptr;
  QStackedWidget* editors_ = nullptr;  // the node editor or the timeline
  TimelineSettings* settings_ = nullptr;  // while open
  CurveEditorWidget* curves_ = nullptr;
  QSplitter* left_ = nullptr;
  MainMenus* menus_ = nullptr;
  QTimer* ticker_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QPushButton* cancelRender_ = nullptr;
  AiProgressRow* aiProgress_ = nullptr;  // whatever AI job runs, with its cancel
  RenderQueuePanel* queue_ = nullptr;
  WorldsPanel* worlds_ = nullptr;
  bool worldView_ = false;  // the map's moment last seen: the list stands in for the map
  std::shared_ptr<Dialogs> dialogs_;
};

}  // namespace ombrik
