// Matte work asked for outside an evaluation, each on a command list of its own, waited for:
// what a retouch changed, the box worth sending to a model, and timeline layers over a background.
#include <algorithm>
#include <climits>
#include <cstring>

#include "engine/engine.h"
#include "engine/half_float.h"
#include "gpu/device.h"

namespace ombrik {

Engine::Tex Engine::diffMatte(const Tex& a, const Tex& b) {
  if (!a || !b || a->is3D() || b->is3D() || a->width() != b->width() || a->height() != b->height()) return nullptr;
  const int w = a->width(), h = a->height();
  auto commands = device_->begin();
  Tex diff = device_->createTexture(w, h, gpu::Format::rgba16Float);
  Tex across = device_->createTexture(w, h, gpu::Format::rgba16Float);
  Tex out = device_->createTexture(w, h, gpu::Format::rgba16Float);
  if (!commands || !diff || !across || !out) return nullptr;
  commands->dispatch("k_diffmatte", {a, b, diff}, {0.006f, 0.03f});
  // A Gaussian of sigma 1 softens the edges of the change. Its passes get textures of their own
  // rather than the evaluation's blur scratch, which an evaluation may be using meanwhile.
  const float P[] = {1.0f, 3.0f};
  const Tex acrossPass[] = {diff, across}, down[] = {across, out};
  commands->dispatch("g_blurh", acrossPass, P, {}, {8, 1});
  commands->dispatch("g_blurv", down, P, {}, {1, 8});
  return device_->submitAndWait(*commands) ? out : nullptr;
}

std::optional<std::array<double, 4>> Engine::matteBox(const Tex& matte) {
  if (!matte || matte->is3D() || matte->format() != gpu::Format::rgba16Float) return std::nullopt;
  const std::vector<std::uint8_t> bytes = device_->read(matte);
  if (bytes.size() != matte->byteSize()) return std::nullopt;
  const int W = matte->width(), H = matte->height();
  // Every second pixel of every second row: a quarter of the reads, plenty for a crop box.
  int minX = INT_MAX, minY = INT_MAX, maxX = -1, maxY = -1;
  for (int y = 0; y < H; y += 2)
    for (int x = 0; x < W; x += 2) {
      std::uint16_t red;
      std::memcpy(&red, bytes.data() + (std::size_t(y) * W + x) * 8, 2);
      if (!(halfToFloat(red) > 0.02f)) continue;
      minX = std::min(minX, x), maxX = std::max(maxX, x);
      minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
  if (maxX < 0) return std::nullopt;
  const int margin = std::max(48, int(0.15 * std::max(maxX - minX, maxY - minY)));
  const int x0 = std::max(0, minX - margin), y0 = std::max(0, minY - margin);
  const int x1 = std::min(W, maxX + margin + 2), y1 = std::min(H, maxY + margin + 2);
  const std::array<double, 4> box{double(x0) / W, double(y0) / H, double(x1 - x0) / W, double(y1 - y0) / H};
  if (box[2] * box[3] > 0.8) return std::nullopt;  // nearly everything: the whole picture is simpler
  return box;
}

Engine::Tex Engine::compositeLayers(const std::vector<Layer>& layers, const std::string& key,
                                    std::array<double, 3> background) {
  if (compW < 1 || compH < 1) return nullptr;
  auto commands = device_->begin();
  if (!commands) return nullptr;
  Tex cur = workTexture(key + "-a"), other = workTexture(key + "-b");
  if (!cur || !other) return nullptr;
  commands->clear(cur, float(background[0]), float(background[1]), float(background[2]), 1);
  if (device_->hasPipeline("k_layer"))
    for (const Layer& layer : layers) {
      // k_layer reads texel for texel: a layer must be comp-sized; a missing one adds nothing.
      if (!layer.texture || layer.texture->width() != compW || layer.texture->height() != compH) continue;
      commands->dispatch("k_layer", {cur, layer.texture, other}, {layer.opacity, float(layer.mode), 0, 0});
      std::swap(cur, other);
    }
  return device_->submitAndWait(*commands) ? cur : nullptr;
}

}  // namespace ombrik
