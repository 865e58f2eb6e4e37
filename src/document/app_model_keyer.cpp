// Colours picked in the viewer for the 3D keyer.
#include <algorithm>
#include <array>
#include <cmath>

#include "document/app_model.h"
#include "engine/engine.h"

namespace ombrik {

namespace {
std::array<double, 3> yc(double r, double g, double b) {
  const double y = 0.2126 * r + 0.7152 * g + 0.0722 * b;
  return {y, (b - y) * 0.5, (r - y) * 0.65};
}
double ycDistance(const std::array<double, 3>& a, const std::array<double, 3>& b) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}
}  // namespace

void AppModel::keyerAddSample(const Uuid& id, Point at, bool subtract) {
  Node* node = nodeByID(id);
  if (!node || !engine) return;
  auto in = std::find_if(_edges.begin(), _edges.end(), [&](const Edge& e) { return e.to == id && e.port == 0; });
  if (in == _edges.end()) return;
  auto picture = engine->outputs.find(in->from);
  if (picture == engine->outputs.end()) return;
  const auto& t = picture->second;
  const auto colour = engine->readColor(t, int(t->width() * at.x), int(t->height() * at.y), 2);
  if (!colour) return;
  const double sign = subtract ? -1 : 1;
  const auto c = yc((*colour)[0], (*colour)[1], (*colour)[2]);
  auto& samples = node->keySamples;
  // A colour can't be both kept and removed.
  std::erase_if(samples, [&](const std::vector<double>& s) {
    return s.size() > 5 && (s[3] > 0) != (sign > 0) && ycDistance(yc(s[0], s[1], s[2]), c) < 0.01;
  });
  const bool known = std::any_of(samples.begin(), samples.end(), [&](const std::vector<double>& s) {
    return s.size() > 5 && (s[3] > 0) == (sign > 0) && ycDistance(yc(s[0], s[1], s[2]), c) < 0.004 &&
           std::hypot(s[4] - 100 * at.x, s[5] - 100 * at.y) < 1.5;
  });
  if (!known) {
    samples.push_back({(*colour)[0], (*colour)[1], (*colour)[2], sign, 100 * at.x, 100 * at.y});
    if (samples.size() > 120) samples.erase(samples.begin(), samples.end() - 120);
  }
  storedNodes();
}

void AppModel::keyerClear(const Uuid& id) {
  Node* node = nodeByID(id);
  if (!node) return;
  node->keySamples.clear();
  storedNodes();
}

}  // namespace ombrik
