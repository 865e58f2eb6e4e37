#pragma once
// 3x3 matrices in pixels for the transform kinds (row-major, column vectors).
#include <array>
#include <cmath>
#include <optional>

namespace ombrik {

struct Mat3 {
  std::array<double, 9> m{1, 0, 0, 0, 1, 0, 0, 0, 1};

  static Mat3 translate(double x, double y) { return {{1, 0, x, 0, 1, y, 0, 0, 1}}; }
  static Mat3 scale(double s) { return {{s, 0, 0, 0, s, 0, 0, 0, 1}}; }
  static Mat3 rotate(double radians) {
    const double c = std::cos(radians), s = std::sin(radians);
    return {{c, -s, 0, s, c, 0, 0, 0, 1}};
  }
  Mat3 operator*(const Mat3& o) const {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) r.m[i * 3 + j] = m[i * 3] * o.m[j] + m[i * 3 + 1] * o.m[3 + j] + m[i * 3 + 2] * o.m[6 + j];
    return r;
  }
  std::optional<Mat3> inverse() const {
    const auto& a = m;
    const double c0 = a[4] * a[8] - a[5] * a[7], c1 = a[5] * a[6] - a[3] * a[8], c2 = a[3] * a[7] - a[4] * a[6];
    const double det = a[0] * c0 + a[1] * c1 + a[2] * c2;
    if (std::abs(det) < 1e-12) return std::nullopt;
    const double k = 1.0 / det;
    return Mat3{{c0 * k, (a[2] * a[7] - a[1] * a[8]) * k, (a[1] * a[5] - a[2] * a[4]) * k,
                 c1 * k, (a[0] * a[8] - a[2] * a[6]) * k, (a[2] * a[3] - a[0] * a[5]) * k,
                 c2 * k, (a[1] * a[6] - a[0] * a[7]) * k, (a[0] * a[4] - a[1] * a[3]) * k}};
  }
  std::array<float, 6> rows2() const {
    return {float(m[0]), float(m[1]), float(m[2]), float(m[3]), float(m[4]), float(m[5])};
  }
};

}  // namespace ombrik
