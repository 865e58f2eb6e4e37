#pragma once
// Where the timeline view draws things and how: the ruler along the top, one row per layer with its
// header on the left and its bar on the right, the playhead over all of them. Only the rows in
// sight are drawn, so a long stack of layers costs what a short one does.
#include <QRectF>
#include <QString>
#include <set>
#include <utility>

#include "editorial/timeline.h"

class QPainter;

namespace ombrik {

class AppModel;

namespace tlview {

constexpr int kHeaderWidth = 250;
constexpr int kRulerHeight = 28;
constexpr int kRowHeight = 46;
constexpr double kMinZoom = 0.02;  // pixels per frame: a long film fits a narrow view
constexpr double kMaxZoom = 64;

// "hh:mm:ss:ff" at the rate rounded to whole frames.
QString timecode(int frame, double fps);

// Zoom and scroll of one timeline.
struct View {
  double pixelsPerFrame = 4;
  double scrollX = 0;  // pixels of the frame area hidden on the left
  double scrollY = 0;  // pixels of the rows hidden above
  bool operator==(const View&) const = default;
};

// The places of a view of `size` scrolled and zoomed as `view` says.
struct Geometry {
  QSizeF size;
  View view;
  double x(double frame) const { return kHeaderWidth + frame * view.pixelsPerFrame - view.scrollX; }
  int frameAt(double px) const;
  double rowTop(int row) const { return kRulerHeight + row * kRowHeight - view.scrollY; }
  int rowAt(double py) const;  // -1 over the ruler; may be past the last layer
  // The rows at least partly in sight, [first, last).
  std::pair<int, int> visibleRows(int count) const;
  // The bar of a layer, whole (it may reach outside the view).
  QRectF bar(const TLayer& layer, int row) const;
  // The header's controls of a row.
  QRectF nameArea(int row) const;
  QRectF effectsArea(int row) const;
  QRectF blendBox(int row) const;
  QRectF opacitySlider(int row) const;
  QRectF importButton() const;  // in the corner over the headers
  double maxScrollY(int rows) const;
};

struct TimelineScene {
  const AppModel& model;
  const Timeline& timeline;
  const Geometry& g;
  const std::set<Uuid>& selection;
  int frame = 0;  // the playhead
};

void paintTimeline(QPainter& p, const TimelineScene& scene);

}  // namespace tlview
}  // namespace ombrik
