#pragma once
// ".cube" texts written by the tests, and tables with a closed form.
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "color/lut_lib.h"

namespace ombrik::test {

using Rgb = std::array<double, 3>;
using RgbFunction = std::function<Rgb(double r, double g, double b)>;

inline std::filesystem::path writeText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

// The data lines of an n³ table of `f` at the grid's values, red fastest.
inline std::string cubeLines(int n, const RgbFunction& f) {
  std::string s;
  char line[96];
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        const Rgb v = f(double(r) / (n - 1), double(g) / (n - 1), double(b) / (n - 1));
        std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", v[0], v[1], v[2]);
        s += line;
      }
  return s;
}

inline std::string cubeText(int n, const RgbFunction& f) {
  return "TITLE \"test\"\nLUT_3D_SIZE " + std::to_string(n) + "\n" + cubeLines(n, f);
}

// Linear in each channel: trilinear interpolation gives it exactly between the grid's values,
// and its channels are told apart (a swapped axis or order shows).
inline Rgb multilinear(double r, double g, double b) { return {g, b * r, 0.2 + 0.5 * r * g * b}; }

// Every entry of `t` holds f at its grid point within `tolerance`, red fastest, alpha 1.
inline void expectTable(const LutTable& t, int n, const RgbFunction& f, double tolerance, const std::string& what) {
  ASSERT_EQ(t.size, n) << what;
  ASSERT_EQ(t.values.size(), std::size_t(4) * n * n * n) << what;
  std::size_t i = 0;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r, i += 4) {
        const Rgb want = f(double(r) / (n - 1), double(g) / (n - 1), double(b) / (n - 1));
        for (int c = 0; c < 3; ++c) ASSERT_NEAR(t.values[i + c], want[c], tolerance) << what << " entry " << i / 4;
        ASSERT_EQ(t.values[i + 3], 1.0f) << what;
      }
}

}  // namespace ombrik::test
