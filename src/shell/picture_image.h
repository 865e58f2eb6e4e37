#pragma once
// Engine read-backs as Qt images.
#include <QImage>
#include <cstdint>
#include <vector>

namespace ombrik {

// Floats in 0..1, rgba, row 0 on top, into an opaque image: the viewer shows colour, not alpha.
// A buffer of the wrong size gives a null image.
QImage opaqueImage(const std::vector<float>& rgba, int width, int height);
// Bytes of an rgba8 texture, the same way. `reuse` is written into when it has that size, so a
// steady stream of pictures needs no new memory.
QImage opaqueImage(const std::vector<std::uint8_t>& rgba8, int width, int height, QImage reuse = {});

}  // namespace ombrik
