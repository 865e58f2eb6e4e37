// Building the kernel library: a warm start that compiles nothing, the fallback when an effect
// source fails, the error log, and the fatal case. One cache folder throughout, as in the app.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>

#include "../platform/temp_dir.h"
#include "engine/kernel_library.h"
#include "engine/shader_sources.h"
#include "gpu/device.h"
#include "graph/node_kind.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
std::unique_ptr<gpu::Device> cpuDevice() {
  std::string error;
  auto d = gpu::Device::create(gpu::DevicePreference::cpu, &error);
  if (!d) throw std::runtime_error(error);
  return d;
}
// The sources with `path` replaced by `text` (a literal: files hold views), or added at the end.
std::vector<ShaderFile> withFile(std::string_view path, std::string_view text) {
  std::vector<ShaderFile> files = shaderFiles();
  auto it = std::find_if(files.begin(), files.end(), [&](const ShaderFile& f) { return f.path == path; });
  if (it != files.end()) it->text = text;
  else files.push_back({path, text});
  return files;
}
}  // namespace

TEST(KernelLibrary, WarmStartsFallbacksLogsAndTheFatalCase) {
  TempDir dir;
  const KernelLibraryOptions options{dir.path / "cache", dir.path / "shader_error.log"};
  const fs::path& log = options.errorLog;
  auto cold = cpuDevice();
  const auto first = buildKernelLibrary(*cold, options);
  EXPECT_GT(first.compiled, 40);
  EXPECT_EQ(first.fromCache, 0);
  auto warm = cpuDevice();
  const auto second = buildKernelLibrary(*warm, options);
  EXPECT_EQ(second.compiled, 0) << "a warm start compiles nothing";
  EXPECT_EQ(second.fromCache, first.compiled);
  EXPECT_EQ(warm->pipelineCount(), cold->pipelineCount());
  EXPECT_TRUE(second.failed.empty());
  for (const auto& kind : NodeKind::fx()) EXPECT_TRUE(warm->hasPipeline(*kind->kernel)) << *kind->kernel;
  for (const auto& name : baseKernelNames()) EXPECT_TRUE(warm->hasPipeline(name)) << name;

  {  // A broken effect source falls back to the base kernels and logs the compiler's message.
    auto device = cpuDevice();
    const auto report =
        buildKernelLibrary(*device, options, withFile("fx/fx_broken.comp", "void fx_broken() {\n  float x = 1.0;\n  x = undefined_name;\n}\n"));
    EXPECT_FALSE(report.fatal);
    EXPECT_TRUE(device->hasPipeline("k_color") && device->hasPipeline("g_blurh"));
    const std::string text = slurp(log);
    EXPECT_TRUE(std::regex_search(text, std::regex(R"(noyau:\d+: error: .*undefined_name)"))) << text;
    // A later start whose sources compile removes the old log.
    auto again = cpuDevice();
    EXPECT_TRUE(buildKernelLibrary(*again, options).failed.empty());
    EXPECT_FALSE(fs::exists(log));
  }
  {  // Any broken file of the second effect source takes that library down, the first still runs.
    auto device = cpuDevice();
    const auto report = buildKernelLibrary(
        *device, options, withFile("fx_more/fx_zz_broken.comp", "void fx_zz_broken(FX_ARGS) { FX_BEGIN o.rgb = nothing_here; FX_END }\n"));
    EXPECT_FALSE(report.fatal);
    EXPECT_FALSE(device->hasPipeline("fx_shafts"));
    EXPECT_TRUE(device->hasPipeline("fx_comp"));
    EXPECT_EQ(slurp(log).rfind("Effets (2e lot) : ", 0), 0u) << slurp(log);
    auto again = cpuDevice();
    buildKernelLibrary(*again, options);
    EXPECT_TRUE(again->hasPipeline("fx_shafts"));
  }
  // A broken base source is fatal.
  auto device = cpuDevice();
  const auto report = buildKernelLibrary(*device, options, withFile("base/k_mix2.comp", "void k_mix2() { this is not glsl }\n"));
  EXPECT_TRUE(report.fatal);
  EXPECT_EQ(report.fatalMessage.rfind("Erreur de compilation des shaders : ", 0), 0u) << report.fatalMessage;
  EXPECT_NE(report.fatalMessage.find("error"), std::string::npos);
}
