#pragma once
// The curve editor: the animated parameters of the inspected node as curves over the frames,
// keys and their handles, the playhead. Gestures go to the GraphEditor logic, which edits the
// keys through the model (and so through undo).
#include <QWidget>
#include <memory>
#include <optional>

namespace ombrik {

class AppModel;
class GraphEditor;

class CurveEditorWidget : public QWidget {
public:
  explicit CurveEditorWidget(AppModel& model, QWidget* parent = nullptr);
  ~CurveEditorWidget() override;
  void refresh();  // cheap when nothing changed

protected:
  void paintEvent(QPaintEvent*) override;
  void mousePressEvent(QMouseEvent* e) override;
  void mouseMoveEvent(QMouseEvent* e) override;
  void mouseReleaseEvent(QMouseEvent* e) override;

private:
  AppModel& model_;
  std::unique_ptr<GraphEditor> editor_;
  std::optional<QPointF> pressAt_;
  std::size_t lastSignature_ = 0;
};

}  // namespace ombrik
