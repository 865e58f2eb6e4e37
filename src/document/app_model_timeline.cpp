// Timelines and their edits: the model's side. The edits themselves are in editorial/timeline_edits.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "document/app_model.h"
#include "document/play_state.h"
#include "editorial/timeline_edits.h"
#include "platform/trimmed.h"

namespace ombrik {

namespace {
std::string numbered(const char* prefix, std::size_t n) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%02zu", n);
  return prefix + std::string(digits);
}
}  // namespace

const Timeline* AppModel::shownTimeline() const {
  return tl.workspace == Workspace::timeline && !_worldView ? tl.current() : nullptr;
}

void AppModel::newTimeline() {
  Timeline t;
  t.id = Uuid::generate();
  t.name = numbered("Timeline_", tl.timelines.size() + 1);
  if (!_media.empty()) {
    const MediaItem& m = _media.front();
    t.width = m.width;
    t.height = m.height;
    if (m.fps > 0) t.fps = m.fps;
  }
  tl.timelines.push_back(t);
  openTimeline(t.id);
  tl.timelineSettingsOpen = true;
}

std::optional<Uuid> AppModel::emptySequence() {
  for (const auto& t : tl.timelines)
    if (!t.filmPath && t.layers.empty()) return t.id;
  Timeline t;
  t.id = Uuid::generate();
  t.name = numbered("Séquence ", std::size_t(std::count_if(tl.timelines.begin(), tl.timelines.end(),
                                                              [](const Timeline& x) { return !x.filmPath; })) + 1);
  auto video = std::find_if(_media.begin(), _media.end(), [](const MediaItem& m) { return m.isVideo; });
  if (video == _media.end()) video = _media.begin();
  if (video != _media.end()) {
    t.width = video->width;
    t.height = video->height;
    if (video->fps > 0) t.fps = video->fps;
  }
  tl.timelines.push_back(t);
  return t.id;
}

void AppModel::openTimeline(const Uuid& id) {
  const Timeline* t = tl.find(id);
  if (!t) return;
  if (_isPlaying) stopPlayback();
  saveCurrentBatch();
  tl.currentTimelineID = id;
  _worldView = false;
  tl.workspace = Workspace::timeline;
  _frameCount = t->duration();
  _fps = t->fps;
  _currentFrame = std::min(_currentFrame, _frameCount - 1);
  requestRender();
}

void AppModel::backToBatch() {
  if (_isPlaying) stopPlayback();
  tl.workspace = Workspace::batch;
  resetTime();
}

void AppModel::renameTimeline(const Uuid& id, const std::string& to) {
  Timeline* t = tl.find(id);
  const std::string name = trimmed(to);
  if (t && !name.empty()) t->name = name;
}

void AppModel::deleteTimeline(const Uuid& id) {
  if (!tl.find(id)) return;
  std::erase_if(tl.timelines, [&](const Timeline& t) { return t.id == id; });
  if (tl.currentTimelineID == id) {
    tl.currentTimelineID.reset();
    if (_isPlaying) stopPlayback();
    tl.workspace = Workspace::batch;
    resetTime();
  }
}

void AppModel::applyTimelineSettings(const Uuid& id, const std::string& name, int width, int height, double fps,
                                     std::optional<int> duration, std::optional<std::vector<double>> background) {
  Timeline* t = tl.find(id);
  if (!t) return;
  if (const std::string n = trimmed(name); !n.empty()) t->name = n;
  t->width = std::clamp(width, 16, 8192);
  t->height = std::clamp(height, 16, 8192);
  t->fps = std::max(fps, 1.0);
  t->fixedDuration = duration ? std::optional<int>(std::max(*duration, 1)) : std::nullopt;
  t->background = std::move(background);
  if (tl.currentTimelineID == id) {
    _frameCount = t->duration();
    _fps = t->fps;
    _currentFrame = std::min(_currentFrame, _frameCount - 1);
    recomputeComp();
  }
  invalidatePlayCache();
  scrubTex.reset();
  _cachedFrames.clear();
  requestRender();
}

void AppModel::showFilms() {
  if (returnToFilm()) return;
  std::optional<Uuid> id = tl.current() ? tl.currentTimelineID : emptySequence();
  if (id) openTimeline(*id);
}

