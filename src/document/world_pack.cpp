#include "document/world_pack.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cctype>
#include <functional>
#include <set>

#include "color/lut_lib.h"
#include "platform/atomic_file.h"
#include "platform/bounded_json.h"

namespace ombrik {

namespace worldpack {

using json = nlohmann::json;

namespace {

std::string plural(std::size_t n) { return n > 1 ? "s" : ""; }

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// 8-4-4-4-12 hexadecimal digits at `at`.
bool uuidShapeAt(const std::string& s, std::size_t at) {
  if (at + 36 > s.size()) return false;
  for (std::size_t i = 0; i < 36; ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? s[at + i] != '-' : !isHex(s[at + i])) return false;
  }
  return true;
}

void eachNode(const std::vector<Node>& nodes, const std::function<void(const Node&)>& f) {
  for (const Node& n : nodes) {
    f(n);
    if (n.group) eachNode(n.group->nodes, f);
  }
}

// "clip.mov" taken: "clip-2.mov", then "clip-3.mov"…; names compared in lower case.
std::string freeName(const std::string& name, std::set<std::string>& taken) {
  std::string candidate = name;
  const fs::path p(name);
  for (int n = 2; taken.count(lower(candidate)); ++n)
    candidate = p.stem().string() + "-" + std::to_string(n) + p.extension().string();
  taken.insert(lower(candidate));
  return candidate;
}

}  // namespace

std::string encode(const Pack& pack) {
  json media = json::array();
  for (const auto& m : pack.media) media.push_back({{"id", m.id.toString()}, {"name", m.name}, {"path", m.path}});
  // nlohmann's objects keep their keys sorted, so the batch's text keeps its order when nested.
  const json j = {{"version", 1}, {"media", media}, {"batch", json::parse(ProjectCodec::encodeBatch(pack.batch))}};
  return j.dump(2) + "\n";
}

std::optional<Pack> decode(const std::string& text, std::string* error, const KindLookup& kinds) {
  auto j = parseBoundedJson(text, error);
  if (!j) return std::nullopt;
  auto fail = [&](const std::string& why) -> std::optional<Pack> {
    if (error) *error = why;
    return std::nullopt;
  };
  try {
    if (!j->is_object() || !j->contains("version") || !j->contains("media") || !j->contains("batch"))
      return fail("clés version, media ou batch absentes");
    if (j->at("version") != 1) return fail("version " + j->at("version").dump() + " inconnue");
    Pack pack;
    for (const auto& m : j->at("media")) {
      auto id = Uuid::parse(m.at("id").get<std::string>());
      if (!id) return fail("identifiant de média invalide");
      pack.media.push_back({*id, m.at("name").get<std::string>(), m.at("path").get<std::string>()});
    }
    auto batch = ProjectCodec::decodeBatch(j->at("batch").dump(), error, kinds);
    if (!batch) return std::nullopt;
    pack.batch = std::move(*batch);
    return pack;
  } catch (const std::exception& e) {
    return fail(e.what());
  }
}

std::string readme(const std::string& worldName) {
  return "Monde Ombrik « " + worldName +
         " » : glissez ce dossier dans Ombrik (espace des mondes ou graphe), ou clic droit → Actions rapides → "
         "Importer dans Ombrik.\nL'arbre, les rushs (Rushs/) et les calculs IA (Cache/) sont retrouvés tels quels.\n";
}

std::vector<Uuid> nodeIDs(const Batch& world) {
  std::vector<Uuid> ids{world.id};
  eachNode(world.nodes, [&](const Node& n) { ids.push_back(n.id); });
  for (const auto& open : world.openGroups) ids.push_back(open.id);  // the id its group closes under
  return ids;
}

std::optional<Plan> plan(const Batch& world, const std::vector<Rush>& media, const fs::path& cacheRoot,
                         const fs::path& to, std::string* status) {
  std::error_code ec;
  if (fs::exists(fs::symlink_status(to, ec))) {
    if (status) *status = "« " + to.filename().string() + " » existe déjà : choisissez un autre nom (rien n'est écrasé).";
    return std::nullopt;
  }
  Plan p;
  p.name = world.name;
  p.folder = to;
  Pack pack{{}, world};

  // Rushes: the world's own, then those of its media nodes, each once.
  std::vector<Uuid> ids;
  auto want = [&](const std::optional<Uuid>& id) {
    if (id && std::find(ids.begin(), ids.end(), *id) == ids.end()) ids.push_back(*id);
  };
  want(world.mediaID);
  eachNode(world.nodes, [&](const Node& n) {
    if (n.kind->id == "media") want(n.mediaID);
  });
  std::set<std::string> taken;
  for (const Uuid& id : ids) {
    auto item = std::find_if(media.begin(), media.end(), [&](const Rush& r) { return r.id == id; });
    if (item == media.end() || !item->file) continue;  // a generated picture has no file to carry
    const std::string name = freeName(item->file->filename().string(), taken);
    p.copies.push_back({*item->file, to / "Rushs" / name});
    pack.media.push_back({id, item->name, "Rushs/" + name});
    ++p.rushes;
  }

  // Computed results, without the node caches that can be made again.
  for (const Node& n : world.nodes) {
    if (n.kind->id == "comp") continue;
    const fs::path folder = cacheRoot / n.id.toString();
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
      if (it->path().filename() != "nodecache")
        p.copies.push_back({it->path(), to / "Cache" / n.id.toString() / it->path().filename()});
  }

  // The world's own LUT file; a table of the library is named by its key and needs no copy.
  const std::string lut = world.lut.value_or("");
  if (!lut.empty() && lut.rfind(LUTLib::kAutoPrefix, 0) != 0 && fs::is_regular_file(lut, ec)) {
    const std::string name = fs::path(lut).filename().string();
    p.copies.push_back({lut, to / "LUT" / name});
    pack.batch.lut = "LUT/" + name;
  }
  p.json = encode(pack);
  if (status) *status = startStatus(p.name, p.copies.size());
  return p;
}

std::string replaceIds(const std::string& text, const std::map<std::string, std::string>& ids) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (uuidShapeAt(text, i))
      if (auto it = ids.find(text.substr(i, 36)); it != ids.end()) {
        out += it->second;
        i += 36;
        continue;
      }
    out += text[i++];
  }
  return out;
}

