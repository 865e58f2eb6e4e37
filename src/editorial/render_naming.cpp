#include "editorial/render_naming.h"

#include <algorithm>
#include <cstdio>

namespace ombrik {

namespace fs = std::filesystem;

RenderFormat RenderFormat::fromIndex(int format) {
  switch (format) {
    case 1: return {std::nullopt, ".tif"};
    case 2: return {std::nullopt, ".png"};
    case 3: return {MovieCodec::prores422hq, ".mov"};
    case 4: return {MovieCodec::h264, ".mp4"};
    case 5: return {std::nullopt, ".exr"};
    default: return {MovieCodec::prores4444, ".mov"};
  }
}

std::string renderBaseName(const std::string& worldName) {
  std::string base = worldName.empty() ? "Graphe" : worldName;
  std::replace(base.begin(), base.end(), '/', '-');
  return base;
}

fs::path versionedPath(const fs::path& folder, const std::string& base, const std::string& extension) {
  std::error_code ec;
  fs::path candidate = folder / (base + extension);
  for (int v = 2; fs::exists(candidate, ec) || fs::is_symlink(candidate, ec); ++v) {
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, "_v%02d", v);
    candidate = folder / (base + suffix + extension);
  }
  return candidate;
}

fs::path sequenceFrame(const fs::path& folder, int i, const std::string& extension) {
  char number[16];
  std::snprintf(number, sizeof number, ".%05d", i);
  return folder / (folder.filename().string() + number + extension);
}

}  // namespace ombrik
