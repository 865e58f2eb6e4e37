#pragma once
// An engine on the CPU driver with small comps, and helpers to build graphs and read pixels.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "engine/engine.h"
#include "engine/half_float.h"
#include "gpu/device.h"
#include "graph/edge.h"
#include "graph/node.h"

namespace ombrik::test {

struct Px {
  float r, g, b, a;
};

class EngineTest : public ::testing::Test {
protected:
  static Engine& engine() {
    static std::unique_ptr<Engine> e = [] {
      std::string error;
      auto device = gpu::Device::create(gpu::DevicePreference::cpu, &error);
      if (!device) throw std::runtime_error(error);
      Engine::Options o;
      if (const char* s = std::getenv("OMBRIK_SUPPORT")) o.shaderCache = std::filesystem::path(s) / "ShaderCache";
      auto engine = Engine::create(std::move(device), o, &error);
      if (!engine) throw std::runtime_error(error);
      return engine;
    }();
    return *e;
  }

  void SetUp() override {
    Engine& e = engine();
    e.leanEval = false;
    e.alwaysEval.clear();
    e.viewAlphaOf.reset();
    e.pxScale = 1;
  }

  static Node node(const char* kind) { return Node(*NodeKind::find(kind)); }
  static Edge wire(const Node& from, const Node& to, int port = 0, int fromPort = 0) {
    return Edge{Uuid::generate(), from.id, to.id, port, fromPort};
  }
  // A flat picture of one colour, as a media source.
  static SourcePicture flat(int w, int h, Px c) {
    std::vector<float> v(std::size_t(w) * h * 4);
    for (std::size_t i = 0; i < v.size(); i += 4) v[i] = c.r, v[i + 1] = c.g, v[i + 2] = c.b, v[i + 3] = c.a;
    return SourcePicture::fromFloats(w, h, v);
  }
  // A media node showing `picture`, its source added to the engine.
  static Node mediaOf(const SourcePicture& picture) {
    Node n = node("media");
    n.mediaID = Uuid::generate();
    engine().addSource(picture, *n.mediaID);
    return n;
  }
  static Px at(const std::vector<float>& px, int w, int x, int y) {
    const float* p = &px[(std::size_t(y) * w + x) * 4];
    return {p[0], p[1], p[2], p[3]};
  }
  std::vector<float> pixels(const Uuid& id) {
    auto it = engine().outputs.find(id);
    if (it == engine().outputs.end()) return {};
    return engine().readPixels(it->second);
  }
};

inline float h16(float v) { return halfToFloat(floatToHalf(v)); }

}  // namespace ombrik::test
