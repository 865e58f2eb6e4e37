#pragma once
// Table-driven pixel tests of the engine's own kernels (masks, mattes, colour, geometry, beauty):
// one row names a kernel, the pictures it reads, its parameter sets and the CPU reference of each
// output pixel, so a new kernel is one more row.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "engine/kernel_runner.h"
#include "engine/rgba_reference.h"
#include "engine/test_pictures.h"

namespace ombrik::test::kernels {

constexpr float kStep = 1e-3f;  // one half-float step of the output
// Drivers may compute the sampler's bilinear weights in fixed point, so reads through it get twice
// the tolerance; manual reads are exact.
constexpr float kSampled = 2e-3f;
constexpr float kByte = 0.5f / 255.0f + kSampled;  // an rgba8 output adds its own rounding

inline Rgba grey(float v, float a = 0) { return {v, v, v, a}; }
inline Rgba withAlpha(Rgba c, float a) { return {c.r, c.g, c.b, a}; }

// One pass of `kernel` over the pictures into `outs` fresh outputs of w x h; returns the outputs.
inline std::vector<Image> runPass(const std::string& kernel, const std::vector<Image>& in, int w, int h,
                                  const std::vector<float>& P, const std::vector<float>& table = {}, int outs = 1,
                                  bool rgba8 = false) {
  auto& runner = KernelRunner::shared();
  EXPECT_TRUE(runner.has(kernel)) << kernel << " has no pipeline";
  if (!runner.has(kernel)) return std::vector<Image>(outs, Image(w, h));
  std::vector<gpu::TexturePtr> textures, made;
  for (const Image& im : in) textures.push_back(runner.upload(im));
  for (int i = 0; i < outs; ++i) textures.push_back(made.emplace_back(runner.blank(w, h, rgba8)));
  runner.run(kernel, textures, P, table);
  std::vector<Image> result;
  for (const auto& t : made) result.push_back(runner.read(t));
  return result;
}
inline Image run1(const std::string& kernel, const std::vector<Image>& in, int w, int h, const std::vector<float>& P,
                  const std::vector<float>& table = {}) {
  return runPass(kernel, in, w, h, P, table)[0];
}

// The expected pixel (x, y) from the pictures the kernel read and its parameters.
using PixelRef = std::function<Rgba(const std::vector<Image>& in, const std::vector<float>& P, int x, int y)>;

struct KernelRow {
  std::string kernel;
  std::vector<Image> in;
  std::vector<std::vector<float>> cases;  // one pass each
  PixelRef ref;
  float tol = kStep;
  int w = 0, h = 0;  // the output's size: the first input's when 0
  bool rgba8 = false;
  std::vector<float> table = {};
};

// Runs every parameter set and compares the whole output with the reference.
inline void checkRow(const KernelRow& row) {
  const int w = row.w ? row.w : row.in.at(0).w, h = row.h ? row.h : row.in.at(0).h;
  for (const auto& P : row.cases) {
    const Image got = runPass(row.kernel, row.in, w, h, P, row.table, 1, row.rgba8)[0];
    EXPECT_TRUE(matches(got, expected(w, h, [&](int x, int y) { return row.ref(row.in, P, x, y); }), row.tol))
        << describe(row.kernel, P) << " into " << w << "x" << h;
  }
}
inline void checkRows(const std::vector<KernelRow>& rows) {
  for (const KernelRow& row : rows) checkRow(row);
}

// Polygon masks: the winding number of a closed outline around a point, by summing the angles its
// edges turn (independent of any crossing rule), and the distance to its nearest edge.
struct Pt {
  double x, y;
};
inline int winding(const std::vector<Pt>& poly, double px, double py) {
  double total = 0;
  for (std::size_t i = 0; i < poly.size(); ++i) {
    const Pt &a = poly[i], &b = poly[(i + 1) % poly.size()];
    const double ax = a.x - px, ay = a.y - py, bx = b.x - px, by = b.y - py;
    total += std::atan2(ax * by - ay * bx, ax * bx + ay * by);
  }
  return int(std::lround(total / (2 * 3.14159265358979323846)));
}
inline double outlineDistance(const std::vector<Pt>& poly, double px, double py) {
  double best = 1e30;
  for (std::size_t i = 0; i < poly.size(); ++i) {
    const Pt &a = poly[i], &b = poly[(i + 1) % poly.size()];
    const double ex = b.x - a.x, ey = b.y - a.y;
    const double t = std::clamp(((px - a.x) * ex + (py - a.y) * ey) / std::max(ex * ex + ey * ey, 1e-6), 0.0, 1.0);
    best = std::min(best, std::hypot(px - a.x - t * ex, py - a.y - t * ey));
  }
  return best;
}

}  // namespace ombrik::test::kernels
