// Playback on the evaluated path: the frames of the played node are made one at a time, in the
// order of the clock, into a cache of small 8-bit textures, and shown by the wall clock. While the
// cache fills, the clock waits for the renderer, so the first pass shows every frame.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "media/video_source.h"
#include "platform/scheduler.h"
#include "platform/system_memory.h"
#include "platform/user_defaults.h"

namespace ombrik {

int AppModel::pbFrames() const {
  if (tl.workspace == Workspace::timeline) return tl.current() ? std::max(1, tl.current()->duration()) : 1;
  const VideoSource* v = activeVideo();
  return v ? std::max(1, batchFrames(*v)) : 100;
}

double AppModel::pbFPS() const {
  if (tl.workspace == Workspace::timeline && tl.current()) return std::max(1.0, tl.current()->fps);
  const VideoSource* v = activeVideo();
  return v ? std::max(1.0, v->fps()) : 25.0;
}

std::optional<Uuid> AppModel::playTarget() const {
  return tl.workspace == Workspace::timeline ? tl.currentTimelineID : displayedNodeID();
}

std::optional<Uuid> AppModel::passthroughMedia(const Uuid& id) const {
  std::set<Uuid> seen;
  std::optional<Uuid> at = id;
  while (at && seen.insert(*at).second) {
    const Node* n = nodeByID(*at);
    if (!n) return std::nullopt;
    if (n->kind->id == "media") return n->mediaID;
    if (n->kind->id != "output") return std::nullopt;
    const Edge* in = nullptr;
    for (const auto& e : _edges) {
      if (e.to != *at) continue;
      if (e.port == 1) return std::nullopt;  // a matte on the output: not the source as it is
      if (e.port == 0) in = &e;
    }
    if (!in || in->fromPort != 0) return std::nullopt;
    at = in->from;
  }
  return std::nullopt;
}

void AppModel::togglePlay() {
  if (!canPlay()) return;
  if (_isPlaying) stopPlayback();
  else startPlayback();
  bodyOnDemand();
}

void AppModel::startPlayback() {
  if (!canPlay() || !engine) return;
  if (!play) play = std::make_unique<PlayState>();
  if (startNativePlayback()) return;
  PlayState& p = *play;
  if (p.target != playTarget()) {
    p.cache.clear();
    _cachedFrames.clear();
    p.target = playTarget();
  }
  if (VideoSource* v = activeVideo()) v->pause();
  if (_currentFrame >= pbFrames() - 1) _currentFrame = 0;
  setupCacheSize();
  auto hit = p.cache.find(_currentFrame);
  p.display = hit != p.cache.end() ? hit->second : nullptr;
  p.displayFrame = _currentFrame;
  p.startTime = scheduler_->now();
  p.startFrame = p.head = _currentFrame;
  p.fpsCount = 0;
  p.fpsT0 = p.startTime;
  _isPlaying = true;
  if (!p.timer) p.timer = repeat(1.0 / 240, [this] { playTick(); });
  kickRender();
}

void AppModel::stopPlayback() {
  if (!play) return;
  PlayState& p = *play;
  const bool wasPlaying = _isPlaying;
  if (p.timer) scheduler_->cancel(*p.timer);
  p.timer.reset();
  if (p.native) {
    if (VideoSource* v = activeVideo()) {
      _currentFrame = std::clamp(v->playerFrame(), 0, pbFrames() - 1);
      v->pause();
      v->detachLive();
    }
    p.native = p.nativeSeeking = false;
    p.liveTex[0] = p.liveTex[1] = nullptr;
  } else if (wasPlaying) {
    _currentFrame = p.head;
  }
  _isPlaying = false;
  ++p.generation;
  p.readers.cancel();
  p.working = false;
  p.display = nullptr;
  playEvalScale.reset();
  for (const auto& [id, clip] : graphClips()) clip->seek(_currentFrame);  // the viewer's clips stand where it stopped
  requestRender();
}

void AppModel::invalidatePlayCache() {
  scrubTex.reset();
  if (!play) return;
  ++play->generation;
  play->noNative = false;
  if (play->native) {
    // The native path plays the clip as it is: a graph that no longer shows it so stops it.
    const auto target = playTarget();
    if (!(_viewChannel == 4 && target && passthroughMedia(*target))) stopPlayback();
    return;
  }
  play->working = false;
  if (!play->cache.empty() || !_cachedFrames.empty()) {
    play->cache.clear();
    _cachedFrames.clear();
  }
  if (_isPlaying) kickRender();
}

void AppModel::setupCacheSize() {
  PlayState& p = *play;
  const int n = pbFrames();
  const int w = std::max(1, _compSize.width), h = std::max(1, _compSize.height);
  const double boost = defaults_->real("boostPercent");
  // Frames evaluated at the preview scale gain nothing from being enlarged into the cache: its
  // long side is also held to the preview's.
  const int previewSide = std::max(1, int(std::max(w, h) * _previewScale));
  const int maxSide = playMaxSide() > 0 ? std::min(playMaxSide(), previewSide) : previewSide;
  const auto size = playCacheSize(w, h, n, maxSide, playCacheBytes(double(physicalMemoryBytes()), boost));
  if (size.width != p.cacheW || size.height != p.cacheH) {
    p.cache.clear();
    _cachedFrames.clear();
  }
  p.cacheW = size.width;
  p.cacheH = size.height;
  p.budgetFrames = n;
  playEvalScale = std::min(double(p.cacheW) / w, _previewScale);
  recomputeComp();
}

int AppModel::playMaxSide() const {
  // Unset, the long side is held to 2K, the size the playback menu recommends; the stored table
  // says 0 (no limit), which would fill the cache with full-size frames at half preview.
  return defaults_->contains("playMaxSide") ? defaults_->integer("playMaxSide") : kPlayMaxSideDefault;
}

void AppModel::setPlayMaxSide(int side) {
  defaults_->set("playMaxSide", side);
  if (_isPlaying) setupCacheSize();
  invalidatePlayCache();
}

int AppModel::clockFrame() const {
  const PlayState& p = *play;
  const int n = pbFrames();
  const int f = p.startFrame + int(std::floor((scheduler_->now() - p.startTime) * pbFPS()));
  return ((f % n) + n) % n;
}

void AppModel::kickRender() {
  if (!play || !_isPlaying || play->working || !canPlay() || !engine) return;
  PlayState& p = *play;
  if (p.target != playTarget()) {
    p.cache.clear();
    _cachedFrames.clear();
    p.target = playTarget();
  }
  const int n = pbFrames();
  if (int(p.cache.size()) >= std::min(p.budgetFrames, n)) return;
  // While filling, the frame after the one shown comes next, however far the clock ran during
  // the last job: the first pass shows every frame.
  const int clock = int(p.cache.size()) < n ? (p.head + (p.cache.count(p.head) ? 1 : 0)) % n : clockFrame();
  std::optional<int> frame;
  for (int k = 0; k < n && !frame; ++k)
    if (!p.cache.count((clock + k) % n)) frame = (clock + k) % n;
  if (!frame || !p.target) return;

  // One frame a turn of the event loop, on the main thread: the engine is never shared
  // between threads, and the interface stays responsive between two frames.
  p.working = true;
  const int generation = p.generation;
  later(0, [this, generation, f = *frame] {
    if (!play || play->generation != generation) return;
    PlayState& p = *play;
    gpu::TexturePtr made;
    if (tl.workspace == Workspace::timeline) {  // the layers read their own frames
      if (auto job = timelineJob(f))
        if (auto picture = job->render(*engine, timelineReader())) made = engine->snapshotScaled(picture, p.cacheW, p.cacheH);
    } else {
      p.readers.setSizeLimit(engine->compW, engine->compH);  // no more pixels than the cache frames use
      feedClipFrames(p.readers, f);
      if (auto source = passthroughMedia(*p.target); source && engine->sources().count(*source)) {
        made = engine->fastFrame(engine->sources().at(*source), p.cacheW, p.cacheH);
      } else {
        evalFrameOverride = f;
        std::vector<Node> nodes;
        nodes.reserve(_nodes.size());
        for (const auto& node : _nodes) nodes.push_back(resolved(node));
        evalFrameOverride.reset();
        engine->alwaysEval.insert(*p.target);
        engine->evaluate(nodes, _edges, float(f / pbFPS()));
        engine->alwaysEval.erase(*p.target);
        if (auto out = engine->outputs.find(*p.target); out != engine->outputs.end() && out->second)
          made = engine->snapshotScaled(out->second, p.cacheW, p.cacheH);
      }
    }
    p.working = false;
    if (_isPlaying && made) {
      p.cache[f] = made;
      _cachedFrames.insert(f);
      if (!p.display && f == p.head) {  // the first frame of a run shows as soon as it is made
        p.display = made;
        p.displayFrame = f;
        ++_frameID;
      }
      if (int(p.cache.size()) == pbFrames()) {
        // Full: from here the clock decides, starting from the frame on screen rather than from
        // where it stood when the last frame was made.
        p.startTime = scheduler_->now();
        p.startFrame = p.head;
      }
      kickRender();
    }
  });
}

void AppModel::playTick() {
  if (!play || !_isPlaying) return;
  PlayState& p = *play;
  const int n = pbFrames();
  int c = clockFrame();
  if (c == p.head) return;
  if (int(p.cache.size()) < n) {
    // Filling: the clock waits for the renderer and never skips a frame, even one made ahead.
    p.startTime = scheduler_->now();
    p.startFrame = p.head;
    const int next = (p.head + 1) % n;
    if (!p.cache.count(next)) {
      kickRender();
      return;
    }
    c = next;
    p.startFrame = c;
  }
  auto hit = p.cache.find(c);
  if (hit == p.cache.end()) return;
  p.head = c;
  p.display = hit->second;
  p.displayFrame = c;
  ++_frameID;  // the viewer redraws
  countFrame("Lecture", pbFPS(), std::make_pair(int(p.cache.size()), n));
  if (scheduler_->now() - p.lastUI > 0.12) {
    _currentFrame = c;
    p.lastUI = scheduler_->now();
  }
  kickRender();
}

void AppModel::countFrame(const char* label, double fps, std::optional<std::pair<int, int>> cached) {
  PlayState& p = *play;
  ++p.fpsCount;
  const double now = scheduler_->now(), elapsed = now - p.fpsT0;
  if (elapsed < 1) return;  // the text is made once a second, not for every frame
  char text[160];
  if (cached)
    std::snprintf(text, sizeof text, "%s (%d/%d) : %.1f i/s (vidéo %.0f i/s)", label, cached->first, cached->second,
                  p.fpsCount / elapsed, fps);
  else
    std::snprintf(text, sizeof text, "%s : %.1f i/s (vidéo %.0f i/s)", label, p.fpsCount / elapsed, fps);
  _status = text;
  p.fpsCount = 0;
  p.fpsT0 = now;
}

std::shared_ptr<gpu::Texture> AppModel::viewerTexture() const { return rawViewerState().main; }

}  // namespace ombrik
