// Tracking between pins: one tracker run from each pin towards its neighbours, chained through
// the runs' finish hooks, then fused so the mask passes through every pin. The plan and the
// fusion are pure functions in src/tracking/pin_plan; here they meet the node and the clip.
#include "document/app_model.h"
#include "media/video_source.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace {

void setPose(Node& n, const MaskKey& k) {
  n.params["cx"] = k.cx, n.params["cy"] = k.cy, n.params["rx"] = k.rx, n.params["ry"] = k.ry, n.params["rot"] = k.rot;
}

}  // namespace

void AppModel::trackWithPins(const Uuid& nodeID) {
  if (_trackingProgress || tracking.pins) {
    _status = "Un tracking est déjà en cours : arrêtez-le (Échap) ou attendez sa fin.";
    return;
  }
  const Node* n = nodeByID(nodeID);
  if (!n) return;
  if (n->pins.size() < 2) {
    _status = "Posez au moins deux clés (début et fin) pour tracker entre les clés.";
    return;
  }
  if (!n->track.empty()) {
    _status = "Effacez d'abord le track : le suivi entre les clés repart de zéro.";
    return;
  }
  if (!n->shapeClosed || n->shape.size() < 3) {
    _status = "Dessinez d'abord une forme dans le viewer.";
    return;
  }
  tracking.pins = PinPlanRun{nodeID, planPinRuns(n->pins), {}, *n, _currentFrame};
  beginGesture();  // the whole plan is one step of undo
  nextPinRun();
}

void AppModel::nextPinRun() {
  PinPlanRun& plan = *tracking.pins;
  const std::size_t i = plan.results.size();
  const PinRun run = plan.plan[i];
  Node* n = nodeByID(plan.nodeID);
  if (!n || !n->pins.count(run.frame)) return endPinPlan("Tracking entre les clés impossible.");
  // Each run starts from its pin as the user placed it, on the shape as it was drawn.
  n->shape = plan.before.shape;
  n->shapeBase = plan.before.shapeBase;
  setPose(*n, n->pins.at(run.frame));
  n->track.clear();
  n->planarH.clear();
  n->trackOff.clear();
  n->trackRef = run.frame;
  seekFrame(run.frame);
  tracking.limit = run.limit;
  tracking.noRecenter = true;
  tracking.finishHook = [this](bool ok) { pinRunEnded(ok); };
  trackMask(plan.nodeID, run.forward);
  if (!_trackingProgress) return endPinPlan("Tracking entre les clés impossible.");
  _status = "Tracking entre les clés : passe " + std::to_string(i + 1) + "/" + std::to_string(plan.plan.size()) + "…";
}

void AppModel::pinRunEnded(bool ok) {
  if (!tracking.pins) return;
  PinPlanRun& plan = *tracking.pins;
  const Node* n = trackTarget(plan.nodeID);
  if (!ok || !n) return endPinPlan("Tracking entre les clés impossible (voir le message précédent).");
  if (tracking.stoppedByUser) return endPinPlan("Tracking entre les clés interrompu.");
  plan.results.push_back({n->track, n->planarH});
  if (plan.results.size() < plan.plan.size()) {
    later(0, [this] {
      if (tracking.pins) nextPinRun();
    });
    return;
  }
  // Fuse: homographies of a run are relative to its start, whose shape sat at its pin.
  const VideoSource* video = activeVideo();
  const double W = video ? video->width() : _compSize.width, H = video ? video->height() : _compSize.height;
  std::map<int, Homography> poseH;
  for (const auto& [frame, pin] : plan.before.pins)
    if (auto h = pinPoseH(plan.before.shape, plan.before.shapeBase, pin, W, H)) poseH.emplace(frame, *h);
  PinResult fused = fusePinRuns(plan.plan, plan.results, poseH);
  Node* target = trackTarget(plan.nodeID);
  target->params = plan.before.params;
  target->shape = plan.before.shape;
  // Fused homographies carry the drawn shape to each frame themselves.
  target->shapeBase = fused.planarH.empty() ? plan.before.shapeBase : std::nullopt;
  target->track = std::move(fused.track);
  target->planarH = std::move(fused.planarH);
  target->trackOff.clear();
  target->trackRef = plan.before.pins.begin()->first;
  const std::size_t frames = target->track.size(), pins = plan.before.pins.size();
  const int back = plan.returnFrame;
  tracking.noRecenter = false;
  tracking.pins.reset();
  if (nodeByID(target->id)) seekFrame(back);
  storedNodes();
  endGesture();
  _status = "Tracking entre les clés terminé (" + std::to_string(frames) + " images, " + std::to_string(pins) + " clés).";
  drainAIQueue();
}

void AppModel::endPinPlan(const std::string& status) {
  PinPlanRun plan = std::move(*tracking.pins);
  tracking.pins.reset();
  tracking.finishHook = nullptr;
  tracking.noRecenter = false;
  tracking.limit.reset();
  if (Node* n = trackTarget(plan.nodeID)) {
    n->params = plan.before.params;
    n->shape = plan.before.shape;
    n->shapeBase = plan.before.shapeBase;
    n->planarH.clear();
    n->track.clear();
    n->trackOff.clear();
    n->trackRef = plan.before.trackRef;
    storedNodes();
  }
  endGesture();
  _status = status;
  drainAIQueue();
}

}  // namespace ombrik
