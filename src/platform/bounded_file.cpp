#include "platform/bounded_file.h"

#include <fstream>
#include <sstream>

namespace ombrik {

namespace fs = std::filesystem;

std::optional<std::string> readBoundedFile(const fs::path& path, std::uintmax_t maxBytes, std::string* why) {
  auto refuse = [&](std::string reason) -> std::optional<std::string> {
    if (why) *why = std::move(reason);
    return std::nullopt;
  };
  std::error_code ec;
  const fs::file_status st = fs::status(path, ec);
  if (ec || !fs::exists(st)) return refuse("fichier introuvable");
  if (!fs::is_regular_file(st)) return refuse("ce n'est pas un fichier ordinaire");
  if (const auto size = fs::file_size(path, ec); !ec && size > maxBytes)
    return refuse("fichier trop grand : " + std::to_string(size >> 20) + " Mo");
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  if (in) ss << in.rdbuf();
  if (!in) return refuse("lecture impossible");
  return ss.str();
}

}  // namespace ombrik
