#pragma once
// The kernel sources under src/engine/shaders, linked into the program.
#include <string_view>
#include <vector>

namespace ombrik {

struct ShaderFile {
  std::string_view path;  // relative to the shaders folder, e.g. "base/k_color.comp"
  std::string_view text;
};

const std::vector<ShaderFile>& shaderFiles();

}  // namespace ombrik
