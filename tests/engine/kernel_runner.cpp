#include "kernel_runner.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "engine/kernel_library.h"
#include "engine/half_float.h"
#include "gpu/device.h"

namespace ombrik::test {

struct KernelRunner::State {
  std::unique_ptr<gpu::Device> device;
};

float half(float v) { return halfToFloat(floatToHalf(v)); }

KernelRunner::KernelRunner() : state_(std::make_shared<State>()) {
  std::string error;
  state_->device = gpu::Device::create(gpu::DevicePreference::cpu, &error);
  if (!state_->device) throw std::runtime_error("no Vulkan CPU device: " + error);
  KernelLibraryOptions options;
  if (const char* support = std::getenv("OMBRIK_SUPPORT")) options.cacheDir = std::filesystem::path(support) / "ShaderCache";
  const auto report = buildKernelLibrary(*state_->device, options);
  if (report.fatal) throw std::runtime_error(report.fatalMessage);
}

KernelRunner& KernelRunner::shared() {
  static KernelRunner runner;
  return runner;
}

gpu::TexturePtr KernelRunner::upload(const Image& image) {
  auto t = state_->device->createTexture(image.w, image.h, gpu::Format::rgba16Float);
  std::vector<std::uint16_t> halves;
  halves.reserve(image.px.size() * 4);
  for (const auto& p : image.px)
    for (float v : {p.r, p.g, p.b, p.a}) halves.push_back(floatToHalf(v));
  state_->device->write(t, halves.data(), halves.size() * 2);
  return t;
}

gpu::TexturePtr KernelRunner::cube(int n, const std::vector<Rgba>& entries) {
  auto t = state_->device->createTexture3D(n);
  std::vector<std::uint16_t> halves;
  for (const auto& p : entries)
    for (float v : {p.r, p.g, p.b, p.a}) halves.push_back(floatToHalf(v));
  state_->device->write(t, halves.data(), halves.size() * 2);
  return t;
}

gpu::TexturePtr KernelRunner::blank(int w, int h, bool rgba8) {
  return state_->device->createTexture(w, h, rgba8 ? gpu::Format::rgba8Unorm : gpu::Format::rgba16Float);
}

bool KernelRunner::has(const std::string& kernel) const { return state_->device->hasPipeline(kernel); }

void KernelRunner::run(const std::string& kernel, const std::vector<gpu::TexturePtr>& textures,
                       const std::vector<float>& P, const std::vector<float>& table) {
  if (!has(kernel)) throw std::runtime_error("no pipeline for " + kernel);
  auto c = state_->device->begin();
  c->dispatch(kernel, textures, P, table);
  if (!state_->device->submitAndWait(*c)) throw std::runtime_error("device failure");
}

void KernelRunner::drawTriangles(const gpu::TexturePtr& source, const gpu::TexturePtr& target,
                                 const std::vector<float>& vertices) {
  auto c = state_->device->begin();
  c->drawTriangles("mesh", source, target, vertices);
  if (!state_->device->submitAndWait(*c)) throw std::runtime_error("device failure");
}

Image KernelRunner::read(const gpu::TexturePtr& texture) {
  const auto bytes = state_->device->read(texture);
  Image out(texture->width(), texture->height());
  for (std::size_t i = 0; i < out.px.size(); ++i) {
    float v[4];
    for (int c = 0; c < 4; ++c) {
      if (texture->format() == gpu::Format::rgba16Float) {
        std::uint16_t h;
        std::memcpy(&h, bytes.data() + (i * 4 + c) * 2, 2);
        v[c] = halfToFloat(h);
      } else {
        v[c] = bytes[i * 4 + c] / 255.0f;
      }
    }
    out.px[i] = {v[0], v[1], v[2], v[3]};
  }
  return out;
}

}  // namespace ombrik::test
