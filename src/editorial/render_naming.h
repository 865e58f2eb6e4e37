#pragma once
// Names of what a render writes: never over an earlier render, versioned _v02, _v03…
#include <filesystem>
#include <optional>
#include <string>

#include "media/movie_writer.h"

namespace ombrik {

// What the output node's "format" asks for: a movie with its codec, or a sequence of one kind.
struct RenderFormat {
  std::optional<MovieCodec> movie;  // set: one movie
  std::string extension;            // ".mov", ".mp4", ".tif", ".png", ".exr"
  static RenderFormat fromIndex(int format);  // an unknown index reads as 0, ProRes 4444
};

// The world's name as a file name: "/" becomes "-", and an empty name "Graphe".
std::string renderBaseName(const std::string& worldName);
// <folder>/<base><extension>, else the first of <base>_v02, _v03… that doesn't exist. An empty
// extension names a folder (a sequence).
std::filesystem::path versionedPath(const std::filesystem::path& folder, const std::string& base,
                                    const std::string& extension);
// The file of frame i (from 0) of a sequence in `folder`: <folder name>.<i as %05d><extension>.
std::filesystem::path sequenceFrame(const std::filesystem::path& folder, int i, const std::string& extension);

// Removes what interrupted renders left in `folder`: the hidden ".part-" files of unfinished frames
// and movies. Gives how many went.
int removeStaleParts(const std::filesystem::path& folder);

}  // namespace ombrik
