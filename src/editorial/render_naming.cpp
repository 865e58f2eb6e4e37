#include "editorial/render_naming.h"

#include <algorithm>
#include <cstdio>
#include <vector>

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

int removeStaleParts(const fs::path& folder) {
  int removed = 0;
  std::error_code ec;
  std::vector<fs::path> stale;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.size() > 1 && name[0] == '.' && name.find(".part-") != std::string::npos && it->is_regular_file(ec))
      stale.push_back(it->path());
  }
  for (const fs::path& p : stale) removed += fs::remove(p, ec) ? 1 : 0;
  return removed;
}

}  // namespace ombrik
