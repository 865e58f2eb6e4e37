#pragma once
// The benchmarks' engine: on the device the environment picks (OMBRIK_GPU=cpu forces lavapipe),
// its kernels cached in the benchmark's own scratch folder; null with the reason printed.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "engine/engine.h"
#include "gpu/device.h"

namespace ombrik::bench {

inline std::unique_ptr<Engine> makeEngine(const std::filesystem::path& scratch) {
  std::string error;
  auto engine = Engine::create(gpu::Device::create(gpu::Device::preferenceFromEnvironment(), &error),
                               {scratch / "ShaderCache", scratch / "shader_error.log"}, &error);
  if (!engine) std::fprintf(stderr, "no engine: %s\n", error.c_str());
  return engine;
}

}  // namespace ombrik::bench
