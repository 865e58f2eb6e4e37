#include "ai/ai_cache.h"

#include <cstdio>

namespace ombrik {

namespace fs = std::filesystem;

namespace {

// `child` is `parent` or below it; both already canonical.
bool within(const fs::path& child, const fs::path& parent) {
  const fs::path rel = child.lexically_relative(parent);
  return !rel.empty() && *rel.begin() != "..";
}

fs::path resolved(const fs::path& p, std::error_code& ec) {
  fs::path r = fs::weakly_canonical(fs::absolute(p, ec), ec);
  if (!r.has_filename()) r = r.parent_path();  // "a/b/" and "a/b" are the same folder
  return r;
}

}  // namespace

fs::path magicDir(const fs::path& projectDir, const Uuid& id) { return projectDir / "Cache" / id.toString(); }

fs::path frameFile(const fs::path& dir, int frame, std::string_view ext) {
  if (!ext.empty() && ext.front() == '.') ext.remove_prefix(1);
  char name[32];
  std::snprintf(name, sizeof name, "%05d.", frame);
  return dir / (name + std::string(ext));
}

int countResultFrames(const fs::path& dir) {
  std::error_code ec;
  int n = 0;
  for (const auto& e : fs::directory_iterator(dir, ec)) {
    const std::string name = e.path().filename().string();
    if (name.size() > 4 && name.ends_with(".png") && name != "source.png" && !e.is_directory(ec)) ++n;
  }
  return n;
}

std::optional<std::string> safeRemoveCache(const fs::path& path, const fs::path& projectDir,
                                           const std::vector<fs::path>& mediaPaths) {
  std::error_code ec;
  const fs::path cache = resolved(projectDir / "Cache", ec);
  const fs::path target = ec ? fs::path() : resolved(path, ec);
  if (ec || path.empty()) return "Suppression refusée : chemin illisible (" + path.string() + ").";
  if (target == cache) return std::string("Suppression refusée : c'est le dossier Cache du projet lui-même.");
  if (!within(target, cache)) return "Suppression refusée : " + path.string() + " est hors du dossier Cache du projet.";
  for (const fs::path& m : mediaPaths) {
    std::error_code mec;
    const fs::path media = resolved(m, mec);
    if (mec) continue;
    const fs::path folder = media.parent_path();
    if (within(media, target))
      return "Suppression refusée : " + path.string() + " contient un média du projet (" + m.string() + ").";
    if (within(folder, cache) && within(target, folder))
      return "Suppression refusée : " + path.string() + " est dans un dossier qui contient un média du projet (" +
             m.string() + ").";
  }
  if (!fs::exists(fs::symlink_status(path, ec))) return std::nullopt;
  // The path as given, not its resolution: a link inside the cache goes, not what it points to.
  fs::remove_all(path, ec);
  if (ec) return "Suppression impossible : " + ec.message();
  return std::nullopt;
}

std::optional<Uuid> aiNodeOfJob(const nlohmann::json& job) {
  if (!job.is_object()) return std::nullopt;
  for (const char* key : {"outdir", "out", "flowdir"}) {
    const auto it = job.find(key);
    if (it == job.end() || !it->is_string()) continue;
    const fs::path p(it->get<std::string>());
    for (auto c = p.begin(); c != p.end(); ++c) {
      if (*c != "Cache") continue;
      const auto next = std::next(c);
      if (next == p.end()) break;
      if (auto id = Uuid::parse(next->string())) return id;
    }
  }
  return std::nullopt;
}

}  // namespace ombrik
