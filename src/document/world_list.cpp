#include "document/world_list.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

#include "graph/node_kind.h"
#include "groups/fresh_ids.h"

namespace ombrik::worldlist {

namespace {
constexpr int kColumns = 6;
constexpr double kCellWidth = 230, kCellHeight = 270;
constexpr double kFreeDistance = 120;  // a cell with anything nearer is taken
constexpr int kUngroupRow = 5;

std::string plural(std::size_t n) { return n > 1 ? "s" : ""; }
}  // namespace

Point cell(int n) { return Point{(n % kColumns) * kCellWidth + 150, (n / kColumns) * kCellHeight + 160}; }

const Batch* find(const std::vector<Batch>& batches, const Uuid& id) {
  auto it = std::find_if(batches.begin(), batches.end(), [&](const Batch& b) { return b.id == id; });
  return it == batches.end() ? nullptr : &*it;
}

Batch* find(std::vector<Batch>& batches, const Uuid& id) {
  return const_cast<Batch*>(find(std::as_const(batches), id));
}

const WorldGroup* findGroup(const std::vector<WorldGroup>& groups, const Uuid& id) {
  auto it = std::find_if(groups.begin(), groups.end(), [&](const WorldGroup& g) { return g.id == id; });
  return it == groups.end() ? nullptr : &*it;
}

Point worldPosition(const std::vector<Batch>& batches, std::size_t folderCount, const Batch& batch) {
  if (batch.worldPos) return *batch.worldPos;
  int index = 0;
  for (const auto& b : batches) {
    if (b.id == batch.id) break;
    if (b.group == batch.group) ++index;
  }
  if (!batch.group) index += int(folderCount);  // the folders come first at the top level
  return cell(index);
}

Point groupPosition(const std::vector<WorldGroup>& groups, const WorldGroup& group) {
  if (group.pos && group.pos->size() >= 2) return Point{(*group.pos)[0], (*group.pos)[1]};
  int index = 0;
  for (const auto& g : groups) {
    if (g.id == group.id) break;
    ++index;
  }
  return cell(index);
}

Point nextSlot(const std::vector<Batch>& batches, const std::vector<WorldGroup>& groups,
               const std::optional<Uuid>& group) {
  std::vector<Point> taken;
  for (const auto& b : batches)
    if (b.group == group && !b.creator) taken.push_back(worldPosition(batches, groups.size(), b));
  if (!group)
    for (const auto& g : groups) taken.push_back(groupPosition(groups, g));
  for (int n = 0;; ++n) {
    const Point p = cell(n);
    if (std::none_of(taken.begin(), taken.end(),
                     [&](const Point& t) { return std::hypot(t.x - p.x, t.y - p.y) < kFreeDistance; }))
      return p;
  }
}

Batch mediaWorld(std::optional<Uuid> mediaID, std::string name, Clock::time_point now) {
  Batch world;
  world.id = Uuid::generate();
  world.name = std::move(name);
  Node media(NodeKind::media());
  media.mediaID = mediaID;
  Node out(NodeKind::output());
  world.edges.push_back(Edge{Uuid::generate(), media.id, out.id, 0, 0});
  world.positions[media.id] = Point{200, 140};
  world.positions[out.id] = Point{600, 140};
  world.nodes = {std::move(media), std::move(out)};
  world.lastUsed = now;
  return world;
}

std::string defaultName(std::size_t number) {
  char text[32];
  std::snprintf(text, sizeof text, "Batch_%02zu", number);
  return text;
}

Batch duplicate(const Batch& from, Clock::time_point now) {
  Batch copy;
  copy.id = Uuid::generate();
  copy.name = from.name + "_copie";
  std::map<Uuid, Uuid> ids;
  for (const Node& n : from.nodes) {
    Node copied = n;
    copied.id = Uuid::generate();
    if (copied.group) copied.group = fresh(*copied.group);  // no inner id shared with the original either
    ids[n.id] = copied.id;
    copy.nodes.push_back(std::move(copied));
  }
  for (OpenGroup open : from.openGroups) {  // open groups frame the copies of their nodes
    open.id = Uuid::generate();
    std::erase_if(open.members, [&](const Uuid& m) { return !ids.count(m); });
    for (auto& m : open.members) m = ids[m];
    for (auto& c : open.controls)
      if (ids.count(c.node)) c.node = ids[c.node];
    copy.openGroups.push_back(std::move(open));
  }
  for (const Edge& e : from.edges)  // a wire to a node the world doesn't hold is dropped
    if (ids.count(e.from) && ids.count(e.to))
      copy.edges.push_back(Edge{Uuid::generate(), ids[e.from], ids[e.to], e.port, e.fromPort});
  for (const auto& [id, p] : from.positions)
    if (ids.count(id)) copy.positions[ids[id]] = p;
  copy.thumb = from.thumb;
  copy.lastUsed = now;
  return copy;
}

std::optional<Uuid> groupWorlds(std::vector<Batch>& batches, std::vector<WorldGroup>& groups,
                                const std::vector<Uuid>& ids, const std::string& name, std::optional<Point> at) {
  if (ids.empty()) return std::nullopt;
  std::vector<Uuid> worlds;
  for (const Uuid& id : ids)
    if (find(batches, id) && std::find(worlds.begin(), worlds.end(), id) == worlds.end()) worlds.push_back(id);
  Point place;
  if (at) place = *at;
  else if (!worlds.empty()) place = worldPosition(batches, groups.size(), *find(batches, worlds[0]));
  else place = nextSlot(batches, groups, std::nullopt);
  const WorldGroup folder{Uuid::generate(), name, std::vector<double>{place.x, place.y}};
  groups.push_back(folder);
  for (std::size_t i = 0; i < worlds.size(); ++i) {
    Batch& world = *find(batches, worlds[i]);
    world.group = folder.id;
    world.worldPos = cell(int(i));
    if (const auto film = world.filmTimeline)
      for (Batch& shot : batches)
        if (shot.film && shot.film->timelineID == *film) shot.group = folder.id;
  }
  return folder.id;
}

void moveWorlds(std::vector<Batch>& batches, const std::vector<WorldGroup>& groups, const std::vector<Uuid>& ids,
                const std::optional<Uuid>& group) {
  for (const Uuid& id : ids) {
    Batch* world = find(batches, id);
    if (!world) continue;
    world->group = group;
    world->worldPos.reset();
    world->worldPos = nextSlot(batches, groups, group);
  }
}

void ungroup(std::vector<Batch>& batches, std::vector<WorldGroup>& groups, const Uuid& id) {
  const WorldGroup* folder = findGroup(groups, id);
  const Point anchor = folder ? groupPosition(groups, *folder) : nextSlot(batches, groups, std::nullopt);
  int i = 0;
  for (Batch& b : batches) {
    if (b.group != id) continue;
    b.group.reset();
    b.worldPos = Point{anchor.x + (i % kUngroupRow) * kCellWidth, anchor.y + (i / kUngroupRow) * kCellHeight};
    ++i;
  }
  std::erase_if(groups, [&](const WorldGroup& g) { return g.id == id; });
}

std::vector<const Batch*> byRecency(const std::vector<Batch>& batches) {
  std::vector<const Batch*> out;
  for (const auto& b : batches)
    if (!b.creator) out.push_back(&b);
  std::stable_sort(out.begin(), out.end(), [](const Batch* a, const Batch* b) {
    return a->lastUsed.value_or(Clock::time_point::min()) > b->lastUsed.value_or(Clock::time_point::min());
  });
  return out;
}

std::vector<const Batch*> visible(const std::vector<Batch>& batches, const std::optional<Uuid>& openGroup) {
  std::set<Uuid> folded;  // the timelines of films whose shots are folded under them
  for (const auto& b : batches)
    if (b.shotsFolded && b.filmTimeline) folded.insert(*b.filmTimeline);
  std::vector<const Batch*> out;
  for (const auto& b : batches)
    if (!b.creator && !b.placeholder && b.group == openGroup && !(b.film && folded.count(b.film->timelineID)))
      out.push_back(&b);
  return out;
}

std::vector<const Batch*> filmShots(const std::vector<Batch>& batches, const Batch& film) {
  std::vector<const Batch*> out;
  if (!film.filmTimeline) return out;
  for (const auto& b : batches)
    if (b.film && b.film->timelineID == *film.filmTimeline) out.push_back(&b);
  std::stable_sort(out.begin(), out.end(), [](const Batch* a, const Batch* b) { return a->film->index < b->film->index; });
  return out;
}

bool Deletion::takes(const Uuid& world) const { return std::find(worlds.begin(), worlds.end(), world) != worlds.end(); }

Deletion deletion(const std::vector<Batch>& batches, const std::vector<WorldGroup>& groups,
                  const std::vector<Uuid>& ids) {
  std::set<Uuid> worlds, folders, timelines;
  for (const Uuid& id : ids) {
    if (find(batches, id)) worlds.insert(id);
    if (findGroup(groups, id)) folders.insert(id);
  }
  for (const auto& b : batches)
    if (b.group && folders.count(*b.group)) worlds.insert(b.id);
  for (const auto& b : batches)
    if (worlds.count(b.id) && b.filmTimeline) timelines.insert(*b.filmTimeline);
  for (const auto& b : batches)  // no shot outlives its film
    if (b.film && timelines.count(b.film->timelineID)) worlds.insert(b.id);
  Deletion d;
  for (const auto& b : batches)
    if (worlds.count(b.id)) d.worlds.push_back(b.id);
  for (const auto& g : groups)
    if (folders.count(g.id)) d.folders.push_back(g.id);
  d.timelines.assign(timelines.begin(), timelines.end());
  return d;
}

void remove(std::vector<Batch>& batches, std::vector<WorldGroup>& groups, const Deletion& d) {
  std::erase_if(batches, [&](const Batch& b) { return d.takes(b.id); });
  std::erase_if(groups, [&](const WorldGroup& g) {
    return std::find(d.folders.begin(), d.folders.end(), g.id) != d.folders.end();
  });
}

bool isBlank(const std::string& name) {
  return std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isspace(c); });
}

