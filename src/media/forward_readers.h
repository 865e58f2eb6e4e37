#pragma once
// Forward decoders for jobs that walk clips in order (a render, the play cache): one reader per
// media, kept while the frames asked of it move forward by at most 48, the longest skip still
// cheaper than opening a new reader. Each media keeps its own position, so a graph with two
// clips doesn't reopen them at every frame. A frame that can't be decoded gives the last good one.
// While the caller works on a frame, the next one decodes on a thread of its own.
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <optional>

#include "engine/source_picture.h"
#include "graph/uuid.h"

namespace ombrik {

class FrameReader;

class ForwardReaders {
public:
  // `planar`: frames come as the decoder's planes where the clip allows (FrameReader::setPlanar),
  // for callers that hand them to the engine only.
  explicit ForwardReaders(bool planar = false);
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
    std::filesystem::path url;
    std::optional<SourcePicture> last;
    int lastFrame = -1;   // the frame `last` was asked as
    int readerFrame = 0;  // the frame the reader stands on
    // The frame after the last one asked, being read; the reader is the thread's until it ends.
    // Declared after the reader, so that it is waited for before the reader goes.
    std::future<std::optional<SourcePicture>> ahead;
    int aheadFrame = -1;
    int aheadWidth = 0, aheadHeight = 0;
  };
  void readAhead(Entry& e, int frame);
  std::map<Uuid, Entry> readers_;
  int opened_ = 0;
  bool planar_ = false;
  int maxWidth_ = 0, maxHeight_ = 0;
};

}  // namespace ombrik
