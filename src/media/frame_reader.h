#pragma once
// Frames of a clip on FFmpeg. A frame index always gives the same picture, whatever the order of
// reads: a read a little ahead decodes on, any other seeks to the keyframe before it and decodes
// forward to the frame's own timestamp. A frame with no picture of its own (a dropped or held
// frame) shows the picture before it, as a player would.
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "engine/source_picture.h"

namespace ombrik {

struct ClipInfo {
  int width = 0;      // as displayed, rotation applied
  int height = 0;
  double fps = 25;    // the nominal rate, 25 when the file says 0
  int frames = 1;     // at least 1
  double duration = 0;  // seconds, as the file says; frames / fps when it says nothing
  int rotation = 0;   // degrees the picture is turned for display: 0, 90, 180 or 270
};

class FrameReader {
public:
  // Nothing, with a message, when the file isn't a readable clip: "Vidéo illisible : NAME (REASON)".
  static std::unique_ptr<FrameReader> open(const std::filesystem::path& path, std::string* error = nullptr);
  ~FrameReader();
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  const ClipInfo& info() const;
  // The frame at index `frame` (clamped to the clip), premultiplied half floats, sRGB values.
  std::optional<SourcePicture> read(int frame);
  // The first frame a read gives without seeking (frames from it up to kReadOnLimit further).
  int nextFrame() const;
  static constexpr int kReadOnLimit = 48;
  int seeks() const;      // how many times it had to seek
  // Pictures no larger than this (as displayed, aspect kept): playback at a preview scale
  // converts a quarter of the pixels. 0 or less: the clip's own size.
  void setSizeLimit(int maxWidth, int maxHeight);
  // Frames as the decoder's planes (SourcePicture::planar), converted and scaled by the engine
  // on the device, where the clip's format allows; the size limit then plays no part.
  void setPlanar(bool planar);

  struct Impl;

private:
  explicit FrameReader(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace ombrik
