#pragma once
// Whole files read from outside the program (a project, a world pack): only a regular file of a
// sane size is read, since a pipe or a device would block or never end.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace ombrik {

// The file's bytes, or nothing with the reason in French in `why`: "fichier introuvable", "ce
// n'est pas un fichier ordinaire", "fichier trop grand : N Mo", "lecture impossible".
std::optional<std::string> readBoundedFile(const std::filesystem::path& path, std::uintmax_t maxBytes,
                                           std::string* why = nullptr);

}  // namespace ombrik
