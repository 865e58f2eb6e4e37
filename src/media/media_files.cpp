#include "media/media_files.h"

#include <algorithm>
#include <cctype>

namespace ombrik {

namespace fs = std::filesystem;

namespace {
std::string lowerExtension(const fs::path& path) {
  std::string e = path.extension().string();
  if (!e.empty()) e.erase(0, 1);
  std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return e;
}
}  // namespace

const std::set<std::string>& mediaExtensions() {
  static const std::set<std::string> set = {"mov", "mp4", "m4v", "mxf", "tif", "tiff",
                                            "png", "jpg", "jpeg", "exr", "dpx", "heic"};
  return set;
}

bool isMovieFile(const fs::path& path) {
  // The movie types of the freedesktop shared MIME database that FFmpeg can open.
  static const std::set<std::string> movies = {"mov", "mp4", "m4v", "mxf", "avi", "mkv", "webm", "mpg", "mpeg",
                                               "m2v", "m2ts", "mts", "ts", "wmv", "flv", "ogv", "3gp", "dv", "qt", "y4m"};
  return movies.count(lowerExtension(path)) > 0;
}

bool countsAsMedia(const fs::path& path) {
  return mediaExtensions().count(lowerExtension(path)) > 0 || isMovieFile(path);
}

std::vector<fs::path> mediaFiles(const fs::path& folder, std::size_t limit) {
  std::vector<fs::path> found;
  std::error_code ec;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end;
  for (; !ec && it != end && found.size() < limit; it.increment(ec)) {
    const fs::path& p = it->path();
    if (p.filename().string().starts_with(".")) {
      if (it->is_directory(ec)) it.disable_recursion_pending();
      continue;
    }
    if (it->is_regular_file(ec) && countsAsMedia(p)) found.push_back(p);
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::optional<std::string> unreadableFile(const fs::path& path) {
  std::error_code ec;
  const fs::file_status st = fs::status(path, ec);
  if (!fs::exists(st)) return kNotFound;
  if (fs::is_directory(st)) return "dossier";
  if (!fs::is_regular_file(st)) return "ce n'est pas un fichier ordinaire";
  if (fs::file_size(path, ec) == 0 && !ec) return "fichier vide";
  return std::nullopt;
}

std::string readerReason(const std::string& message) {
  if (message.empty() || message.back() != ')') return {};
  const auto open = message.rfind(" (");
  return open == std::string::npos ? std::string() : message.substr(open + 2, message.size() - open - 3);
}

std::vector<fs::path> expandMedia(const std::vector<fs::path>& urls) {
  std::vector<fs::path> out;
  for (const auto& url : urls) {
    std::error_code ec;
    if (fs::is_directory(url, ec)) {
      auto inside = mediaFiles(url, 2000);
      out.insert(out.end(), inside.begin(), inside.end());
    } else if (countsAsMedia(url)) {
      out.push_back(url);
    }
  }
  return out;
}

}  // namespace ombrik
