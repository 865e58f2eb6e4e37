#pragma once
// One open clip for the viewer. A seek decodes its exact frame off the main thread and leaves
// it in the tap, where the idle pump picks it up; while a seek is in flight only the newest
// wish is kept, so scrubbing never queues up stale frames.
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/source_picture.h"

namespace ombrik {

class VideoSource {
public:
  // Runs work on the main thread; called from the decoding thread.
  using Post = std::function<void(std::function<void()>)>;

  // Nothing, with a message, when the file has no readable video track.
  static std::shared_ptr<VideoSource> open(const std::filesystem::path& url, Post post, std::string* error = nullptr);
  ~VideoSource();
  VideoSource(const VideoSource&) = delete;
  VideoSource& operator=(const VideoSource&) = delete;

  const std::filesystem::path& url() const;
  double duration() const;  // seconds
  double fps() const;       // the nominal rate, 25 when the file gives none
  int width() const;        // as displayed, rotation applied
  int height() const;
  int frameCount() const;   // max(round(duration × fps), 1)

  void seek(int frame) { seek(frame, nullptr); }
  // `then` runs on the main thread once this seek (not a later one) has landed.
  void seek(int frame, std::function<void()> then);
  bool seekBusy() const;
  std::optional<int> seekPending() const;
  int seeksRun() const;  // seeks that reached the decoder

  // A one-shot picture of a frame, decoded now, independent of the seeks.
  std::optional<SourcePicture> still(int frame);

  // The tap: the newest decoded frame not taken yet.
  struct Tapped {
    int frame = 0;
    SourcePicture picture;
  };
  std::optional<Tapped> takeFrame();
  int currentFrame() const;  // where the last finished seek landed

  // The player (video_source_play.cpp): from where the last seek landed, frames are decoded in
  // order on a thread and presented at the clip's rate by the wall clock; a decoder that can't
  // keep up presents late rather than skipping. It stops by itself after the last frame.
  // `maxWidth` by `maxHeight` (0: the clip's size) bounds the pictures played: a preview needs
  // no more pixels than it shows. Pausing gives the seeks the full size back.
  void play(int maxWidth = 0, int maxHeight = 0);
  void pause();
  bool playing() const;
  int playerFrame() const;  // the frame presented last
  // A second tap for the player's frames, only while attached (the viewer's live picture).
  void attachLive();
  void detachLive();
  std::optional<Tapped> liveFrame();

  struct State;

private:
  explicit VideoSource(std::shared_ptr<State> state);
  void startSeek(int frame, std::function<void()> then);
  std::shared_ptr<State> state_;
};

}  // namespace ombrik
