// The drop folder: outside tools leave media, or lists of paths, in Inbox, and each new file
// becomes a world.
#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "document/app_model.h"
#include "document/world_pack.h"
#include "media/media_files.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace fs = std::filesystem;

fs::path AppModel::inboxDir() { return dataDir_ / "Inbox"; }

void AppModel::startInbox() {
  if (inboxTimer_) return;
  scanInbox();
  inboxTimer_ = repeat(3, [this] { scanInbox(); });
}

void AppModel::scanInbox() {
  const fs::path dir = inboxDir();
  std::error_code ec;
  fs::create_directories(dir, ec);
  std::vector<fs::path> files;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec) && !it->path().filename().string().starts_with(".")) files.push_back(it->path());
  std::sort(files.begin(), files.end());

  for (const auto& file : files) {
    if (file.extension() == ".ombrikimport") {
      // One path per line, UTF-8; the list is consumed at once so it is never read twice.
      std::ifstream in(file, std::ios::binary);
      std::stringstream text;
      text << in.rdbuf();
      in.close();
      fs::remove(file, ec);
      std::vector<fs::path> paths;
      std::string line;
      while (std::getline(text, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) paths.emplace_back(line);
      }
      importFromFinder(paths);
      continue;
    }
    const std::string name = file.filename().string();
    if (!countsAsMedia(file) || inboxImported.count(name)) continue;
    inboxImported.insert(name);
    if (createWorld(file)) _status = "Nouveau monde créé : " + file.stem().string();
  }
}

void AppModel::importFromFinder(const std::vector<fs::path>& urls) {
  // A world pack is recognised by its world file and comes back whole, not as loose rushes; a
  // user node (".ombrik") goes to the library.
  std::vector<fs::path> loose;
  std::error_code ec;
  bool handled = false;
  for (const auto& url : urls) {
    // A user node file joins the library and is placed; a pack's own world file means its pack.
    if (url.extension() == ".ombrik" && url.filename() != worldpack::kFileName) {
      importOmbrik(url);
      handled = true;
      continue;
    }
    const fs::path pack = url.filename() == worldpack::kFileName ? url.parent_path() : url;
    if (fs::is_regular_file(pack / worldpack::kFileName, ec)) {
      if (_isPlaying) stopPlayback();
      _worldView = true;
      unpackWorld(pack);
      handled = true;
    } else {
      loose.push_back(url);
    }
  }
  if (handled && loose.empty()) return;
  const auto media = expandMedia(loose);
  std::set<fs::path> inProject;  // each file of the project resolved once
  for (const auto& m : _media)
    if (m.url) inProject.insert(fs::weakly_canonical(*m.url, ec));
  std::vector<fs::path> fresh;
  int known = 0;
  for (const auto& url : media) {
    if (inProject.count(fs::weakly_canonical(url, ec))) ++known;
    else fresh.push_back(url);
  }
  if (fresh.empty()) {
    if (handled) return;  // the pack's or the import's own status stands
    _status = media.empty() ? "Finder : aucun rush reconnu (vidéos .mov, .mp4, .mxf… ou images)."
                            : "Finder : rien de nouveau · " + std::to_string(known) + " déjà dans le projet";
    return;
  }
  _worldView = true;  // the map comes to the front
  importAsWorlds(fresh);
}

}  // namespace ombrik
