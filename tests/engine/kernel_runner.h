#pragma once
// Runs single kernels on small pictures through the real Vulkan device (lavapipe in tests),
// so kernel tests can compare pixels with formulas computed on the CPU.
#include <memory>
#include <string>
#include <vector>

#include "gpu/texture.h"

namespace ombrik::test {

struct Rgba {
  float r = 0, g = 0, b = 0, a = 0;
};

struct Image {
  int w = 0, h = 0;
  std::vector<Rgba> px;  // row 0 on top
  Image() = default;
  Image(int width, int height, Rgba fill = {}) : w(width), h(height), px(std::size_t(width) * height, fill) {}
  Rgba& at(int x, int y) { return px[std::size_t(y) * w + x]; }
  const Rgba& at(int x, int y) const { return px[std::size_t(y) * w + x]; }
};

// The value a texture of half floats stores for v (round to nearest even).
float half(float v);

// A picture holding exactly what a half-float texture stores for f(x, y), so expectations can
// be computed from the very values the kernel reads.
template <class F>
Image storedPicture(int w, int h, F f) {
  Image im(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const Rgba c = f(x, y);
      im.at(x, y) = {half(c.r), half(c.g), half(c.b), half(c.a)};
    }
  return im;
}

class KernelRunner {
public:
  // One device and one compiled kernel library per test process (SPIR-V cache shared by the run).
  static KernelRunner& shared();

  gpu::TexturePtr upload(const Image& image);                      // rgba16Float
  gpu::TexturePtr cube(int n, const std::vector<Rgba>& entries);  // 3D LUT, n*n*n entries, red fastest
  gpu::TexturePtr blank(int w, int h, bool rgba8 = false);         // all zero
  bool has(const std::string& kernel) const;
  // One pass of `kernel` over the textures in list order (the last one sets the grid).
  void run(const std::string& kernel, const std::vector<gpu::TexturePtr>& textures, const std::vector<float>& P,
           const std::vector<float>& table = {});
  Image read(const gpu::TexturePtr& texture);  // rgba8 reads back as 0..1
  // The mesh warp's triangle pass: 4 floats a vertex (position 0..1, texture coordinate).
  void drawTriangles(const gpu::TexturePtr& source, const gpu::TexturePtr& target, const std::vector<float>& vertices);

private:
  KernelRunner();
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace ombrik::test
