#include "gpu/shader_compiler.h"

#include <shaderc/shaderc.hpp>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <system_error>

namespace ombrik::gpu {

namespace fs = std::filesystem;

namespace {
// Bump when compile options change, so old cache entries are not reused.
constexpr const char* kOptionsTag = "vk1.2-O-v1";

shaderc::CompileOptions options() {
  shaderc::CompileOptions o;
  o.SetTargetEnvironment(shaderc_target_env_vulkan, shaderc_env_version_vulkan_1_2);
  o.SetOptimizationLevel(shaderc_optimization_level_performance);
  return o;
}
}  // namespace

ShaderCompiler::ShaderCompiler(fs::path cacheDir) : cacheDir_(std::move(cacheDir)) {}
ShaderCompiler::~ShaderCompiler() = default;

std::string ShaderCompiler::hashOf(const std::string& text) {
  // Two independent 64-bit FNV-1a streams: ample against accidental collisions of sources.
  std::uint64_t a = 0xcbf29ce484222325ull, b = 0x84222325cbf29ce4ull;
  for (unsigned char c : text) {
    a = (a ^ c) * 0x100000001b3ull;
    b = (b ^ (c + 0x5bu)) * 0x100000001b3ull;
  }
  char out[33];
  std::snprintf(out, sizeof out, "%016llx%016llx", static_cast<unsigned long long>(a), static_cast<unsigned long long>(b));
  return out;
}

ShaderCompiler::Result ShaderCompiler::compile(const std::string& source, const std::string& name, ShaderStage stage) {
  Result r;
  fs::path cached;
  const shaderc_shader_kind kind = stage == ShaderStage::vertex     ? shaderc_vertex_shader
                                   : stage == ShaderStage::fragment ? shaderc_fragment_shader
                                                                    : shaderc_compute_shader;
  if (!cacheDir_.empty()) {
    cached = cacheDir_ / (hashOf(std::string(kOptionsTag) + std::to_string(int(kind)) + "\n" + source) + ".spv");
    std::ifstream in(cached, std::ios::binary);
    if (in) {
      std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
      if (!bytes.empty() && bytes.size() % 4 == 0) {
        r.spirv.resize(bytes.size() / 4);
        std::memcpy(r.spirv.data(), bytes.data(), bytes.size());
        if (r.spirv[0] == 0x07230203u) {
          r.fromCache = true;
          return r;
        }
        r.spirv.clear();
      }
    }
  }
  shaderc::Compiler compiler;
  auto res = compiler.CompileGlslToSpv(source, kind, name.c_str(), options());
  r.messages = res.GetErrorMessage();
  ++compiled_;
  if (res.GetCompilationStatus() != shaderc_compilation_status_success) return r;
  r.spirv.assign(res.cbegin(), res.cend());
  if (!cached.empty()) {
    // Write beside, then rename: a concurrent test process never reads half a file.
    std::error_code ec;
    fs::create_directories(cacheDir_, ec);
    const fs::path tmp = cached.string() + ".tmp" + std::to_string(reinterpret_cast<std::uintptr_t>(&r));
    {
      std::ofstream out(tmp, std::ios::binary);
      out.write(reinterpret_cast<const char*>(r.spirv.data()), std::streamsize(r.spirv.size() * 4));
    }
    fs::rename(tmp, cached, ec);
    if (ec) fs::remove(tmp, ec);
  }
  return r;
}

ShaderCompiler::Result ShaderCompiler::check(const std::string& source, const std::string& name) {
  Result r;
  shaderc::Compiler compiler;
  auto res = compiler.CompileGlslToSpv(source, shaderc_compute_shader, name.c_str(), options());
  r.messages = res.GetErrorMessage();
  if (res.GetCompilationStatus() == shaderc_compilation_status_success) r.spirv.assign(res.cbegin(), res.cend());
  return r;
}

}  // namespace ombrik::gpu
