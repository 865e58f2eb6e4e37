#include "engine/kernel_library.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <future>
#include <map>
#include <thread>

#include "engine/shader_sources.h"
#include "gpu/device.h"
#include "gpu/shader_compiler.h"
#include "graph/node_kind.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

// Kernels live one per file: base/ (frame kernels), fx/ and fx_more/ (the two effect sources),
// platform/ (the engine's own passes: blur, rescale, conform).
struct Library {
  std::map<std::string, std::string> kernels;  // name -> file text
  std::string joined() const {
    std::string s;
    for (const auto& [name, text] : kernels) s += text + "\n";
    return s;
  }
};

std::string textOf(const std::vector<ShaderFile>& files, std::string_view path) {
  for (const auto& f : files)
    if (f.path == path) return std::string(f.text);
  return {};
}
std::string prelude(const std::vector<ShaderFile>& files = shaderFiles()) { return textOf(files, "prelude.glsl"); }
// The effects' header: the prelude and the FX convention.
std::string effectHeader(const std::vector<ShaderFile>& files = shaderFiles()) {
  return prelude(files) + "\n" + textOf(files, "fx_convention.glsl") + "\n";
}

Library library(std::string_view folder, const std::vector<ShaderFile>& files = shaderFiles()) {
  Library lib;
  const std::string prefix = std::string(folder) + "/";
  for (const auto& f : files) {
    if (f.path.substr(0, prefix.size()) != prefix || !f.path.ends_with(".comp")) continue;
    std::string name(f.path.substr(prefix.size()));
    name.resize(name.size() - 5);
    lib.kernels.emplace(name, std::string(f.text));
  }
  return lib;
}

std::string program(const std::string& pre, const std::string& body, const std::string& entry) {
  return pre + "\n#line 1 1\n" + body + "\nvoid main() { " + entry + "(); }\n";
}

void appendLog(const fs::path& log, const std::string& text) {
  if (log.empty()) return;
  std::ofstream out(log, std::ios::app);
  out << text;
  if (!text.empty() && text.back() != '\n') out << '\n';
}

// A whole library parses as one text; a passing check is remembered so a warm start skips it.
gpu::ShaderCompiler::Result checkLibrary(gpu::ShaderCompiler& compiler, const fs::path& cacheDir,
                                         const std::string& text, const std::string& name) {
  const std::string source = text + "\nvoid main() {}\n";
  const fs::path marker = cacheDir.empty() ? fs::path() : cacheDir / (gpu::ShaderCompiler::hashOf(source) + ".ok");
  std::error_code ec;
  if (!marker.empty() && fs::exists(marker, ec)) {
    gpu::ShaderCompiler::Result ok;
    ok.spirv = {0x07230203u};
    return ok;
  }
  auto result = compiler.check(source, name);
  if (result.ok() && !marker.empty()) {
    fs::create_directories(cacheDir, ec);
    std::ofstream(marker) << "ok\n";
  }
  return result;
}

}  // namespace

const std::vector<std::string>& baseKernelNames() {
  static const std::vector<std::string> names = {
      "k_mask",       "k_color",     "k_bright",    "k_screen",     "k_grain",      "k_mattemix",  "k_shape",
      "k_matteop",    "k_maskblend", "k_xform",     "k_stabover",   "k_premultmatte", "k_mattemul", "k_alpha2gray",
      "k_mattecombine", "k_denoise", "k_renoise",   "k_resample",   "k_maskview",   "k_gkey",      "k_gkgrow",
      "k_gkpremult",  "k_mix2",      "k_patchover", "k_layer",      "k_beautypro",  "k_facewarp",  "k_dabmask",
      "k_hollowlift", "k_polymask",  "k_maskexcl",  "k_mvwarp",     "k_mvpremul",   "k_mvunpremul", "k_diffmatte",
      "k_lut3d",      "k_mattechatter", "k_viewquad", "k_matteshape", "k_morphlevel", "k_morphdisc"};
  return names;
}

std::string kernelProgram(const std::string& name) {
  for (const char* folder : {"base", "platform", "fx", "fx_more"}) {
    Library lib = library(folder);
    const bool effect = folder[0] == 'f';
    const std::string more = std::string(folder) == "fx_more" ? textOf(shaderFiles(), "fx_more_common.glsl") + "\n" : "";
    if (auto it = lib.kernels.find(name); it != lib.kernels.end())
      return program(effect ? effectHeader() + more : prelude(), it->second, name);
  }
  return {};
}

std::string userHeader() { return effectHeader(); }

std::optional<KernelSource> kernelSource(const std::string& name) {
  const char* folders[] = {"base", "platform", "fx", "fx_more"};
  const int levels[] = {0, 0, 1, 2};
  for (int i = 0; i < 4; ++i) {
    const std::string path = std::string(folders[i]) + "/" + name + ".comp";
    if (std::string text = textOf(shaderFiles(), path); !text.empty()) return KernelSource{text, levels[i]};
  }
  return std::nullopt;
}

std::string kernelHeader(int level) {
  if (level <= 0) return prelude();
  return effectHeader() + (level >= 2 ? textOf(shaderFiles(), "fx_more_common.glsl") + "\n" : "");
}

