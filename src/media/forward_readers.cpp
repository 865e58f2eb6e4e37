#include "media/forward_readers.h"

#include "media/frame_reader.h"

namespace ombrik {

ForwardReaders::ForwardReaders() = default;
ForwardReaders::~ForwardReaders() = default;

void ForwardReaders::cancel() { readers_.clear(); }

std::optional<SourcePicture> ForwardReaders::frame(const Uuid& id, const std::filesystem::path& url, int frame) {
  Entry& e = readers_[id];
  const int d = frame - e.readerFrame;  // -1: the same frame again, which the reader still holds
  if (!(e.reader && d >= -1 && d <= FrameReader::kReadOnLimit)) {
    // A jump: a new reader starts where it is wanted.
    e.reader = FrameReader::open(url);
    if (e.reader) ++opened_;
  }
  if (e.reader) {
    e.reader->setSizeLimit(maxWidth_, maxHeight_);
    if (auto picture = e.reader->read(frame)) e.last = std::move(picture);
  }
  e.readerFrame = frame + 1;
  return e.last;
}

void ForwardReaders::setSizeLimit(int maxWidth, int maxHeight) {
  maxWidth_ = maxWidth;
  maxHeight_ = maxHeight;
}

}  // namespace ombrik
