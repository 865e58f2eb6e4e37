#pragma once
// Builds every compute pipeline at start: the base kernels, the effect kernels of the catalogue
// and the engine's own passes (blur, rescale, conform). SPIR-V is cached by source hash.
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ombrik {

namespace gpu {
class Device;
}

struct KernelLibraryOptions {
  std::filesystem::path cacheDir;  // SPIR-V cache; empty: no cache
  std::filesystem::path errorLog;  // "shader_error.log"
};

struct KernelLibraryReport {
  bool fatal = false;          // not even the base kernels compile
  std::string fatalMessage;    // "Erreur de compilation des shaders : …"
  int compiled = 0;            // pipelines compiled now
  int fromCache = 0;           // pipelines whose SPIR-V came from the cache
  std::vector<std::string> failed;  // kernels left without a pipeline
};

struct ShaderFile;
KernelLibraryReport buildKernelLibrary(gpu::Device& device, const KernelLibraryOptions& options);
// The same from other sources (the shipped ones with a change, in tests).
KernelLibraryReport buildKernelLibrary(gpu::Device& device, const KernelLibraryOptions& options,
                                       const std::vector<ShaderFile>& files);

// The fixed list of base kernels every engine has.
const std::vector<std::string>& baseKernelNames();
// The text a kernel compiles from: the prelude, its file, and a main that calls it. Empty if unknown.
std::string kernelProgram(const std::string& name);
// What a user kernel is written after: the prelude and the effect convention.
std::string userHeader();

// A shipped kernel's own file and what it is compiled after, in increasing order: 0 the
// prelude, 1 with the effect convention, 2 with the second effects' helpers too.
struct KernelSource {
  std::string text;
  int header = 0;
};
std::optional<KernelSource> kernelSource(const std::string& name);
std::string kernelHeader(int level);
std::string effectConvention();  // the text of the effect convention alone

}  // namespace ombrik
