// Mask layers into textures: ellipses and Bézier shapes, several layers blended, the per-mask
// outputs of a mask node, and the summed mattes of the ports that take several wires.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/engine.h"
#include "engine/engine_eval_state.h"
#include "engine/shape_table.h"
#include "tracking/roto.h"

namespace ombrik {

namespace {
double param(const GMask& m, const char* key, double fallback) {
  auto it = m.params.find(key);
  return it == m.params.end() ? fallback : it->second;
}

// Outlines past this many vertices are drawn from their anchors alone, and past the cap thinned
// evenly: a shape of 10⁵ points costs a bounded walk per pixel instead of stalling the frame.
constexpr std::size_t kCurvedLimit = 20000;
constexpr std::size_t kOutlineCap = 65536;
}  // namespace

std::vector<float> Engine::shapeOutline(const GMask& layer) const {
  std::vector<Point> outline = Roto::flatten(layer.shape, true, 10);
  if (outline.size() > kCurvedLimit) outline = Roto::flatten(layer.shape, true, 1);
  if (outline.size() > kOutlineCap) {
    std::vector<Point> thin;
    thin.reserve(kOutlineCap);
    for (std::size_t k = 0; k < kOutlineCap; ++k) thin.push_back(outline[k * outline.size() / kOutlineCap]);
    outline = std::move(thin);
  }
  std::vector<float> px;
  px.reserve(outline.size() * 2);
  for (const Point& p : outline) {
    // A point that can't be placed leaves the whole shape undrawable: the mask stays empty.
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || std::abs(p.x) > 1e6 || std::abs(p.y) > 1e6) return {};
    px.push_back(float(p.x * compW));
    px.push_back(float(p.y * compH));
  }
  return px;
}

Engine::Tex Engine::renderMaskLayer(const GMask& layer, const Tex& texture) {
  const float invert = param(layer, "invert", 0) > 0.5 ? 1.0f : 0.0f;
  if (layer.shape.size() >= 3) {
    const std::vector<float> pts = shapeOutline(layer);
    if (pts.size() >= 6) {
      const float fpx = float(pxScale * param(layer, "feather", 0.35) * 80);
      float x0 = pts[0], y0 = pts[1], x1 = pts[0], y1 = pts[1];
      for (std::size_t i = 0; i < pts.size(); i += 2) {
        x0 = std::min(x0, pts[i]), x1 = std::max(x1, pts[i]);
        y0 = std::min(y0, pts[i + 1]), y1 = std::max(y1, pts[i + 1]);
      }
      const float grow = std::max(0.0f, fpx) + 2;
      const float P[] = {fpx, invert, x0 - grow, y0 - grow, x1 + grow, y1 + grow};
      const Tex list[] = {texture};
      dispatch("k_shape", list, P, shapeTable(pts, compW, compH, grow));
      return texture;
    }
  } else if (layer.ellipse) {
    const double cx = param(layer, "cx", 50) / 100, cy = param(layer, "cy", 50) / 100;
    const double rx = param(layer, "rx", 20) / 100, ry = param(layer, "ry", 20) / 100;
    const double rot = param(layer, "rot", 0) * std::numbers::pi / 180, feather = param(layer, "feather", 0.35);
    if (std::isfinite(cx + cy + rx + ry + rot + feather)) {
      dispatch("k_mask", {texture}, {float(cx), float(cy), float(rx), float(ry), float(rot), float(feather), invert, 0});
      return texture;
    }
  }
  // Nothing to draw: an ellipse far outside the picture, black (white inverted).
  dispatch("k_mask", {texture}, {-10, -10, 0.0001f, 0.0001f, 0, 0, invert, 0});
  return texture;
}

Engine::Tex Engine::renderLayers(const std::vector<GMask>& list, const Node& node, int slot) {
  Tex first = tex(node.id, slot);
  if (list.empty()) return renderMaskLayer(GMask{}, first);
  Tex acc = renderMaskLayer(list[0], first);
  for (std::size_t i = 1; i < list.size(); ++i) {
    Tex layer = renderMaskLayer(list[i], tex(node.id, slot + 1));
    Tex out = tex(node.id, i % 2 == 1 ? slot + 2 : slot);
    const float op = float(param(list[i], "blend", 0));
    dispatch("k_maskblend", {acc, layer, out}, {op});
    acc = out;
  }
  return acc;
}

