#pragma once
// The clicks of Masque au clic and Objet IA on the picture: a click adds a point on the subject,
// Alt + click one to take away, Ctrl + click in a found object's frame drops that object. The
// points of the frame and the frames of the found objects are drawn over the picture.
#include <QPointF>
#include <QRectF>
#include <optional>
#include <string>
#include <vector>

#include "ai/object_boxes.h"
#include "graph/mask_key.h"
#include "graph/uuid.h"

class QPainter;

namespace ombrik {

class AppModel;

class AiOverlay {
public:
  explicit AiOverlay(AppModel& model) : model_(model) {}

  // The node the clicks go to: the Masque au clic or Objet IA whose settings are shown (locked in
  // the panel, inspected or selected, in that order).
  std::optional<Uuid> target() const;
  bool takesMouse() const { return target().has_value(); }
  // A left press on the picture drawn at `picture`. False when it isn't the tools' (no such node,
  // or outside the picture): the viewer pans instead.
  bool press(QPointF at, Qt::KeyboardModifiers modifiers, const QRectF& picture);

  bool changed() const;  // what would be drawn differs from what was
  void paint(QPainter& p, const QRectF& picture);

private:
  struct Shown {
    std::optional<Uuid> node;
    std::vector<MagicPoint> points;  // of the frame on view only
    std::string boxes;               // boxes.json as read, when its frame is on view
    bool operator==(const Shown&) const = default;
  };
  Shown current() const;
  // The node's boxes, read again only when a job moves on or ends or the status changes.
  const std::optional<ObjectBoxes>& boxes(const Uuid& id) const;

  AppModel& model_;
  Shown painted_;
  mutable std::optional<Uuid> readNode_;
  mutable std::optional<ObjectBoxes> boxes_;
  mutable std::optional<double> readProgress_;
  mutable std::string readStatus_;
  mutable int readFrame_ = -1;
};

}  // namespace ombrik
