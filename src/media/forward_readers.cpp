#include "media/forward_readers.h"

#include "media/frame_reader.h"

namespace ombrik {

ForwardReaders::ForwardReaders(bool planar) : planar_(planar) {}
ForwardReaders::~ForwardReaders() = default;

void ForwardReaders::cancel() { readers_.clear(); }

std::optional<SourcePicture> ForwardReaders::frame(const Uuid& id, const std::filesystem::path& url, int frame) {
  Entry& e = readers_[id];
  if (frame == e.lastFrame && e.url == url && e.last) return e.last;  // asked again
  if (e.ahead.valid()) {
    std::optional<SourcePicture> picture = e.ahead.get();
    if (e.aheadFrame == frame && e.url == url && e.aheadWidth == maxWidth_ && e.aheadHeight == maxHeight_) {
      if (picture) e.last = std::move(picture);
      e.lastFrame = frame;
      e.readerFrame = frame + 1;
      readAhead(e, frame + 1);
      return e.last;
    }
    // Another frame than the one read ahead: the reader stands after it.
    e.readerFrame = e.aheadFrame + 1;
  }
  const int d = frame - e.readerFrame;  // -1: the same frame again, which the reader still holds
  if (!(e.reader && e.url == url && d >= -1 && d <= FrameReader::kReadOnLimit)) {
    // A jump: a new reader starts where it is wanted.
    e.reader = FrameReader::open(url);
    e.url = url;
    if (e.reader) ++opened_;
  }
  if (e.reader) {
    e.reader->setPlanar(planar_);
    e.reader->setSizeLimit(maxWidth_, maxHeight_);
    if (auto picture = e.reader->read(frame)) e.last = std::move(picture);
  }
  e.lastFrame = frame;
  e.readerFrame = frame + 1;
  readAhead(e, frame + 1);
  return e.last;
}

void ForwardReaders::readAhead(Entry& e, int frame) {
  if (!e.reader || frame >= e.reader->info().frames) return;
  e.aheadFrame = frame;
  e.aheadWidth = maxWidth_;
  e.aheadHeight = maxHeight_;
  e.reader->setSizeLimit(maxWidth_, maxHeight_);
  e.ahead = std::async(std::launch::async, [reader = e.reader.get(), frame] { return reader->read(frame); });
}

void ForwardReaders::setSizeLimit(int maxWidth, int maxHeight) {
  if (maxWidth != maxWidth_ || maxHeight != maxHeight_)
    for (auto& [id, e] : readers_) e.lastFrame = -1;  // a picture asked again is read at the new size
  maxWidth_ = maxWidth;
  maxHeight_ = maxHeight;
}

}  // namespace ombrik
