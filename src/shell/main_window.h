#pragma once
// The main window: viewer and transport over the node editor, the inspector beside them, the
// status line below. It only places the widgets and keeps them in step with the model.
#include <QMainWindow>

class QSplitter;
#include <string>

class QLabel;
class QTimer;

namespace ombrik {

class AppModel;
class InspectorWidget;
class MainMenus;
class NodeEditor;
class RotoToolBar;
class TransportBar;
class ViewerWidget;

class CurveEditorWidget;

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
  CurveEditorWidget* curveEditor() const { return curves_; }
  void toggleCurveEditor();

private:
  AppModel& model_;
  QLabel* world_ = nullptr;
  QLabel* status_ = nullptr;
  std::string shownStatus_;
  ViewerWidget* viewer_ = nullptr;
  TransportBar* transport_ = nullptr;
  RotoToolBar* rotoBar_ = nullptr;  // over the picture while a mask node is edited
  InspectorWidget* inspector_ = nullptr;
  NodeEditor* nodeEditor_ = nullptr;
  CurveEditorWidget* curves_ = nullptr;
  QSplitter* left_ = nullptr;
  MainMenus* menus_ = nullptr;
  QTimer* ticker_ = nullptr;
};

}  // namespace ombrik
