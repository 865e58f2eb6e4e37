#include "media/video_source.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>

#include "media/frame_reader.h"
#include "media/video_source_state.h"

namespace ombrik {

VideoSource::VideoSource(std::shared_ptr<State> state) : state_(std::move(state)) {}

VideoSource::~VideoSource() {
  pause();
  if (state_->worker.joinable()) state_->worker.join();
}

std::shared_ptr<VideoSource> VideoSource::open(const std::filesystem::path& url, Post post, std::string* error) {
  auto reader = FrameReader::open(url, error);
  if (!reader) return nullptr;
  auto s = std::make_shared<State>();
  s->url = url;
  s->info = reader->info();
  s->post = std::move(post);
  s->reader = std::move(reader);
  return std::shared_ptr<VideoSource>(new VideoSource(std::move(s)));
}

const std::filesystem::path& VideoSource::url() const { return state_->url; }
double VideoSource::duration() const { return state_->info.duration; }
double VideoSource::fps() const { return state_->info.fps > 0 ? state_->info.fps : 25.0; }
int VideoSource::width() const { return state_->info.width; }
int VideoSource::height() const { return state_->info.height; }
int VideoSource::frameCount() const { return std::max(int(std::lround(duration() * fps())), 1); }
bool VideoSource::seekBusy() const { return state_->busy; }
std::optional<int> VideoSource::seekPending() const { return state_->pending; }
int VideoSource::seeksRun() const { return state_->seeksRun; }

int VideoSource::currentFrame() const {
  std::lock_guard g(state_->tapLock);
  return state_->current;
}

void VideoSource::seek(int frame, std::function<void()> then) {
  frame = std::clamp(frame, 0, frameCount() - 1);
  if (state_->busy) {
    state_->pending = frame;
    state_->pendingThen = std::move(then);
    return;
  }
  startSeek(frame, std::move(then));
}

void VideoSource::startSeek(int frame, std::function<void()> then) {
  State& s = *state_;
  s.busy = true;
  ++s.seeksRun;
  if (s.worker.joinable()) s.worker.join();  // the last seek's thread has already posted its end
  std::weak_ptr<State> weak = state_;
  s.worker = std::thread([this, weak, frame, then = std::move(then)]() mutable {
    auto strong = weak.lock();
    if (!strong) return;
    std::optional<SourcePicture> picture;
    {
      std::lock_guard g(strong->readerLock);
      picture = strong->reader->read(frame);
    }
    if (picture) {  // a failed decode keeps the last good frame in the tap
      std::lock_guard g(strong->tapLock);
      strong->tap = Tapped{frame, std::move(*picture)};
      strong->current = frame;
    }
    // The end of the seek belongs to the main thread, and only if the source still exists there.
    strong->post([this, weak, then = std::move(then)] {
      auto alive = weak.lock();
      if (!alive) return;
      alive->busy = false;
      if (then) then();
      if (alive->pending) {
        const int next = *alive->pending;
        alive->pending.reset();
        startSeek(next, std::move(alive->pendingThen));
        alive->pendingThen = nullptr;
      }
    });
  });
}

std::optional<SourcePicture> VideoSource::still(int frame) {
  std::lock_guard g(state_->readerLock);
  return state_->reader->read(std::clamp(frame, 0, frameCount() - 1));
}

std::optional<VideoSource::Tapped> VideoSource::takeFrame() {
  std::lock_guard g(state_->tapLock);
  std::optional<Tapped> out;
  out.swap(state_->tap);
  return out;
}

}  // namespace ombrik
