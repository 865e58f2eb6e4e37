// The viewer's last pass: the displayed texture drawn at the widget's size, with its comparison
// modes, on a command list of its own, waited for.
#include "engine/engine.h"
#include "gpu/device.h"

namespace ombrik {

Engine::Tex Engine::viewerPicture(const Tex& img, const Tex& before, const ViewP& p, int width, int height,
                                  Tex into) {
  if (!img || img->is3D() || width < 1 || height < 1) return nullptr;
  // An unknown kernel records nothing: without this the caller would get an unwritten texture.
  if (!device_->hasPipeline("k_viewquad")) return nullptr;
  const bool hasBefore = before && !before->is3D();
  auto commands = device_->begin();
  const bool reuse = into && into->width() == width && into->height() == height &&
                     into->format() == gpu::Format::rgba8Unorm && !into->is3D();
  Tex out = reuse ? into : device_->createTexture(width, height, gpu::Format::rgba8Unorm);
  if (!commands || !out) return nullptr;
  const Tex list[] = {img, hasBefore ? before : img, out};
  const float P[] = {p.mode, p.wipe, p.lineW, p.nearest, hasBefore ? 1.0f : 0.0f};
  commands->dispatch("k_viewquad", list, P);
  return device_->submitAndWait(*commands) ? out : nullptr;
}

bool Engine::readBytes(const Tex& texture, std::vector<std::uint8_t>& into) {
  return texture && device_->read(texture, into) && into.size() == texture->byteSize();
}

}  // namespace ombrik
