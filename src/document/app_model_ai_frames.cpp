// Tools that precompute frames through the worker and then behave like a plate: Denoise, the AI
// keyer and Vitesse (in-betweens by optical flow).
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "ai/ai_cache.h"
#include "ai/green_detect.h"
#include "ai/retime_map.h"
#include "document/ai_input.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "media/video_source.h"

namespace ombrik {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* denoiseEngine(const Node& n) { return n.p("engine") > 0.5 ? "scunet" : "fast"; }

}  // namespace

void AppModel::denoiseFrame(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n) return;
  const int frame = _currentFrame;
  if (aiWaits(denoiseFrameKey(id, frame), "Denoise", [this, id] { denoiseFrame(id); })) return;
  const auto media = upstreamMedia(id);
  const Node* m = media ? nodeByID(*media) : nullptr;
  std::optional<fs::path> source;
  for (const MediaItem& item : _media)
    if (m && m->mediaID && item.id == *m->mediaID) source = item.url;
  if (!source) {
    _status = "Le Denoise a besoin d'un Media (image ou vidéo) en amont.";
    return;
  }
  const fs::path dir = magicDir(id);
  std::error_code ec;
  fs::create_directories(dir, ec);
  json job = {{"type", "denoise_frame"}, {"video", source->string()}, {"frame", frame}, {"engine", denoiseEngine(*n)},
              {"sigma", n->p("sigma")}, {"out", frameFile(dir, frame, "png").string()}};
  _magicProgress = 0.0;
  _status = "Denoise : débruitage de l'image " + std::to_string(frame + 1) + "…";
  magicJob(std::move(job), nullptr, [this](const std::string& s) { _status = s; },
           [this, frame](const std::optional<std::string>& error) {
             _status = error ? "Denoise : " + *error : "Denoise : image " + std::to_string(frame + 1) + " débruitée.";
           });
}

void AppModel::denoiseVideo(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n || aiWaits(aiKey(aiprefix::denoiseVideo, id), "Denoise", [this, id] { denoiseVideo(id); })) return;
  const auto shot = shotFor(id, "Le Denoise a besoin d'une vidéo en amont.");
  if (!shot) return;
  if (engine) engine->purgeRaw(shot->dir.string());  // the frames held in memory are about to be rewritten
  json job = {{"type", "denoise_video"}, {"video", shot->video->url().string()}, {"outdir", shot->dir.string()},
              {"engine", denoiseEngine(*n)}, {"sigma", n->p("sigma")}};
  runWholeShot(std::move(job), shot->frames, "Denoise : préparation…",
               [this, frames = shot->frames](const std::optional<std::string>& error) {
                 _status = error ? "Denoise : " + *error : "Denoise : " + std::to_string(frames) + " images débruitées.";
               });
}

void AppModel::greenKeyDetect(const Uuid& id) {
  Node* n = nodeByID(id);
  const Engine::Tex front = n ? aiInput(*this, *n) : nullptr;
  if (!front) {
    _status = "Reliez d'abord une image à l'entrée Source du keyer.";
    return;
  }
  constexpr int kSide = 64;  // a small copy is enough to tell the screen's colour
  const std::vector<std::array<float, 3>> rgb = engine->thumbPixels(front, kSide, kSide);
  std::vector<float> rgba;
  rgba.reserve(rgb.size() * 4);
  for (const auto& p : rgb) rgba.insert(rgba.end(), {p[0], p[1], p[2], 1.0f});
  const auto found = ombrik::greenKeyDetect(rgba.data(), kSide, int(rgb.size()) / kSide);
  if (found) {
    n->params["sr"] = found->r, n->params["sg"] = found->g, n->params["sb"] = found->b;
    n->params["screen"] = found->screen;
    storedNodes();
  }
  _status = greenKeyStatus(found);
}

void AppModel::greenAIFrame(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n || aiWaits(aiKey(aiprefix::greenFrame, id), "Keyer IA", [this, id] { greenAIFrame(id); })) return;
  const Engine::Tex front = aiInput(*this, *n);
  const fs::path dir = magicDir(id);
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!front || !engine->writePreview(front, dir / "source.png", 2048)) {
    _status = "Reliez une image à l'entrée Source du keyer.";
    return;
  }
  json job = {{"type", "greenkey_frame"}, {"image", (dir / "source.png").string()},
              {"out", frameFile(dir, _currentFrame, "png").string()}};
  _magicProgress = 0.0;
  _status = "Keyer IA : détourage de l'image…";
  magicJob(std::move(job), nullptr, [this](const std::string& s) { _status = s; },
           [this](const std::optional<std::string>& error) {
             _status = error ? "Keyer IA : " + *error : "Keyer IA : image détourée.";
           });
}