void mergeFolder(const fs::path& from, const fs::path& to) {
  std::error_code ec;
  fs::create_directories(to, ec);
  for (fs::directory_iterator it(from, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code one;
    const fs::path target = to / it->path().filename();
    if (fs::exists(fs::symlink_status(target, one))) continue;
    fs::copy(it->path(), target, fs::copy_options::recursive, one);
  }
}

std::string startStatus(const std::string& name, std::size_t entries) {
  return "Rassembler « " + name + " » : copie de " + std::to_string(entries) + " élément" + plural(entries) + "…";
}

std::string progressStatus(const std::string& name, std::size_t done, std::size_t entries) {
  return "Rassembler « " + name + " » : " + std::to_string(done) + "/" + std::to_string(entries) + "…";
}

std::string doneStatus(std::size_t rushes) {
  return "Monde rassemblé : " + std::to_string(rushes) + " rush" + plural(rushes) + ", arbre et calculs IA.";
}

std::string failedStatus(const std::string& name, const std::string& error) {
  return "Rassembler « " + name + " » interrompu : " + error;
}

std::string unreadableStatus(const fs::path& folder) {
  return "Paquet Ombrik illisible : " + folder.filename().string();
}

std::string unpackedStatus(const std::string& name, std::size_t rushes, std::size_t missing) {
  std::string s = "Monde « " + name + " » retrouvé : arbre, " + std::to_string(rushes) + " rush" + plural(rushes) +
                  " et calculs IA";
  if (missing)
    s += " · " + std::to_string(missing) + " rush" + plural(missing) + " manquant" + plural(missing) + " dans le paquet.";
  return s;
}

}  // namespace worldpack

namespace {

// One file, by the kernel's own copy (no trip through our memory), in slices so that quitting
// never waits for the end of a big rush. The target must not exist: nothing is overwritten.
std::optional<std::string> copyFile(const std::filesystem::path& from, const std::filesystem::path& to,
                                    const std::atomic<bool>& stop) {
  const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return std::string(std::strerror(errno));
  const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (out < 0) {
    const int e = errno;
    ::close(in);
    return std::string(std::strerror(e));
  }
  std::optional<std::string> error;
  for (;;) {
    if (stop) {
      error = "arrêt du programme";
      break;
    }
    const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, 64 << 20, 0);
    if (n == 0) break;
    if (n < 0) {
      error = std::strerror(errno);
      break;
    }
  }
  ::close(in);
  if (::close(out) != 0 && !error) error = std::strerror(errno);
  if (error) ::unlink(to.c_str());
  return error;
}

}  // namespace

PackCopy::PackCopy(worldpack::Plan plan, Progress progress, Done done)
    : plan_(std::move(plan)), progress_(std::move(progress)), done_(std::move(done)),
      thread_([this] { done_(run()); }) {}

PackCopy::~PackCopy() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

std::optional<std::string> PackCopy::run() {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::create_directories(plan_.folder, ec);
  if (ec) return ec.message();
  std::size_t done = 0;
  for (const auto& c : plan_.copies) {
    if (stop_) return std::string("arrêt du programme");
    fs::create_directories(c.to.parent_path(), ec);
    if (ec) return ec.message() + " (" + c.to.parent_path().filename().string() + ")";
    // A folder among the results is copied whole; nothing in the pack is ever overwritten.
    if (fs::is_directory(c.from, ec)) {
      fs::copy(c.from, c.to, fs::copy_options::recursive, ec);
      if (ec) return ec.message() + " (" + c.from.filename().string() + ")";
    } else if (auto error = copyFile(c.from, c.to, stop_)) {
      return *error + " (" + c.from.filename().string() + ")";
    }
    if (++done % 3 == 0 && progress_) progress_(done);
  }
  // The world's file last: whatever stops the copy before it leaves no pack that looks whole.
  if (auto error = writeFileAtomically(plan_.folder / worldpack::kReadme, worldpack::readme(plan_.name))) return error;
  return writeFileAtomically(plan_.folder / worldpack::kFileName, plan_.json);
}

}  // namespace ombrik
