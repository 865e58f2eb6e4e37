#pragma once
// The shared insides of a VideoSource: its seeks, its tap and its player run on threads of their
// own and outlive nothing of it.
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "media/frame_reader.h"
#include "media/video_source.h"

namespace ombrik {

struct VideoSource::State {
  std::filesystem::path url;
  ClipInfo info;
  Post post;

  std::mutex readerLock;  // the seekable reader is shared by seeks and stills
  std::unique_ptr<FrameReader> reader;

  std::mutex tapLock;
  std::optional<Tapped> tap;
  int current = 0;

  // Main thread only.
  bool busy = false;
  std::optional<int> pending;
  std::function<void()> pendingThen;
  int seeksRun = 0;
  std::thread worker;

  // The player.
  std::thread player;
  std::atomic<bool> playing{false};
  std::atomic<bool> stopPlayer{false};
  std::atomic<int> presented{0};
  std::mutex liveLock;
  bool liveAttached = false;
  std::optional<Tapped> live;
};

}  // namespace ombrik
