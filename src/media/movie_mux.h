#pragma once
// A finished movie joined with the sound of another file, without re-encoding anything.
#include <filesystem>
#include <optional>
#include <string>

namespace ombrik {

// `video`'s picture and every audio track of `audioFrom`, cut to the picture's length, into a
// QuickTime movie at `to` (replaced). Without `audioFrom`, without that file or without sound in
// it, `video` is copied as it is. Nothing on success, else the reason; `to` then doesn't exist.
std::optional<std::string> muxAudio(const std::filesystem::path& video, const std::optional<std::filesystem::path>& audioFrom,
                                    const std::filesystem::path& to);

}  // namespace ombrik
