#include "groups/user_nodes.h"

#include <QCollator>
#include <QFile>
#include <QString>
#include <algorithm>
#include <chrono>

#include "groups/fresh_ids.h"
#include "platform/atomic_file.h"
#include "platform/bounded_file.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kMaxNodeFile = 64ull << 20;

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string firstLine(const std::string& s) {
  const std::string line = s.substr(0, s.find('\n'));
  return line.size() > 140 ? line.substr(0, 140) + "…" : line;
}

UserNodeDef readFile(const fs::path& file) {
  std::string why;
  const auto text = readBoundedFile(file, kMaxNodeFile, &why);
  if (!text) throw UserNodeFileError(why);
  return decodeUserNodeFile(*text);
}

}  // namespace

void sortByName(std::vector<UserNodeDef>& defs) {
  QCollator collator;
  collator.setCaseSensitivity(Qt::CaseInsensitive);
  std::stable_sort(defs.begin(), defs.end(), [&](const UserNodeDef& a, const UserNodeDef& b) {
    return collator.compare(QString::fromStdString(a.name), QString::fromStdString(b.name)) < 0;
  });
}

UserNodes::UserNodes(fs::path folder)
    : trash([](const fs::path& p) { return QFile::moveToTrash(QString::fromStdString(p.string())); }),
      folder_(std::move(folder)) {}

void UserNodes::loadAll(const Compile& compiler) {
  problems_.clear();
  std::error_code ec;
  std::vector<fs::path> files;
  for (fs::directory_iterator it(folder_, ec), end; !ec && it != end; it.increment(ec))
    if (it->path().extension() == ".ombrik") files.push_back(it->path());
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    const std::string name = file.filename().string();
    UserNodeDef def;
    try {
      def = readFile(file);
    } catch (const UserNodeFileError& e) {
      problems_.push_back({name, e.what(), true});
      continue;
    }
    const auto parts = split(def, secondsNow());
    if (parts.size() > 1) {
      // The mixed history is kept whole beside the file, which is rewritten with one name.
      fs::copy_file(file, fs::path(file) += ".avant-separation", fs::copy_options::skip_existing, ec);
    }
    for (const auto& part : parts)
      if (auto message = register_(part, compiler, parts.size() > 1))
        problems_.push_back({name, "ne compile plus — " + firstLine(*message), false});
  }
  sortByName(defs_);
}

std::optional<std::string> UserNodes::compile(const UserNodeDef& def, const Compile& compiler) {
  if (def.isGroup() || !compiler) return std::nullopt;
  auto message = compiler(def.kernelName(), def.helpers, def.code, def.paramKeys());
  if (message) lastError_[def.id] = *message;
  else lastError_.erase(def.id);
  return message;
}

std::optional<std::string> UserNodes::register_(const UserNodeDef& def, const Compile& compiler, bool persist) {
  const auto message = compile(def, compiler);
  kinds_[def.id] = def.kind();
  known_[def.id] = def;
  auto it = std::find_if(defs_.begin(), defs_.end(), [&](const UserNodeDef& d) { return d.id == def.id; });
  if (it != defs_.end()) *it = def;
  else defs_.push_back(def);
  if (persist) save(def);
  return message;
}

void UserNodes::compileAll(const Compile& compiler) {
  for (const auto& [id, def] : known_) compile(def, compiler);
}

std::optional<std::string> UserNodes::save(const UserNodeDef& def) const {
  std::error_code ec;
  fs::create_directories(folder_, ec);
  return writeFileAtomically(folder_ / (def.id + ".ombrik"), encodeUserNodeFile(def));
}

void UserNodes::remove(const std::string& id) {
  std::erase_if(defs_, [&](const UserNodeDef& d) { return d.id == id; });
  const fs::path file = folder_ / (id + ".ombrik");
  std::error_code ec;
  if (!fs::exists(file, ec)) return;
  if (!(trash && trash(file))) fs::remove(file, ec);
}

UserNodeDef UserNodes::read(const fs::path& file) const {
  UserNodeDef def = readFile(file);
  if (const UserNodeDef* same = known(def.id); same && !(*same == def)) def.id = UserNodeDef::newID(def.isGroup());
  return def;
}

void UserNodes::export_(const UserNodeDef& def, const fs::path& to) {
  if (auto why = writeFileAtomically(to, encodeUserNodeFile(def))) throw UserNodeFileError(*why);
}

std::optional<Node> UserNodes::instance(const std::string& id) const {
  const UserNodeDef* def = known(id);
  if (!def || !def->group) return std::nullopt;
  auto stored = def->group->nodeGroup(lookup());
  if (!stored) return std::nullopt;
  NodeGroup group = fresh(stored->group);
  Node n(NodeKind::group(def->name, group));
  for (const auto& [key, value] : stored->values) n.params[key] = value;
  n.group = std::move(group);
  return n;
}

std::vector<UserNodeDef> UserNodes::split(const UserNodeDef& def, double now) {
  if (def.group || !def.versions) return {def};
  std::vector<std::string> names;  // distinct, in order of first appearance
  for (const auto& v : *def.versions)
    if (std::find(names.begin(), names.end(), v.name) == names.end()) names.push_back(v.name);
  if (names.size() < 2) return {def};
  std::erase(names, def.name);
  auto versionsNamed = [&](const std::string& name) {
    std::vector<UserNodeVersion> out;
    for (const auto& v : *def.versions)
      if (v.name == name) out.push_back(v);
    return out;
  };
  std::vector<UserNodeDef> out{def};
  out[0].versions = versionsNamed(def.name);
  for (const auto& name : names) {
    UserNodeDef other;
    other.id = UserNodeDef::newID(false);
    other.name = name;
    other.created = now;
    other.versions = versionsNamed(name);
    int highest = 0;
    for (const auto& v : *other.versions) highest = std::max(highest, v.n);
    other.restore(highest);
    out.push_back(std::move(other));
  }
  return out;
}

std::optional<std::string> UserNodes::lastError(const std::string& id) const {
  auto it = lastError_.find(id);
  return it == lastError_.end() ? std::nullopt : std::optional(it->second);
}

const UserNodeDef* UserNodes::known(std::string_view id) const {
  auto it = known_.find(id);
  return it == known_.end() ? nullptr : &it->second;
}

KindRef UserNodes::kind(std::string_view id) const {
  auto it = kinds_.find(id);
  return it == kinds_.end() ? KindRef() : it->second;
}

std::vector<KindRef> UserNodes::kinds() const {
  std::vector<KindRef> out;
  for (const auto& d : defs_) out.push_back(kind(d.id));
  return out;
}

KindLookup UserNodes::lookup() const {
  return [this](std::string_view id) { return kind(id); };
}

std::string UserNodes::report(const std::vector<Problem>& problems) {
  if (problems.empty()) return {};
  std::string list;
  for (const auto& p : problems) {
    if (!list.empty()) list += " ; ";
    list += p.file + " : " + (p.skipped ? "ignoré — " + p.reason : p.reason);
  }
  const std::string n = std::to_string(problems.size());
  return problems.size() == 1 ? "Mes nodes : " + n + " fichier en défaut (" + list + ")"
                              : "Mes nodes : " + n + " fichiers en défaut (" + list + ")";
}

}  // namespace ombrik
