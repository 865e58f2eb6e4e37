#pragma once
// The viewer: the result of the displayed node, read back small from the engine and drawn in the
// model's viewer rectangle, with zoom, pan, the channel keys and a colour readout.
#include <QImage>
#include <QWidget>
#include <optional>
#include <string>

#include "graph/point.h"
#include "graph/uuid.h"

class QLabel;

namespace ombrik {

class AppModel;

class ViewerWidget : public QWidget {
public:
  explicit ViewerWidget(AppModel& model, QWidget* parent = nullptr);
  // Re-reads the picture only when a render finished, the node on screen or the drawn size changed.
  void refresh();
  void fit();           // the whole picture in the view
  void actualPixels();  // one picture pixel a screen pixel
  // The picture as last read back, at the size it is drawn (or smaller): what the artist sees.
  const QImage& picture() const { return picture_; }
  QRectF pictureRect() const;  // where it is drawn, in widget coordinates
  QString readoutText() const;

protected:
  void paintEvent(QPaintEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;

private:
  void addShortcuts();
  QSize readSize() const;
  void readBack();
  void updateReadout();

  AppModel& model_;
  QImage picture_;
  QLabel* readout_ = nullptr;
  // What the picture was read from, so that an unchanged view costs nothing.
  int readFrame_ = -1;
  int readTime_ = -1;  // playback shows frames from its cache without a new render
  std::optional<Uuid> readNode_;
  const void* readTexture_ = nullptr;
  QSize readSize_;
  // What was last drawn.
  double drawnZoom_ = 0;
  Point drawnPan_;
  std::string drawnTitle_;
  // Pan by drag.
  std::optional<QPointF> dragFrom_;
  Point panAtPress_;
  std::optional<QPointF> hover_;
  bool hoverMoved_ = false;
};

}  // namespace ombrik
