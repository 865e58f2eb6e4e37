#pragma once
// Single-precision maths on Rgba for the kernel tests that compute their expectations in float:
// arithmetic, luminance, steps, and the bilinear read of a picture.
#include <algorithm>
#include <cmath>

#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

namespace ombrik::test {

inline Rgba operator+(Rgba a, Rgba b) { return {a.r + b.r, a.g + b.g, a.b + b.b, a.a + b.a}; }
inline Rgba operator-(Rgba a, Rgba b) { return {a.r - b.r, a.g - b.g, a.b - b.b, a.a - b.a}; }
inline Rgba operator*(Rgba a, float k) { return {a.r * k, a.g * k, a.b * k, a.a * k}; }
inline Rgba operator*(Rgba a, Rgba b) { return {a.r * b.r, a.g * b.g, a.b * b.b, a.a * b.a}; }
inline float luma(Rgba c) { return 0.2126f * c.r + 0.7152f * c.g + 0.0722f * c.b; }
inline float sat(float v) { return std::clamp(v, 0.0f, 1.0f); }
inline float lerp(float a, float b, float t) { return a + (b - a) * t; }
inline Rgba lerp(Rgba a, Rgba b, float t) { return a + (b - a) * t; }
inline float smooth(float e0, float e1, float x) {
  float t = sat((x - e0) / (e1 - e0));
  return t * t * (3.0f - 2.0f * t);
}

// Bilinear read at normalised (u, v), texel centres at half-integers; outside the picture the
// nearest edge texel, or transparent black when zeroOutside. The read position is worked out in
// the precision Coord, the weights in float.
template <class Coord>
Rgba bilinearRgba(const Image& im, Coord u, Coord v, bool zeroOutside) {
  const Coord px = u * im.w - Coord(0.5), py = v * im.h - Coord(0.5);
  const int x0 = int(std::floor(px)), y0 = int(std::floor(py));
  const float fx = float(px - x0), fy = float(py - y0);
  return fetch(im, x0, y0, zeroOutside) * ((1 - fx) * (1 - fy)) + fetch(im, x0 + 1, y0, zeroOutside) * (fx * (1 - fy)) +
         fetch(im, x0, y0 + 1, zeroOutside) * ((1 - fx) * fy) + fetch(im, x0 + 1, y0 + 1, zeroOutside) * (fx * fy);
}

}  // namespace ombrik::test
