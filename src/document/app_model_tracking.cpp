// Mask tracking from the document's side: a run is set up here from the mask and the clip, the
// tracker runs on a thread of its own, and what it finds comes back in batches to the node's
// `track`, `planarH` and the viewer's dots. The fitting is in src/tracking.
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "media/video_source.h"
#include "platform/app_paths.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "platform/user_defaults.h"
#include "tracking/planar_track.h"
#include "tracking/roto.h"
#include "tracking/tap_server.h"
#include "tracking/track_offset.h"
#include "tracking/track_seeds.h"

namespace ombrik {

namespace {

bool isMaskNode(const Node* n) { return n && n->kind && n->kind->id == "mask"; }

std::string frameText(int frame) { return std::to_string(frame + 1); }

}  // namespace

Workers& AppModel::workers() {
  if (!workers_) {
    workers_ = std::make_unique<Workers>();
    workers_->configure(workerSetup(AppPaths::shared(), interfaceLanguage(), *defaults_));
  }
  return *workers_;
}

void AppModel::trackMask(const Uuid& nodeID, bool forward) {
  if (_trackingProgress) {
    _status = "Un tracking est déjà en cours : arrêtez-le (Échap) ou attendez sa fin.";
    return;
  }
  VideoSource* video = activeVideo();
  Node* node = nodeByID(nodeID);
  if (!video || !node) {
    _status = "Le tracking a besoin d'une vidéo dans le Media.";
    return;
  }
  const bool mask = isMaskNode(node);
  if (mask && !node->shapeClosed && node->shape.size() > 2) shapeClose(nodeID);
  node = nodeByID(nodeID);

  // A shape tracked for the first time pivots on its own centre.
  if (mask && node->track.empty() && node->shapeClosed && node->shape.size() > 2 && node->shapeBase &&
      !tracking.noRecenter && key(*node) == *node->shapeBase) {
    const auto outline = Roto::flatten(node->shape, true, 10);
    Point c{0, 0};
    for (const auto& p : outline) c.x += p.x, c.y += p.y;
    c.x = c.x / double(outline.size()) * 100, c.y = c.y / double(outline.size()) * 100;
    node->params["cx"] = c.x, node->params["cy"] = c.y;
    node->shapeBase->cx = c.x, node->shapeBase->cy = c.y;
  }
  if (_isPlaying) stopPlayback();
  const int s = _currentFrame;
  Node still = *node;
  for (const char* k : {"trk_pos", "trk_rot", "trk_scale"}) still.params[k] = 1;
  const MaskKey k0 = key(resolved(still));
  const double W = video->width(), H = video->height();
  const bool closedShape = node->shapeClosed && node->shape.size() >= 3;
  if (!closedShape && !node->ellipse) {
    _status = "Dessinez d'abord une forme dans le viewer (outil Bézier ou Ellipse).";
    return;
  }
  if (node->track.empty()) node->trackRef = s;

  // Resuming a corrected track: the offset here holds for the run, later keys in its way go.
  Point o{0, 0};
  if (mask && !node->trackOff.empty()) {
    o = trackOffsetValue(node->trackOff, s);
    std::erase_if(node->trackOff, [&](const auto& kv) { return forward ? kv.first > s : kv.first < s; });
    node->trackOff[s] = {o.x, o.y};
  }
  const std::vector<Point> outline = closedShape ? Roto::flatten(node->shape, true, 10) : std::vector<Point>{};
  std::vector<Point> seeds =
      closedShape ? seedPoints(outline, W, H, tracking.pointCount) : seedPoints(k0, W, H, tracking.pointCount);
  if (seeds.size() < 6) {
    _status = "Masque trop petit ou hors de l'image.";
    return;
  }
  TrackRunSetup setup;
  setup.fitter.k0 = k0;
  setup.fitter.W = W, setup.fitter.H = H;
  setup.fitter.mode = tracking.mode;
  for (const auto& p : seeds) setup.fitter.p0.push_back({p.x * W, p.y * H});
  setup.limit = std::exchange(tracking.limit, std::nullopt);
  setup.start = s;
  setup.forward = forward;
  setup.offset = o;
  setup.fast = tracking.engine == TrackEngine::fast;
  const int frames = batchFrames(*video);
  setup.budget = std::max(1, forward ? frames - 1 - s : s);

  std::vector<Point> poly = outline;
  if (!closedShape) {  // an ellipse: 48 points around its placement
    const double a = k0.rot * M_PI / 180;
    for (int i = 0; i < 48; ++i) {
      const double t = 2 * M_PI * i / 48, x = std::cos(t) * k0.rx / 100 * W, y = std::sin(t) * k0.ry / 100 * H;
      poly.push_back({(k0.cx / 100 * W + x * std::cos(a) - y * std::sin(a)) / W,
                      (k0.cy / 100 * H + x * std::sin(a) + y * std::cos(a)) / H});
    }
  }
  const bool planar = tracking.mode == TrackMode::planar && closedShape;
  if (planar) {
    if (node->planarH.empty()) {  // the shape as shown becomes the reference of the homographies
      const Node shown = resolved(*node);
      node->shape = shown.shape;
      node->shapeBase.reset();
      node->planarH[s] = Homography::identity().toArray();
    }
    setup.H0 = planarStartH(node->planarH, s, o);
    if (!setup.H0) setup.H0 = Homography::identity();
  }
  storedNodes();

  // The job for the tracker, ready to go to the worker.
  nlohmann::json job;
  job["video"] = video->url().string();
  job["start"] = s;
  job["backward"] = !forward;
  if (setup.fast) {
    job["side"] = tracking.resolution >= 512 ? 1920 : 960;
    job["mode"] = planar ? "planar" : "point";
    job["perspective"] = planar;
    nlohmann::json p = nlohmann::json::array();
    for (const auto& q : poly) p.push_back({q.x, q.y});
    job["poly"] = p;
    job["count"] = tracking.pointCount;
  } else {
    job["res"] = tracking.resolution;
    nlohmann::json p = nlohmann::json::array();
    for (const auto& q : setup.fitter.p0) p.push_back({q.x, q.y});
    job["points"] = p;
  }
  const double boost = node->p("trk_boost");
  int boostSize = node->params.count("trk_boost_size") ? int(node->p("trk_boost_size")) : 24;
  double gain = boost;
  if (gain <= 0)
    for (const auto& n : _nodes)
      if (n.kind->id == "trackboost" && !n.bypass) {
        gain = n.params.count("gain") ? n.p("gain") : 4;
        boostSize = n.params.count("size") ? int(n.p("size")) : 24;
        break;
      }
  if (setup.fast || gain > 0) job["boost"] = std::max(0.0, gain), job["boost_size"] = boostSize;

  if (tracking.thread.joinable()) tracking.thread.join();
  auto run = std::make_shared<MaskTrackRun>(std::move(setup));
  tracking.run = run;
  tracking.nodeID = nodeID;
  _trackingProgress = 0.0;
  ai.sound.change("track", false, true, scheduler_->now(), false);
  _status = "Préparation du tracker…";
  startTrackRun(run, nodeID, std::move(job));
}

void AppModel::trackMaskBoth(const Uuid& nodeID) {
  VideoSource* video = activeVideo();
  const int last = video ? batchFrames(*video) - 1 : 0;
  if (video && _currentFrame > 0 && _currentFrame < last) tracking.thenBack = {nodeID, _currentFrame};
  trackMask(nodeID, !(video && _currentFrame >= last && last > 0));
}

void AppModel::setTrackEngine(TrackEngine engine) {
  tracking.engine = engine;
  defaults_->set("trackEngine", trackEngineName(engine));
}

void AppModel::setTrackCorrect(bool on) {
  tracking.correct = on;
  defaults_->set("trackCorrect", on);
}

void AppModel::addTrackOffset(std::size_t nodeIndex, double dx, double dy) {
  if (nodeIndex >= _nodes.size() || std::abs(dx) + std::abs(dy) <= 1e-9) return;
  Node& n = _nodes[nodeIndex];
  const int f = _currentFrame;
  const Point o = trackOffsetValue(n.trackOff, f);
  if (n.trackOff.empty()) {  // the correction ramps in from the start of the weak zone, or of the track
    std::optional<int> anchor;
    if (auto w = tracking.weak.find(n.id); w != tracking.weak.end()) anchor = w->second;
    else if (n.trackRef) anchor = n.trackRef;
    else if (!n.track.empty()) anchor = n.track.begin()->first;
    if (anchor && *anchor < f) n.trackOff[*anchor] = {0, 0};
  }
  n.trackOff[f] = {o.x + dx, o.y + dy};
  storedNodes();
}

void AppModel::offsetZeroHere(const Uuid& nodeID) {
  Node* n = nodeByID(nodeID);
  if (!n) return;
  n->trackOff[_currentFrame] = {0, 0};
  storedNodes();
  _status = "Offset à zéro à l'image " + frameText(_currentFrame) + ".";
}

void AppModel::pinHere(const Uuid& nodeID) {
  Node* n = nodeByID(nodeID);
  if (!n || _trackingProgress) return;
  if (!n->track.empty()) {
    _status = "Effacez d'abord le track pour poser des clés de référence (elles se posent avant de tracker).";
    return;
  }
  n->pins[_currentFrame] = key(resolved(*n));
  storedNodes();
  const std::size_t count = nodeByID(nodeID)->pins.size();
  _status = "Clé posée à l'image " + frameText(_currentFrame) + " · " + std::to_string(count) + " clé" +
            (count >= 2 ? "s" : "") + ".";
}

void AppModel::removePin(const Uuid& nodeID, int frame) {
  if (Node* n = nodeByID(nodeID); n && n->pins.erase(frame)) storedNodes();
}

void AppModel::clearPins(const Uuid& nodeID) {
  if (Node* n = nodeByID(nodeID); n && !n->pins.empty()) {
    n->pins.clear();
    storedNodes();
  }
}

}  // namespace ombrik