std::string effectConvention() { return textOf(shaderFiles(), "fx_convention.glsl"); }

KernelLibraryReport buildKernelLibrary(gpu::Device& device, const KernelLibraryOptions& options) {
  return buildKernelLibrary(device, options, shaderFiles());
}

KernelLibraryReport buildKernelLibrary(gpu::Device& device, const KernelLibraryOptions& options,
                                       const std::vector<ShaderFile>& files) {
  KernelLibraryReport report;
  gpu::ShaderCompiler compiler(options.cacheDir);
  const std::string pre = prelude(files);
  const Library base = library("base", files);
  const Library fx = library("fx", files);
  std::string log;

  // 1. The base kernels and the first effect source as one library, else the base alone.
  bool withFx = true;
  const std::string fxPre = effectHeader(files);
  auto joined = checkLibrary(compiler, options.cacheDir, fxPre + base.joined() + fx.joined(), "noyau");
  if (!joined.ok()) {
    log += joined.messages;
    withFx = false;
    auto alone = checkLibrary(compiler, options.cacheDir, pre + base.joined(), "noyau");
    if (!alone.ok()) {
      report.fatal = true;
      report.fatalMessage = "Erreur de compilation des shaders : " + alone.messages;
      appendLog(options.errorLog, log);
      return report;
    }
  }

  // 2. One pipeline per kernel: the fixed list, every catalogue kernel the library holds, and
  //    the engine's own passes. Compiles run in parallel; each is cached on its own.
  std::vector<std::pair<std::string, std::string>> jobs;  // name, program
  for (const auto& name : baseKernelNames())
    if (auto it = base.kernels.find(name); it != base.kernels.end()) jobs.emplace_back(name, program(pre, it->second, name));
    else report.failed.push_back(name);
  if (withFx)
    for (const auto& kind : NodeKind::all())
      if (kind->kernel)
        if (auto it = fx.kernels.find(*kind->kernel); it != fx.kernels.end())
          jobs.emplace_back(*kind->kernel, program(fxPre, it->second, *kind->kernel));
  const Library platform = library("platform", files);
  for (const auto& [name, text] : platform.kernels) jobs.emplace_back(name, program(pre, text, name));
  // The frame conversion at half size: the same kernel with its block made a constant.
  if (auto it = platform.kernels.find("g_yuv"); it != platform.kernels.end())
    jobs.emplace_back("g_yuv2", program(pre + "\n#define YUV_STEP 2\n", it->second, "g_yuv"));
  // 3. The second effect source, its own library after the user header; its failure is logged
  //    and leaves the rest running.
  const Library fxMore = library("fx_more", files);
  const std::string fxMorePre = fxPre + textOf(files, "fx_more_common.glsl") + "\n";
  if (!fxMore.kernels.empty()) {
    auto second = checkLibrary(compiler, options.cacheDir, fxMorePre + fxMore.joined(), "effets");
    if (!second.ok()) {
      log += "Effets (2e lot) : " + second.messages + "\n";
    } else {
      for (const auto& kind : NodeKind::fxMore())
        if (auto it = fxMore.kernels.find(*kind->kernel); it != fxMore.kernels.end())
          jobs.emplace_back(*kind->kernel, program(fxMorePre, it->second, *kind->kernel));
    }
  }

  std::vector<gpu::ShaderCompiler::Result> results(jobs.size());
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    gpu::ShaderCompiler local(options.cacheDir);
    for (std::size_t i; (i = next++) < jobs.size();) results[i] = local.compile(jobs[i].second, jobs[i].first);
  };
  const unsigned threads = std::max(1u, std::min<unsigned>(std::thread::hardware_concurrency(), 16));
  std::vector<std::thread> pool;
  for (unsigned t = 1; t < threads; ++t) pool.emplace_back(work);
  work();
  for (auto& t : pool) t.join();

  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const auto& [name, text] = jobs[i];
    auto& r = results[i];
    std::string error = r.messages;
    if (r.ok() && device.createPipeline(name, r.spirv, &error)) {
      (r.fromCache ? report.fromCache : report.compiled)++;
      continue;
    }
    log += "Pipeline " + name + " : " + error + "\n";
    report.failed.push_back(name);
  }

  // 4. The triangle pass of the mesh warp.
  {
    auto text = [&](std::string_view path) {
      for (const auto& f : files)
        if (f.path == path) return std::string(f.text);
      return std::string();
    };
    auto v = compiler.compile(text("render/m_vert.vert"), "m_vert", gpu::ShaderStage::vertex);
    auto f = compiler.compile(text("render/m_frag.frag"), "m_frag", gpu::ShaderStage::fragment);
    std::string error = v.messages + f.messages;
    if (!v.ok() || !f.ok() || !device.createTrianglePipeline("mesh", v.spirv, f.spirv, &error)) {
      log += "Pipeline mesh : " + error + "\n";
      report.failed.push_back("mesh");
    }
  }

  std::error_code ec;
  if (log.empty()) fs::remove(options.errorLog, ec);
  else {
    fs::remove(options.errorLog, ec);
    appendLog(options.errorLog, log);
  }
  return report;
}

}  // namespace ombrik
