// Layers and the worlds behind them: a media layer turned into a world, a layer's world opened and
// the way back to the film, effects added from the timeline, and sequences built from worlds.
#include <algorithm>

#include "document/app_model.h"
#include "document/world_list.h"
#include "editorial/timeline_edits.h"
#include "media/media_files.h"
#include "platform/natural_order.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {
// Names in the order people expect: "2" before "10".
template <class T>
void sortNaturally(std::vector<std::pair<std::string, T>>& named) {
  std::stable_sort(named.begin(), named.end(), [](const auto& a, const auto& b) { return naturalLess(a.first, b.first); });
}
std::string plural(std::size_t n) { return n > 1 ? "s" : ""; }

// The worlds of `ids` that exist, by name in natural order, as a sequence lays them out.
std::vector<std::pair<std::string, Uuid>> worldsByName(const std::vector<Batch>& batches, const std::vector<Uuid>& ids) {
  std::vector<std::pair<std::string, Uuid>> named;
  for (const Uuid& id : ids)
    if (const Batch* b = worldlist::find(batches, id)) named.emplace_back(b->name, id);
  sortNaturally(named);
  return named;
}
}  // namespace

void AppModel::layerToBatch(const Uuid& id) {
  Timeline* t = tl.current();
  TLayer* l = t ? t->layer(id) : nullptr;
  if (!l || l->source.isBatch()) return;
  std::string name = l->name;
  std::replace(name.begin(), name.end(), '.', '_');
  const Uuid mediaID = l->source.id;
  const Uuid world = makeWorld(mediaID, name);
  // makeWorld may have moved the worlds, never the timelines: the layer is still where it was.
  t->layer(id)->source = LayerSource::batch(world);
  invalidatePlayCache();
  requestRender();
  _status = "Calque transformé en graphe « " + name + " » : double-cliquez dessus (Projet) pour le travailler.";
}

void AppModel::openLayerBatch(const Uuid& id) {
  const Timeline* t = tl.current();
  const TLayer* l = t ? t->layer(id) : nullptr;
  if (!l || !l->source.isBatch() || !worldlist::find(_batches, l->source.id)) return;
  if (_isPlaying) stopPlayback();
  const int local = l->inPoint + std::clamp(_currentFrame - l->start, 0, l->length - 1);
  const Uuid world = l->source.id;
  tl.filmReturn = FilmReturn{t->id, id, tl.filmFromWorld};
  tl.filmFromWorld = false;
  _viewerFull = false;
  tl.workspace = Workspace::batch;
  const bool wasCurrent = _currentBatchID == world;
  if (!wasCurrent) resetTime();
  enterWorld(world);
  seekFrame(local);
  _status = worldlist::find(_batches, world)->name + " · ses retouches se voient dans le film · Échap : retour au film";
}

void AppModel::focusLayerBatch(const Uuid& id, std::optional<Uuid> select) {
  const Timeline* t = tl.current();
  const TLayer* l = t ? t->layer(id) : nullptr;
  if (!l || !l->source.isBatch()) return;
  const Batch* world = worldlist::find(_batches, l->source.id);
  if (!world) return;
  if (_currentBatchID != world->id) {
    saveCurrentBatch();
    _currentBatchID = world->id;
    layout.replaceAll(world->positions);
    _openGroups = world->openGroups;
    _edges = world->edges;
    storedEdges();
    _nodes = world->nodes;
    storedNodes();
    resetHistory();
  }
  const std::vector<Node> chain = layerEffects(*l);
  std::optional<Uuid> chosen = select;
  if (!chosen && !chain.empty()) chosen = chain.back().id;
  if (!chosen) chosen = outputNode();
  _selected = chosen;
  _selection.clear();
  if (chosen) _selection.insert(*chosen);
  inspectedID = chosen;
}

std::vector<Node> AppModel::layerEffects(const TLayer& layer) const {
  if (!layer.source.isBatch()) return {};
  const auto graph = worldGraph(layer.source.id);
  if (!graph) return {};
  auto byID = [&](const Uuid& id) -> const Node* {
    for (const auto& n : graph->nodes)
      if (n.id == id) return &n;
    return nullptr;
  };
  const Node* at = nullptr;
  for (const auto& n : graph->nodes)
    if (n.kind->id == "output") {
      at = &n;
      break;
    }
  std::vector<Node> chain;
  std::set<Uuid> seen;
  while (at && seen.insert(at->id).second) {
    const Edge* in = nullptr;
    for (const auto& e : graph->edges)
      if (e.to == at->id && e.port == 0) in = &e;
    if (!in) break;
    at = byID(in->from);
    if (!at || at->kind->id == "media" || seen.count(at->id)) break;
    chain.push_back(*at);
  }
  std::reverse(chain.begin(), chain.end());
  return chain;
}

