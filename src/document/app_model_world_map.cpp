// Worlds on the map: made from files, placed on the grid, put in folders, deleted.
#include <algorithm>

#include "color/lut_lib.h"
#include "document/app_model.h"
#include "document/world_list.h"
#include "media/media_files.h"
#include "platform/dialogs.h"

namespace ombrik {

namespace fs = std::filesystem;

Point AppModel::worldPosition(const Batch& batch) const {
  return worldlist::worldPosition(_batches, _worldGroups.size(), batch);
}

Point AppModel::groupPosition(const WorldGroup& group) const { return worldlist::groupPosition(_worldGroups, group); }

Point AppModel::nextWorldSlot(std::optional<Uuid> group) const { return worldlist::nextSlot(_batches, _worldGroups, group); }

Uuid AppModel::makeWorld(const Uuid& mediaID, const std::string& name, std::optional<Point> at,
                         std::optional<FilmShot> film, std::optional<std::string> lut) {
  Batch world = worldlist::mediaWorld(mediaID, name, wallNow());
  world.mediaID = mediaID;
  world.group = _openGroup;
  world.worldPos = at ? *at : nextWorldSlot(_openGroup);
  world.film = film;
  if (lut) {
    world.lut = lut;
  } else {  // the curve a camera file calls for, else the choice of none
    auto item = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == mediaID; });
    world.lut = item != _media.end() && item->url ? LUTLib::detect(*item->url).value_or("") : std::string();
  }
  _batches.push_back(std::move(world));
  return _batches.back().id;
}

std::optional<Uuid> AppModel::createWorld(const fs::path& url, std::optional<Point> at, std::optional<FilmShot> film,
                                          std::optional<std::string> name, std::optional<std::string> lut) {
  const std::size_t before = _media.size();
  importURL(url);
  if (_media.size() <= before) return std::nullopt;  // refused; importURL said why
  return makeWorld(_media.back().id, name ? *name : url.stem().string(), at, film, lut);
}

std::vector<Uuid> AppModel::importAsWorlds(const std::vector<fs::path>& urls, std::optional<Point> at) {
  std::vector<fs::path> files;
  std::copy_if(urls.begin(), urls.end(), std::back_inserter(files), [](const fs::path& u) { return countsAsMedia(u); });
  std::vector<Uuid> ids;
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::optional<Point> place;
    if (at) place = Point{at->x + double(i) * 230, at->y};
    if (auto id = createWorld(files[i], place)) ids.push_back(*id);
  }
  if (ids.empty()) return ids;
  if (!_worldView) showWorlds();
  if (ids.size() >= 2 && !at && !_openGroup) {
    std::string name = files[0].parent_path().filename().string();
    if (name.empty() || name == "/") name = "Plans";
    groupWorlds(ids, name);
    _status = worldlist::groupedStatus(ids.size(), name);
  } else {
    const Batch* first = worldlist::find(_batches, ids[0]);
    _status = worldlist::importStatus(ids.size(), first ? std::optional(first->name) : std::nullopt);
  }
  return ids;
}

std::optional<Uuid> AppModel::groupWorlds(const std::vector<Uuid>& ids, const std::string& name, std::optional<Point> at) {
  const auto folder = worldlist::groupWorlds(_batches, _worldGroups, ids, name, at);
  if (folder) _renameGroupRequest = folder;
  return folder;
}

void AppModel::moveWorlds(const std::vector<Uuid>& ids, std::optional<Uuid> group) {
  worldlist::moveWorlds(_batches, _worldGroups, ids, group);
}

void AppModel::ungroup(const Uuid& id) {
  worldlist::ungroup(_batches, _worldGroups, id);
  if (_openGroup == id) _openGroup.reset();
}

void AppModel::renameWorldGroup(const Uuid& id, const std::string& to) {
  for (auto& g : _worldGroups)
    if (g.id == id && !worldlist::isBlank(to)) g.name = to;
}

void AppModel::setGroupPos(const Uuid& id, Point p) {
  for (auto& g : _worldGroups)
    if (g.id == id) g.pos = std::vector<double>{p.x, p.y};
}

void AppModel::toggleShots(const Uuid& id) {
  Batch* film = worldlist::find(_batches, id);
  if (!film || !film->filmTimeline) return;
  film->shotsFolded = !film->shotsFolded;
  _status = worldlist::foldStatus(film->shotsFolded, worldlist::filmShots(_batches, *film).size(), film->name);
}

void AppModel::deleteWorlds(const std::vector<Uuid>& ids, bool confirm) {
  const worldlist::Deletion gone = worldlist::deletion(_batches, _worldGroups, ids);
  if (gone.empty()) return;
  const std::size_t count = gone.worlds.size();
  if (confirm) {
    if (!dialogs_) return;
    const Alert ask{worldlist::deleteTitle(gone.folders.size(), count), worldlist::deleteText(_batches, gone),
                    {"Supprimer", "Annuler"}};
    if (dialogs_->alert(ask) != 0) return;
  }
  pushWorldUndo(worldlist::deleteLabel(count));

  auto& queue = delivery.renderQueue;
  if (std::any_of(queue.begin(), queue.end(),
                  [&](const RenderJob& j) { return j.state == RenderJob::State::running && gone.takes(j.batchID); }))
    stopAllRenders();
  std::erase_if(queue, [&](const RenderJob& j) { return gone.takes(j.batchID); });

  if (_currentBatchID && gone.takes(*_currentBatchID)) {
    if (rendering) {
      // A render reads the open world: it ends now rather than at its next frame, so that
      // another world can open before this one goes.
      if (!delivery.renderCancel) stopAllRenders();
      finishFrameRun("annulé");
    }
    auto next = std::find_if(_batches.begin(), _batches.end(), [&](const Batch& b) { return !gone.takes(b.id); });
    if (next != _batches.end()) openBatch(next->id);
    else newBatch("Batch_01");
  }
  worldlist::remove(_batches, _worldGroups, gone);
  std::erase_if(tl.timelines, [&](const Timeline& t) {
    return std::find(gone.timelines.begin(), gone.timelines.end(), t.id) != gone.timelines.end();
  });
  if (tl.currentTimelineID && !tl.current()) tl.currentTimelineID.reset();
  if (_openGroup && std::find(gone.folders.begin(), gone.folders.end(), *_openGroup) != gone.folders.end())
    _openGroup.reset();
  _status = worldlist::deletedStatus(count);
}

}  // namespace ombrik
