// Building the kernel library: the fallback when the effect source fails, the error log, the
// fatal case, and a warm start that compiles nothing.
#include <gtest/gtest.h>

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
}  // namespace

TEST(KernelLibrary, BrokenEffectSourceFallsBackToTheBaseKernelsAndIsLogged) {
  TempDir dir;
  const fs::path log = dir.path / "shader_error.log";
  std::vector<ShaderFile> files = shaderFiles();
  const std::string broken = "void fx_broken() {\n  float x = 1.0;\n  x = undefined_name;\n}\n";
  files.push_back({"fx/fx_broken.comp", broken});
  auto device = cpuDevice();
  const auto report = buildKernelLibrary(*device, {dir.path / "cache", log}, files);
  EXPECT_FALSE(report.fatal);
  EXPECT_TRUE(device->hasPipeline("k_color"));
  EXPECT_TRUE(device->hasPipeline("g_blurh"));
  const std::string text = slurp(log);
  // The compiler's own message, in its "name:line: error: ..." form.
  EXPECT_TRUE(std::regex_search(text, std::regex(R"(noyau:\d+: error: .*undefined_name)"))) << text;

  // A later start whose sources compile removes the old log.
  auto again = cpuDevice();
  const auto ok = buildKernelLibrary(*again, {dir.path / "cache", log});
  EXPECT_TRUE(ok.failed.empty());
  EXPECT_FALSE(fs::exists(log));
}

TEST(KernelLibrary, ABrokenSecondEffectSourceLeavesTheRestRunning) {
  TempDir dir;
  const fs::path log = dir.path / "shader_error.log";
  std::vector<ShaderFile> files = shaderFiles();
  // Any broken file of the second source takes the whole second library down with it.
  files.push_back({"fx_more/fx_zz_broken.comp", "void fx_zz_broken(FX_ARGS) { FX_BEGIN o.rgb = nothing_here; FX_END }\n"});
  auto device = cpuDevice();
  const auto report = buildKernelLibrary(*device, {dir.path / "cache", log}, files);
  EXPECT_FALSE(report.fatal);
  EXPECT_FALSE(device->hasPipeline("fx_shafts"));
  EXPECT_TRUE(device->hasPipeline("fx_comp"));  // the first batch runs
  EXPECT_EQ(slurp(log).rfind("Effets (2e lot) : ", 0), 0u) << slurp(log);

  auto again = cpuDevice();
  buildKernelLibrary(*again, {dir.path / "cache", log});
  EXPECT_TRUE(again->hasPipeline("fx_shafts"));
}

TEST(KernelLibrary, BrokenBaseSourceIsFatal) {
  TempDir dir;
  std::vector<ShaderFile> files;
  for (const auto& f : shaderFiles())
    files.push_back(f.path == "base/k_mix2.comp" ? ShaderFile{f.path, "void k_mix2() { this is not glsl }\n"} : f);
  auto device = cpuDevice();
  const auto report = buildKernelLibrary(*device, {dir.path / "cache", dir.path / "shader_error.log"}, files);
  EXPECT_TRUE(report.fatal);
  EXPECT_EQ(report.fatalMessage.rfind("Erreur de compilation des shaders : ", 0), 0u) << report.fatalMessage;
  EXPECT_NE(report.fatalMessage.find("error"), std::string::npos);
}

TEST(KernelLibrary, WarmStartCompilesNothing) {
  TempDir dir;
  auto cold = cpuDevice();
  const auto first = buildKernelLibrary(*cold, {dir.path / "cache", dir.path / "log"});
  EXPECT_GT(first.compiled, 40);
  EXPECT_EQ(first.fromCache, 0);
  auto warm = cpuDevice();
  const auto second = buildKernelLibrary(*warm, {dir.path / "cache", dir.path / "log"});
  EXPECT_EQ(second.compiled, 0);
  EXPECT_EQ(second.fromCache, first.compiled);
  EXPECT_EQ(warm->pipelineCount(), cold->pipelineCount());
  EXPECT_TRUE(second.failed.empty());
  for (const auto& kind : NodeKind::fx()) EXPECT_TRUE(warm->hasPipeline(*kind->kernel)) << *kind->kernel;
  for (const auto& name : baseKernelNames()) EXPECT_TRUE(warm->hasPipeline(name)) << name;
}
