#pragma once
// The mask tools on the picture: mouse gestures handed to the shape editor in picture
// coordinates, the keys of the tools, and the outlines and handles of the mask node's masks drawn
// over the picture.
#include <QPointF>
#include <QRectF>
#include <optional>
#include <set>
#include <vector>

#include "document/roto_drag.h"
#include "graph/gmask.h"
#include "graph/point.h"
#include "graph/uuid.h"

class QPainter;

namespace ombrik {

class AppModel;

class RotoOverlay {
public:
  explicit RotoOverlay(AppModel& model) : model_(model), drag_(model) {}

  // A left press on the picture drawn at `picture` (widget coordinates). False when the mask tools
  // don't take it (no mask node, or the Déplacer tool): the viewer pans instead.
  bool press(QPointF at, Qt::KeyboardModifiers modifiers, const QRectF& picture);
  bool dragging() const { return dragging_; }
  void drag(QPointF at);
  void release(QPointF at);
  // True when the double-click landed on a point, which turns smooth or sharp.
  bool doubleClick(QPointF at, const QRectF& picture);
  // Whether a double-click that hit nothing should be dropped rather than treated as a press.
  bool takesMouse() const;

  // I, A (held), Backspace or Delete, Return. False when the key isn't the tools'.
  bool keyPress(int key, bool autoRepeat);
  bool keyRelease(int key, bool autoRepeat);
  bool aHeld() const { return aHeld_; }

  // What the overlay would show differs from what it last painted.
  bool changed() const;
  void paint(QPainter& p, const QRectF& picture);

  static Point toPicture(QPointF at, const QRectF& picture);
  static QPointF toView(Point p, const QRectF& picture);

private:
  // Everything the drawing depends on, so that an unchanged overlay costs one comparison.
  struct Shown {
    std::optional<Uuid> node;
    std::vector<GMask> layers;
    int active = 0;
    std::optional<int> selected;
    std::set<int> selection;
    bool hidden = false;
    bool isolate = false;
    std::optional<Point> marqueeFrom, marqueeTo;
    std::vector<Point> dots;  // the points a tracking run follows at this frame
    bool operator==(const Shown&) const = default;
  };
  Shown current() const;
  void paintMask(QPainter& p, const GMask& mask, const QRectF& picture, bool active) const;
  void paintEllipse(QPainter& p, const GMask& mask, const QRectF& picture, bool active) const;
  void paintHandles(QPainter& p, const GMask& mask, const QRectF& picture) const;

  AppModel& model_;
  RotoDrag drag_;
  QRectF picture_;  // where the picture was at the press
  bool dragging_ = false;
  bool aHeld_ = false;
  Shown painted_;
};

}  // namespace ombrik