void AppModel::greenAIVideo(const Uuid& id) {
  if (!nodeByID(id) || aiWaits(aiKey(aiprefix::greenVideo, id), "Keyer IA", [this, id] { greenAIVideo(id); })) return;
  const auto shot = shotFor(id, "Le Keyer IA a besoin d'une vidéo en amont.");
  if (!shot) return;
  json job = {{"type", "greenkey_video"}, {"video", shot->video->url().string()}, {"outdir", shot->dir.string()}};
  runWholeShot(std::move(job), shot->frames, "Keyer IA : préparation…",
               [this, dir = shot->dir](const std::optional<std::string>& error) {
                 _status = error ? "Keyer IA : " + *error
                                 : "Keyer IA : " + std::to_string(countResultFrames(dir)) + " images détourées.";
               });
}

std::vector<double> AppModel::retimeMap(const Node& node) const {
  VideoSource* video = upstreamVideo(node.id);
  RetimeParams p;
  p.mode = node.p("mode");
  p.n = video ? std::max(1, batchFrames(*video)) : 1;
  p.start = node.p("start");
  p.speedAt = [&](int f) { return animated(node, f).p("speed"); };
  p.srcAt = [&](int f) { return animated(node, f).p("src"); };
  return ombrik::retimeMap(p);
}

std::string AppModel::retimeSig(const Node& node) const {
  VideoSource* video = upstreamVideo(node.id);
  return ombrik::retimeSig(retimeMap(node), video ? video->url().string() : std::string());
}

// The computed movie in `dir` matches the signature: it was made for this map and source.
static bool retimeMovieMatches(const fs::path& dir, const std::string& sig) {
  std::ifstream in(dir / "retime.json");
  const json done = json::parse(in, nullptr, false);
  std::error_code ec;
  return done.is_object() && done.value("sig", std::string()) == sig && fs::exists(dir / "retime.mov", ec);
}

bool AppModel::retimeFlowReady(const Node& node) const { return retimeMovieMatches(magicDir(node.id), retimeSig(node)); }

void AppModel::retimeCompute(const Uuid& id) {
  const Node* n = nodeByID(id);
  if (!n || aiWaits(aiKey(aiprefix::retime, id), "Vitesse", [this, id] { retimeCompute(id); })) return;
  VideoSource* video = upstreamVideo(id);
  if (!video) {
    _status = "Le node Vitesse a besoin d'un rush en amont (placez-le juste après le Media).";
    return;
  }
  if (_isPlaying) stopPlayback();
  const fs::path dir = magicDir(id);
  std::error_code ec;
  fs::create_directories(dir, ec);
  fs::remove(dir / "retime.json", ec);
  const std::vector<double> map = retimeMap(*n);
  const std::string sig = retimeSig(*n);
  const int count = int(map.size());
  json job = {{"type", "retime_flow"}, {"video", video->url().string()}, {"times", map},
              {"out", (dir / "retime.mov").string()}};
  _magicProgress = 0.0;
  ai.videoJobRunning = true;
  _status = "Vitesse : flux optique sur " + std::to_string(count) + " images…";
  magicJob(
      std::move(job),
      [this, count](int done) {
        _magicProgress = std::clamp(double(done) / std::max(count, 1), 0.0, 1.0);
        _status = "Vitesse : " + std::to_string(done) + " images";
      },
      nullptr,
      [this, dir, sig, count](const std::optional<std::string>& error) {
        if (error) {
          _status = "Vitesse : " + *error;
          return;
        }
        // The signature of what was computed: a later change of the map leaves this movie unused.
        std::ofstream(dir / "retime.json") << json{{"sig", sig}, {"frames", count}}.dump() << "\n";
        _status = "Vitesse : ralenti calculé par flux optique (" + std::to_string(count) + " images).";
      });
}

// The source time of this frame, and the computed movie when the flow method is chosen and matches.
void AppModel::resolveRetime(Node& r, int frame) const {
  const std::vector<double> map = retimeMap(r);
  r.params["_f"] = frame;
  r.params["_t"] = map.empty() ? frame : map[std::size_t(std::clamp(frame, 0, int(map.size()) - 1))];
  const double method = r.p("method");
  if (method <= 0.5 || method >= 1.5) return;
  VideoSource* video = upstreamVideo(r.id);
  const fs::path dir = magicDir(r.id);
  if (retimeMovieMatches(dir, ombrik::retimeSig(map, video ? video->url().string() : std::string())))
    r.retimeSource = (dir / "retime.mov").string();
}

}  // namespace ombrik
