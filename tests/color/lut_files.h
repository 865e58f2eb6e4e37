#pragma once
// ".cube" texts written by the tests, and tables with a closed form.
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

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

}  // namespace ombrik::test
