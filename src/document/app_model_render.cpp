// The road from a change of the document to an evaluated frame.
#include <algorithm>

#include "document/app_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "gpu/device.h"
#include "platform/scheduler.h"

namespace ombrik {

CompSize AppModel::fullCompSize(int width, int height) {
  const double s = std::min(1.0, double(kMaxSourceSide) / std::max(1, std::max(width, height)));
  return {int(std::max(1.0, s * width)), int(std::max(1.0, s * height))};
}

void AppModel::requestRender() {
  if (renderQueued || _isPlaying) return;  // playing shows the play cache
  if (interactiveDrag) {
    // A drag renders at most once a second; its end renders what is pending.
    if (scheduler_->now() - lastDragRender_ < 1) {
      renderPendingAfterDrag = true;
      return;
    }
    lastDragRender_ = scheduler_->now();
  }
  renderQueued = true;
  later(0, [this] { performRender(false); });
}

void AppModel::recomputeComp() {
  // The base is the picture of the first media node that has one.
  CompSize base{1920, 1080};
  if (const Timeline* t = tl.workspace == Workspace::timeline ? tl.current() : nullptr) base = {t->width, t->height};
  else for (const auto& n : _nodes) {
    if (n.kind->id != "media" || !n.mediaID) continue;
    auto it = std::find_if(_media.begin(), _media.end(), [&](const MediaItem& m) { return m.id == *n.mediaID; });
    if (it != _media.end() && it->width > 0 && it->height > 0) {
      base = {it->width, it->height};
      break;
    }
  }
  const CompSize full = fullCompSize(base.width, base.height);
  // Renders work at full size; playing evaluates at the cache size.
  const double scale = delivery.forceFullRes ? 1.0 : playEvalScale ? *playEvalScale : _previewScale;
  const int w = std::max(1, int(full.width * scale)), h = std::max(1, int(full.height * scale));
  if (engine) {
    engine->setComp(w, h, true);
    engine->pxScale = float(scale);
  }
  if (!(_compSize == full)) _compSize = full;
}

void AppModel::performRender(bool full) {
  renderQueued = false;
  if (_isPlaying) return;
  recomputeComp();
  if (!engine) return;
  if (tl.workspace == Workspace::timeline) {
    timelineScrub(_currentFrame);
    return;
  }
  engine->leanEval = !full;
  // Lean: only what the outputs, the selection and the viewer need; the rest follows in the full
  // render a moment after the last change.
  engine->alwaysEval.clear();
  for (const auto& id : {_selected, _viewedNode})
    if (id && nodeByID(*id)) engine->alwaysEval.insert(*id);
  const std::optional<Uuid> shown = displayedNodeID();
  std::optional<ViewScope> scope = shown ? viewScope(*shown) : std::nullopt;
  if (!full && scope) {
    engine->alwaysEval.insert(*shown);
    if (scope->plate) engine->alwaysEval.insert(*scope->plate);
    if (scope->chan) {
      engine->alwaysEval.insert(scope->chan->first.from);
      if (scope->chan->second) engine->alwaysEval.insert(*scope->chan->second);
    }
  }
  engine->viewAlphaOf = _viewChannel == 3 ? shown : std::nullopt;
  const bool scoped = _viewerFull && scope;  // full view evaluates the displayed node's tree only
  std::vector<Node> resolvedNodes;
  resolvedNodes.reserve(_nodes.size());
  for (const auto& n : _nodes)
    if (!scoped || scope->need.count(n.id)) resolvedNodes.push_back(resolved(n));
  const int frame = evalFrameOverride ? *evalFrameOverride : _currentFrame;
  const float time = float(frame) / float(std::max(1.0, _fps));
  const double started = scheduler_->now();
  engine->evaluate(resolvedNodes, scoped ? scope->edges : _edges, time,
                   viewWithoutMatte ? _viewedNode : std::nullopt);
  if (engine->device().failed()) {
    if (recoverEngine()) requestRender();
    return;
  }
  scrubTex.reset();  // the frame itself is evaluated now
  ++_frameID;
  if (fullRenderTimer_) scheduler_->cancel(*fullRenderTimer_);
  fullRenderTimer_.reset();
  if (full) refreshThumbnails();
  if (!full) {
    const double took = scheduler_->now() - started;
    fullRenderTimer_ = later(0.8, [this, took] {
      fullRenderTimer_.reset();
      if (!_isPlaying && took < 0.15) performRender(true);
    });
  }
}

void AppModel::refreshThumbnails() {
  constexpr int kThumbSide = 96;  // about the largest node's circle at the editor's usual zoom
  std::vector<Uuid> ids;
  std::vector<std::shared_ptr<gpu::Texture>> results;
  for (const auto& n : _nodes) {
    if (n.kind->id == "dot") continue;
    auto it = engine->outputs.find(n.id);
    if (it == engine->outputs.end() || !it->second) continue;
    ids.push_back(n.id);
    results.push_back(it->second);
  }
  auto pictures = engine->thumbnails(results, kThumbSide);
  std::map<Uuid, Picture> thumbs;
  for (std::size_t i = 0; i < ids.size(); ++i)
    if (pictures[i]) thumbs.emplace(ids[i], std::move(*pictures[i]));
  nodeThumbs = std::move(thumbs);
  ++thumbsVersion;
}

bool AppModel::recoverEngine() {
  const std::string reason = engine ? engine->device().failure() : std::string();
  std::string error;
  auto device = gpu::Device::create(gpu::DevicePreference::cpu, &error);
  auto fresh = device ? Engine::create(std::move(device), Engine::defaultOptions(), &error) : nullptr;
  if (!fresh) {
    _status = "GPU indisponible : " + error;
    return false;
  }
  if (engine)
    for (const auto& [id, picture] : engine->sources()) fresh->addSource(picture, id);
  engine = std::move(fresh);
  userNodes.compileAll(userKernelCompiler());  // the user's kernels were the old engine's
  _status = "Erreur GPU (" + reason + ") : le rendu continue sur le processeur.";
  return true;
}

}  // namespace ombrik
