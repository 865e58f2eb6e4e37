#pragma once
#include <filesystem>
#include <fstream>
#include <sstream>
#include <random>
#include <string>

// A fresh folder under the system temp dir, removed with the object.
struct TempDir {
  std::filesystem::path path;
  TempDir() {
    std::random_device rd;
    path = std::filesystem::temp_directory_path() / ("ombrik-test-" + std::to_string(rd()) + std::to_string(rd()));
    std::filesystem::create_directories(path);
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
};

// A file's whole content, empty when it can't be read.
inline std::string slurp(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// A small file at `p`, its folders made: a file that exists is all some tests need.
inline void touch(const std::filesystem::path& p) {
  std::filesystem::create_directories(p.parent_path());
  std::ofstream(p) << "x";
}
