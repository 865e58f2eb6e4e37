#pragma once
// A world: the graph of one shot, with its place on the map.
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"
#include "graph/picture.h"
#include "graph/point.h"
#include "graph/uuid.h"
#include "groups/node_group.h"

namespace ombrik {

// Where a world sits in the film it was cut from.
struct FilmShot {
  Uuid timelineID;
  int index = 0;
  int start = 0;
  int count = 0;
  bool operator==(const FilmShot&) const = default;
};

struct Batch {
  Uuid id;
  std::string name;
  bool placeholder = false;
  std::vector<Node> nodes;
  std::vector<Edge> edges;
  std::map<Uuid, Point> positions;
  std::optional<Picture> thumb;
  std::optional<Uuid> mediaID;
  std::optional<Point> worldPos;
  std::optional<FilmShot> film;
  std::optional<std::string> lut;  // a path, "auto:<id>", or "" for the choice of none
  std::optional<bool> lutRender;
  std::optional<Uuid> group;
  std::optional<std::chrono::system_clock::time_point> lastUsed;
  bool shotsFolded = false;
  std::optional<Uuid> filmTimeline;
  std::vector<OpenGroup> openGroups;
  bool creator = false;
  bool operator==(const Batch&) const = default;
};

}  // namespace ombrik
