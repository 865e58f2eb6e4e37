#pragma once
// A model downloading for the first time shows how far it got: the partial blobs the Hugging Face
// client writes into its cache, while they grow.
#include <filesystem>
#include <optional>
#include <string>

namespace ombrik {

// The size in megabytes (1,000,000 bytes, rounded down) of the ".incomplete" files modified less
// than 30 s before `now` in home/.cache/huggingface/hub/models--*/blobs; none when there is none.
std::optional<long long> hfDownloadedMB(const std::filesystem::path& home, std::filesystem::file_time_type now);
// "Téléchargement du modèle IA (une seule fois) : 12 Mo…"
std::string hfDownloadText(long long megabytes);

}  // namespace ombrik
