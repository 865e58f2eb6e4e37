#pragma once
// The project file ("*.tarvom"): JSON with sorted keys, pretty-printed, UTF-8. Live records are
// never encoded directly: each has a stored form here (timelines: editorial/timeline_codec.h), and
// defaults apply on reading. User nodes travel as JSON text, read and written by the library
// (src/groups), which this codec doesn't know.
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "editorial/timeline.h"
#include "graph/batch.h"
#include "graph/node.h"
#include "graph/world_group.h"
#include "groups/node_group.h"

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
  std::vector<Timeline> timelines;  // left out of the file when empty
  std::vector<WorldGroup> groups;  // folders of worlds on the map; left out when empty
  std::optional<std::string> userNodesJSON;  // the user nodes the project uses: an array of definitions
  bool confidential = false;
};

// The kinds that aren't built in (the user's own nodes), by id; an empty ref: unknown here.
using KindLookup = std::function<KindRef(std::string_view id)>;
// Given the file's userNodes (JSON text) before any world is read, the lookup for its nodes.
using KindsFor = std::function<KindLookup(const std::optional<std::string>& userNodesJSON)>;

// A group as stored: its name, its graph, and the values of its "c<i>" controls.
struct StoredGroup {
  std::string name;
  NodeGroup group;
  std::map<std::string, double> values;
};

struct ProjectCodec {
  // Text of the file; nullopt with a message when a value can't be written (a non-finite number).
  static std::optional<std::string> encode(const ProjectFile& file, std::string* error = nullptr);
  // The file's records; nullopt with a message when the text isn't a project.
  static std::optional<ProjectFile> decode(const std::string& text, std::string* error = nullptr,
                                           const KindsFor& kindsFor = {});

  // One world, one node: also used by world packs.
  static std::string encodeBatch(const Batch& batch);
  static std::optional<Batch> decodeBatch(const std::string& json, std::string* error = nullptr,
                                          const KindLookup& kinds = {});

  // A group's stored form (compact JSON, keys sorted, so equal groups give equal texts). Only the
  // "c<i>" entries of `params` are kept, as its values. Reading refuses a group whose output
  // isn't among the nodes read: a node of an unknown kind is dropped with its edges.
  static std::string encodeGroup(const NodeGroup& group, const std::string& name,
                                 const std::map<std::string, double>& params);
  static std::optional<StoredGroup> decodeGroup(const std::string& json, std::string* error = nullptr,
                                                const KindLookup& kinds = {});
};

}  // namespace ombrik
