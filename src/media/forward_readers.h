#pragma once
// Forward decoders for jobs that walk clips in order (a render, the play cache): one reader per
// media, kept while the frames asked of it move forward by at most 48, the longest skip still
// cheaper than opening a new reader. Each media keeps its own position, so a graph with two
// clips doesn't reopen them at every frame. A frame that can't be decoded gives the last good one.
#include <filesystem>
#include <map>
#include <memory>
#include <optional>

#include "engine/source_picture.h"
#include "graph/uuid.h"

namespace ombrik {

class FrameReader;

class ForwardReaders {
public:
  ForwardReaders();
  ~ForwardReaders();
  // The picture of `frame` of the clip at `url`, read for the media `id`.
  std::optional<SourcePicture> frame(const Uuid& id, const std::filesystem::path& url, int frame);
  void cancel();       // drops every reader
  // The largest picture wanted (0: the clip's own size); readers open and go on with it.
  void setSizeLimit(int maxWidth, int maxHeight);
  int opened() const { return opened_; }  // readers made so far

private:
  struct Entry {
    std::unique_ptr<FrameReader> reader;
    std::optional<SourcePicture> last;
    int readerFrame = 0;  // the frame the reader stands on
  };
  std::map<Uuid, Entry> readers_;
  int opened_ = 0;
  int maxWidth_ = 0, maxHeight_ = 0;
};

}  // namespace ombrik
