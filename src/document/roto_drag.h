#pragma once
// The mask tools' gestures in the viewer: a press picks what the gesture does (close the shape,
// insert, drag a tangent, a point, several points or the whole mask, draw an ellipse, start a
// marquee, add a point), drags apply it and the release ends it. Points come in normalised comp
// coordinates; the size of the picture on screen turns the handle radii (in screen points) into
// picture distances, so handles feel the same at every zoom.
#include <map>
#include <optional>
#include <variant>

#include "graph/point.h"
#include "graph/uuid.h"

namespace ombrik {

class AppModel;

struct RotoKeys {
  bool shift = false;  // adds a point to the selection; a drag in free space draws a marquee
  bool alt = false;    // deletes the point pressed; breaks the mirror of a tangent
  bool ctrl = false;   // inserts a point on the segment pressed
  bool aHeld = false;  // A held: inserts on the nearest segment, anywhere on a closed shape
};

class RotoDrag {
public:
  static constexpr double kHandle = 9;      // points
  static constexpr double kInsertNear = 10; // points, with Ctrl
  static constexpr double kANear = 12;      // points, with A
  static constexpr double kPending = 4;     // points a pending press may move
  static constexpr double kPull = 3;        // points a new point is dragged before its tangents come out

  struct Move {};
  struct NewPoint { int index; Point at; };
  struct PointDrag { int index; };
  struct Tangent { int index; bool isOut; bool mirror; };
  struct Shape { double cx, cy; Point at; };
  struct Group { std::map<int, Point> starts; Point at; };
  struct Marquee { Point start; };
  struct PendingNew { Point at; };
  struct Size { int which; };  // 0 both radii, 1 width, 2 height
  struct Done {};
  using DragKind = std::variant<Move, NewPoint, PointDrag, Tangent, Shape, Group, Marquee, PendingNew, Size, Done>;

  explicit RotoDrag(AppModel& model) : model_(model) {}
  // `width`, `height`: the picture's size on screen in points. False when the press isn't the
  // mask tools' (no mask node, the Déplacer tool): the viewer then pans.
  bool press(Point at, const RotoKeys& keys, double width, double height);
  void drag(Point at);
  void release(Point at);
  // A double-click on a point makes it smooth or a corner.
  bool doubleClick(Point at, double width, double height);
  const std::optional<DragKind>& current() const { return kind_; }
  std::optional<Point> marqueeCorner() const { return marqueeEnd_; }  // while a marquee is drawn
  const std::optional<Uuid>& node() const { return node_; }

private:
  double points(Point a, Point b) const;  // screen distance between two picture points
  std::optional<int> pointAt(Point at) const;
  bool pressEllipse(Point at);

  AppModel& model_;
  std::optional<Uuid> node_;
  std::optional<DragKind> kind_;
  Point pressAt_;
  double width_ = 1, height_ = 1;
  double moved_ = 0;
  std::optional<Point> marqueeEnd_;
};

}  // namespace ombrik
