// The matte tools: Body Matte and Hair Matte (no interaction), Masque au clic (clicks on the
// subject) and Objet IA (a search by name), each a frame at once and the whole shot on demand,
// one PNG per frame in the node's folder, which the resolved node then reads as its matte.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>

#include "ai/ai_cache.h"
#include "document/ai_input.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "media/video_source.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

bool isBodyKind(const Node& n) { return n.kind->id == "bodymask" || n.kind->id == "hairmatte"; }

std::string title(const Node& n) { return n.kind->title.value(); }

json pointsJson(const std::vector<MagicPoint>& points) {
  json out = json::array();
  for (const MagicPoint& p : points) out.push_back({p.p.x, p.p.y, p.positive ? 1.0 : 0.0});
  return out;
}

}  // namespace

Engine::Tex aiInput(const AppModel& m, const Node& n) {
  if (!m.engine) return nullptr;
  for (const Edge& e : m._edges)
    if (e.to == n.id && e.port == 0) return m.engine->inputTexture(e);
  if (n.kind->id == "mask")  // a mask has no Front: the first plate of the graph
    for (const Node& media : m._nodes)
      if (media.kind->id == "media")
        if (auto it = m.engine->outputs.find(media.id); it != m.engine->outputs.end() && it->second) return it->second;
  return nullptr;
}

VideoSource* AppModel::upstreamVideo(const Uuid& id) const {
  const auto media = upstreamMedia(id);
  const Node* n = media ? nodeByID(*media) : nullptr;
  if (!n || !n->mediaID) return nullptr;
  const auto it = videos.find(*n->mediaID);
  return it == videos.end() ? nullptr : it->second.get();
}

std::vector<fs::path> AppModel::mediaPaths() const {
  std::vector<fs::path> out;
  for (const MediaItem& item : _media)
    if (item.url) out.push_back(*item.url);
  return out;
}

void AppModel::bodyFrame(const Uuid& id, bool quiet) {
  const Node* n = nodeByID(id);
  if (!n) return;
  if (_trackingProgress || _magicProgress || tracking.pins) {
    if (!quiet) enqueueAI(aiKey(aiprefix::bodyFrame, id), "Body Matte", [this, id] { bodyFrame(id); });
    return;
  }
  const Engine::Tex picture = aiInput(*this, *n);
  if (!picture) {
    if (!quiet) _status = "Il faut une image ou une vidéo dans le graphe.";
    return;
  }
  const fs::path dir = magicDir(id);
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!engine->writePreview(picture, dir / "source.png", 2048)) {
    _status = "Image illisible : " + (dir / "source.png").string();
    return;
  }
  const bool hair = n->kind->id == "hairmatte";
  json job = {{"type", hair ? "hair_frame" : "body_frame"},
              {"image", (dir / "source.png").string()},
              {"out", frameFile(dir, _currentFrame, "png").string()}};
  _magicProgress = 0.0;
  if (!quiet) _status = "Body Matte : détourage de l'image…";
  magicJob(std::move(job), nullptr, [this](const std::string& s) { _status = s; },
           [this, quiet](const std::optional<std::string>& error) {
             if (error) _status = "Body Matte : " + *error;
             else if (!quiet) _status = "Image détourée. « Calculer toute la vidéo » pour le plan entier.";
           });
}

void AppModel::bodyVideo(const Uuid& id) {
  if (!nodeByID(id) || aiWaits(aiKey(aiprefix::bodyVideo, id), "Body Matte", [this, id] { bodyVideo(id); })) return;
  const auto shot = shotFor(id, "Il faut une vidéo dans le graphe.");
  if (!shot) return;
  json job = {{"type", nodeByID(id)->kind->id == "hairmatte" ? "hair_video" : "body_video"},
              {"video", shot->video->url().string()},
              {"outdir", shot->dir.string()}};
  runWholeShot(std::move(job), shot->frames, "Body Matte : préparation…",
               [this, dir = shot->dir](const std::optional<std::string>& error) {
                 _status = error ? "Body Matte : " + *error
                                 : "Body Matte calculé sur " + std::to_string(countResultFrames(dir)) + " images.";
               });
}

void AppModel::bodyAuto(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n || !isBodyKind(*n)) return;
  const int count = countResultFrames(magicDir(id));
  if (VideoSource* video = upstreamVideo(id)) {
    if (count < std::max(1, batchFrames(*video))) bodyVideo(id);
  } else if (count == 0) {
    bodyFrame(id, true);
  }
}

