// World packs in and out of the project: the plan and the copy live in world_pack.h; here the
// world is saved first, the copy reports to the status line, and a pack comes back as a new world.
#include <algorithm>
#include <set>

#include "document/app_model.h"
#include "document/world_list.h"
#include "document/world_pack.h"
#include "platform/bounded_file.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"

namespace ombrik {

namespace fs = std::filesystem;

constexpr std::uintmax_t kMaxPackText = 256ull << 20;

void AppModel::packWorld(const Uuid& id) {
  saveCurrentBatch();
  const Batch* world = worldlist::find(_batches, id);
  if (!world) return;
  SavePanel panel;
  panel.title = "Rassembler le monde";
  panel.message = "Un dossier avec l'arbre, les rushs liés et les calculs IA du monde. Glissez-le dans Ombrik pour tout "
                  "retrouver.";
  panel.proposedName = world->name + " (Ombrik)";
  panel.canCreateFolders = true;
  if (auto to = dialogs_->save(panel)) packWorld(id, *to);
}

void AppModel::packWorld(const Uuid& id, const fs::path& to, std::function<void(bool)> done) {
  saveCurrentBatch();
  const Batch* world = worldlist::find(_batches, id);
  if (!world) return;
  std::vector<worldpack::Rush> rushes;
  for (const auto& m : _media) rushes.push_back({m.id, m.name, m.url});
  std::string status;
  auto plan = worldpack::plan(*world, rushes, dataDir_ / "Cache", to, &status);
  _status = status;
  if (!plan) {
    if (done) done(false);
    return;
  }
  const int number = ++packCount_;
  const std::string name = plan->name;
  const std::size_t entries = plan->copies.size(), packed = plan->rushes;
  std::weak_ptr<int> alive = alive_;
  auto onMain = [this, alive](std::function<void()> work) {
    scheduler_->postFromThread([alive, work = std::move(work)] {
      if (alive.lock()) work();
    });
  };
  auto progress = [this, onMain, name, entries](std::size_t n) {
    onMain([this, name, n, entries] { _status = worldpack::progressStatus(name, n, entries); });
  };
  auto finish = [this, onMain, name, packed, number, done](std::optional<std::string> error) {
    onMain([this, name, packed, number, done, error] {
      _status = error ? worldpack::failedStatus(name, *error) : worldpack::doneStatus(packed);
      packCopies_.erase(number);  // its thread has nothing left to do but return
      if (done) done(!error);
    });
  };
  packCopies_[number] = std::make_unique<PackCopy>(std::move(*plan), progress, finish);
}

std::optional<Uuid> AppModel::unpackWorldPanel() {
  OpenPanel panel;
  panel.title = "Importer un monde rassemblé…";
  panel.message = "Le dossier fait par « Rassembler le monde », avec son monde.ombrik";
  const auto folder = dialogs_->folder(panel);
  return folder ? unpackWorld(*folder) : std::nullopt;
}

std::optional<Uuid> AppModel::unpackWorld(const fs::path& url) {
  std::string why;
  const auto text = readBoundedFile(url / worldpack::kFileName, kMaxPackText);
  const auto pack = text ? worldpack::decode(*text, &why, userNodes.lookup()) : std::nullopt;
  if (!pack) {
    _status = worldpack::unreadableStatus(url);
    return std::nullopt;
  }
  if (_isPlaying) stopPlayback();
  saveCurrentBatch();

  // New ids are written into the text itself, so every reference follows wherever it stands.
  std::map<std::string, std::string> ids;
  std::set<Uuid> known;
  std::error_code ec;
  for (const MediaRef& ref : pack->media) {
    const fs::path file = fs::weakly_canonical(url / ref.path, ec);
    auto same = std::find_if(_media.begin(), _media.end(),
                             [&](const MediaItem& m) { return m.url && fs::weakly_canonical(*m.url, ec) == file; });
    const Uuid id = same != _media.end() ? same->id : Uuid::generate();
    if (same != _media.end()) known.insert(id);
    ids[ref.id.toString()] = id.toString();
  }
  for (const Uuid& old : worldpack::nodeIDs(pack->batch)) ids[old.toString()] = Uuid::generate().toString();
  auto fresh = worldpack::decode(worldpack::replaceIds(*text, ids), &why, userNodes.lookup());
  if (!fresh) {  // can't happen to a text that decoded, but a pack is outside input
    _status = worldpack::unreadableStatus(url);
    return std::nullopt;
  }

  std::size_t found = 0, missing = 0;
  for (const MediaRef& ref : fresh->media) {
    if (known.count(ref.id)) {
      ++found;
      continue;
    }
    const fs::path file = url / ref.path;
    if (fs::is_regular_file(file, ec) && importURL(file, false, ref.id)) ++found;
    else ++missing;
  }
  for (fs::directory_iterator it(url / "Cache", ec), end; !ec && it != end; it.increment(ec))
    if (auto to = ids.find(it->path().filename().string()); to != ids.end() && it->is_directory())
      worldpack::mergeFolder(it->path(), dataDir_ / "Cache" / to->second);

  Batch world = std::move(fresh->batch);
  if (world.lut && world.lut->rfind("LUT/", 0) == 0) world.lut = (url / *world.lut).string();
  world.group.reset();
  world.film.reset();
  world.filmTimeline.reset();
  world.placeholder = false;
  world.worldPos = nextWorldSlot(std::nullopt);
  world.lastUsed = wallNow();
  if (std::any_of(_batches.begin(), _batches.end(), [&](const Batch& b) { return b.name == world.name; }))
    world.name += tr(" (rassemblé)");
  const Uuid id = world.id;
  const std::string name = world.name;
  _batches.push_back(std::move(world));
  _openGroup.reset();
  if (!_worldView) showWorlds();
  _status = worldpack::unpackedStatus(name, found, missing);
  return id;
}

}  // namespace ombrik
