#pragma once
// A GPU texture. Working pictures are rgba16Float; 8-bit textures serve the interface;
// 3D textures hold LUTs. Lifetime is shared: a pass in flight keeps its textures alive.
#include <cstddef>
#include <memory>

namespace ombrik::gpu {

enum class Format { rgba16Float, rgba8Unorm };

class Texture {
public:
  virtual ~Texture() = default;
  int width() const { return width_; }
  int height() const { return height_; }
  int depth() const { return depth_; }  // 1 for a 2D texture
  bool is3D() const { return depth_ > 1 || is3D_; }
  Format format() const { return format_; }
  std::size_t bytesPerPixel() const { return format_ == Format::rgba16Float ? 8 : 4; }
  std::size_t byteSize() const { return bytesPerPixel() * std::size_t(width_) * height_ * depth_; }

protected:
  Texture(int w, int h, int d, Format f, bool threeD) : width_(w), height_(h), depth_(d), is3D_(threeD), format_(f) {}

private:
  int width_, height_, depth_;
  bool is3D_;
  Format format_;
};

using TexturePtr = std::shared_ptr<Texture>;

// The pixels one thread of a pass makes: 1 x 1, or a block for kernels that make neighbours at once.
struct Span {
  int x = 1, y = 1;
};

}  // namespace ombrik::gpu
