#include "media/timeline_reader.h"

#include <algorithm>

#include "media/frame_reader.h"

namespace ombrik {

TimelineReader::TimelineReader() = default;
TimelineReader::~TimelineReader() = default;

std::optional<SourcePicture> TimelineReader::image(const MediaItem& media, int frame, int maxSide) {
  if (!media.url) return std::nullopt;
  if (!media.isVideo) {
    auto it = stills_.find(media.id);
    if (it == stills_.end()) {
      auto still = SourcePicture::load(*media.url);
      if (!still) return std::nullopt;
      it = stills_.emplace(media.id, std::move(*still)).first;
    }
    return it->second;
  }
  auto& reader = gens_[media.id];
  if (!reader) {
    reader = FrameReader::open(*media.url);
    if (!reader) {
      gens_.erase(media.id);
      return std::nullopt;
    }
    reader->setPlanar(true);  // the planes go to the device, which converts them while fitting
  }
  reader->setSizeLimit(maxSide, maxSide);
  return reader->read(std::clamp(frame, 0, std::max(media.frames, 1) - 1));
}

}  // namespace ombrik
