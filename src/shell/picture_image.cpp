#include "shell/picture_image.h"

#include <algorithm>
#include <cmath>

namespace ombrik {

namespace {
int byte(float v) { return int(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); }
}  // namespace

QImage opaqueImage(const std::vector<float>& rgba, int width, int height) {
  if (width < 1 || height < 1 || rgba.size() != std::size_t(width) * height * 4) return {};
  QImage image(width, height, QImage::Format_RGB32);
  for (int y = 0; y < height; ++y) {
    auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
    const float* px = rgba.data() + std::size_t(y) * width * 4;
    for (int x = 0; x < width; ++x, px += 4) line[x] = qRgb(byte(px[0]), byte(px[1]), byte(px[2]));
  }
  return image;
}

QImage opaqueImage(const std::vector<std::uint8_t>& rgba8, int width, int height, QImage reuse) {
  if (width < 1 || height < 1 || rgba8.size() != std::size_t(width) * height * 4) return {};
  QImage image = reuse.size() == QSize(width, height) && reuse.format() == QImage::Format_RGBX8888
                     ? std::move(reuse)
                     : QImage(width, height, QImage::Format_RGBX8888);
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* px = rgba8.data() + std::size_t(y) * width * 4;
    std::uint8_t* line = image.scanLine(y);
    for (int x = 0; x < width; ++x, px += 4, line += 4) {
      line[0] = px[0];
      line[1] = px[1];
      line[2] = px[2];
      line[3] = 255;  // opaque: the viewer shows colour, not alpha
    }
  }
  return image;
}

}  // namespace ombrik
