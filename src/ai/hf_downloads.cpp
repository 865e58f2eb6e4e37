#include "ai/hf_downloads.h"

#include <chrono>

namespace ombrik {

namespace fs = std::filesystem;

std::optional<long long> hfDownloadedMB(const fs::path& home, fs::file_time_type now) {
  std::error_code ec;
  bool any = false;
  std::uintmax_t bytes = 0;
  for (const auto& model : fs::directory_iterator(home / ".cache" / "huggingface" / "hub", ec)) {
    if (!model.path().filename().string().starts_with("models--")) continue;
    std::error_code bec;
    for (const auto& blob : fs::directory_iterator(model.path() / "blobs", bec)) {
      std::error_code fec;
      if (!blob.path().filename().string().ends_with(".incomplete") || !blob.is_regular_file(fec)) continue;
      const auto modified = blob.last_write_time(fec);
      if (fec || now - modified >= std::chrono::seconds(30)) continue;
      const std::uintmax_t size = blob.file_size(fec);
      if (fec) continue;
      bytes += size;
      any = true;
    }
  }
  if (!any) return std::nullopt;
  return static_cast<long long>(bytes / 1000000);
}

std::string hfDownloadText(long long megabytes) {
  return "Téléchargement du modèle IA (une seule fois) : " + std::to_string(megabytes) + " Mo…";
}

}  // namespace ombrik
