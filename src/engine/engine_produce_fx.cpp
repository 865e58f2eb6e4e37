// The generic path of the effect catalogue: one kernel per kind, one float per parameter.
#include <algorithm>
#include <cmath>

#include "engine/engine.h"
#include "engine/engine_eval_state.h"

namespace ombrik {

Engine::Tex Engine::combinedMattes(const Node& node) {
  if (auto it = ev_->combined.find(node.id); it != ev_->combined.end()) return it->second;
  Tex gathered;
  for (int k = 0; k < 4; ++k) {
    Tex m = input(node.id, 2 + k);
    if (!m) continue;
    const int op = k > 0 ? int(std::lround(node.p("op" + std::to_string(k + 1)))) : 0;
    Tex target = tex(node.id, 10 + k);
    if (!gathered) {
      // The first matte alone, inverted when asked (a first matte set to subtract reads reversed).
      const bool inv = k == 0 ? node.on("inv1") : op == 1;
      dispatch("k_mattecombine", {m, m, target}, {0, inv ? 1.0f : 0.0f, 1, 0});
    } else {
      dispatch("k_mattecombine", {gathered, m, target}, {float(op), 0, 0, 0});
    }
    gathered = target;
  }
  if (gathered) ev_->combined[node.id] = gathered;
  return gathered;
}

Engine::Tex Engine::produceFx(const Node& node) {
  const NodeKind& kind = *node.kind;
  if (!kind.kernel) return nullptr;
  Tex front = input(node.id, 0);
  if (!front) return nullptr;
  if (node.bypass) return front;
  if (kind.id == "keyer3d") return produceKeyer3D(node, front);

  Tex matte, back;
  for (int i = 1; i < int(kind.inputs.size()); ++i) {
    const PortSpec& port = kind.inputs[i];
    if (port.isMatte && !kind.makesMatte()) {
      if (Tex t = input(node.id, i)) matte = t;  // the last such port wins
    } else if (port.name == "Back" || port.name == "Depth") {
      back = input(node.id, i);
    }
  }
  if (kind.id == "comp") matte = combinedMattes(node);
  if (kind.id == "blur" && node.p("mattemode") > 0.5f && matte) {
    // The matte is softened with the picture and given out as this node's alpha; the blur
    // itself then covers the whole picture.
    Tex soft = tex(node.id, 7);
    blur(matte, soft, std::max(0.5f, node.p("size") * 0.6f * pxScale));
    alphaSide_[node.id] = soft;
    matte = nullptr;
  }
  if (kind.id == "blur" && !matte) {
    // Without a matte the kernel would only hand the blurred picture on: blur straight into
    // the result instead of copying it there in a pass of its own.
    Tex out = tex(node.id, 0);
    blur(front, out, std::max(0.5f, node.p(*kind.blurParam) * 0.6f * pxScale));
    return out;
  }
  Tex aux = back ? back : front;
  if (kind.blurParam) {
    aux = tex(node.id, 1);
    blur(front, aux, std::max(0.5f, node.p(*kind.blurParam) * 0.6f * pxScale));
  }
  Tex out = tex(node.id, 0);

  std::vector<float> P;
  for (const auto& spec : kind.params) P.push_back(node.p(spec.key) * (spec.unit == " px" ? pxScale : 1.0f));
  if (P.size() < 16) P.resize(16, 0.0f);
  P.resize(16);
  if (kind.id == "comp") P[15] = back ? 0.0f : 1.0f;
  P.insert(P.end(), {matte ? 1.0f : 0.0f, float(compW), float(compH), evalTime});  // FxInfo
  const Tex list[] = {front, matte ? matte : front, aux, out};
  if (!device_->hasPipeline(*kind.kernel)) return nullptr;
  dispatch(*kind.kernel, list, P);
  return out;
}

Engine::Tex Engine::produceKeyer3D(const Node& node, const Tex& front) {
  Tex out = tex(node.id, 0);
  std::vector<float> P(16, 0.0f);
  P[0] = node.p("tolY"), P[1] = node.p("tolC"), P[2] = node.p("soft"), P[3] = node.p("invert");
  P[4] = node.p("reach"), P[5] = node.p("view");
  std::vector<float> samples;
  std::vector<const std::vector<double>*> usable;
  for (const auto& s : node.keySamples)
    if (s.size() > 5) usable.push_back(&s);
  const std::size_t first = usable.size() > 120 ? usable.size() - 120 : 0;
  for (std::size_t i = first; i < usable.size(); ++i) {
    const auto& s = *usable[i];
    samples.insert(samples.end(), {float(s[0]), float(s[1]), float(s[2]), float(s[3]), float(s[4]), float(s[5]), 0, 0});
  }
  P[15] = float(samples.size() / 8);
  if (samples.empty()) samples.assign(8, 0.0f);
  if (!device_->hasPipeline("fx_keyer3d")) return nullptr;
  const Tex list[] = {front, out};
  dispatch("fx_keyer3d", list, P, samples);
  return out;
}

}  // namespace ombrik
