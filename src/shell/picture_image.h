#pragma once
// Engine read-backs as Qt images.
#include <QImage>
#include <vector>

namespace ombrik {

// Floats in 0..1, rgba, row 0 on top, into an opaque image: the viewer shows colour, not alpha.
// A buffer of the wrong size gives a null image.
QImage opaqueImage(const std::vector<float>& rgba, int width, int height);

}  // namespace ombrik
