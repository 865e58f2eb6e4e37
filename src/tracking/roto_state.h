#pragma once
// What the viewer's mask tools hold between gestures: the tool, the selected points, the tracked
// dots shown while tracking, and whether one mask is seen alone.
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "graph/point.h"

namespace ombrik {

enum class RotoTool { moveImage, select, bezier, ellipse };

// The tool's name as the tool bar shows it ("Déplacer", "Sélection", "Bézier", "Ellipse").
inline const char* rotoToolName(RotoTool tool) {
  switch (tool) {
    case RotoTool::moveImage: return "Déplacer";
    case RotoTool::select: return "Sélection";
    case RotoTool::bezier: return "Bézier";
    case RotoTool::ellipse: return "Ellipse";
  }
  return "";
}

struct RotoState {
  RotoTool rotoTool = RotoTool::bezier;
  std::optional<int> selectedPoint;
  std::set<int> selectedPoints;
  std::map<int, std::vector<Point>> trackDots;  // not saved
  bool maskIsolate = false;
};

}  // namespace ombrik
