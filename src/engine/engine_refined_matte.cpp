// The refinement of AI mattes and the matte commands come in the next change.
#include "engine/engine.h"

namespace ombrik {
Engine::Tex Engine::refinedMatte(const Node&) { return nullptr; }
bool Engine::isLayeredMatte(const std::filesystem::path&) { return false; }
Engine::Tex Engine::diffMatte(const Tex&, const Tex&) { return nullptr; }
std::optional<std::array<double, 4>> Engine::matteBox(const Tex&) { return std::nullopt; }
Engine::Tex Engine::compositeLayers(const std::vector<Layer>&, const std::string&, std::array<double, 3>) { return nullptr; }
}  // namespace ombrik
