// Saving and opening the project file.
#include <algorithm>

#include "document/app_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "platform/atomic_file.h"
#include "platform/bounded_file.h"
#include "platform/user_defaults.h"

namespace ombrik {

namespace fs = std::filesystem;

ProjectFile AppModel::makeFile() {
  saveCurrentBatch();
  ProjectFile f;
  for (const auto& m : _media)
    if (m.url) f.media.push_back({m.id, m.name, fs::absolute(*m.url).string()});
  for (const auto& ref : missingMedia)  // media not found at opening stay in the file
    if (std::none_of(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == ref.id; }))
      f.media.push_back(ref);
  f.batches = _batches;
  f.current = _currentBatchID;
  f.recent = _recentKinds;
  if (!_folders.empty()) f.folders = _folders;
  f.timelines = tl.timelines;
  f.groups = _worldGroups;
  if (const auto used = usedUserDefs(); !used.empty()) f.userNodesJSON = encodeUserNodeDefs(used);
  f.confidential = _confidential;
  return f;
}

bool AppModel::write(const fs::path& url, std::string* why) {
  std::string error;
  const auto text = ProjectCodec::encode(makeFile(), &error);
  bool ok = bool(text);
  if (ok) {
    // Whole or not at all: a failed save leaves the old file as it was.
    if (auto why = writeFileAtomically(url, *text)) {
      ok = false;
      error = *why;
    }
  }
  if (!ok) {
    _status = "Enregistrement impossible : " + error;
    if (why) *why = error;
    return false;
  }
  _projectURL = url;
  defaults_->set("lastProjectPath", url.string());
  history.dirty = false;
  return true;
}

bool AppModel::load(const fs::path& url) {
  auto refuse = [&](const std::string& why) {
    _status = "Projet illisible : " + url.filename().string() + " (" + why + ")";
    return false;
  };
  constexpr std::uintmax_t kMaxProject = 512ull << 20;
  std::string why;
  const auto read = readBoundedFile(url, kMaxProject, &why);
  if (!read) return refuse(why);
  const std::string& text = *read;
  // The user nodes the file carries name kinds its worlds use: the library's own come first.
  std::vector<UserNodeDef> carried;
  auto kindsFor = [&](const std::optional<std::string>& userNodesJSON) -> KindLookup {
    if (userNodesJSON) carried = decodeUserNodeDefs(*userNodesJSON);
    auto own = std::make_shared<std::map<std::string, KindRef, std::less<>>>();
    for (const auto& d : carried) (*own)[d.id] = d.kind();
    return [this, own](std::string_view id) {
      if (KindRef k = userNodes.kind(id)) return k;
      auto it = own->find(id);
      return it == own->end() ? KindRef() : it->second;
    };
  };
  auto file = ProjectCodec::decode(text, &why, kindsFor);
  if (!file) return refuse(why.empty() ? "contenu invalide" : why);
  if (file->batches.empty()) return refuse("aucun monde");
  // What the library lacks joins it, so that the project's nodes work here and in later projects.
  for (const auto& def : carried)
    if (!userNodes.known(def.id)) userNodes.register_(def, userKernelCompiler(), true);

  // Media that can't be opened stay in the file; each is told with its reason.
  std::vector<MediaRef> missing;
  std::vector<MediaTrouble> troubles;
  mediaTroubles.clear();
  for (const auto& ref : file->media) {
    const bool known = std::any_of(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == ref.id; });
    std::string why;
    if (known || importURL(ref.path, false, ref.id, &why)) continue;
    missing.push_back(ref);
    troubles.push_back({ref.name, why});
    mediaTroubles[ref.id] = troubles.back();
  }
  missingMedia = missing;
  std::erase_if(_media, [&](const MediaItem& m) {
    return std::none_of(file->media.begin(), file->media.end(), [&](const MediaRef& r) { return r.id == m.id; });
  });
  std::erase_if(videos, [&](const auto& entry) {
    return std::none_of(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == entry.first; });
  });
  if (engine)
    for (const auto& [id, picture] : std::unordered_map<Uuid, SourcePicture>(engine->sources()))
      if (std::none_of(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == id; }))
        engine->addSource(std::nullopt, id);

  _batches = file->batches;
  worldUndo.clear();  // another project's worlds never come back into this one
  _recentKinds = file->recent;
  _folders = file->folders.value_or(std::vector<std::string>{});
  tl = TimelineState{};
  tl.timelines = file->timelines;
  _worldGroups = file->groups;
  _openGroup.reset();
  _confidential = file->confidential;

  // The world shown: the current one unless it is a placeholder, else the first real one.
  const Batch* show = nullptr;
  for (const auto& b : _batches)
    if (file->current && b.id == *file->current && !b.placeholder) show = &b;
  for (const auto& b : _batches)
    if (!show && !b.placeholder) show = &b;
  if (!show) show = &_batches.front();
  _currentBatchID = show->id;
  _nodes = show->nodes;
  _edges = show->edges;
  layout.replaceAll(show->positions);
  _openGroups = show->openGroups;
  _selected.reset();
  _selection.clear();
  _viewedNode.reset();
  roto.trackDots.clear();
  if (auto out = outputNode()) _selected = out;
  inspectedID.reset();
  _keySel.clear();

  _projectURL = url;
  defaults_->set("lastProjectPath", url.string());
  resetTime();
  resetHistory();
  history.dirty = false;
  if (!troubles.empty()) _status = troubleSummary(troubles);
  requestRender();
  return true;
}

}  // namespace ombrik