void AppModel::addLayerEffect(const KindRef& kind) {
  Timeline* t = tl.current();
  if (!t) return;
  std::vector<Uuid> targets;
  for (const auto& l : t->layers)
    if (tl.tlSelection.count(l.id)) targets.push_back(l.id);
  if (targets.empty())
    for (const auto& l : t->layers)
      if (l.enabled && l.start <= _currentFrame && _currentFrame < l.end()) {
        targets.push_back(l.id);
        break;
      }
  if (targets.empty()) {
    _status = "Sélectionnez un calque (clic) pour lui ajouter un effet.";
    return;
  }
  Uuid lastNode;
  for (const Uuid& layerID : targets) {
    if (!tl.current()->layer(layerID)->source.isBatch()) layerToBatch(layerID);
    const Uuid worldID = tl.current()->layer(layerID)->source.id;
    auto graph = worldGraph(worldID);
    if (!graph) continue;
    Node added = newNode(kind);
    auto out = std::find_if(graph->nodes.begin(), graph->nodes.end(), [](const Node& n) { return n.kind->id == "output"; });
    Point at{600, 140};
    if (out != graph->nodes.end()) {
      if (auto p = graph->positions.find(out->id); p != graph->positions.end()) at = p->second;
      graph->positions[out->id] = Point{at.x + 170, at.y};
      std::optional<Edge> old;
      for (const auto& e : graph->edges)
        if (e.to == out->id && e.port == 0) old = e;
      if (old) {
        std::erase_if(graph->edges, [&](const Edge& e) { return e.id == old->id; });
        graph->edges.push_back(Edge{Uuid::generate(), old->from, added.id, 0, old->fromPort});
      }
      graph->edges.push_back(Edge{Uuid::generate(), added.id, out->id, 0, 0});
    }
    graph->positions[added.id] = at;
    graph->nodes.push_back(added);
    lastNode = added.id;
    if (_currentBatchID == worldID) {
      for (const auto& [id, p] : graph->positions) layout.set(id, p);
      _edges = graph->edges;
      storedEdges();
      _nodes = graph->nodes;
      storedNodes();
    } else if (Batch* world = worldlist::find(_batches, worldID)) {
      world->nodes = graph->nodes;
      world->edges = graph->edges;
      world->positions = graph->positions;
    }
  }
  invalidatePlayCache();
  requestRender();
  focusLayerBatch(targets.back(), lastNode);
  _status = kind->title.raw + " ajouté " +
            (targets.size() == 1 ? std::string("au calque") : "sur " + std::to_string(targets.size()) + " calques") +
            " · réglages à droite · double-clic sur le calque pour son arbre";
}

bool AppModel::returnToFilm() {
  if (!tl.filmReturn) return false;
  const FilmReturn back = *tl.filmReturn;
  const Timeline* t = tl.find(back.timelineID);
  const TLayer* l = t ? t->layer(back.layerID) : nullptr;
  if (!l || !l->source.isBatch() || _currentBatchID != l->source.id) return false;
  const int target = std::min(l->start + std::clamp(_currentFrame - l->inPoint, 0, l->length - 1), t->duration() - 1);
  openTimeline(t->id);
  _currentFrame = target;
  tl.filmFromWorld = back.fromWorld;
  tl.filmReturn.reset();
  requestRender();
  _status = "Film · " + t->name + " · double-clic sur un plan pour le retoucher";
  return true;
}

std::optional<Uuid> AppModel::worldFor(const Uuid& mediaID) {
  auto m = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& x) { return x.id == mediaID; });
  if (m == _media.end()) return std::nullopt;
  for (const auto& b : _batches)
    if (!b.filmTimeline && worldMediaID(b) == mediaID) return b.id;
  return makeWorld(mediaID, fs::path(m->name).stem().string());
}