AppModel::SourceLength AppModel::sourceLength(const LayerSource& source) const {
  auto mediaLength = [&](const Uuid& mediaID) -> std::optional<SourceLength> {
    auto m = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& x) { return x.id == mediaID; });
    if (m == _media.end()) return std::nullopt;
    return SourceLength{m->isVideo ? std::max(m->frames, 1) : 100, m->name};
  };
  if (!source.isBatch()) return mediaLength(source.id).value_or(SourceLength{100, "Média"});
  auto world = std::find_if(_batches.begin(), _batches.end(), [&](const Batch& b) { return b.id == source.id; });
  if (world == _batches.end()) return {100, "Graphe"};
  SourceLength out{100, world->name};
  if (auto graph = worldGraph(source.id))
    for (const auto& n : graph->nodes)
      if (n.kind->id == "media" && n.mediaID) {
        if (auto m = mediaLength(*n.mediaID)) out.length = m->length;
        break;
      }
  return out;
}

void AppModel::addLayer(const LayerSource& source, int at) {
  Timeline* t = tl.current();
  if (!t) return;
  const SourceLength s = sourceLength(source);
  if (t->layers.empty() && !t->filmPath) {  // the first layer gives the timeline its size
    std::optional<Uuid> mediaID = source.id;
    if (source.isBatch()) {
      auto world = std::find_if(_batches.begin(), _batches.end(), [&](const Batch& b) { return b.id == source.id; });
      mediaID = world != _batches.end() ? worldMediaID(*world) : std::nullopt;
    }
    auto m = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& x) { return mediaID && x.id == *mediaID; });
    if (m != _media.end()) {
      t->width = m->width;
      t->height = m->height;
      if (m->fps > 0) t->fps = m->fps;
      _fps = t->fps;
      recomputeComp();
    }
  }
  TLayer l;
  l.id = Uuid::generate();
  l.name = s.name;
  l.source = source;
  l.start = std::max(at, 0);
  l.length = s.length;
  t->layers.push_back(std::move(l));
  _frameCount = t->duration();
  requestRender();
}

void AppModel::updateLayer(const Uuid& id, const std::function<void(TLayer&)>& mutate) {
  Timeline* t = tl.current();
  TLayer* l = t ? t->layer(id) : nullptr;
  if (!l) return;
  mutate(*l);
  tledit::clampLayer(*l);
  _frameCount = t->duration();
  invalidatePlayCache();
  requestRender();
}

void AppModel::moveLayer(const Uuid& id, bool up) {
  Timeline* t = tl.current();
  const int i = t ? t->indexOf(id) : -1;
  const int j = up ? i - 1 : i + 1;
  if (i < 0 || j < 0 || j >= int(t->layers.size())) return;
  std::swap(t->layers[std::size_t(i)], t->layers[std::size_t(j)]);
  invalidatePlayCache();
  requestRender();
}

void AppModel::deleteLayer(const Uuid& id) {
  Timeline* t = tl.current();
  if (!t || !t->layer(id)) return;
  std::erase_if(t->layers, [&](const TLayer& l) { return l.id == id; });
  tl.tlSelection.erase(id);
  _frameCount = t->duration();
  invalidatePlayCache();
  requestRender();
}

void AppModel::selectLayer(const Uuid& id, bool add) {
  const Timeline* t = tl.current();
  const TLayer* l = t ? t->layer(id) : nullptr;
  if (!l) return;
  if (!add) tl.tlSelection = {id};
  else if (!tl.tlSelection.erase(id)) tl.tlSelection.insert(id);
  if (l->source.isBatch()) focusLayerBatch(id, std::nullopt);
}

void AppModel::selectAllLayers() {
  if (const Timeline* t = tl.current())
    for (const auto& l : t->layers) tl.tlSelection.insert(l.id);
}

void AppModel::tlChanged(const std::string& message) {
  if (const Timeline* t = tl.current()) _frameCount = t->duration();
  invalidatePlayCache();
  requestRender();
  _status = message;
}

void AppModel::bladeAtPlayhead() {
  Timeline* t = tl.current();
  if (!t) return;
  std::vector<Uuid> targets = tledit::targetLayers(*t, tl.tlSelection, _currentFrame, true);
  std::erase_if(targets, [&](const Uuid& id) { return !tledit::strictlyUnder(*t->layer(id), _currentFrame); });
  if (targets.empty()) {
    _status = "Rien à couper sous la tête de lecture.";
    return;
  }
  tlCheckpoint();
  t = tl.current();
  const auto rights = tledit::blade(*t, targets, _currentFrame);
  tl.tlSelection = std::set<Uuid>(rights.begin(), rights.end());
  tlChanged(tledit::bladeText(_currentFrame, int(rights.size())));
}

