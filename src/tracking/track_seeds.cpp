#include "tracking/track_seeds.h"

#include <algorithm>
#include <cmath>

#include "tracking/roto.h"

namespace ombrik {

std::vector<Point> seedPoints(const MaskKey& key, double W, double H, int count) {
  const int g = std::max(3, int(std::floor(std::sqrt(count * 4.0 / M_PI))));
  const double a = key.rot * M_PI / 180, ca = std::cos(a), sa = std::sin(a);
  const Point c{key.cx / 100 * W, key.cy / 100 * H};
  std::vector<Point> out;
  for (int j = 0; j < g; ++j) {
    const double v = 2 * (j + 0.5) / g - 1;
    for (int i = 0; i < g; ++i) {
      const double u = 2 * (i + 0.5) / g - 1;
      if (u * u + v * v > 1) continue;
      const double dx = u * key.rx / 100 * W * 0.92, dy = v * key.ry / 100 * H * 0.92;
      const Point p{c.x + dx * ca - dy * sa, c.y + dx * sa + dy * ca};
      if (p.x < 0 || p.x >= W || p.y < 0 || p.y >= H) continue;
      out.push_back({p.x / W, p.y / H});
    }
  }
  return out;
}

std::vector<Point> seedPoints(const std::vector<Point>& polygon, double, double, int count) {
  if (polygon.size() < 3) return {};
  double x0 = polygon[0].x, x1 = x0, y0 = polygon[0].y, y1 = y0;
  for (const Point& p : polygon) x0 = std::min(x0, p.x), x1 = std::max(x1, p.x), y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
  int g = std::max(3, int(std::floor(std::sqrt(double(count)))));
  std::vector<Point> out;
  for (int pass = 0; pass < 4; ++pass) {
    out.clear();
    for (int j = 0; j < g; ++j) {
      const double y = y0 + (j + 0.5) * (y1 - y0) / g;
      for (int i = 0; i < g; ++i) {
        const Point p{x0 + (i + 0.5) * (x1 - x0) / g, y};
        if (p.x >= 0 && p.x < 1 && p.y >= 0 && p.y < 1 && Roto::contains(polygon, p)) out.push_back(p);
      }
    }
    if (int(out.size()) >= count * 7 / 10) break;
    g = int(std::floor(g * 1.3)) + 1;
  }
  return out;
}

}  // namespace ombrik
