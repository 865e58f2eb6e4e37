#pragma once
// The viewer: the displayed node's picture through the engine's display pass (channel, matte
// overlay, comparison with the rush), read back at the size it is drawn and painted in the
// model's viewer rectangle, with zoom, pan, the channel keys and a colour readout. On a mask node
// the mask tools take the left button and draw their outlines over the picture; on Masque au clic
// and Objet IA a click places a point. Without a
// picture it says why, and on a project without media offers the import.
#include <QImage>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>
#include <string>

#include "document/app_model.h"
#include "graph/point.h"
#include "graph/uuid.h"
#include "shell/ai_overlay.h"
#include "shell/roto_overlay.h"

class QLabel;
class QPushButton;
namespace ombrik::gpu {
class Texture;
}
class QPainter;

namespace ombrik {

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
  // A node held over the viewer: the invitation to let it go there.
  void setDropHint(bool on);
  bool dropHint() const { return dropHint_; }
  // The name over the picture: the node on screen, in the interface's language.
  QString caption() const;
  // What stands in for the picture, headline and advice on two lines; empty while one is shown.
  QString blankText() const { return picture_.isNull() ? blankText_ : QString(); }
  QPushButton* importButton() const { return import_; }

protected:
  void paintEvent(QPaintEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

private:
  void addShortcuts();
  QSize readSize(const std::shared_ptr<gpu::Texture>& tex) const;
  void readBack(const AppModel::ViewerState& state);
  void updateReadout();
  void moveWipe(QPointF at);
  void drawCompareBadge(QPainter& p);
  void drawBlank(QPainter& p);
  void refreshBlank();
  void placeImport();

  AppModel& model_;
  QImage picture_;
  // Kept from one picture to the next, so that showing a new frame allocates nothing.
  std::shared_ptr<gpu::Texture> shownTex_;
  std::vector<std::uint8_t> bytes_;
  QLabel* readout_ = nullptr;
  QPushButton* import_ = nullptr;
  QString blankText_;  // headline, newline, advice
  // What the picture was read from, so that an unchanged view costs nothing.
  struct Source {
    int frameID = -1;
    int time = -1;  // playback shows frames from its cache without a new render
    std::optional<Uuid> node;
    const void* main = nullptr;
    const void* before = nullptr;
    int mode = 0;
    double wipe = 0;
    QSize size;
    bool operator==(const Source&) const = default;
  };
  Source source(const AppModel::ViewerState& state) const;
  Source read_;
  // What was last drawn.
  double drawnZoom_ = 0;
  Point drawnPan_;
  std::string drawnTitle_;
  // Pan by drag; in the wipe comparison a left drag moves the wipe.
  bool wipeDrag_ = false;
  std::optional<QPointF> dragFrom_;
  Point panAtPress_;
  std::optional<QPointF> hover_;
  bool hoverMoved_ = false;
  bool dropHint_ = false;
  RotoOverlay roto_;
  AiOverlay ai_;  // the clicks of Masque au clic and Objet IA, when no mask tool takes them
};

}  // namespace ombrik
