#include "tracking/roto.h"

#include <cmath>

namespace ombrik {

namespace {
Point add(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
Point sub(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
Point lerp(Point a, Point b, double t) { return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; }

Point cubic(Point p0, Point c1, Point c2, Point p3, double t) {
  const double u = 1 - t;
  const double a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
  return {a * p0.x + b * c1.x + c * c2.x + d * p3.x, a * p0.y + b * c1.y + c * c2.y + d * p3.y};
}
}  // namespace

Point Roto::bezier(const std::vector<SplinePoint>& points, int segment, double t) {
  const int n = int(points.size());
  const SplinePoint& a = points[segment];
  const SplinePoint& b = points[(segment + 1) % n];
  return cubic(a.p, add(a.p, a.outT), add(b.p, b.inT), b.p, t);
}

std::vector<Point> Roto::flatten(const std::vector<SplinePoint>& points, bool closed, int steps) {
  const int n = int(points.size());
  if (n == 0) return {};
  if (n == 1) return {points[0].p};
  steps = std::max(1, steps);
  std::vector<Point> out;
  const int segments = closed ? n : n - 1;
  out.reserve(std::size_t(segments) * std::size_t(steps) + 1);
  for (int i = 0; i < segments; ++i) {
    const SplinePoint& a = points[i];
    const SplinePoint& b = points[(i + 1) % n];
    const Point c1 = add(a.p, a.outT), c2 = add(b.p, b.inT);
    const bool straight = c1 == a.p && c2 == b.p;
    const int samples = straight ? 1 : steps;
    for (int k = 0; k < samples; ++k) out.push_back(cubic(a.p, c1, c2, b.p, double(k) / samples));
  }
  if (!closed) out.push_back(points.back().p);
  return out;
}

Point Roto::xform(Point p, const MaskKey& k0, const MaskKey& k1, double W, double H) {
  if (k0 == k1) return p;  // also when the radii are zero, which the scale would collapse
  const double dx = p.x * W - k0.cx / 100 * W, dy = p.y * H - k0.cy / 100 * H;
  const double a0 = k0.rot * M_PI / 180, a1 = k1.rot * M_PI / 180;
  double u = dx * std::cos(a0) + dy * std::sin(a0);
  double v = dy * std::cos(a0) - dx * std::sin(a0);
  u *= k1.rx / std::max(k0.rx, 1e-6);
  v *= k1.ry / std::max(k0.ry, 1e-6);
  const double x = u * std::cos(a1) - v * std::sin(a1) + k1.cx / 100 * W;
  const double y = u * std::sin(a1) + v * std::cos(a1) + k1.cy / 100 * H;
  return {x / W, y / H};
}

std::vector<SplinePoint> Roto::split(const std::vector<SplinePoint>& points, int segment, double t) {
  const int n = int(points.size());
  if (n < 2 || segment < 0 || segment >= n) return points;
  std::vector<SplinePoint> out = points;
  const int next = (segment + 1) % n;
  const Point p0 = points[segment].p, p3 = points[next].p;
  const Point c1 = add(p0, points[segment].outT), c2 = add(p3, points[next].inT);
  const Point q0 = lerp(p0, c1, t), q1 = lerp(c1, c2, t), q2 = lerp(c2, p3, t);
  const Point r0 = lerp(q0, q1, t), r1 = lerp(q1, q2, t);
  const Point s = lerp(r0, r1, t);
  out[segment].outT = sub(q0, p0);
  out[next].inT = sub(q2, p3);
  out.insert(out.begin() + segment + 1, SplinePoint{s, sub(r0, s), sub(r1, s)});
  return out;
}

bool Roto::contains(const std::vector<Point>& poly, Point q) {
  const int n = int(poly.size());
  if (n < 3) return false;
  bool inside = false;
  for (int i = 0, j = n - 1; i < n; j = i++) {
    const Point a = poly[i], b = poly[j];
    if ((a.y > q.y) != (b.y > q.y) && q.x < a.x + (q.y - a.y) * (b.x - a.x) / (b.y - a.y)) inside = !inside;
  }
  return inside;
}

std::optional<Roto::SegmentHit> Roto::nearestSegment(const std::vector<SplinePoint>& points, bool closed, Point to,
                                                     double aspect) {
  const int n = int(points.size());
  if (n < 2) return std::nullopt;
  std::optional<SegmentHit> best;
  const int segments = closed ? n : n - 1;
  for (int i = 0; i < segments; ++i)
    for (int k = 0; k <= 24; ++k) {
      const double t = k / 24.0;
      const Point b = bezier(points, i, t);
      const double d = std::hypot((b.x - to.x) * aspect, b.y - to.y);
      if (!best || d < best->distance) best = SegmentHit{i, t, d};
    }
  return best;
}

}  // namespace ombrik
