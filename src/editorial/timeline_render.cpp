#include "editorial/timeline_render.h"

#include <algorithm>
#include <cmath>

#include "engine/engine.h"
#include "media/timeline_reader.h"

namespace ombrik {

std::vector<std::pair<const TLayer*, int>> activeLayers(const Timeline& t, int frame) {
  std::vector<std::pair<const TLayer*, int>> out;
  for (auto it = t.layers.rbegin(); it != t.layers.rend(); ++it)
    if (it->enabled && it->start <= frame && frame < it->end()) out.emplace_back(&*it, it->sourceFrame(frame));
  return out;
}

std::pair<int, int> layerWorkingSize(int width, int height, int srcW, int srcH) {
  const double sw = std::max(srcW, 1), sh = std::max(srcH, 1);
  const double s = std::min(width / sw, height / sh);
  return {std::max(int(std::lround(s * srcW)), 16), std::max(int(std::lround(s * srcH)), 16)};
}

gpu::TexturePtr TimelineJob::render(Engine& engine, TimelineReader& reader) const {
  const int W = engine.compW, H = engine.compH;
  if (W < 1 || H < 1) return nullptr;
  const float px = engine.pxScale;
  std::vector<Engine::Layer> layers;
  for (std::size_t i = 0; i < items.size(); ++i) {
    const Item& item = items[i];
    gpu::TexturePtr picture;
    const std::string key = "tl-item" + std::to_string(i);
    if (item.nodes.empty()) {  // a media layer: its picture fitted straight into the frame
      if (!item.media.empty())
        if (auto image = reader.image(item.media.front(), item.frame, std::max(W, H)))
          picture = engine.fitTexture(*image, key);
    } else {
      // A world evaluates at its own working size, " px" parameters scaled to it, and is put
      // back as it was for whatever evaluates next.
      const auto [cw, ch] = layerWorkingSize(W, H, item.srcW, item.srcH);
      engine.setComp(cw, ch, false);
      engine.pxScale = float(cw) / float(std::max(item.srcW, 1));
      for (const auto& m : item.media) engine.addSource(reader.image(m, item.frame, std::max(cw, ch)), m.id);
      engine.evaluate(item.nodes, item.edges, float(item.frame / std::max(fps, 1.0)));
      gpu::TexturePtr result;
      if (item.output)
        if (auto it = engine.outputs.find(*item.output); it != engine.outputs.end()) result = it->second;
      engine.setComp(W, H, false);
      engine.pxScale = px;
      if (result) picture = engine.fitTexture(result, key);
    }
    if (picture) layers.push_back({picture, float(item.layer.opacity), item.layer.blend});
  }
  return engine.compositeLayers(layers, "tl-comp", bg);
}

}  // namespace ombrik
