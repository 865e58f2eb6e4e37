#pragma once
// Frames of a timeline's media, exact to the frame: one reader per clip, kept for the session,
// and each still decoded once. Used from one thread at a time.
#include <map>
#include <memory>
#include <optional>

#include "engine/source_picture.h"
#include "graph/media_item.h"

namespace ombrik {

class FrameReader;

class TimelineReader {
public:
  TimelineReader();
  ~TimelineReader();
  // The item at `frame` (clamped to the clip), its longer side at most `maxSide` for a clip;
  // nothing without a file or when it can't be read.
  std::optional<SourcePicture> image(const MediaItem& media, int frame, int maxSide);

private:
  std::map<Uuid, std::unique_ptr<FrameReader>> gens_;
  std::map<Uuid, SourcePicture> stills_;  // a still that can't be read leaves no entry
};

}  // namespace ombrik
