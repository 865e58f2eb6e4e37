// Worlds in and out of the open stores: exactly one world is open, and its graph lives in
// _nodes, _edges and layout, not in its Batch, until saveCurrentBatch writes it back.
#include <algorithm>
#include <functional>

#include "color/lut_lib.h"
#include "document/app_model.h"
#include "document/world_list.h"
#include "engine/engine.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace fs = std::filesystem;

std::chrono::system_clock::time_point AppModel::wallNow() const {
  const auto elapsed = std::chrono::duration<double>(scheduler_->now() - clockStart_);
  return wallStart_ + std::chrono::duration_cast<std::chrono::system_clock::duration>(elapsed);
}

const Batch* AppModel::currentBatch() const {
  return _currentBatchID ? worldlist::find(_batches, *_currentBatchID) : nullptr;
}

void AppModel::saveCurrentBatch() {
  Batch* world = _currentBatchID ? worldlist::find(_batches, *_currentBatchID) : nullptr;
  if (!world) return;
  world->lastUsed = wallNow();
  world->nodes = _nodes;
  world->edges = _edges;
  world->positions = layout.positions();
  world->openGroups = _openGroups;
  if (auto out = outputNode())
    if (auto thumb = nodeThumbs.find(*out); thumb != nodeThumbs.end()) world->thumb = thumb->second;
}

void AppModel::openBatch(const Uuid& id) {
  const bool isCurrent = _currentBatchID == id;
  if (tl.workspace == Workspace::timeline) {  // a world opened from the timeline leaves it
    tl.workspace = Workspace::batch;
    if (isCurrent) {
      if (_isPlaying) stopPlayback();
      resetTime();
      return;
    }
  }
  // Caching the whole graph comes before this once it exists.
  if (rendering && !isCurrent) {
    _status = "Rendu en cours : le monde s'ouvrira à la fin (ou arrêtez la file de rendu).";
    return;
  }
  if (!isCurrent && worldlist::find(_batches, id)) {
    if (_isPlaying) stopPlayback();
    // The Node Creator closes here, unless the world is its own, once it exists.
    saveCurrentBatch();
    Batch& world = *worldlist::find(_batches, id);
    _currentBatchID = id;
    world.lastUsed = wallNow();
    _selected.reset();
    _selection.clear();
    _viewedNode.reset();
    layout.replaceAll(world.positions);
    _openGroups = world.openGroups;
    _edges = world.edges;
    storedEdges();
    _nodes = world.nodes;
    storedNodes();
    roto.trackDots.clear();
    if (auto out = outputNode()) _selected = out;
    if (engine) {
      // Textures of nodes of other worlds go; those of groups inside this one stay.
      std::set<Uuid> ids;
      std::function<void(const std::vector<Node>&)> collect = [&](const std::vector<Node>& nodes) {
        for (const auto& n : nodes) {
          ids.insert(n.id);
          if (n.group) collect(n.group->nodes);
        }
      };
      collect(_nodes);
      engine->keepPool(ids);
    }
    resetTime();
    resetHistory();
  }
  worldlist::sweepPlaceholders(_batches, _currentBatchID);
}

void AppModel::enterWorld(const Uuid& id) {
  const Batch* world = worldlist::find(_batches, id);
  if (!world) return;
  // A film world opens on its timeline once films exist; until then it opens as any world.
  _openGroup = world->group;
  openBatch(id);
  if (_currentBatchID == id) _worldView = false;  // a refused world leaves the map in front
}

void AppModel::showWorlds() {
  if (_isPlaying) stopPlayback();
  saveCurrentBatch();
  if (tl.workspace == Workspace::timeline) {
    tl.workspace = Workspace::batch;
    resetTime();
  }
  tl.filmFromWorld = false;
  _viewerFull = false;
  _quickAddVisible = false;
  _worldView = true;
}