void AppModel::bodyOnDemand() {
  if (bodyDemand_ || _trackingProgress || _magicProgress || rendering) return;
  const bool any = std::any_of(_nodes.begin(), _nodes.end(), [](const Node& n) { return n.kind->id == "denoise" || isBodyKind(n); });
  if (!any) return;
  bodyDemand_ = later(0.35, [this] {
    bodyDemand_.reset();
    if (_isPlaying || _trackingProgress || _magicProgress || rendering) return;
    auto fed = [&](const Node& n) {
      return !n.bypass && std::any_of(_edges.begin(), _edges.end(), [&](const Edge& e) { return e.to == n.id && e.port == 0; });
    };
    auto has = [&](const Node& n, const char* ext) { return fs::exists(frameFile(magicDir(n.id), _currentFrame, ext)); };
    for (const Node& n : _nodes)
      if (n.kind->id == "denoise" && fed(n) && !has(n, "dn") && !has(n, "png")) return denoiseFrame(n.id);
    for (const Node& n : _nodes)
      if (isBodyKind(n) && fed(n) && !has(n, "png")) return bodyFrame(n.id, true);
  });
}

void AppModel::magicAddPoint(const Uuid& id, Point at, bool positive) {
  Node* n = nodeByID(id);
  if (!n) return;
  if (n->kind->id == "objectmask")
    if (auto boxes = objectBoxes(id); boxes && boxes->frame != _currentFrame) {
      seekFrame(boxes->frame);
      _status = "Objet IA : corrections sur l'image de détection (image " + std::to_string(boxes->frame + 1) +
                ") — cliquez à nouveau.";
      return;
    }
  if (n->magicFrame != _currentFrame) n->magicPoints.clear();  // a new frame starts a new selection
  n->magicFrame = _currentFrame;
  n->magicPoints.push_back({at, positive});
  storedNodes();
  magicPreview(id);
}

void AppModel::magicRemovePoint(const Uuid& id, int index) {
  Node* n = nodeByID(id);
  if (!n || index < 0 || index >= int(n->magicPoints.size())) return;
  n->magicPoints.erase(n->magicPoints.begin() + index);
  storedNodes();
  magicRefresh(id);
}

void AppModel::magicRefresh(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n) return;
  const auto boxes = objectBoxes(id);
  if (!n->magicPoints.empty() || (boxes && !boxes->boxes.empty())) return magicPreview(id);
  std::error_code ec;
  fs::remove(frameFile(magicDir(id), n->magicFrame, "png"), ec);
  invalidatePlayCache();
  requestRender();
  _status = "Plus aucun point ni objet : sélection vide.";
}

void AppModel::magicPreview(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n) return;
  const auto boxes = objectBoxes(id);
  const bool hasBoxes = boxes && !boxes->boxes.empty();
  if (n->magicPoints.empty() && !hasBoxes) return;
  if (_magicProgress || _trackingProgress || tracking.pins) {
    enqueueAI(id.toString(), "Masque au clic", [this, id] { magicPreview(id); });
    _status = _magicProgress ? "Calcul IA en cours : votre sélection sera analysée juste après (ou « Annuler l'IA » en bas)."
                             : "Tracking en cours : votre sélection sera analysée juste après.";
    return;
  }
  const bool wired = std::any_of(_edges.begin(), _edges.end(), [&](const Edge& e) { return e.to == id && e.port == 0; });
  if (!wired) {
    _status = "Reliez une image ou une vidéo à l'entrée du " + title(*n);
    return;
  }
  const Engine::Tex picture = aiInput(*this, *n);
  if (!picture) {
    _status = "Image d'entrée indisponible : sélectionnez le " + title(*n) + " pour l'afficher, puis recliquez.";
    return;
  }
  const fs::path dir = magicDir(id);
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!engine->writePreview(picture, dir / "source.png", 1024)) {
    _status = "Aperçu impossible : " + (dir / "source.png").string();
    return;
  }
  json job = {{"type", "sam_preview"},
              {"image", (dir / "source.png").string()},
              {"points", pointsJson(n->magicPoints)},
              {"out", frameFile(dir, _currentFrame, "png").string()}};
  if (hasBoxes) job["boxes"] = boxes->boxes;
  _magicProgress = 0.0;
  _status = "Masque au clic : analyse de l'image…";
  magicJob(std::move(job), nullptr, nullptr, [this](const std::optional<std::string>& error) {
    _status = error ? "Masque au clic : " + *error : "Masque prêt sur cette image. Ajoutez des clics ou propagez sur la vidéo.";
  });
}

void AppModel::magicPropagate(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n || aiWaits("prop-" + id.toString(), "Masque au clic", [this, id] { magicPropagate(id); })) return;
  if (!upstreamVideo(id)) {
    _status = "La propagation a besoin d'une vidéo reliée en amont du Masque au clic.";
    return;
  }
  const auto boxes = objectBoxes(id);
  const bool hasBoxes = boxes && !boxes->boxes.empty();
  if (n->magicPoints.empty() && !hasBoxes) {
    _status = "Cliquez d'abord sur le sujet dans le viewer (ou « Trouver » pour Objet IA).";
    return;
  }
  const auto shot = shotFor(id, "");
  json job = {{"type", "sam_propagate"},
              {"video", shot->video->url().string()},
              {"frame", n->magicFrame},
              {"points", pointsJson(n->magicPoints)},
              {"outdir", shot->dir.string()}};
  if (hasBoxes) job["boxes"] = boxes->boxes;
  runWholeShot(std::move(job), shot->frames, "Masque au clic : préparation…",
               [this, dir = shot->dir](const std::optional<std::string>& error) {
                 _status = error ? "Masque au clic : " + *error
                                 : "Masque au clic propagé sur " + std::to_string(countResultFrames(dir)) + " images.";
               });
}

