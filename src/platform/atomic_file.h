#pragma once
// Whole files or nothing: a file is written beside its target under a name of its own, flushed to
// the disk, and renamed over the target only when complete, so a failure leaves the old file as
// it was. A symlinked target stays a symlink (the file it points to is replaced) and keeps its
// permissions.
#include <filesystem>
#include <optional>
#include <string>

namespace ombrik {

// Nothing on success, else why, in French: "le disque est plein", "le disque est en lecture
// seule", "écriture interdite", or the system's own words.
std::optional<std::string> writeFileAtomically(const std::filesystem::path& path, const std::string& bytes);

}  // namespace ombrik
