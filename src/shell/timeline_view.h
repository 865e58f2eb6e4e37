#pragma once
// The current timeline, drawn and edited by hand: a ruler that moves the playhead, one row per
// layer with its header (name, effects, opacity, blend) and its bar. A click selects (Shift or Ctrl
// adds), a drag moves a bar or trims it by its edges, by whole frames; one drag is one undo step.
// Ctrl+wheel zooms about the pointer, the wheel scrolls the rows and Shift+wheel the frames. The
// timeline's keys go to the model; a right click opens the layer's menu, a double click its world.
#include <QWidget>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "editorial/timeline_edits.h"
#include "shell/timeline_painter.h"

class QMenu;

namespace ombrik {

class AppModel;

class TimelineView : public QWidget {
public:
  explicit TimelineView(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // repaints only when what is drawn changed

  tlview::View view() const;
  void setView(const tlview::View& v);
  tlview::Geometry geometryNow() const;
  // Where a layer's bar is drawn now; empty for an unknown layer.
  QRectF barRect(const Uuid& layer) const;
  // A layer's menu and the blend menu of its header, made without being run.
  std::unique_ptr<QMenu> layerMenu(const Uuid& layer);
  std::unique_ptr<QMenu> blendMenu(const Uuid& layer);
  std::unique_ptr<QMenu> importMenu();
  void renameLayer(const Uuid& layer);
  // How the name is asked, given the present one; none: cancelled. A dialog unless set (tests
  // answer without a modal loop).
  std::function<std::optional<QString>(const QString& present)> askName;

protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  bool event(QEvent* event) override;

private:
  enum class Gesture { none, pressBar, dragBar, opacity, scrub };
  // What is drawn; a refresh that finds it unchanged paints nothing.
  struct Drawn {
    std::optional<Timeline> timeline;
    std::set<Uuid> selection;
    int frame = 0;
    std::size_t media = 0, worlds = 0, nodes = 0, edges = 0;
    int thumbs = 0;
    bool operator==(const Drawn&) const = default;
  };
  Drawn drawn() const;
  const Timeline* timeline() const;
  tlview::View& currentView();
  void clampView(tlview::View& v) const;
  void fit();  // the whole timeline across the frames' width
  // The layer of the row under a point, and its index; none past the last row or over the ruler.
  const TLayer* layerAt(QPointF at, int* row = nullptr) const;
  void setOpacityAt(double x);
  void seekAt(double x);
  void openLayerMenu(const Uuid& layer, QPoint at);

  AppModel& model_;
  std::map<Uuid, tlview::View> views_;  // by timeline
  std::set<Uuid> fitted_;                // views still as fitted, not yet zoomed or scrolled by hand
  Drawn shown_;
  Gesture gesture_ = Gesture::none;
  QPointF pressAt_;
  Uuid pressed_;                           // the layer under the press
  std::optional<TLayer> remembered_;       // the layer as the drag found it
  tledit::DragPart part_ = tledit::DragPart::body;
  bool renameAsked_ = false;  // by the layer menu, done once it has closed
};

}  // namespace ombrik
