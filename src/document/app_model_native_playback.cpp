// Playback on the native path: a clip shown as it is (media → output, nothing else) plays from
// its own player, each decoded frame going straight to the viewer, with no graph and no cache.
// A clip that decodes too slowly for its rate falls back to the evaluated path.
#include <algorithm>

#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "media/video_source.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace {
constexpr double kNativeTickSeconds = 1.0 / 120;
constexpr double kNativeTrialSeconds = 2.5;  // how long a slow clip is given before the fall-back
constexpr double kNativeShareOfRate = 0.8;   // the share of the clip's rate it must keep
}  // namespace

bool AppModel::startNativePlayback() {
  PlayState& p = *play;
  if (p.noNative || tl.workspace == Workspace::timeline || _viewChannel != 4 || !engine) return false;
  const std::optional<Uuid> target = playTarget();
  const std::optional<Uuid> media = target ? passthroughMedia(*target) : std::nullopt;
  if (!media) return false;
  auto it = videos.find(*media);
  VideoSource* video = it != videos.end() ? it->second.get() : nullptr;
  if (!video || video != activeVideo()) return false;

  if (_currentFrame >= pbFrames() - 1) _currentFrame = 0;
  video->attachLive();
  p.native = true;
  p.fpsCount = 0;
  p.fpsT0 = p.nativeT0 = scheduler_->now();
  p.nativeN = 0;
  p.nativeSeeking = true;
  auto shown = engine->outputs.find(*target);  // what is on screen until the first live frame
  p.display = shown != engine->outputs.end() ? shown->second : nullptr;
  p.displayFrame = _currentFrame;
  _isPlaying = true;
  rewindNative(*video, _currentFrame);
  if (!p.timer) p.timer = repeat(kNativeTickSeconds, [this] { nativeTick(); });
  return true;
}

void AppModel::rewindNative(VideoSource& video, int frame) {
  PlayState& p = *play;
  p.nativeSeeking = true;
  const int generation = p.generation;
  video.seek(frame, [this, generation] {
    if (!play || play->generation != generation || !play->native) return;  // another run by now
    if (VideoSource* v = activeVideo()) v->play(engine->compW, engine->compH);  // no more than the preview shows
    play->nativeSeeking = false;
    play->nativeT0 = scheduler_->now();  // the rate is measured from the player's start
    play->nativeN = 0;
  });
}

void AppModel::nativeTick() {
  if (!play || !_isPlaying || !play->native) return;
  PlayState& p = *play;
  VideoSource* video = activeVideo();
  if (!video) return;
  const double now = scheduler_->now();
  if (auto live = video->liveFrame()) {
    // Two textures in turn: each frame is drawn into the one the viewer isn't showing.
    const int w = std::max(1, engine->compW), h = std::max(1, engine->compH);
    gpu::TexturePtr& into = p.liveTex[p.liveFlip];
    into = engine->fastFrame(live->picture, w, h, into);
    if (into) {
      p.liveFlip ^= 1;
      p.display = into;
      p.displayFrame = live->frame;
      ++_frameID;
      ++p.nativeN;
      countFrame("Lecture native", video->fps());
    }
  }
  if (p.nativeSeeking) return;

  const int frame = std::clamp(video->playerFrame(), 0, pbFrames() - 1);
  if (frame != _currentFrame && now - p.lastUI > 0.12) {  // the interface follows about 8 times a second
    _currentFrame = frame;
    p.lastUI = now;
  }
  const double trial = now - p.nativeT0;
  if (trial > kNativeTrialSeconds && p.nativeN / trial < kNativeShareOfRate * video->fps()) {
    p.noNative = true;
    stopPlayback();
    startPlayback();
    _status = "Rush lourd : mise en cache RAM au premier passage, puis lecture en temps réel.";
    return;
  }
  if (!video->playing()) {  // the end of the clip: again from the start
    rewindNative(*video, 0);
  }
}

}  // namespace ombrik
