#pragma once
// The curve editor: the animated parameters of the inspected node as curves over the frames,
// keys and their handles, the playhead, frame numbers along the bottom and the values of one
// curve along the left. Gestures go to the GraphEditor logic, which edits the keys through the
// model (and so through undo); a key's right-click menu sets its style or deletes it.
#include <QWidget>
#include <memory>
#include <optional>

class QMenu;

namespace ombrik {

class AppModel;
class GraphEditor;
struct KeySel;
struct Node;

class CurveEditorWidget : public QWidget {
public:
  explicit CurveEditorWidget(AppModel& model, QWidget* parent = nullptr);
  ~CurveEditorWidget() override;
  void refresh();  // cheap when nothing changed

  const GraphEditor& editor() const { return *editor_; }
  // Where a key is drawn, if its curve is shown.
  std::optional<QPointF> keyPoint(const KeySel& key) const;
  // The menu of the key under `at` (nothing when no key is there); the key joins the selection
  // as a click would select it.
  std::unique_ptr<QMenu> keyMenu(QPoint at);

protected:
  void paintEvent(QPaintEvent*) override;
  void mousePressEvent(QMouseEvent* e) override;
  void mouseMoveEvent(QMouseEvent* e) override;
  void mouseReleaseEvent(QMouseEvent* e) override;
  void contextMenuEvent(QContextMenuEvent* e) override;

private:
  const Node* node() const;
  std::optional<KeySel> keyAt(QPointF at) const;
  void paintAxes(QPainter& p, const Node* node);

  AppModel& model_;
  std::unique_ptr<GraphEditor> editor_;
  std::optional<QPointF> pressAt_;
  std::size_t lastSignature_ = 0;
};

}  // namespace ombrik