void AppModel::deleteSelectedLayers(bool ripple) {
  Timeline* t = tl.current();
  if (!t) return;
  const auto targets = tledit::targetLayers(*t, tl.tlSelection, _currentFrame, false);
  if (targets.empty()) {
    _status = "Sélectionnez un calque (clic) pour le supprimer.";
    return;
  }
  tlCheckpoint();
  const int n = tledit::removeLayers(*tl.current(), targets, ripple);
  tl.tlSelection.clear();
  tlChanged(tledit::deletedText(n, ripple));
}

void AppModel::trimToPlayhead(bool start) {
  Timeline* t = tl.current();
  if (!t) return;
  const auto targets = tledit::targetLayers(*t, tl.tlSelection, _currentFrame, true);
  if (targets.empty()) return;
  tlCheckpoint();
  tledit::trimToFrame(*tl.current(), targets, _currentFrame, start);
  tlChanged(start ? "Début rogné à la tête de lecture" : "Fin rognée à la tête de lecture");
}

void AppModel::moveSelectedLayers(bool up) {
  Timeline* t = tl.current();
  if (!t) return;
  const auto targets = tledit::targetLayers(*t, tl.tlSelection, _currentFrame, false);
  if (targets.empty()) return;
  tlCheckpoint();
  tledit::moveLayers(*tl.current(), targets, up);
  tlChanged(up ? "Calque monté" : "Calque descendu");
}

void AppModel::duplicateSelectedLayers() {
  Timeline* t = tl.current();
  if (!t) return;
  const auto targets = tledit::targetLayers(*t, tl.tlSelection, _currentFrame, false);
  if (targets.empty()) return;
  tlCheckpoint();
  const auto copies = tledit::duplicateLayers(*tl.current(), targets);
  tl.tlSelection = std::set<Uuid>(copies.begin(), copies.end());
  tlChanged("Calque dupliqué");
}

void AppModel::toggleSelectedLayersEnabled() {
  Timeline* t = tl.current();
  if (!t) return;
  const auto targets = tledit::targetLayers(*t, tl.tlSelection, _currentFrame, true);
  if (targets.empty()) return;
  tlCheckpoint();
  tledit::toggleEnabled(*tl.current(), targets);
  tlChanged("Calque activé / désactivé");
}

void AppModel::jumpEditPoint(bool next) {
  const Timeline* t = tl.current();
  if (!t) return;
  if (auto point = tledit::editPoint(*t, _currentFrame, next)) seekFrame(*point);
}

void AppModel::tlCheckpoint() { tledit::checkpoint(tl); }

bool AppModel::tlUndoStep() {
  if (!tledit::undo(tl)) return false;
  tlChanged("Timeline : modification annulée.");
  return true;
}

bool AppModel::tlRedoStep() {
  if (!tledit::redo(tl)) return false;
  tlChanged("Timeline : modification rétablie.");
  return true;
}

bool AppModel::timelineKey(const TimelineKeyPress& press) {
  if (tl.workspace != Workspace::timeline || _worldView || !tl.current()) return false;
  const int step = std::max(int(std::lround(pbFPS())), 1);
  const int last = pbFrames() - 1;
  using C = TimelineCommand;
  switch (timelineCommand(press)) {
    case C::none: return false;
    case C::blade: bladeAtPlayhead(); break;
    case C::duplicate: duplicateSelectedLayers(); break;
    case C::toggleEnabled: toggleSelectedLayersEnabled(); break;
    case C::trimStart: trimToPlayhead(true); break;
    case C::trimEnd: trimToPlayhead(false); break;
    case C::remove: deleteSelectedLayers(false); break;
    case C::rippleRemove: deleteSelectedLayers(true); break;
    case C::moveUp: moveSelectedLayers(true); break;
    case C::moveDown: moveSelectedLayers(false); break;
    case C::previousEdit: jumpEditPoint(false); break;
    case C::nextEdit: jumpEditPoint(true); break;
    case C::selectAll: selectAllLayers(); break;
    case C::play: if (!_isPlaying) startPlayback(); break;
    case C::stop: if (_isPlaying) stopPlayback(); break;
    case C::stopAndStepBack:
      if (_isPlaying) stopPlayback();
      seekFrame(std::max(_currentFrame - step, 0));
      break;
    case C::home: seekFrame(0); break;
    case C::end: seekFrame(last); break;
    case C::stepForward: seekFrame(std::min(_currentFrame + step, last)); break;
    case C::stepBack: seekFrame(std::max(_currentFrame - step, 0)); break;
  }
  return true;
}

}  // namespace ombrik