void AppModel::magicClear(const Uuid& id) {
  Node* n = nodeByID(id);
  if (!n) return;
  if (!n->magicPoints.empty()) {
    n->magicPoints.clear();
    storedNodes();
  }
  if (auto why = safeRemoveCache(magicDir(id), dataDir_, mediaPaths())) _status = *why;
  invalidatePlayCache();
  requestRender();
}

std::optional<ObjectBoxes> AppModel::objectBoxes(const Uuid& id) const {
  return ombrik::objectBoxes(magicDir(id) / "boxes.json");
}

void AppModel::objectFind(const Uuid& id) {
  Node* n = nodeByID(id);
  if (!n) return;
  if (n->prompt.empty()) {
    _status = "Objet IA : écrivez l'objet à trouver (ex. : lampadaire, voiture, bouteille).";
    return;
  }
  if (aiWaits(aiKey(aiprefix::object, id), "Objet IA", [this, id] { objectFind(id); })) return;
  if (_isPlaying) stopPlayback();
  const Engine::Tex picture = aiInput(*this, *n);
  if (!picture) {
    _status = "Reliez une image ou une vidéo à l'entrée de l'Objet IA.";
    return;
  }
  // A search starts from nothing: a failed one leaves no result behind.
  const fs::path dir = magicDir(id);
  if (auto why = safeRemoveCache(dir, dataDir_, mediaPaths())) {
    _status = *why;
    return;
  }
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!engine->writePreview(picture, dir / "source.png", 1024)) {
    _status = "Image illisible : " + (dir / "source.png").string();
    return;
  }
  n->magicPoints.clear();
  n->magicFrame = _currentFrame;
  storedNodes();
  const std::string text = n->prompt;
  json job = {{"type", "sam_detect"},
              {"image", (dir / "source.png").string()},
              {"text", text},
              {"out", frameFile(dir, _currentFrame, "png").string()},
              {"boxes_out", (dir / "boxes.json").string()},
              {"frame", _currentFrame},
              {"threshold", n->params.count("thresh") ? n->p("thresh") : 0.3},
              {"max", n->params.count("maxobj") ? int(n->p("maxobj")) : 8}};
  _magicProgress = 0.0;
  _status = "Objet IA : recherche de « " + text + " »…";
  magicJob(std::move(job), nullptr, [this](const std::string& s) { _status = s; },
           [this, id](const std::optional<std::string>& error) {
             if (error) {
               _status = "Objet IA : " + *error;
               return;
             }
             const auto boxes = objectBoxes(id);
             const std::size_t count = boxes ? boxes->boxes.size() : 0;
             _status = "Objet IA : " + std::to_string(count) + " objet" + (count > 1 ? "s" : "") +
                       ". Vérifiez, puis « Propager sur la vidéo ».";
           });
}

void AppModel::objectRemoveBox(const Uuid& id, int index) {
  if (!nodeByID(id) || index < 0) return;
  if (auto why = removeBox(magicDir(id) / "boxes.json", std::size_t(index))) {
    _status = *why;
    return;
  }
  magicRefresh(id);
}

void AppModel::objectPropagate(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n) return;
  const auto boxes = objectBoxes(id);
  if (!boxes) {
    _status = "Objet IA : trouvez d'abord l'objet.";
    return;
  }
  if (aiWaits("objv-" + id.toString(), "Objet IA", [this, id] { objectPropagate(id); })) return;
  const auto shot = shotFor(id, "Objet IA : reliez une vidéo en entrée.");
  if (!shot) return;
  const fs::path dir = shot->dir, masks = dir / "masks";
  std::error_code ec;
  fs::create_directories(masks, ec);
  json job = {{"type", "sam_propagate"},
              {"video", shot->video->url().string()},
              {"frame", boxes->frame},
              {"points", pointsJson(n->magicPoints)},
              {"outdir", masks.string()},
              {"boxes", boxes->boxes}};
  runWholeShot(std::move(job), shot->frames, "Objet IA : propagation sur la vidéo…",
               [this, dir, masks](const std::optional<std::string>& error) {
                 // The node reads its frames in its own folder: the worker's ones move there, whole files only.
                 std::error_code ec, moved;
                 for (fs::directory_iterator it(masks, ec), end; !ec && it != end; it.increment(ec))
                   if (it->path().extension() == ".png") fs::rename(it->path(), dir / it->path().filename(), moved);
                 _status = error ? "Objet IA : " + *error : "Objet IA : propagation terminée.";
               });
}

}  // namespace ombrik
