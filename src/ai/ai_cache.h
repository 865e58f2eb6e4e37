#pragma once
// Where a node's AI results live: plain files in <project>/Cache/<node id>, found by name at each
// frame. Their presence is the state, so removing a folder is what clears a result; that removal
// is guarded, since a wrong path there would delete the user's own files.
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "graph/uuid.h"

namespace ombrik {

// <projectDir>/Cache/<id in upper-case text>: the same folder a Relais caches into.
std::filesystem::path magicDir(const std::filesystem::path& projectDir, const Uuid& id);
// dir/"00042.png" for (42, "png"); five digits at least.
std::filesystem::path frameFile(const std::filesystem::path& dir, int frame, std::string_view ext);
// The matte frames in dir: ".png" names other than "source.png" (the picture sent to the worker).
int countResultFrames(const std::filesystem::path& dir);

// Removes `path` with what it holds, only when it lies strictly inside <projectDir>/Cache once
// ".." and symlinks are resolved, and neither holds a media file of the project nor lies in a
// folder of the cache that holds one. Nothing when done (or nothing was there), else why it was
// refused, in French; nothing is changed then.
std::optional<std::string> safeRemoveCache(const std::filesystem::path& path, const std::filesystem::path& projectDir,
                                           const std::vector<std::filesystem::path>& mediaPaths);

// The node a job writes for: the id after a "Cache" component of its "outdir", "out" or "flowdir"
// path, tried in that order; none when no such path names one.
std::optional<Uuid> aiNodeOfJob(const nlohmann::json& job);

}  // namespace ombrik
