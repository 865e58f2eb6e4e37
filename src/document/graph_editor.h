#pragma once
// The curve editor's logic, apart from its drawing: which curves a node shows, their vertical
// ranges, the mapping between canvas points and (frame, value), and how a drag becomes key data.
#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "document/app_model.h"
#include "graph/keyframe.h"
#include "graph/node.h"
#include "graph/point.h"

namespace ombrik {

class GraphEditor {
public:
  struct Range {
    double lo = 0, hi = 1;
  };
  struct Curve {
    std::string key;
    std::string label;
    std::vector<Keyframe> ks;
    std::array<int, 3> color;  // sRGB out of 255
    Range range;
  };
  enum class Hit { none, handle, keys, marquee };

  double mx = 16, my = 16;         // margins, in points
  std::set<std::string> _hidden;   // parameter keys whose curve is hidden

  static std::vector<Curve> curves(const Node& node);
  static Range range(const std::vector<Keyframe>& ks);
  // The handles of key `index` as (frame, value): P1 of the segment leaving it, P2 of the one arriving.
  static std::pair<std::optional<Point>, std::optional<Point>> handlePoints(const std::vector<Keyframe>& ks, int index);

  // Mapping for a canvas of w by h points.
  double xOf(double frame, int frameCount, double w) const;
  double yOf(double value, Range r, double h) const;
  double frameAt(double x, int frameCount, double w) const;
  double valueAt(double y, Range r, double h) const;

  // A drag on the canvas: the first call starts it, later calls move it; `end` finishes it.
  void handleDrag(AppModel& model, Point start, Point now, bool shift, Size canvas);
  void handleEnd(AppModel& model, Point end, Size canvas);
  Hit hit() const { return hit_; }
  std::optional<std::pair<Point, Point>> marquee() const { return marquee_; }

private:
  bool visible(const std::string& key) const { return !_hidden.count(key); }
  Point pointOf(const Curve& c, double frame, double value, int frameCount, Size canvas) const {
    return {xOf(frame, frameCount, canvas.width), yOf(value, range_(c.key, c.range), canvas.height)};
  }
  Range range_(const std::string& key, Range fallback) const {
    auto it = _ranges.find(key);
    return it == _ranges.end() ? fallback : it->second;
  }

  bool dragging_ = false;
  Hit hit_ = Hit::none;
  std::string handleKey_;
  int handleIndex_ = 0;
  bool handleOut_ = false;
  std::map<std::string, Range> _ranges;            // frozen at drag start
  std::map<KeySel, std::pair<std::int64_t, double>> _startOrig;
  Point _startPoint;
  bool _shiftAtStart = false;
  std::optional<std::pair<Point, Point>> marquee_;
};

}  // namespace ombrik