void AppModel::newBatch(std::optional<std::string> name, std::optional<Uuid> mediaID) {
  saveCurrentBatch();
  if (!mediaID && !_media.empty()) mediaID = _media.back().id;
  Batch world = worldlist::mediaWorld(mediaID, name ? *name : worldlist::defaultName(_batches.size() + 1), wallNow());
  const Uuid id = world.id;
  _batches.push_back(std::move(world));
  openBatch(id);
}

std::optional<Uuid> AppModel::duplicateBatch(const Uuid& id) {
  if (!worldlist::find(_batches, id)) return std::nullopt;
  saveCurrentBatch();  // a change to the open world is in the copy
  Batch copy = worldlist::duplicate(*worldlist::find(_batches, id), wallNow());
  _batches.push_back(std::move(copy));
  return _batches.back().id;
}

void AppModel::renameBatch(const Uuid& id, const std::string& to) {
  if (Batch* world = worldlist::find(_batches, id); world && !worldlist::isBlank(to)) world->name = to;
}

void AppModel::deleteBatch(const Uuid& id) {
  if (_batches.size() < 2 || !worldlist::find(_batches, id)) return;
  if (_currentBatchID == id) openBatch(_batches[0].id == id ? _batches[1].id : _batches[0].id);
  if (_currentBatchID == id) return;  // a running render keeps its world open, so it stays
  std::erase_if(_batches, [&](const Batch& b) { return b.id == id; });
}

std::optional<Uuid> AppModel::worldMediaID(const Batch& batch) const {
  return worldlist::mediaOf(batch, batch.id == _currentBatchID ? _nodes : batch.nodes);
}

const MediaItem* AppModel::worldMedia(const Batch& batch) const {
  const auto id = worldMediaID(batch);
  if (!id) return nullptr;
  auto it = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == *id; });
  return it == _media.end() ? nullptr : &*it;
}

std::optional<GraphSnapshot> AppModel::worldGraph(const Uuid& id) const {
  if (id == _currentBatchID) return GraphSnapshot{_nodes, _edges, layout.positions()};
  const Batch* world = worldlist::find(_batches, id);
  if (!world) return std::nullopt;
  return GraphSnapshot{world->nodes, world->edges, world->positions};
}

std::vector<const Batch*> AppModel::worldsByRecency() const { return worldlist::byRecency(_batches); }

std::vector<const Batch*> AppModel::visibleBatches() const { return worldlist::visible(_batches, _openGroup); }

void AppModel::setWorldLUT(const Uuid& id, const std::string& lut) {
  Batch* world = worldlist::find(_batches, id);
  if (!world) return;
  world->lut = lut;
  invalidatePlayCache();
  requestRender();
  std::optional<std::string> label;
  if (lut.rfind(LUTLib::kAutoPrefix, 0) == 0) {
    const std::string key = lut.substr(LUTLib::kAutoPrefix.size());
    label = key;  // a curve the library no longer knows shows its key
    for (const auto& g : LUTLib::generics())
      if (g.id == key) label = g.label;
  } else if (!lut.empty()) {
    label = fs::path(lut).filename().string();
  }
  _status = worldlist::lutStatus(world->name, label);
}

bool AppModel::setWorldLUTFile(const Uuid& id, const fs::path& file) {
  if (!worldlist::find(_batches, id)) return false;
  std::string why;
  if (!LUTLib::parseCube(file, &why)) {
    _status = why;  // "LUT illisible : NAME (REASON)"; the world keeps its LUT
    return false;
  }
  setWorldLUT(id, file.string());
  return true;
}

void AppModel::chooseWorldLUTFile(const Uuid& id) {
  OpenPanel panel;
  panel.title = "Choisir une LUT (.cube)";
  panel.types = {"cube"};
  if (auto file = dialogs_->open(panel)) setWorldLUTFile(id, *file);
}

void AppModel::toggleWorldLUTRender(const Uuid& id) {
  if (Batch* world = worldlist::find(_batches, id)) world->lutRender = !world->lutRender.value_or(false);
}

}  // namespace ombrik
