#pragma once
// The project file ("*.tarvom"): JSON with sorted keys, pretty-printed, UTF-8. Live records are
// never encoded directly: each has a stored form here, and defaults apply on reading. Records of
// features that are not built yet (timelines, user nodes) travel through unchanged.
#include <optional>
#include <string>
#include <vector>

#include "graph/batch.h"
#include "graph/node.h"
#include "graph/world_group.h"

namespace ombrik {

struct MediaRef {
  Uuid id;
  std::string name;
  std::string path;
  bool operator==(const MediaRef&) const = default;
};

struct ProjectFile {
  int version = 1;
  std::vector<MediaRef> media;
  std::vector<Batch> batches;
  std::optional<Uuid> current;
  std::vector<std::string> recent;
  std::optional<std::vector<std::string>> folders;
  std::optional<std::string> timelinesJSON;  // kept as written until timelines exist
  std::vector<WorldGroup> groups;  // folders of worlds on the map; left out when empty
  std::optional<std::string> userNodesJSON;
  bool confidential = false;
};

struct ProjectCodec {
  // Text of the file; nullopt with a message when a value can't be written (a non-finite number).
  static std::optional<std::string> encode(const ProjectFile& file, std::string* error = nullptr);
  // The file's records; nullopt with a message when the text isn't a project.
  static std::optional<ProjectFile> decode(const std::string& text, std::string* error = nullptr);

  // One world, one node: also used by world packs.
  static std::string encodeBatch(const Batch& batch);
  static std::optional<Batch> decodeBatch(const std::string& json, std::string* error = nullptr);
};

}  // namespace ombrik