Engine::Tex Engine::produceMask(const Node& node) {
  input(node.id, 0);  // Front is evaluated for its side effects only
  if (node.bypass) {
    Tex out = tex(node.id, 0);
    dispatch("k_mask", {out}, {0.5f, 0.5f, 10, 10, 0, 0, 0, 0});  // full white
    return out;
  }
  std::vector<GMask> list = node.maskLayers.empty() ? std::vector<GMask>{node.activeMask()} : node.maskLayers;
  if (node.maskSolo && !list.empty()) {
    GMask solo = list[std::clamp(node.maskIndex, 0, int(list.size()) - 1)];
    solo.params.erase("blend");
    list = {solo};
  }
  return renderLayers(list, node, 20);
}

Engine::Tex Engine::maskOut(const Uuid& id, int k) {
  const std::string key = id.toString() + "-" + std::to_string(k);
  if (auto it = maskSide_.find(key); it != maskSide_.end()) return it->second;
  eval(id);
  const Node* node = ev_->node(id);
  if (!node || node->kind->id != "mask" || k < 0) return nullptr;
  const std::vector<GMask> list = node->maskLayers.empty() ? std::vector<GMask>{node->activeMask()} : node->maskLayers;
  if (std::size_t(k) >= list.size()) return nullptr;
  Tex out = tex(id, 40 + k);
  if (node->bypass) {
    dispatch("k_mask", {out}, {0.5f, 0.5f, 10, 10, 0, 0, 0, 0});
    return maskSide_[key] = out;
  }
  renderMaskLayer(list[std::size_t(k)], out);
  // A matte wired to the node limits each of its masks too.
  const int q = firstMattePort(*node);
  if (const Edge* e = q >= 0 ? edgeInto(id, q) : nullptr) {
    const Node* from = ev_->node(e->from);
    if (e->fromPort == 1 || (from && from->kind->makesMatte()))
      if (Tex m = input(id, q)) {
        Tex limited = tex(id, 60 + k);
        dispatch("k_mattemul", {out, m, limited}, {});
        out = limited;
      }
  }
  return maskSide_[key] = out;
}

Engine::Tex Engine::alphasSum(const Node& node, int port, int slot) {
  Tex sum;
  int parity = 0;
  for (const Edge* edge : ev_->edgesInto(node.id)) {
    const Edge& e = *edge;
    if (e.port != port) continue;
    Tex t = e.fromPort == 0 ? eval(e.from) : e.fromPort == 1 ? alphaOut(e.from) : maskOut(e.from, e.fromPort - 2);
    if (!t) continue;
    if (!sum) {
      sum = t;
      continue;
    }
    Tex out = tex(node.id, slot + parity);
    dispatch("k_maskblend", {sum, t, out}, {0});
    parity ^= 1;
    sum = out;
  }
  return sum;
}

Engine::Tex Engine::produceMasked(const Node& node) {
  Tex t = produceRaw(node);
  if (node.kind->id != "mask" || node.bypass || !t) return t;
  // "Détourage IA": the shape joined with the subject's matte, kept (1) or taken out (2).
  const float f = node.p("aimode");
  if (f <= 0.5f) return t;
  Tex ai = refinedMatte(node);
  if (!ai) return t;
  Tex out = tex(node.id, 6);
  dispatch("k_matteop", {t, ai, out}, {f > 1.5f ? 2.0f : 1.0f, 0, 0, 0});
  return out;
}

Engine::Tex Engine::mergedAlpha(const Uuid& id, int) const {
  auto it = mergedSide.find(id);
  return it == mergedSide.end() ? nullptr : it->second;
}

int Engine::firstMattePort(const Node& node) {
  for (int i = 0; i < int(node.kind->inputs.size()); ++i)
    if (node.kind->inputs[i].isMatte) return i;
  return -1;
}

}  // namespace ombrik
