// The notifying path of the graph, and undo by whole graph states.
#include <algorithm>
#include <set>

#include "document/app_model.h"
#include "platform/scheduler.h"

namespace ombrik {

Scheduler::Token AppModel::later(double seconds, std::function<void()> work) {
  std::weak_ptr<int> alive = alive_;
  return scheduler_->postAfter(seconds, [alive, work = std::move(work)] {
    if (alive.lock()) work();
  });
}

Scheduler::Token AppModel::repeat(double seconds, std::function<void()> work) {
  return scheduler_->every(seconds, std::move(work));  // the destructor cancels every repeat
}

void AppModel::storedNodes() {
  invalidatePlayCache();
  requestRender();
  historyChanged();
  // The first real work makes a placeholder world a real one.
  for (auto& b : _batches)
    if (_currentBatchID && b.id == *_currentBatchID && b.placeholder && _nodes.size() >= 2) b.placeholder = false;
}

void AppModel::storedEdges() {
  // A body or hair matte wired for the first time computes what it lacks.
  std::set<Uuid> wired;
  for (const Edge& e : _edges)
    if (const Node* n = e.port == 0 ? nodeByID(e.to) : nullptr; n && (n->kind->id == "bodymask" || n->kind->id == "hairmatte"))
      wired.insert(n->id);
  for (const Uuid& id : wired)
    if (!ai.bodyWired.count(id)) later(0, [this, id] { bodyAuto(id); });
  ai.bodyWired = std::move(wired);
  invalidatePlayCache();
  requestRender();
  historyChanged();
}

GraphSnapshot AppModel::snapshot() const { return {_nodes, _edges, layout.positions()}; }

void AppModel::historyChanged() {
  history.dirty = true;
  if (history.pending) scheduler_->cancel(*history.pending);
  history.pending = later(HistoryState::kQuiet, [this] { commitHistory(); });
}

void AppModel::commitHistory() {
  if (history.pending) scheduler_->cancel(*history.pending);
  history.pending.reset();
  if (_trackingProgress || _magicProgress || history.gestures > 0) {  // the whole run becomes one step
    historyChanged();
    return;
  }
  const SharedGraph now =
      HistoryState::capture(_nodes, _edges, layout.positions(), _openGroups, history.stable ? &*history.stable : nullptr);
  if (!history.stable) {
    history.stable = now;
    return;
  }
  if (now == *history.stable) return;  // taken back within the delay: no step
  history.undo.push_back(*history.stable);
  if (history.undo.size() > HistoryState::kMaxUndo) history.undo.erase(history.undo.begin());
  history.redo.clear();
  history.stable = now;
}

void AppModel::beginGesture() { ++history.gestures; }

void AppModel::endGesture() {
  if (history.gestures == 0) return;
  if (--history.gestures == 0 && history.pending) commitHistory();
}

void AppModel::apply(const SharedGraph& state) {
  const GraphSnapshot s = state.snapshot();
  layout.replaceAll(s.positions);
  _openGroups = state.openGroups;
  _edges = s.edges;
  storedEdges();
  _nodes = s.nodes;
  storedNodes();
  if (history.pending) scheduler_->cancel(*history.pending);
  history.pending.reset();
  history.stable = state;  // applying a state makes no new step
  auto exists = [&](const Uuid& id) { return nodeByID(id) != nullptr; };
  if (_selected && !exists(*_selected)) _selected.reset();
  std::erase_if(_selection, [&](const Uuid& id) { return !exists(id); });
  if (_viewedNode && !exists(*_viewedNode)) _viewedNode.reset();
}

// Undo and redo alike: the state on top of `from` is applied, the present one goes onto `to`.
void AppModel::step(std::vector<SharedGraph>& from, std::vector<SharedGraph>& to) {
  SharedGraph target = std::move(from.back());
  from.pop_back();
  to.push_back(HistoryState::capture(_nodes, _edges, layout.positions(), _openGroups, &target));
  apply(target);
}

void AppModel::undo() {
  if (tl.workspace == Workspace::timeline && !_worldView && tlUndoStep()) return;
  if ((_worldView || tl.filmFromWorld) && !worldUndo.empty()) {  // on the map, undo takes back whole-world operations
    undoWorld();
    return;
  }
  if (history.pending) commitHistory();  // the newest change can be undone at once
  if (_trackingProgress || _magicProgress) {
    _status = "Attendez la fin du calcul pour annuler.";
    return;
  }
  if (history.undo.empty()) {
    _status = "Rien à annuler.";
    return;
  }
  step(history.undo, history.redo);
  _status = "Annulé.";
}

void AppModel::redo() {
  if (tl.workspace == Workspace::timeline && !_worldView && tlRedoStep()) return;
  if (history.pending) commitHistory();
  if (history.redo.empty()) {
    _status = "Rien à rétablir.";
    return;
  }
  step(history.redo, history.undo);
  _status = "Rétabli.";
}

void AppModel::resetHistory() {
  if (history.pending) scheduler_->cancel(*history.pending);
  history.pending.reset();
  history.undo.clear();
  history.redo.clear();
  history.stable = HistoryState::capture(_nodes, _edges, layout.positions(), _openGroups, nullptr);
}

void AppModel::pushWorldUndo(const std::string& label) {
  saveCurrentBatch();
  worldUndo.push_back({label, _batches, _worldGroups, _currentBatchID, tl.timelines});
  if (worldUndo.size() > 10) worldUndo.erase(worldUndo.begin());
}

void AppModel::undoWorld() {
  if (worldUndo.empty()) return;
  WorldSnapshot s = std::move(worldUndo.back());
  worldUndo.pop_back();
  if (_isPlaying) stopPlayback();
  if (tl.workspace == Workspace::timeline) {
    tl.workspace = Workspace::batch;
    resetTime();
  }
  _viewerFull = false;
  tl.filmFromWorld = false;
  _batches = std::move(s.batches);
  _worldGroups = std::move(s.groups);
  tl.timelines = std::move(s.timelines);
  if (tl.currentTimelineID && !tl.current()) tl.currentTimelineID.reset();
  Uuid target = _batches.empty() ? Uuid() : _batches.front().id;
  for (const auto& b : _batches)
    if (s.current && b.id == *s.current) target = b.id;
  _currentBatchID.reset();  // the graph it replaces is not saved over the restored worlds
  if (!_batches.empty()) openBatch(target);
  _worldView = true;
  _status = "Annulé : " + s.label + ".";
  requestRender();
}

}  // namespace ombrik
