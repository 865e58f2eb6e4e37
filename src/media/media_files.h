#pragma once
// Which files are media, and the media found under folders.
#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ombrik {

// The extensions taken as media whatever the system says of them.
const std::set<std::string>& mediaExtensions();
// A movie container by its extension, as the system's file types would classify it.
bool isMovieFile(const std::filesystem::path& path);
// Media: a lower-cased extension of the set, or a movie.
bool countsAsMedia(const std::filesystem::path& path);
// Media files under a folder, at any depth, leaving out hidden files and folders; the walk
// stops at `limit` files, and the result is sorted.
std::vector<std::filesystem::path> mediaFiles(const std::filesystem::path& folder, std::size_t limit);
// The reason given for a file that isn't there.
inline constexpr const char* kNotFound = "introuvable";
// What keeps a path from being read as media before any decoder looks at it, in the words shown
// after its name: kNotFound, "dossier", "ce n'est pas un fichier ordinaire", "fichier vide";
// nothing for a regular file with content.
std::optional<std::string> unreadableFile(const std::filesystem::path& path);
// The reason at the end of a reader's message, "Image illisible : a.png (fichier vide)" giving
// "fichier vide"; empty when it names none.
std::string readerReason(const std::string& message);
// Folders replaced by their media (at most 2000 each), media files kept, other files dropped.
std::vector<std::filesystem::path> expandMedia(const std::vector<std::filesystem::path>& urls);

}  // namespace ombrik