void sweepPlaceholders(std::vector<Batch>& batches, const std::optional<Uuid>& current) {
  std::erase_if(batches, [&](const Batch& b) { return b.placeholder && b.id != current; });
}

std::optional<Uuid> mediaOf(const Batch& batch, const std::vector<Node>& nodes) {
  if (batch.mediaID) return batch.mediaID;
  for (const Node& n : nodes)
    if (n.kind->id == "media" && n.mediaID) return n.mediaID;
  return std::nullopt;
}

std::string deleteTitle(std::size_t folders, std::size_t worlds) {
  std::string title = "Supprimer ";
  if (folders == 1) title += "le dossier et ";
  else if (folders > 1) title += std::to_string(folders) + " dossiers et ";
  return title + std::to_string(worlds) + " monde" + plural(worlds) + " ?";
}

std::string deleteText(const std::vector<Batch>& batches, const Deletion& d) {
  std::string names;
  for (std::size_t i = 0; i < d.worlds.size() && i < 6; ++i) {
    if (i) names += ", ";
    names += find(batches, d.worlds[i])->name;
  }
  if (d.worlds.size() > 6) names += "…";
  return names +
         "\n\nLeurs arbres et retouches sont retirés du projet (les fichiers sur le disque ne sont pas touchés). "
         "⌘Z pour annuler.";
}

