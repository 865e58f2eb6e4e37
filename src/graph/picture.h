#pragma once
// A small 8-bit RGBA picture held by the document (thumbnails, posters). Shared, never mutated.
#include <cstdint>
#include <memory>
#include <vector>

namespace ombrik {

struct Picture {
  int width = 0;
  int height = 0;
  std::shared_ptr<const std::vector<std::uint8_t>> rgba;  // width * height * 4 bytes, row 0 on top

  bool operator==(const Picture& o) const {
    if (width != o.width || height != o.height) return false;
    if (rgba == o.rgba) return true;
    return rgba && o.rgba && *rgba == *o.rgba;
  }
};

}  // namespace ombrik
