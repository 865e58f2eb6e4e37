#pragma once
#include <filesystem>
#include <optional>
#include <string>

#include "graph/picture.h"
#include "graph/uuid.h"

namespace ombrik {

// A picture or clip of the project, shared by all worlds. Without a url it was made in memory.
struct MediaItem {
  Uuid id;
  std::string name;
  std::optional<std::filesystem::path> url;
  int width = 0;
  int height = 0;
  std::optional<Picture> thumb;
  std::optional<Picture> poster;
  bool isVideo = false;
  int frames = 1;
  double fps = 25;
  bool operator==(const MediaItem&) const = default;
};

}  // namespace ombrik
