#pragma once
// A node of the user's library ("Mes nodes"): a code node written in the shading dialect, or a
// saved group, with its history of versions. Definitions are plain values; the library that
// files and registers them is user_nodes.h.
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "document/project_file.h"
#include "graph/node_kind.h"
#include "groups/node_group.h"

namespace ombrik {

// A file that isn't a user node, or one that can't be read; what() is the reason, in French.
struct UserNodeFileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One slider of a code node. Unset optionals aren't written.
struct UserParam {
  std::string key;
  std::string label;
  double min = 0, max = 1, def = 0;
  std::optional<double> step;
  std::optional<std::string> unit;
  std::optional<bool> toggle;
  std::optional<std::vector<std::string>> options;
  bool operator==(const UserParam&) const = default;
  ParamSpec spec() const;  // without a step: 1 for menus and toggles, else a hundredth of the range
};

// A group as the library keeps it: its stored form, the one project files use. Inner nodes stay
// in that form until the group is placed, when every user kind they may use is known.
class GroupRef {
public:
  GroupRef() = default;
  // `params`: the group node's own; its "c<i>" values are kept.
  GroupRef(const NodeGroup& group, const std::string& name, const std::map<std::string, double>& params);
  // From the stored text; throws UserNodeFileError when its form is wrong.
  static GroupRef fromStored(const std::string& json);

  const std::string& name() const { return name_; }
  const std::vector<GroupInput>& inputs() const { return inputs_; }
  const std::string& stored() const { return stored_; }  // compact JSON, keys sorted
  // The group read with the kinds known now; nothing when its output doesn't survive.
  std::optional<StoredGroup> nodeGroup(const KindLookup& kinds) const;
  bool operator==(const GroupRef& o) const { return stored_ == o.stored_; }

private:
  std::string name_;
  std::vector<GroupInput> inputs_;
  std::string stored_;
};

struct UserNodeVersion {
  int n = 0;
  double date = 0;  // seconds since 1970
  std::string name;
  std::string info;
  std::vector<UserParam> params;
  std::string helpers;
  std::string code;
  bool back = false;
  std::optional<GroupRef> group;
  bool operator==(const UserNodeVersion&) const = default;
  std::string label() const;  // "v3 · 14/05 09:30", local time
};

struct UserNodeDef {
  std::string id;  // "user." or "usergroup." and 8 characters
  std::string name;
  std::string info;
  std::string author;
  double created = 0;  // seconds since 1970
  std::vector<UserParam> params;
  std::string helpers;
  std::string code;
  bool back = false;  // a second picture input
  std::optional<GroupRef> group;  // set on a saved group
  std::optional<std::vector<UserNodeVersion>> versions;
  std::optional<int> version;  // the version in use
  bool operator==(const UserNodeDef&) const = default;

  bool isGroup() const { return group.has_value(); }
  // "user." (or "usergroup.") and the first 8 characters of a new UUID, in lower case.
  static std::string newID(bool group);
  // "u_" and the id with "." and "-" made "_": the pipeline's name.
  std::string kernelName() const;
  std::vector<std::string> paramKeys() const;
  // Keeps the present state as a new version, unless a code node's code and sliders equal the
  // version in use.
  void snapshot(double now);
  void restore(int n);  // an unknown number changes nothing
  // The catalogue kind. A saved group's kind only names it: placing one gives a group node.
  KindRef kind() const;
};

// The file of one definition: {"format": "ombrik-node", "version": 1, "node": {...}}, pretty,
// keys sorted. Reading tests `format` only; any missing or mistyped field refuses the file.
std::string encodeUserNodeFile(const UserNodeDef& def);
UserNodeDef decodeUserNodeFile(const std::string& text);
// The array a project file carries; reading skips a definition it can't read.
std::string encodeUserNodeDefs(const std::vector<UserNodeDef>& defs);
std::vector<UserNodeDef> decodeUserNodeDefs(const std::string& json);

}  // namespace ombrik
