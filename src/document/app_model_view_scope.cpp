// What the viewer needs evaluated for the node on screen, and which textures its display pass
// draws: the result, a channel, a comparison with the rush, a matte laid over the picture.
#include <algorithm>
#include <array>

#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "graph/edge_index.h"

namespace ombrik {

namespace {
// Kinds whose result is a matte: the viewer lays it over the picture rather than showing it bare.
bool isOverlayKind(const std::string& kind) {
  static const std::array<const char*, 5> kinds{"mask", "magicmask", "objectmask", "bodymask", "hairmatte"};
  return std::any_of(kinds.begin(), kinds.end(), [&](const char* k) { return kind == k; });
}
}  // namespace

std::optional<AppModel::ViewScope> AppModel::viewScope(const Uuid& id) const {
  if (!nodeByID(id)) return std::nullopt;
  ViewScope scope;
  scope.plate = maskPlate(id);
  std::vector<Uuid> from{id};
  if (scope.plate) from.push_back(*scope.plate);  // a mask's rush may lie beside it, not above
  const auto need = EdgeIndex(_edges).upstream(from);
  scope.need = {need.begin(), need.end()};
  for (const auto& e : _edges)
    if (scope.need.count(e.from) && scope.need.count(e.to)) scope.edges.push_back(e);
  if (_viewChannel == 1 || _viewChannel == 2)
    if (auto edge = channelSource(id, _viewChannel)) scope.chan = std::make_pair(*edge, maskPlate(edge->from));
  return scope;
}

std::optional<Edge> AppModel::channelSource(const Uuid& id, int channel) const {
  const Node* node = nodeByID(id);
  if (!node) return std::nullopt;
  int port = 0;
  if (channel == 2) {
    const auto& inputs = node->kind->inputs;
    auto back = std::find_if(inputs.begin(), inputs.end(),
                             [](const PortSpec& p) { return p.name == "Back" || p.name == "Depth"; });
    if (back != inputs.end()) port = int(back - inputs.begin());
  }
  auto feed = [&](int p) -> std::optional<Edge> {
    for (const auto& e : _edges)
      if (e.to == id && e.port == p) return e;
    return std::nullopt;
  };
  // A back input with nothing on it shows what the main input shows.
  if (auto e = feed(port)) return e;
  return port != 0 ? feed(0) : std::nullopt;
}

std::optional<Uuid> AppModel::maskPlate(const Uuid& id) const {
  if (auto media = upstreamMedia(id)) return media;
  const Node* node = nodeByID(id);
  if (!node || node->kind->id != "mask") return std::nullopt;
  for (const Edge& e : _edges)
    if (e.from == id)
      if (auto media = upstreamMedia(e.to)) return media;
  return std::nullopt;
}

bool AppModel::playShowsMatte(const Uuid& id) const {
  const Node* node = nodeByID(id);
  if (!node || !isOverlayKind(node->kind->id) || _showMatte || _overlaysHidden) return false;
  return _viewChannel == 4 || (_viewChannel == 1 && node->kind->id != "mask");
}

AppModel::ViewerState AppModel::rawViewerState() const {
  ViewerState state;
  if (_isPlaying && play) {
    state.main = play->display;  // cache frames are finished pictures
    return state;
  }
  if (tl.workspace == Workspace::timeline) {
    state.main = timelineTex;
    return state;
  }
  if (scrubTex) {
    state.main = scrubTex;
    return state;
  }
  const std::optional<Uuid> id = displayedNodeID();
  if (!engine || !id) return state;
  auto result = [&](const std::optional<Uuid>& node) -> std::shared_ptr<gpu::Texture> {
    if (!node) return nullptr;
    auto it = engine->outputs.find(*node);
    return it != engine->outputs.end() ? it->second : nullptr;
  };
  state.main = result(id);
  if (_viewChannel == 3) {
    if (engine->viewAlpha) state.main = engine->viewAlpha;
    return state;
  }
  std::shared_ptr<gpu::Texture> feed;
  if (auto edge = channelSource(*id, _viewChannel == 2 ? 2 : 1)) feed = engine->inputTexture(*edge);
  if (!feed) feed = result(maskPlate(*id));
  if (playShowsMatte(*id)) {
    state.before = feed;
    state.mode = 1;
    return state;
  }
  if ((_viewChannel == 1 || _viewChannel == 2) && feed) state.main = feed;
  if (isCompare() && _viewChannel == 4) {
    std::shared_ptr<gpu::Texture> rush = result(maskPlate(*id));
    switch (_compareStyle) {
      case 1: state.before = rush, state.mode = 2; break;
      case 2: state.before = rush, state.mode = 3; break;
      default:
        if (_showingBefore && rush) state.main = rush;
    }
    if (!state.before && state.mode > 1) state.mode = 0;
  }
  return state;
}

AppModel::ViewerState AppModel::viewerState() const {
  ViewerState state = rawViewerState();
  // Mattes and alphas are shown as they are; a timeline's layers carry their worlds' looks.
  if (state.mode == 1 || _viewChannel == 3 || tl.workspace == Workspace::timeline) return state;
  const Batch* world = currentBatch();
  if (world && world->lut && !world->lut->empty()) state.lut = *world->lut;
  // One table for both: the viewer still makes a single pass per picture and evaluation.
  if (ocio && _ocioView) state.lut = OcioDisplay::key(ocio->path(), *_ocioView, state.lut.value_or(""));
  return state;
}

std::shared_ptr<gpu::Texture> AppModel::deliveredPicture(const std::shared_ptr<gpu::Texture>& rendered) const {
  const Batch* world = currentBatch();
  if (!engine || !rendered || !world || !world->lut || world->lut->empty() || world->lutRender != true) return rendered;
  return engine->applyLUT(rendered, *world->lut, engine->evalCount, 0);
}

AppModel::ViewerState AppModel::viewerPictures() const {
  ViewerState state = viewerState();
  if (!state.lut || !engine) return state;
  // Stamped with the evaluation: a redraw reuses the result, a new evaluation recomputes it.
  if (state.main) state.main = engine->applyLUT(state.main, *state.lut, engine->evalCount, 0);
  if (state.before) state.before = engine->applyLUT(state.before, *state.lut, engine->evalCount, 1);
  return state;
}

}  // namespace ombrik
