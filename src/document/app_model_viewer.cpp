// What the viewer shows and how: the node on screen, the channel keys, zoom and pan, the
// timecode, what stands in for a missing picture and the keys the time bar marks.
// The drawing itself belongs to the desktop shell.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "document/app_model.h"
#include "document/viewer_blank.h"
#include "platform/scheduler.h"
#include "platform/user_defaults.h"

namespace ombrik {

namespace {
const char* channelLabel(int k) {
  switch (k) {
    case 1: return "Source";
    case 2: return "Fond";
    case 3: return "Masque / alpha du node";
    default: return "Résultat";
  }
}
}  // namespace

std::optional<Uuid> AppModel::displayedNodeID() const {
  auto exists = [&](const std::optional<Uuid>& id) { return id && nodeByID(*id); };
  std::optional<Uuid> fallback;
  for (const auto& n : _nodes)
    if (n.kind->id == "output") {
      fallback = n.id;
      break;
    }
  if (_viewLocked && exists(_viewedNode)) return _viewedNode;
  if (_viewerFull && _viewChannel == 4 && _fullContext && exists(_viewedNode)) return _viewedNode;
  if (_viewerFull) return exists(_selected) ? _selected : exists(_viewedNode) ? _viewedNode : fallback;
  return exists(_viewedNode) ? _viewedNode : exists(_selected) ? _selected : fallback;
}

void AppModel::setViewChannel(int k) {
  if (k == _viewChannel) return;
  _viewChannel = k;
  invalidatePlayCache();
  ++_frameID;
}

void AppModel::flameView(int k) {
  if (k < 1 || k > 4) return;
  if (k == 4) {
    const double now = scheduler_->now();
    const bool doublePress = now - lastF4_ < 0.4;
    const std::optional<Uuid> target = _selected ? _selected : _viewedNode;
    if (doublePress && target) {
      lastF4_ = -1e9;
      _viewedNode = target;
      viewWithoutMatte = false;
      _fullContext = true;
      setViewChannel(4);
      _viewerFull = true;
      const Node* n = nodeByID(*target);
      _status = "Vue verrouillée : " + (n ? n->kind->title.value() : std::string("node")) +
                " · sélectionnez et réglez les autres nodes, le résultat reste affiché · F4 ou Échap pour revenir";
      requestRender();
      return;
    }
    lastF4_ = now;
  }
  if (_viewerFull && _viewChannel == k) {
    _viewerFull = false;
  } else {
    setViewChannel(k);
    _viewerFull = true;
  }
  _status = _viewerFull ? std::string(channelLabel(k)) +
                              " · F1 Source · F2 Fond · F3 Masque (alpha) · F4 Résultat · même touche ou Échap pour revenir"
                        : std::string();
  requestRender();
}

bool AppModel::escapeView() {
  if (_viewerFull) {
    _viewerFull = false;
    _fullContext = false;
  } else if (_viewChannel != 4) {
    setViewChannel(4);
  } else {
    return false;
  }
  _status.clear();
  requestRender();
  return true;
}

void AppModel::toggleBefore() {
  _viewMode = ViewMode::compare;
  _showingBefore = !_showingBefore;
}

void AppModel::setCompareMode(bool on) {
  _viewMode = on ? ViewMode::compare : ViewMode::node;
  if (!on) _showingBefore = false;
}

void AppModel::setCompareStyle(int style) {
  _compareStyle = std::clamp(style, 0, 2);
  defaults_->set("compareStyle", _compareStyle);
}

void AppModel::setWipe(double u) {
  _wipe = std::clamp(u, 0.0, 1.0);
}

void AppModel::setPreviewScale(double scale) {
  if (scale == _previewScale) return;
  _previewScale = scale;
  invalidatePlayCache();
  requestRender();
}

AppModel::ViewRect AppModel::viewerRect(double viewWidth, double viewHeight) const {
  const double cw = std::max(1, _compSize.width), ch = std::max(1, _compSize.height);
  const double fit = std::min(viewWidth / cw, viewHeight / ch) * 0.94 * viewZoom;
  ViewRect r;
  r.width = std::max(0.0, cw * fit);
  r.height = std::max(0.0, ch * fit);
  r.x = viewWidth / 2 + viewPan.x - r.width / 2;
  r.y = viewHeight / 2 + viewPan.y - r.height / 2;
  return r;
}

void AppModel::zoomViewer(double scale, std::optional<Point> at, double viewWidth, double viewHeight) {
  const double old = viewZoom;
  const double zoom = std::clamp(old * scale, 0.1, 64.0);
  const Point c{viewWidth / 2, viewHeight / 2};
  const Point p = at ? *at : c;
  const Point q{c.x + viewPan.x, c.y + viewPan.y};  // the picture's centre
  const double r = zoom / old;
  viewPan = Point{p.x - (p.x - q.x) * r - c.x, p.y - (p.y - q.y) * r - c.y};
  viewZoom = zoom;
}

void AppModel::fitViewer() {
  viewZoom = 1;
  viewPan = Point{};
}

double AppModel::viewerPixelRatio(double viewWidth, double viewHeight, double backingScale) const {
  const ViewRect r = viewerRect(viewWidth, viewHeight);
  return _compSize.width > 0 ? r.width * backingScale / _compSize.width : 0;
}

void AppModel::actualPixels(double viewWidth, double viewHeight, double backingScale) {
  const double ratio = viewerPixelRatio(viewWidth, viewHeight, backingScale);
  if (ratio > 0) viewZoom = std::clamp(viewZoom / ratio, 0.1, 64.0);
}

std::string AppModel::timecode() const {
  const int fps = std::max(1, int(std::lround(_fps)));
  const int f = std::max(0, _currentFrame);
  const int seconds = f / fps;
  char text[96];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d:%02d   %d / %d", seconds / 3600, seconds / 60 % 60, seconds % 60,
                f % fps, _currentFrame, _frameCount);
  return text;
}

std::string AppModel::viewedTitle() const {
  // The node on screen, whichever rule put it there: naming another would mislead.
  const std::optional<Uuid> id = displayedNodeID();
  const Node* n = id ? nodeByID(*id) : nullptr;
  std::string out = n ? n->title() : "Render";
  if (viewWithoutMatte) out += " · plein cadre, sans alpha";
  return out;
}

ViewerBlank AppModel::viewerBlank() const {
  ViewerFacts facts;
  facts.shown = displayedNodeID();
  facts.projectHasMedia = !_media.empty() || !missingMedia.empty();
  facts.hasEngine = engine != nullptr;
  facts.renderPending = renderQueued;
  return whyViewerBlank(_nodes, _edges, mediaTroubles, facts);
}

std::set<int> AppModel::keyedFrames() const {
  std::set<int> frames;
  const std::optional<Uuid> id = inspectedID && nodeByID(*inspectedID) ? inspectedID : _selected;
  const Node* n = id ? nodeByID(*id) : nullptr;
  if (!n) return frames;
  for (const auto& [key, keys] : n->anim)
    for (const Keyframe& k : keys) frames.insert(int(k.f));
  return frames;
}

}  // namespace ombrik
