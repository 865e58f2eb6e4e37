// Frames of the current timeline for the viewer: jobs described here, rendered one a turn of the
// main loop (the engine is never shared between threads) into the play cache, which the scrub
// and the neighbouring frames fill while nothing plays.
#include <algorithm>

#include "document/app_model.h"
#include "document/play_state.h"
#include "document/world_list.h"
#include "engine/engine.h"
#include "media/timeline_reader.h"

namespace ombrik {

TimelineReader& AppModel::timelineReader() {
  if (!tlReader_) tlReader_ = std::make_unique<TimelineReader>();
  return *tlReader_;
}

std::optional<TimelineJob> AppModel::timelineJob(int frame) {
  const Timeline* t = tl.current();
  if (!t) return std::nullopt;
  TimelineJob job;
  job.width = t->width;
  job.height = t->height;
  job.fps = t->fps;
  job.bg = t->bg();
  auto media = [&](const Uuid& id) -> const MediaItem* {
    auto m = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& x) { return x.id == id; });
    return m == _media.end() ? nullptr : &*m;
  };
  for (const auto& [layer, sourceFrame] : activeLayers(*t, frame)) {
    TimelineJob::Item item{*layer, sourceFrame, {}, {}, {}, std::nullopt, 0, 0};
    if (!layer->source.isBatch()) {
      const MediaItem* m = media(layer->source.id);
      if (!m) continue;
      item.media = {*m};
      item.srcW = m->width;
      item.srcH = m->height;
    } else {
      const Batch* world = worldlist::find(_batches, layer->source.id);
      const auto graph = world ? worldGraph(world->id) : std::nullopt;
      if (!graph) continue;
      // Keys and AI results at the layer's own frame, not the timeline's.
      const auto kept = evalFrameOverride;
      evalFrameOverride = sourceFrame;
      for (const auto& n : graph->nodes) {
        item.nodes.push_back(resolved(n));
        if (n.kind->id == "output" && !item.output) item.output = n.id;
        if (n.kind->id == "media" && n.mediaID)
          if (const MediaItem* m = media(*n.mediaID);
              m && std::none_of(item.media.begin(), item.media.end(), [&](const MediaItem& x) { return x.id == m->id; }))
            item.media.push_back(*m);
      }
      evalFrameOverride = kept;
      item.edges = graph->edges;
      const MediaItem* own = worldMedia(*world);
      item.srcW = own ? own->width : t->width;
      item.srcH = own ? own->height : t->height;
    }
    job.items.push_back(std::move(item));
  }
  return job;
}

void AppModel::timelineScrub(int frame) {
  if (!engine || !tl.current()) return;
  if (!play) play = std::make_unique<PlayState>();
  PlayState& p = *play;
  if (p.target != tl.currentTimelineID) {  // the cache holds another timeline's or a world's frames
    p.cache.clear();
    _cachedFrames.clear();
    p.target = tl.currentTimelineID;
  }
  if (auto hit = p.cache.find(frame); hit != p.cache.end()) {
    timelineTex = hit->second;
    ++_frameID;
    prefetchTimeline();
    return;
  }
  scrubPending = frame;
  startScrubJob();
}

void AppModel::startScrubJob() {
  if (!scrubPending || tl.workspace != Workspace::timeline || _isPlaying || !play || play->working || !engine) return;
  const int frame = *scrubPending;
  scrubPending.reset();
  setupCacheSize();
  auto job = timelineJob(frame);
  if (!job) return;
  PlayState& p = *play;
  const int generation = p.generation, w = p.cacheW, h = p.cacheH;
  p.working = true;
  later(0, [this, job = std::move(*job), frame, generation, w, h] {
    if (!play) return;
    gpu::TexturePtr made;
    if (auto picture = job.render(*engine, timelineReader())) made = engine->snapshotScaled(picture, w, h);
    PlayState& p = *play;
    p.working = false;
    if (made && p.generation == generation) {
      p.cache[frame] = made;
      _cachedFrames.insert(frame);
      if (frame == _currentFrame) {
        timelineTex = made;
        ++_frameID;
      }
    }
    if (_isPlaying) kickRender();
    else if (!scrubPending) prefetchTimeline();
    else startScrubJob();
  });
}

void AppModel::prefetchTimeline() {
  if (tl.workspace != Workspace::timeline || _isPlaying || !play || play->working || scrubPending) return;
  const PlayState& p = *play;
  const int n = pbFrames();
  if (int(p.cache.size()) >= std::min(p.budgetFrames, n)) return;
  for (int d = 0; d < n; ++d) {
    for (int f : {_currentFrame + d, _currentFrame - d})
      if (f >= 0 && f < n && !p.cache.count(f)) {
        scrubPending = f;
        startScrubJob();
        return;
      }
  }
}

}  // namespace ombrik