void AppModel::dropOnTimeline(const std::vector<std::string>& keys, const std::vector<fs::path>& files, int at) {
  if (!tl.current()) return;
  tlCheckpoint();
  // The media of a file: the item already read from it, else the file imported.
  auto mediaForFile = [&](const fs::path& file) -> std::optional<Uuid> {
    for (const auto& m : _media)
      if (m.url && *m.url == file) return m.id;
    const std::size_t before = _media.size();
    importURL(file);
    return _media.size() > before ? std::optional<Uuid>(_media.back().id) : std::nullopt;
  };
  std::vector<Uuid> worlds;
  std::vector<fs::path> sources = files;
  bool folder = false;
  for (const auto& key : keys) {
    const auto colon = key.find(':');
    const std::string kind = key.substr(0, colon), rest = colon == std::string::npos ? "" : key.substr(colon + 1);
    std::optional<Uuid> world;
    if (kind == "batch") {
      if (auto id = Uuid::parse(rest); id && worldlist::find(_batches, *id)) world = id;
    } else if (kind == "media") {
      if (auto id = Uuid::parse(rest)) world = worldFor(*id);
    } else if (kind == "file") {
      if (auto id = mediaForFile(rest)) world = worldFor(*id);
    } else if (kind == "dir") {
      sources.push_back(rest);
      folder = true;
    }
    if (world) worlds.push_back(*world);
  }
  std::vector<fs::path> expanded = expandMedia(sources);
  if (!folder) {  // a folder's own order is kept
    std::vector<std::pair<std::string, fs::path>> named;
    for (const auto& f : expanded) named.emplace_back(f.filename().string(), f);
    sortNaturally(named);
    expanded.clear();
    for (const auto& [name, f] : named) expanded.push_back(f);
  }
  for (const auto& file : expanded)
    if (auto media = mediaForFile(file))
      if (auto world = worldFor(*media)) worlds.push_back(*world);
  int position = at;
  for (const Uuid& world : worlds) {
    addLayer(LayerSource::batch(world), position);
    position += sourceLength(LayerSource::batch(world)).length;
  }
  const std::size_t n = worlds.size();
  _status = n ? std::to_string(n) + " plan" + plural(n) + " ajouté" + plural(n) +
                    " · chacun lié à son monde (double-clic : le retoucher)."
              : "Glissez des rushs (panneau des mondes, Finder) : chacun devient un plan lié à son monde.";
  invalidatePlayCache();
}

void AppModel::createSequence(const std::vector<Uuid>& worldIDs) {
  const auto named = worldsByName(_batches, worldIDs);
  if (named.empty()) {
    _status = "Sélectionnez un ou plusieurs rushs dans l'espace des mondes.";
    return;
  }
  Timeline t;
  t.id = Uuid::generate();
  const std::size_t n = named.size();
  t.name = n == 1 ? "Séquence · " + named[0].first : "Séquence · " + std::to_string(n) + " plans";
  if (const MediaItem* m = worldMedia(*worldlist::find(_batches, named[0].second))) {
    t.width = m->width;
    t.height = m->height;
    if (m->fps > 0) t.fps = m->fps;
  }
  int position = 0;
  for (const auto& [name, id] : named) {
    const SourceLength s = sourceLength(LayerSource::batch(id));
    t.layers.push_back(TLayer{Uuid::generate(), s.name, LayerSource::batch(id), position, 0, s.length, true, 1, 0});
    position += s.length;
  }
  tl.timelines.push_back(t);
  tlCheckpoint();
  openTimeline(t.id);
  _status = "« " + t.name + " » : " + std::to_string(n) + " plan" + plural(n) + " lié" + plural(n) +
            " à leur monde · double-clic sur un plan pour le retoucher.";
}

void AppModel::appendToSequence(const std::vector<Uuid>& worldIDs, const Uuid& sequence) {
  if (!tl.find(sequence)) return;
  const auto named = worldsByName(_batches, worldIDs);
  if (tl.currentTimelineID != sequence) openTimeline(sequence);
  tlCheckpoint();
  for (const auto& [name, id] : named) {
    int end = 0;
    for (const auto& l : tl.current()->layers) end = std::max(end, l.end());
    addLayer(LayerSource::batch(id), end);
  }
  const std::size_t n = named.size();
  _status = std::to_string(n) + " plan" + plural(n) + " ajouté" + plural(n) + " à « " + tl.current()->name +
            " », liés à leur monde.";
  invalidatePlayCache();
}

}  // namespace ombrik
