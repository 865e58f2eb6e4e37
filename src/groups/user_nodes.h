#pragma once
// The library "Mes nodes": one file per definition ("<id>.ombrik") in a folder of the user's own,
// and the kinds registered from them in this run. Compiling a code node is the caller's
// business (the engine's), given as a function so that the library runs without a GPU.
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "graph/node.h"
#include "groups/user_node_def.h"

namespace ombrik {

class UserNodes {
public:
  // (kernel name, helpers, code, parameter keys) -> the compiler's message, or nothing.
  using Compile = std::function<std::optional<std::string>(const std::string&, const std::string&, const std::string&,
                                                           const std::vector<std::string>&)>;
  // A file of the folder that loadAll skipped, or whose code no longer compiles.
  struct Problem {
    std::string file;
    std::string reason;
    bool skipped = true;  // false: registered all the same, with its compiler message
  };

  explicit UserNodes(std::filesystem::path folder);
  const std::filesystem::path& folder() const { return folder_; }

  // Reads every ".ombrik" of the folder once at start; what fails goes to problems().
  void loadAll(const Compile& compiler);
  // Into the catalogue (and, with `persist`, to its file); a code node that doesn't compile
  // registers all the same. The result is the compiler's message. No `compile`: not compiled.
  std::optional<std::string> register_(const UserNodeDef& def, const Compile& compiler, bool persist);
  // Every registered code node again, into a new engine.
  void compileAll(const Compile& compiler);
  // Writes the definition's file atomically; the reason when it can't.
  std::optional<std::string> save(const UserNodeDef& def) const;
  // Out of the library, its file to the trash (else deleted). Placed nodes keep their kind.
  void remove(const std::string& id);
  // A definition from a file; throws UserNodeFileError. A different node with an id already
  // registered comes back with a new id: an import never overwrites a node.
  UserNodeDef read(const std::filesystem::path& file) const;
  static void export_(const UserNodeDef& def, const std::filesystem::path& to);  // throws UserNodeFileError
  // A new group node of a saved group: fresh inner ids, the stored control values.
  std::optional<Node> instance(const std::string& id) const;
  // A code node's history that mixes several names becomes one definition per name.
  static std::vector<UserNodeDef> split(const UserNodeDef& def, double now);

  const std::vector<UserNodeDef>& defs() const { return defs_; }  // the library as shown
  std::optional<std::string> lastError(const std::string& id) const;
  const UserNodeDef* known(std::string_view id) const;  // also those taken out in this run
  KindRef kind(std::string_view id) const;              // empty when not registered
  std::vector<KindRef> kinds() const;                   // of the library, in its order
  KindLookup lookup() const;                            // valid while this object lives
  const std::vector<Problem>& problems() const { return problems_; }
  // One status line naming the problems of loadAll; empty without any.
  static std::string report(const std::vector<Problem>& problems);

  // Moves a file to the trash; false when it couldn't. Tests keep the user's trash out of it.
  std::function<bool(const std::filesystem::path&)> trash;

private:
  std::optional<std::string> compile(const UserNodeDef& def, const Compile& compiler);  // notes the message
  std::filesystem::path folder_;
  std::vector<UserNodeDef> defs_;
  std::map<std::string, UserNodeDef, std::less<>> known_;
  std::map<std::string, KindRef, std::less<>> kinds_;
  std::map<std::string, std::string> lastError_;
  std::vector<Problem> problems_;
};

// Sorted by name, case and accents as a reader expects.
void sortByName(std::vector<UserNodeDef>& defs);

}  // namespace ombrik
