// The clip's own player: the native playback path hands its frames straight to the viewer.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "media/frame_reader.h"
#include "media/video_source.h"
#include "media/video_source_state.h"

namespace ombrik {

void VideoSource::play(int maxWidth, int maxHeight) {
  pause();
  State& s = *state_;
  {
    std::lock_guard g(s.readerLock);
    s.reader->setSizeLimit(maxWidth, maxHeight);
  }
  const int from = currentFrame();
  const int count = frameCount();
  const double fps = this->fps();
  s.stopPlayer = false;
  s.playing = true;
  s.presented = from;
  // The thread holds the state: the destructor stops and joins it before the state can go.
  s.player = std::thread([state = state_, from, count, fps] {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    for (int k = from; k < count && !state->stopPlayer; ++k) {
      std::optional<SourcePicture> picture;
      {
        std::lock_guard g(state->readerLock);
        picture = state->reader->read(k);
      }
      if (!picture) break;  // an unreadable frame ends the run; the viewer keeps the last one
      std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(
                                                std::chrono::duration<double>((k - from) / fps)));
      if (state->stopPlayer) break;
      {
        std::lock_guard g(state->liveLock);
        if (state->liveAttached) state->live = Tapped{k, std::move(*picture)};
      }
      state->presented = k;
    }
    state->playing = false;
  });
}

void VideoSource::pause() {
  State& s = *state_;
  if (!s.player.joinable()) return;
  const bool interrupted = s.playing;
  s.stopPlayer = true;
  s.player.join();
  s.playing = false;
  {
    std::lock_guard g(s.readerLock);
    s.reader->setSizeLimit(0, 0);
  }
  if (!interrupted) return;  // a run that ended by itself leaves the seeks' position alone
  std::lock_guard g(s.tapLock);
  s.current = s.presented;  // a later play goes on from the frame shown
}

bool VideoSource::playing() const { return state_->playing; }
int VideoSource::playerFrame() const { return state_->presented; }

void VideoSource::attachLive() {
  std::lock_guard g(state_->liveLock);
  state_->liveAttached = true;
}

void VideoSource::detachLive() {
  std::lock_guard g(state_->liveLock);
  state_->liveAttached = false;
  state_->live.reset();
}

std::optional<VideoSource::Tapped> VideoSource::liveFrame() {
  std::lock_guard g(state_->liveLock);
  std::optional<Tapped> out;
  out.swap(state_->live);
  return out;
}

}  // namespace ombrik
