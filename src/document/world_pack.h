#pragma once
// A world pack: one world with its rushes, computed results and LUT gathered in a folder that
// another machine or project opens as a new world. The plan of copies is a value made before any
// file is touched, so the model may change while a background thread copies.
#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "document/project_file.h"
#include "graph/batch.h"

namespace ombrik {

namespace worldpack {

namespace fs = std::filesystem;

inline constexpr const char* kFileName = "monde.ombrik";
inline constexpr const char* kReadme = "LISEZ-MOI.txt";

struct Pack {
  std::vector<MediaRef> media;  // paths relative to the pack's folder
  Batch batch;
};

// Pretty-printed JSON with sorted keys; every key is written.
std::string encode(const Pack& pack);
// `kinds`: the user's own kinds, which the world's nodes may use.
std::optional<Pack> decode(const std::string& text, std::string* error = nullptr, const KindLookup& kinds = {});
std::string readme(const std::string& worldName);

// A rush the world may use: its id, name and file (none for a generated picture).
struct Rush {
  Uuid id;
  std::string name;
  std::optional<fs::path> file;
};

struct Copy {
  fs::path from, to;
};

struct Plan {
  std::string name;  // the world's
  fs::path folder;
  std::vector<Copy> copies;
  std::size_t rushes = 0;
  std::string json;  // monde.ombrik
};

// The copies and the pack's text for `world` (saved, with its graph in its Batch): its rushes
// among `media` under "Rushs/", each name once whatever its case; the entries of
// `cacheRoot`/<node id> but their nodecache folders; its own LUT file. Nothing when `to` exists,
// with the status that says so.
std::optional<Plan> plan(const Batch& world, const std::vector<Rush>& media, const fs::path& cacheRoot,
                         const fs::path& to, std::string* status);

// Every UUID-shaped text of `text` found in `ids` replaced by its value, exactly as written.
std::string replaceIds(const std::string& text, const std::map<std::string, std::string>& ids);

// The ids of the world and of all its nodes, groups' inner nodes included.
std::vector<Uuid> nodeIDs(const Batch& world);

// Copies every entry of `from` into `to` (made when missing) but what already exists there;
// failures are passed over: computed results can be computed again.
void mergeFolder(const fs::path& from, const fs::path& to);

// Texts shown while packing and unpacking.
std::string startStatus(const std::string& name, std::size_t entries);
std::string progressStatus(const std::string& name, std::size_t done, std::size_t entries);
std::string doneStatus(std::size_t rushes);
std::string failedStatus(const std::string& name, const std::string& error);
std::string unreadableStatus(const fs::path& folder);
std::string unpackedStatus(const std::string& name, std::size_t rushes, std::size_t missing);

}  // namespace worldpack

// The copying of one pack on its own thread: the plan's files in order, then the pack's text
// last, so a pack cut short has no monde.ombrik and is never taken for a whole one. Both
// callbacks run on the copying thread.
class PackCopy {
public:
  using Progress = std::function<void(std::size_t done)>;             // after every third file
  using Done = std::function<void(std::optional<std::string> error)>;  // once, at the end
  PackCopy(worldpack::Plan plan, Progress progress, Done done);
  ~PackCopy();  // stops between two files and waits
  PackCopy(const PackCopy&) = delete;
  PackCopy& operator=(const PackCopy&) = delete;

private:
  std::optional<std::string> run();
  worldpack::Plan plan_;
  Progress progress_;
  Done done_;
  std::atomic<bool> stop_{false};
  std::thread thread_;  // last: starts once the rest is ready
};

}  // namespace ombrik
