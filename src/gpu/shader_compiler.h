#pragma once
// GLSL compute source -> SPIR-V, in process, with results cached on disk by source hash,
// so a warm start compiles nothing. Messages keep the compiler's "name:line: error: ..." form.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ombrik::gpu {

enum class ShaderStage { compute, vertex, fragment };

class ShaderCompiler {
public:
  explicit ShaderCompiler(std::filesystem::path cacheDir = {});
  ~ShaderCompiler();

  struct Result {
    std::vector<std::uint32_t> spirv;  // empty on failure
    std::string messages;              // errors and warnings
    bool fromCache = false;
    bool ok() const { return !spirv.empty(); }
  };
  // `name` labels the messages.
  Result compile(const std::string& source, const std::string& name, ShaderStage stage = ShaderStage::compute);
  // Parses and checks without keeping the result (a whole library at once).
  Result check(const std::string& source, const std::string& name);

  int compiledCount() const { return compiled_; }  // compiles that did not come from the cache

  static std::string hashOf(const std::string& text);

private:
  std::filesystem::path cacheDir_;
  int compiled_ = 0;
};

}  // namespace ombrik::gpu
