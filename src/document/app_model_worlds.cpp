// Worlds made from files: one media node feeding the output, placed on the map's grid.
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "media/media_files.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {
// The map's grid: 6 columns of 230 by 270, the first cell at (150, 160).
Point cell(int n) { return Point{double(n % 6) * 230 + 150, double(n / 6) * 270 + 160}; }
}  // namespace

Point AppModel::worldPosition(const Batch& batch) const {
  if (batch.worldPos) return *batch.worldPos;
  int index = 0;
  for (const auto& b : _batches) {
    if (b.id == batch.id) break;
    if (b.group == batch.group) ++index;
  }
  return cell(index);  // folders of worlds arrive with the map; at the top level there are none yet
}

Point AppModel::nextWorldSlot(std::optional<Uuid> group) const {
  std::vector<Point> taken;
  for (const auto& b : _batches)
    if (b.group == group && !b.creator) taken.push_back(worldPosition(b));
  for (int n = 0;; ++n) {
    const Point p = cell(n);
    if (std::none_of(taken.begin(), taken.end(), [&](const Point& t) { return std::hypot(t.x - p.x, t.y - p.y) < 120; }))
      return p;
  }
}

Uuid AppModel::makeWorld(const Uuid& mediaID, const std::string& name, std::optional<Point> at,
                         std::optional<FilmShot> film, std::optional<std::string> lut) {
  Batch world;
  world.id = Uuid::generate();
  world.name = name;
  Node media(NodeKind::media());
  media.mediaID = mediaID;
  Node out(NodeKind::output());
  world.edges.push_back(Edge{Uuid::generate(), media.id, out.id, 0, 0});
  world.positions[media.id] = Point{200, 140};
  world.positions[out.id] = Point{600, 140};
  world.nodes = {std::move(media), std::move(out)};
  world.mediaID = mediaID;
  world.group = _openGroup;
  world.worldPos = at ? *at : nextWorldSlot(_openGroup);
  world.film = film;
  // The LUT a camera file calls for is detected by the LUT library; until then: none decided.
  world.lut = lut ? *lut : std::string();
  world.lastUsed = std::chrono::system_clock::now();
  _batches.push_back(std::move(world));
  return _batches.back().id;
}

std::optional<Uuid> AppModel::createWorld(const fs::path& url, std::optional<Point> at, std::optional<FilmShot> film,
                                          std::optional<std::string> name, std::optional<std::string> lut) {
  const std::size_t before = _media.size();
  importURL(url);
  if (_media.size() <= before) return std::nullopt;  // refused; importURL said why
  return makeWorld(_media.back().id, name ? *name : url.stem().string(), at, film, lut);
}

std::vector<Uuid> AppModel::importAsWorlds(const std::vector<fs::path>& urls, std::optional<Point> at) {
  std::vector<Uuid> ids;
  int i = 0;
  for (const auto& url : urls) {
    if (!countsAsMedia(url)) continue;
    std::optional<Point> place;
    if (at) place = Point{at->x + i * 230, at->y};
    ++i;
    if (auto id = createWorld(url, place)) ids.push_back(*id);
  }
  if (ids.empty()) return ids;
  _worldView = true;
  if (ids.size() > 1) {
    _status = std::to_string(ids.size()) + " mondes créés · double-clic sur un rush pour y entrer.";
  } else {
    auto it = std::find_if(_batches.begin(), _batches.end(), [&](const Batch& b) { return b.id == ids[0]; });
    _status = "Nouveau monde : " + (it != _batches.end() ? it->name : std::string("Graphe")) + " · double-clic pour y entrer.";
  }
  return ids;
}

}  // namespace ombrik
