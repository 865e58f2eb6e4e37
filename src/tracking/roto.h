#pragma once
// The geometry of Bézier shapes, pure and static: outlines, moves between placements, splits and
// hit tests. Points are normalised to the comp (0..1, y down) unless a function says otherwise.
#include <optional>
#include <vector>

#include "graph/mask_key.h"
#include "graph/point.h"

namespace ombrik {

struct Roto {
  // The outline as a polyline: `steps` samples a curved segment, one a straight one (both control
  // points exactly on their anchors). A closed outline doesn't repeat its first point; an open one
  // ends with its last anchor.
  static std::vector<Point> flatten(const std::vector<SplinePoint>& points, bool closed, int steps);
  // A point of a shape drawn at placement `from` moved to placement `to`, in a comp of W x H.
  static Point xform(Point p, const MaskKey& from, const MaskKey& to, double W, double H);
  // Splits segment `segment` (from point i to the next, wrapping) at t by de Casteljau; the new
  // point lands at index segment + 1 and the curve keeps its course.
  static std::vector<SplinePoint> split(const std::vector<SplinePoint>& points, int segment, double t);
  // Even-odd test; fewer than 3 vertices contain nothing.
  static bool contains(const std::vector<Point>& polygon, Point point);
  struct SegmentHit {
    int segment = 0;
    double t = 0;
    double distance = 0;  // in picture heights
  };
  // The segment nearest to `to`, sampled at 25 values of t; `aspect` is width over height.
  static std::optional<SegmentHit> nearestSegment(const std::vector<SplinePoint>& points, bool closed, Point to,
                                                  double aspect);
  // The cubic of segment i at t, and its two control points.
  static Point bezier(const std::vector<SplinePoint>& points, int segment, double t);
};

}  // namespace ombrik
