#pragma once
// Undo by whole graph states. A state shares every unchanged node with the state before it, so
// a step costs a pointer per node plus copies of the nodes that really changed.
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "editorial/timeline.h"
#include "graph/batch.h"
#include "graph/edge.h"
#include "graph/graph_snapshot.h"
#include "graph/node.h"
#include "graph/point.h"
#include "graph/world_group.h"
#include "platform/scheduler.h"

namespace ombrik {

struct SharedGraph {
  std::vector<std::shared_ptr<const Node>> nodes;
  std::shared_ptr<const std::vector<Edge>> edges;
  std::shared_ptr<const std::map<Uuid, Point>> positions;
  std::vector<OpenGroup> openGroups;  // undoing a group's opening must take its frame away too

  GraphSnapshot snapshot() const;
  bool operator==(const SharedGraph& o) const;  // deep, with pointer shortcuts
};

struct HistoryState {
  static constexpr std::size_t kMaxUndo = 200;
  static constexpr double kQuiet = 0.35;  // seconds without change before a step is taken

  std::vector<SharedGraph> undo;  // last is the most recent
  std::vector<SharedGraph> redo;
  std::optional<SharedGraph> stable;  // the last committed state
  std::optional<Scheduler::Token> pending;
  bool dirty = false;
  int gestures = 0;  // gestures under way: their changes wait for the end to become a step

  // The live graph as a state, reusing the nodes, edges and positions of `like` that are equal.
  static SharedGraph capture(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                             const std::map<Uuid, Point>& positions, const std::vector<OpenGroup>& openGroups,
                             const SharedGraph* like);
};

// Heavy operations on worlds keep whole-project states of their own, at most 10.
struct WorldSnapshot {
  std::string label;
  std::vector<Batch> batches;
  std::vector<WorldGroup> groups;
  std::optional<Uuid> current;
  std::vector<Timeline> timelines;
};

}  // namespace ombrik