std::string deleteLabel(std::size_t worlds) {
  return "la suppression de " + std::to_string(worlds) + " monde" + plural(worlds);
}

std::string deletedStatus(std::size_t worlds) {
  return std::to_string(worlds) + " monde" + plural(worlds) + " supprimé" + plural(worlds) + " · ⌘Z pour annuler.";
}

std::string foldStatus(bool folded, std::size_t shots, const std::string& film) {
  if (folded) return std::to_string(shots) + " plans repliés sous « " + film + " » · clic sur FILM pour les déplier";
  return std::to_string(shots) + " plans dépliés";
}

std::string lutStatus(const std::string& world, const std::optional<std::string>& lutName) {
  return "LUT du monde « " + world + " » : " + lutName.value_or("Aucune");
}

std::string importStatus(std::size_t worlds, const std::optional<std::string>& name) {
  if (worlds > 1) return std::to_string(worlds) + " mondes créés · double-clic sur un rush pour y entrer.";
  return "Nouveau monde : " + name.value_or("Graphe") + " · double-clic pour y entrer.";
}

std::string groupedStatus(std::size_t worlds, const std::string& folder) {
  return std::to_string(worlds) + " plans rangés dans le dossier « " + folder +
         " » · tapez son nom · double-clic pour l'ouvrir.";
}

}  // namespace ombrik::worldlist
