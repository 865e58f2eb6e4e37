#include "engine/shape_table.h"

#include <algorithm>
#include <cmath>

namespace ombrik {

namespace {
constexpr int kTile = 16;

// Entries bucketed by key with a counting sort: starts (keys + 1) then the entries in key order.
struct Buckets {
  std::vector<int> count;
  explicit Buckets(int keys) : count(std::size_t(keys) + 1, 0) {}
};
}  // namespace

std::vector<float> shapeTable(const std::vector<float>& px, int W, int H, float reach) {
  const int n = int(px.size() / 2);
  const int tilesX = (W + kTile - 1) / kTile, tilesY = (H + kTile - 1) / kTile;
  auto at = [&](int i) { return std::pair{double(px[2 * i]), double(px[2 * i + 1])}; };

  // Rows crossed by each segment under the half-open rule: upward a.y <= y < b.y, downward
  // b.y <= y < a.y, y being the row's centre.
  auto rowsOf = [&](double ay, double by, int& first, int& last) {
    const double lo = std::min(ay, by), hi = std::max(ay, by);
    first = std::max(0, int(std::ceil(lo - 0.5)));
    last = std::min(H - 1, int(std::ceil(hi - 0.5)) - 1);
  };
  auto tilesOf = [&](int i, int& x0, int& y0, int& x1, int& y1) {
    const auto [ax, ay] = at(i);
    const auto [bx, by] = at((i + 1) % n);
    x0 = std::max(0, int(std::floor((std::min(ax, bx) - reach) / kTile)));
    x1 = std::min(tilesX - 1, int(std::floor((std::max(ax, bx) + reach) / kTile)));
    y0 = std::max(0, int(std::floor((std::min(ay, by) - reach) / kTile)));
    y1 = std::min(tilesY - 1, int(std::floor((std::max(ay, by) + reach) / kTile)));
  };

  std::vector<int> rowCount(std::size_t(H) + 1, 0), tileCount(std::size_t(tilesX) * tilesY + 1, 0);
  for (int i = 0; i < n; ++i) {
    const auto [ax, ay] = at(i);
    const auto [bx, by] = at((i + 1) % n);
    (void)ax, (void)bx;
    int r0, r1;
    if (ay != by) {
      rowsOf(ay, by, r0, r1);
      for (int r = r0; r <= r1; ++r) ++rowCount[r + 1];
    }
    int x0, y0, x1, y1;
    tilesOf(i, x0, y0, x1, y1);
    for (int ty = y0; ty <= y1; ++ty)
      for (int tx = x0; tx <= x1; ++tx) ++tileCount[std::size_t(ty) * tilesX + tx + 1];
  }
  for (std::size_t k = 1; k < rowCount.size(); ++k) rowCount[k] += rowCount[k - 1];
  for (std::size_t k = 1; k < tileCount.size(); ++k) tileCount[k] += tileCount[k - 1];

  const int rowAt = 9, crossAt = rowAt + H + 1, tileAt = crossAt + 2 * rowCount[H];
  const int listAt = tileAt + int(tileCount.size()), ptsAt = listAt + tileCount.back();
  std::vector<float> t(std::size_t(ptsAt) + px.size());
  const float header[9] = {float(H),     float(tilesX), float(tilesY), float(n),    float(rowAt),
                           float(crossAt), float(tileAt), float(listAt), float(ptsAt)};
  std::copy(std::begin(header), std::end(header), t.begin());
  for (int r = 0; r <= H; ++r) t[rowAt + r] = float(rowCount[r]);
  for (std::size_t k = 0; k < tileCount.size(); ++k) t[tileAt + k] = float(tileCount[k]);
  std::copy(px.begin(), px.end(), t.begin() + ptsAt);

  std::vector<int> rowFill(rowCount.begin(), rowCount.end() - 1), tileFill(tileCount.begin(), tileCount.end() - 1);
  for (int i = 0; i < n; ++i) {
    const auto [ax, ay] = at(i);
    const auto [bx, by] = at((i + 1) % n);
    int r0, r1;
    if (ay != by) {
      rowsOf(ay, by, r0, r1);
      for (int r = r0; r <= r1; ++r) {
        const double y = r + 0.5;
        const int c = rowFill[r]++;
        t[crossAt + 2 * c] = float(ax + (y - ay) * (bx - ax) / (by - ay));
        t[crossAt + 2 * c + 1] = by > ay ? 1.0f : -1.0f;
      }
    }
    int x0, y0, x1, y1;
    tilesOf(i, x0, y0, x1, y1);
    for (int ty = y0; ty <= y1; ++ty)
      for (int tx = x0; tx <= x1; ++tx) t[listAt + tileFill[std::size_t(ty) * tilesX + tx]++] = float(i);
  }
  return t;
}

}  // namespace ombrik
