// The media list: files coming in, clips opened for the viewer, the idle pump that brings their
// frames to the engine, and media found again after they went missing.
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "media/forward_readers.h"
#include "media/media_files.h"
#include "media/video_source.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace fs = std::filesystem;

bool AppModel::importURL(const fs::path& url, bool assign, std::optional<Uuid> id, std::string* why) {
  const std::string name = url.filename().string();
  auto refuse = [&](const std::string& reason) {
    _status = reason == kNotFound ? "Média introuvable : " + name : "Média illisible : " + name + " (" + reason + ")";
    if (why) *why = reason;
    return false;
  };
  if (auto reason = unreadableFile(url)) return refuse(*reason);
  std::string error;
  std::optional<SourcePicture> picture;
  std::shared_ptr<VideoSource> video;
  if (isMovieFile(url)) {
    auto scheduler = scheduler_;
    video = VideoSource::open(url, [scheduler](std::function<void()> work) {
      scheduler->postFromThread(std::move(work));
    }, &error);
    if (video && !(picture = video->still(0))) return refuse("première image illisible");
  } else {
    picture = SourcePicture::load(url, &error);
  }
  if (!picture) {
    const std::string reason = readerReason(error);
    return refuse(reason.empty() ? "lecture impossible" : reason);
  }
  if (addMedia(*picture, name, url, assign, video, id)) return true;
  if (why) *why = "dimensions hors limites";
  return false;
}

std::optional<Uuid> AppModel::addMedia(const SourcePicture& picture, const std::string& name,
                                       std::optional<fs::path> url, bool assign, std::shared_ptr<VideoSource> video,
                                       std::optional<Uuid> id) {
  const int w = picture.width, h = picture.height;
  if (w < 1 || w > 19999 || h < 1 || h > 19999 || !picture.rgba) {
    _status = "Image invalide : " + name + ".";
    return std::nullopt;
  }
  MediaItem item;
  item.id = id ? *id : Uuid::generate();
  item.name = name;
  item.url = std::move(url);
  item.width = w;
  item.height = h;
  item.frames = 0;
  item.fps = 0;
  if (engine) {
    engine->addSource(picture, item.id);
    item.thumb = engine->sourceThumb(item.id, 96);
    item.poster = engine->sourceThumb(item.id, 360);
  }
  if (video) {
    item.isVideo = true;
    item.frames = video->frameCount();
    item.fps = video->fps();
    videos[item.id] = video;
    video->seek(0);
    startTimer();
  }
  _media.push_back(item);
  if (assign) useMedia(item.id);
  else requestRender();
  return item.id;
}

void AppModel::relinkMissingMedia() {
  if (missingMedia.empty()) return;
  auto known = [&](const Uuid& id) {
    return std::any_of(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == id; });
  };
  int found = 0;
  for (const auto& ref : std::vector<MediaRef>(missingMedia)) {
    std::error_code ec;
    if (known(ref.id) || !fs::exists(ref.path, ec)) continue;
    if (importURL(ref.path, false, ref.id, &mediaTroubles[ref.id].why)) ++found;
  }
  std::erase_if(missingMedia, [&](const MediaRef& ref) { return known(ref.id); });
  std::erase_if(mediaTroubles, [&](const auto& entry) { return known(entry.first); });
  if (found > 0) {
    const char* s = found > 1 ? "s" : "";
    _status = std::to_string(found) + " média" + s + " retrouvé" + s + ".";
  }
}

VideoSource* AppModel::activeVideo() const {
  for (const auto& n : _nodes) {
    if (n.kind->id != "media" || !n.mediaID) continue;
    if (auto it = videos.find(*n.mediaID); it != videos.end()) return it->second.get();
  }
  return nullptr;
}

// A world cut from a film plays only its shot; that arrives with films, until then the clip.
int AppModel::batchFrames(const VideoSource& video) const { return video.frameCount(); }

