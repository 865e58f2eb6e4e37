#pragma once
// Planar geometry between two images: 3x3 matrices fitted to point pairs, directly (Hartley-
// normalised DLT, least-squares affine) or robustly (RANSAC). Every fit gives none when the points
// don't determine a map; callers skip that frame rather than inventing an identity.
#include <array>
#include <optional>
#include <random>
#include <vector>

#include "graph/point.h"

namespace ombrik {

struct Homography {
  // Row by row: a point (x, y, 1) maps to (m0 x + m1 y + m2, m3 x + m4 y + m5, m6 x + m7 y + m8).
  std::array<double, 9> m{1, 0, 0, 0, 1, 0, 0, 0, 1};

  double operator()(int row, int col) const { return m[std::size_t(row * 3 + col)]; }
  double& operator()(int row, int col) { return m[std::size_t(row * 3 + col)]; }
  Homography operator*(const Homography& o) const;
  bool operator==(const Homography&) const = default;

  static Homography identity() { return {}; }
  static Homography translation(double dx, double dy);
  std::optional<Homography> inverse() const;  // none when singular
  Homography scaledToUnitM22() const;         // divided by m22 when |m22| > 1e-12, else as it is

  // From at least 4 pairs (only the first min(src, dst) are used); none when degenerate.
  static std::optional<Homography> fit(const std::vector<Point>& src, const std::vector<Point>& dst);
  // Least-squares affine map from at least 3 pairs; none when the points are (nearly) collinear.
  static std::optional<Homography> affine(const std::vector<Point>& src, const std::vector<Point>& dst);
  // A homography between pixel spaces of a W x H image turned into one between normalised spaces.
  static Homography normalized(const Homography& h, double W, double H);
  // (x/w, y/w), or (x, y) when w is (nearly) zero.
  static Point apply(const Homography& h, Point p);
  // Robust fit: 300 rounds of 4 random distinct pairs, inliers within `threshold` (the units of
  // dst), refit on the best set; none below 6 inliers.
  static std::optional<Homography> ransac(const std::vector<Point>& src, const std::vector<Point>& dst,
                                          double threshold, std::mt19937& rng);

  static std::optional<Homography> fromArray(const std::vector<double>& values);  // exactly 9 numbers
  std::vector<double> toArray() const;
};

}  // namespace ombrik
