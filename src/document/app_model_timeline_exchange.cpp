// Timelines to and from OpenTimelineIO files, the edit exchanged with editing applications. A
// layer's file is its media's, or its world's media; a clip read back finds the source recorded in
// one of our files, else the media of its file, imported when the project lacks it.
#include <algorithm>

#include "document/app_model.h"
#include "document/world_list.h"
#include "editorial/otio.h"
#include "platform/dialogs.h"

namespace ombrik {

namespace fs = std::filesystem;

bool AppModel::exportTimelineOTIO(const Uuid& id, const fs::path& to) {
  const Timeline* t = tl.find(id);
  if (!t) return false;
  saveCurrentBatch();
  auto pathOf = [&](const LayerSource& s) -> std::optional<fs::path> {
    std::optional<Uuid> media = s.id;
    if (s.isBatch()) {
      const Batch* world = worldlist::find(_batches, s.id);
      media = world ? worldMediaID(*world) : std::nullopt;
    }
    for (const auto& m : _media)
      if (media && m.id == *media) return m.url;
    return std::nullopt;
  };
  std::string error;
  if (!otio::writeFile(to, *t, pathOf, &error)) {
    _status = "Export OTIO impossible : " + error;
    return false;
  }
  _status = "Timeline exportée : " + to.filename().string();
  return true;
}

bool AppModel::importTimelineOTIO(const fs::path& from) {
  auto resolve = [&](const otio::ClipRef& clip) -> std::optional<LayerSource> {
    if (clip.source) {
      const bool known = clip.source->isBatch()
                             ? worldlist::find(_batches, clip.source->id) != nullptr
                             : std::any_of(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == clip.source->id; });
      if (known) return clip.source;
    }
    if (!clip.path) return std::nullopt;
    for (const auto& m : _media)
      if (m.url && *m.url == *clip.path) return LayerSource::media(m.id);
    const std::size_t before = _media.size();
    if (!importURL(*clip.path) || _media.size() == before) return std::nullopt;
    return LayerSource::media(_media.back().id);
  };
  std::vector<std::string> messages;
  std::string error;
  auto read = otio::readFile(from, resolve, messages, &error);
  if (!read) {
    _status = "Import OTIO impossible : " + error;
    return false;
  }
  if (tl.find(read->id)) read->id = Uuid::generate();  // a second import of one file is a new timeline
  tlCheckpoint();
  tl.timelines.push_back(*read);
  openTimeline(read->id);
  _status = "Timeline importée : " + read->name + " (" + std::to_string(read->layers.size()) + " calques)";
  for (const auto& m : messages) _status += " · " + m;
  return true;
}

void AppModel::exportTimelineOTIOPanel() {
  const Timeline* t = tl.current();
  if (!t || !dialogs_) return;
  SavePanel panel;
  panel.title = "Exporter la timeline (OTIO)";
  panel.proposedName = t->name + ".otio";
  panel.types = {"otio"};
  if (auto to = dialogs_->save(panel)) exportTimelineOTIO(t->id, to->extension() == ".otio" ? *to : fs::path(to->string() + ".otio"));
}

void AppModel::importTimelineOTIOPanel() {
  if (!dialogs_) return;
  OpenPanel panel;
  panel.title = "Importer une timeline (OTIO)";
  panel.types = {"otio"};
  if (auto from = dialogs_->open(panel)) importTimelineOTIO(*from);
}

}  // namespace ombrik
