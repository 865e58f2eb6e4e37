#pragma once
// The rules of the list of worlds and of their folders on the world map: placement on the map's
// grid, folders, copies, what a deletion takes, and the texts these operations show. Plain
// functions on the lists themselves; AppModel's world operations are thin calls into them.
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "graph/batch.h"
#include "graph/point.h"
#include "graph/uuid.h"
#include "graph/world_group.h"

namespace ombrik::worldlist {

using Clock = std::chrono::system_clock;

// The map's grid: 6 columns of 230 by 270, the first cell at (150, 160).
Point cell(int n);

const Batch* find(const std::vector<Batch>& batches, const Uuid& id);
Batch* find(std::vector<Batch>& batches, const Uuid& id);
const WorldGroup* findGroup(const std::vector<WorldGroup>& groups, const Uuid& id);

// Where a world or a folder stands on the map: its own place, else the grid cell of its index
// (a world's among the worlds of its level, after the folders at the top level).
Point worldPosition(const std::vector<Batch>& batches, std::size_t folderCount, const Batch& batch);
Point groupPosition(const std::vector<WorldGroup>& groups, const WorldGroup& group);
// The first grid cell with nothing of the level within 120 of it.
Point nextSlot(const std::vector<Batch>& batches, const std::vector<WorldGroup>& groups,
               const std::optional<Uuid>& group);

// A world whose media node feeds the output, with no place yet; its media node shows `mediaID`.
Batch mediaWorld(std::optional<Uuid> mediaID, std::string name, Clock::time_point now);
std::string defaultName(std::size_t number);  // "Batch_03"
// A copy with fresh ids, named "<name>_copie", placed nowhere and in no folder or film.
Batch duplicate(const Batch& from, Clock::time_point now);

// Worlds into a new folder, laid on the folder's grid in the order given; a film takes its shots
// along. The folder's id, or none for an empty list.
std::optional<Uuid> groupWorlds(std::vector<Batch>& batches, std::vector<WorldGroup>& groups,
                                const std::vector<Uuid>& ids, const std::string& name, std::optional<Point> at);
void moveWorlds(std::vector<Batch>& batches, const std::vector<WorldGroup>& groups, const std::vector<Uuid>& ids,
                const std::optional<Uuid>& group);
// The folder's worlds leave it in rows of five from where it stood; the folder goes.
void ungroup(std::vector<Batch>& batches, std::vector<WorldGroup>& groups, const Uuid& id);

// The worlds of the project panel, most recently used first.
std::vector<const Batch*> byRecency(const std::vector<Batch>& batches);
// The worlds shown at one level of the map.
std::vector<const Batch*> visible(const std::vector<Batch>& batches, const std::optional<Uuid>& openGroup);
// The shots cut from a film world, in film order.
std::vector<const Batch*> filmShots(const std::vector<Batch>& batches, const Batch& film);

// What deleting `ids` takes: the worlds named, the worlds of the folders named, and the shots of
// every film among them, whose timelines go too.
struct Deletion {
  std::vector<Uuid> worlds;  // in the order of the list
  std::vector<Uuid> folders;
  std::vector<Uuid> timelines;
  bool takes(const Uuid& world) const;
  bool empty() const { return worlds.empty() && folders.empty(); }
};
Deletion deletion(const std::vector<Batch>& batches, const std::vector<WorldGroup>& groups,
                  const std::vector<Uuid>& ids);
void remove(std::vector<Batch>& batches, std::vector<WorldGroup>& groups, const Deletion& d);

// A name of nothing but white space doesn't rename.
bool isBlank(const std::string& name);
// A placeholder world goes as soon as it isn't the open one.
void sweepPlaceholders(std::vector<Batch>& batches, const std::optional<Uuid>& current);
// The world's media: its own, else the first media node's in `nodes` (the world's live graph).
std::optional<Uuid> mediaOf(const Batch& batch, const std::vector<Node>& nodes);

// Texts shown by these operations.
std::string deleteTitle(std::size_t folders, std::size_t worlds);
std::string deleteText(const std::vector<Batch>& batches, const Deletion& d);
std::string deleteLabel(std::size_t worlds);  // the world undo's label
std::string deletedStatus(std::size_t worlds);
std::string foldStatus(bool folded, std::size_t shots, const std::string& film);
// `lutName` is the LUT's label, or none for a world that has none.
std::string lutStatus(const std::string& world, const std::optional<std::string>& lutName);
std::string importStatus(std::size_t worlds, const std::optional<std::string>& name);
std::string groupedStatus(std::size_t worlds, const std::string& folder);

}  // namespace ombrik::worldlist
