// Viewing LUTs on the GPU: a cube per key, and one k_lut3d pass per source and evaluation.
#include <cstdint>
#include <vector>

#include "color/lut_lib.h"
#include "engine/engine.h"
#include "engine/half_float.h"
#include "gpu/device.h"

namespace ombrik {

Engine::Tex Engine::lutTexture(const std::string& key) {
  if (auto it = lutTex_.find(key); it != lutTex_.end()) return it->second;
  const auto table = LUTLib::cached(key);
  if (!table) return nullptr;
  // Cubes are half floats like every working texture: a LUT's steps are far coarser than that.
  Tex cube = device_->createTexture3D(table->size);
  if (!cube) return nullptr;
  std::vector<std::uint16_t> halves(table->values.size());
  for (std::size_t i = 0; i < halves.size(); ++i) halves[i] = floatToHalf(table->values[i]);
  if (!device_->write(cube, halves.data(), halves.size() * sizeof(std::uint16_t))) return nullptr;
  lutTex_[key] = cube;
  return cube;
}

Engine::Tex Engine::applyLUT(const Tex& texture, const std::string& key, int stamp, int slot) {
  LutMemo& memo = slot == 0 ? lutOut_ : lutOut2_;
  if (!texture) return texture;
  // A redraw of the same evaluation shows what the last pass made.
  if (memo.result && memo.key == key && memo.stamp == stamp && memo.source.lock() == texture) return memo.result;
  if (!device_->hasPipeline("k_lut3d")) return texture;
  Tex cube = lutTexture(key);
  if (!cube) return texture;
  Tex out = memo.result;
  if (!out || out == texture || out->width() != texture->width() || out->height() != texture->height())
    out = device_->createTexture(texture->width(), texture->height(), gpu::Format::rgba16Float);
  auto commands = device_->begin();
  if (!out || !commands) return texture;
  const Tex list[] = {texture, cube, out};
  const float P[] = {float(cube->width()), 1.0f};
  commands->dispatch("k_lut3d", list, P);
  // The device only submits with a wait; that also keeps later work on the queue after this pass.
  if (!device_->submitAndWait(*commands)) {
    memo = LutMemo{};
    return texture;
  }
  memo = {key, texture, stamp, out};
  return out;
}

}  // namespace ombrik
