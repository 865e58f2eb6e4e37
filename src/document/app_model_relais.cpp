// The Relais checkpoint: a branch of the graph rendered once to a folder of frames, read back
// instead of computing what lies upstream again.
#include <cstdio>
#include <system_error>

#include "document/app_model.h"
#include "document/frame_run.h"
#include "engine/engine.h"

namespace ombrik {

namespace fs = std::filesystem;

fs::path AppModel::muxFolder(const Uuid& nodeID) const { return dataDir_ / "Cache" / nodeID.toString(); }

int AppModel::muxCachedCount(const Uuid& nodeID) const {
  std::error_code ec;
  int n = 0;
  for (fs::directory_iterator it(muxFolder(nodeID), ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    auto ends = [&](const std::string& tail) {
      return name.size() >= tail.size() && name.compare(name.size() - tail.size(), tail.size(), tail) == 0;
    };
    if (ends(".tif") && !ends("_a.tif")) ++n;
  }
  return n;
}

void AppModel::muxClear(const Uuid& nodeID) {
  std::error_code ec;
  fs::remove_all(muxFolder(nodeID), ec);
  _status = "Cache du Relais vidé.";
  invalidatePlayCache();
  requestRender();
}

void AppModel::muxCache(const Uuid& nodeID) {
  if (rendering) return;
  const Node* n = nodeByID(nodeID);
  const bool fed = n && std::any_of(_edges.begin(), _edges.end(), [&](const Edge& e) { return e.to == nodeID && e.port == 0; });
  if (!n || n->kind->id != "mux" || !fed) {
    _status = "Reliez une image au Relais.";
    return;
  }
  stopPlayback();
  const fs::path folder = muxFolder(nodeID);
  std::error_code ec;
  fs::remove_all(folder, ec);
  fs::create_directories(folder, ec);
  if (ec) {
    _status = "Mise en cache interrompue : " + ec.message();
    return;
  }
  // What enters the node: its Front's picture, and the alpha of its second port if any.
  Edge front{};
  for (const Edge& e : _edges)
    if (e.to == nodeID && e.port == 0) front = e;
  auto run = std::make_shared<FrameRun>();
  run->write = [this, nodeID, front, folder](int i) -> std::optional<std::string> {
    auto picture = engine->inputTexture(front);
    if (!picture) return "le Relais ne reçoit pas d'image";
    char name[32];
    std::snprintf(name, sizeof name, "%05d", i);
    std::string error;
    if (!engine->export_(picture, folder / (std::string(name) + ".tif"), &error)) return error;
    if (auto it = engine->muxAlpha.find(nodeID); it != engine->muxAlpha.end())
      if (!engine->export_(it->second, folder / (std::string(name) + "_a.tif"), &error)) return error;
    return std::nullopt;
  };
  run->close = [](std::optional<std::string>&) {};
  run->ended = [this, nodeID](const std::optional<std::string>& error) {
    invalidatePlayCache();
    if (error) return "Mise en cache interrompue : " + *error;
    return "Relais : " + std::to_string(muxCachedCount(nodeID)) + " images en cache. L'amont n'est plus recalculé.";
  };
  delivery.forceFullRes = true;
  if (startFrameRun(run)) _status = "Relais : mise en cache du plan…";
  else delivery.forceFullRes = false;
}

}  // namespace ombrik
