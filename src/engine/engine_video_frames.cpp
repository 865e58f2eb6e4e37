// Frames read straight from clips during an evaluation (retimed clips, results of models), kept
// conformed to the comp size. Decoding happens on one queue so that the next frame can be read
// ahead while the evaluation goes on; that queue alone touches the readers.
#include <algorithm>

#include "engine/engine.h"
#include "engine/serial_queue.h"
#include "media/frame_reader.h"

namespace ombrik {

namespace {
constexpr std::size_t kVideoFrames = 12;  // conformed frames kept, oldest out first
}

struct Engine::ClipReading {
  struct Reader {
    std::unique_ptr<FrameReader> reader;
    int next = 0;  // the frame a read on from here would give
  };
  struct Ahead {
    int frame = -1;
    SourcePicture picture;
  };
  // Only jobs of `queue` touch these.
  std::map<std::string, Reader> readers;
  std::map<std::string, Ahead> ahead;
  // Last, so that it goes first: pending jobs still find the readers.
  SerialQueue queue{"ombrik.lecture"};

  // Reads `frame` on the queue: the picture read ahead, or on from the reader, or from a reader
  // opened for it. Nothing when the clip can't be read.
  std::optional<SourcePicture> take(const std::string& path, int frame) {
    if (auto a = ahead.find(path); a != ahead.end() && a->second.frame == frame) {
      SourcePicture picture = std::move(a->second.picture);
      ahead.erase(a);
      if (auto r = readers.find(path); r != readers.end()) r->second.next = frame + 1;
      return picture;
    }
    if (auto r = readers.find(path); r != readers.end() && r->second.next == frame) {
      auto picture = r->second.reader->read(frame);
      if (picture) r->second.next = frame + 1;
      return picture;
    }
    auto reader = FrameReader::open(path);
    if (!reader) return std::nullopt;
    auto picture = reader->read(frame);
    if (!picture) return std::nullopt;
    readers[path] = {std::move(reader), frame + 1};
    return picture;
  }

  // Reads `frame` into `ahead` when the reader is right before it, so playing on costs no wait.
  void readAhead(const std::string& path, int frame) {
    auto r = readers.find(path);
    if (r == readers.end() || r->second.next != frame) return;
    auto picture = r->second.reader->read(frame);
    if (!picture) return;
    ahead[path] = {frame, std::move(*picture)};
    r->second.next = frame + 1;
  }
};

void Engine::ClipReadingDeleter::operator()(ClipReading* reading) const { delete reading; }

Engine::Tex Engine::videoFrame(const std::filesystem::path& path, int frame) {
  if (compW < 1 || compH < 1) return nullptr;
  if (!clipReading_) clipReading_.reset(new ClipReading());
  ClipReading& reading = *clipReading_;
  const std::string file = path.string();

  auto info = vfInfo_.find(file);
  if (info == vfInfo_.end()) {
    // The reader opened to learn the clip's length is kept: the first read goes on from it.
    std::optional<ClipInfoEntry> learnt;
    reading.queue.sync([&] {
      auto reader = FrameReader::open(path);
      if (!reader) return;
      learnt = ClipInfoEntry{reader->info().fps, std::max(1, reader->info().frames)};
      const int next = reader->nextFrame();
      reading.ahead.erase(file);
      reading.readers[file] = {std::move(reader), next};
    });
    if (!learnt) return nullptr;
    info = vfInfo_.emplace(file, *learnt).first;
  }
  frame = std::clamp(frame, 0, info->second.frames - 1);
  const std::string key = file + "#" + std::to_string(frame) + "#" + std::to_string(compW) + "x" + std::to_string(compH);
  if (auto hit = vfCache_.find(key); hit != vfCache_.end()) return hit->second;

  std::optional<SourcePicture> picture;
  reading.queue.sync([&] { picture = reading.take(file, frame); });
  if (frame + 1 < info->second.frames)
    reading.queue.async([&reading, file, next = frame + 1] { reading.readAhead(file, next); });
  if (!picture) return nullptr;

  Tex out = conformed(*picture);
  if (!out) return nullptr;
  vfCache_[key] = out;
  vfOrder_.push_back(key);
  while (vfOrder_.size() > kVideoFrames) {
    vfCache_.erase(vfOrder_.front());
    vfOrder_.erase(vfOrder_.begin());
  }
  return out;
}

void Engine::purgeVideoFrames() {
  vfCache_.clear();
  vfOrder_.clear();
  // What is known of a clip goes too: a clip rewritten under its name may be of another length.
  vfInfo_.clear();
  if (!clipReading_) return;
  ClipReading& reading = *clipReading_;
  reading.queue.sync([&reading] {
    reading.readers.clear();
    reading.ahead.clear();
  });
}

}  // namespace ombrik