void AppModel::startTimer() {
  if (pumpTimer_) return;
  pumpTimer_ = repeat(1.0 / 120, [this] { tick(); });  // the idle pump, 120 Hz, for the model's life
}

void AppModel::tick() {
  if (_isPlaying || tl.workspace == Workspace::timeline) return;
  bool landed = false;
  for (const auto& [id, clip] : graphClips())
    if (auto frame = clip->takeFrame()) {
      if (engine) engine->updateSource(frame->picture, id);
      landed = true;
    }
  if (VideoSource* v = activeVideo()) {
    _frameCount = batchFrames(*v);
    _fps = v->fps();
  }
  if (landed) requestRender();
}

void AppModel::seekFrame(int n) {
  if (_isPlaying) stopPlayback();
  if (tl.workspace == Workspace::timeline) {
    _currentFrame = std::clamp(n, 0, pbFrames() - 1);
    requestRender();
    return;
  }
  if (VideoSource* active = activeVideo()) {
    _currentFrame = std::clamp(n, 0, batchFrames(*active) - 1);
    // Every clip of the graph follows, not only the one that sets the length.
    for (const auto& [id, clip] : graphClips()) clip->seek(_currentFrame);
  } else {
    _currentFrame = std::clamp(n, 0, 99);
    requestRender();
  }
  // A frame the play cache holds shows at once; the evaluated one replaces it when it lands.
  scrubTex.reset();
  if (play && _viewChannel == 4 && play->target && play->target == playTarget())
    if (auto hit = play->cache.find(_currentFrame); hit != play->cache.end()) {
      scrubTex = hit->second;
      ++_frameID;
    }
  bodyOnDemand();  // an AI node lacking this frame computes it once the seeking settles
}

void AppModel::resetTime() {
  _currentFrame = 0;
  if (VideoSource* v = activeVideo()) {
    v->seek(0);
    _frameCount = batchFrames(*v);
    _fps = v->fps();
  } else {
    _frameCount = 100;
    _fps = 25;
  }
  requestRender();
}

void AppModel::loadVideoFrames(int frame) {
  if (!renderReaders_) renderReaders_ = std::make_unique<ForwardReaders>(true);
  feedClipFrames(*renderReaders_, frame);
}

std::vector<std::pair<Uuid, VideoSource*>> AppModel::graphClips() const {
  std::vector<std::pair<Uuid, VideoSource*>> clips;
  std::set<Uuid> seen;
  for (const auto& n : _nodes) {
    if (n.kind->id != "media" || !n.mediaID || !seen.insert(*n.mediaID).second) continue;
    if (auto it = videos.find(*n.mediaID); it != videos.end()) clips.emplace_back(*n.mediaID, it->second.get());
  }
  return clips;
}

void AppModel::feedClipFrames(ForwardReaders& readers, int frame) {
  if (!engine) return;
  for (const auto& [id, clip] : graphClips())
    if (auto picture = readers.frame(id, clip->url(), frame)) engine->updateSource(*picture, id);
}

std::vector<Uuid> AppModel::importPanel() {
  if (!dialogs_) return {};
  OpenPanel panel;
  panel.title = "Importer des médias…";
  // A video comes in whole, every frame on the time bar: the message must not promise less.
  panel.message = "Images (JPEG, PNG, TIFF, EXR) ou vidéos (ProRes, H.264…) : chaque fichier devient un monde, une vidéo "
                  "avec toutes ses images";
  panel.types.assign(mediaExtensions().begin(), mediaExtensions().end());
  const std::vector<fs::path> chosen = dialogs_->openMany(panel);
  if (chosen.empty()) return {};
  const std::string status = _status;
  std::vector<Uuid> worlds = importAsWorlds(expandMedia(chosen));
  if (worlds.empty()) {
    if (_status == status) _status = "Aucun média importable dans la sélection.";
    return worlds;
  }
  // The desktop has no world map yet: the newest world opens, the others are in the Mondes menu.
  _worldView = false;
  openBatch(worlds.back());
  return worlds;
}

}  // namespace ombrik
