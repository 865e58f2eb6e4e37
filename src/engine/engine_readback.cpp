// Results read back for the interface, each on a command list of its own, waited for.
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>

#include "engine/engine.h"
#include "gpu/device.h"

namespace ombrik {

namespace {
int scaled(int side, double s) { return std::max(1, int(std::lround(side * s))); }
}  // namespace

Engine::Tex Engine::resampled(const Tex& from, int width, int height, gpu::Format format) {
  if (!from || width < 1 || height < 1) return nullptr;
  auto commands = device_->begin();
  Tex out = device_->createTexture(width, height, format);
  if (!commands || !out) return nullptr;
  const Tex list[] = {from, out};
  commands->dispatch("k_resample", list, {});
  return device_->submitAndWait(*commands) ? out : nullptr;
}

std::optional<std::array<float, 3>> Engine::readColor(const Tex& texture, int x, int y, int r) {
  if (!texture || texture->is3D()) return std::nullopt;
  const int x0 = std::max(0, x - r), y0 = std::max(0, y - r);
  const int x1 = std::min(texture->width() - 1, x + r), y1 = std::min(texture->height() - 1, y + r);
  if (x0 > x1 || y0 > y1) return std::nullopt;
  const std::vector<float> px = readPixels(texture);
  if (px.empty()) return std::nullopt;
  std::array<double, 3> sum{};
  for (int yy = y0; yy <= y1; ++yy)
    for (int xx = x0; xx <= x1; ++xx)
      for (int c = 0; c < 3; ++c) sum[c] += px[(std::size_t(yy) * texture->width() + xx) * 4 + c];
  const double n = double(x1 - x0 + 1) * (y1 - y0 + 1);
  return std::array<float, 3>{float(sum[0] / n), float(sum[1] / n), float(sum[2] / n)};
}

std::vector<std::array<float, 3>> Engine::thumbPixels(const Tex& texture, int width, int height) {
  std::vector<std::array<float, 3>> out;
  const std::vector<float> px = readPixels(resampled(texture, width, height, gpu::Format::rgba16Float));
  for (std::size_t i = 0; i + 3 < px.size(); i += 4) out.push_back({px[i], px[i + 1], px[i + 2]});
  return out;
}

Engine::Tex Engine::snapshotScaled(const Tex& texture, int width, int height) {
  return resampled(texture, std::max(1, width), std::max(1, height), gpu::Format::rgba8Unorm);
}

Engine::Tex Engine::maskView(const Tex& mask, const Tex& picture) {
  if (!mask || !picture) return nullptr;
  auto commands = device_->begin();
  Tex out = device_->createTexture(picture->width(), picture->height(), gpu::Format::rgba8Unorm);
  if (!commands || !out) return nullptr;
  const Tex list[] = {mask, picture, out};
  commands->dispatch("k_maskview", list, {});
  return device_->submitAndWait(*commands) ? out : nullptr;
}

std::optional<Picture> Engine::thumbnail(const Tex& texture, int maxSide) {
  if (!texture || maxSide < 1) return std::nullopt;
  const double s = double(maxSide) / std::max(texture->width(), texture->height());  // may enlarge
  Tex small = resampled(texture, scaled(texture->width(), s), scaled(texture->height(), s), gpu::Format::rgba8Unorm);
  if (!small) return std::nullopt;
  auto bytes = device_->read(small);
  if (bytes.size() != small->byteSize()) return std::nullopt;
  return Picture{small->width(), small->height(), std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))};
}

std::vector<std::optional<Picture>> Engine::thumbnails(std::span<const Tex> textures, int maxSide) {
  // Resamples and reads in batches on one submission each, rather than two waits per picture; a
  // batch bounds the staging memory and the driver's count of allocations.
  constexpr std::size_t kBatch = 256;
  std::vector<std::optional<Picture>> out(textures.size());
  if (maxSide < 1) return out;
  for (std::size_t first = 0; first < textures.size(); first += kBatch) {
    const std::size_t last = std::min(textures.size(), first + kBatch);
    auto commands = device_->begin();
    if (!commands) return out;
    std::vector<Tex> small(last - first);
    std::vector<std::vector<std::uint8_t>> bytes(last - first);
    for (std::size_t i = first; i < last; ++i) {
      const Tex& t = textures[i];
      if (!t) continue;
      const double s = double(maxSide) / std::max(t->width(), t->height());  // may enlarge
      Tex& to = small[i - first];
      to = device_->createTexture(scaled(t->width(), s), scaled(t->height(), s), gpu::Format::rgba8Unorm);
      if (!to) continue;
      const Tex list[] = {t, to};
      commands->dispatch("k_resample", list, {});
      commands->read(to, &bytes[i - first]);
    }
    if (!device_->submitAndWait(*commands)) return out;
    for (std::size_t i = first; i < last; ++i) {
      const Tex& to = small[i - first];
      if (to && bytes[i - first].size() == to->byteSize())
        out[i] = Picture{to->width(), to->height(),
                         std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes[i - first]))};
    }
  }
  return out;
}

std::optional<Picture> Engine::sourceThumb(const Uuid& id, int maxSide) {
  auto it = sources_.find(id);
  if (it == sources_.end() || maxSide < 1) return std::nullopt;
  const SourcePicture& p = it->second;
  const double s = double(maxSide) / std::max(p.width, p.height);
  Tex t = fastFrame(p, scaled(p.width, s), scaled(p.height, s));
  if (!t) return std::nullopt;
  auto bytes = device_->read(t);
  if (bytes.size() != t->byteSize()) return std::nullopt;
  return Picture{t->width(), t->height(), std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))};
}

bool Engine::writePreview(const Tex& texture, const std::filesystem::path& path, int maxSide) {
  if (!texture || maxSide < 1) return false;
  const double s = std::min(1.0, double(maxSide) / std::max(texture->width(), texture->height()));
  Tex small = resampled(texture, scaled(texture->width(), s), scaled(texture->height(), s), gpu::Format::rgba16Float);
  return small && export_(small, path);
}

}  // namespace ombrik
