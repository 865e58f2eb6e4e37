#pragma once
// The small OpenColorIO config the tests write: one display, "Moniteur", with a raw view and a
// graded one.
#include <filesystem>
#include <fstream>
#include <string>

namespace ombrik::test {

// A raw space and a "film" look: a CDL whose results stay inside 0..1 (its clamp would put a kink
// inside a table cell), then a 2.2 exponent. Raw is the default role: the space of our pixels.
inline constexpr const char* kOcioConfig = R"(ocio_profile_version: 2
roles:
  default: raw
  scene_linear: raw
file_rules:
  - !<Rule> {name: Default, colorspace: default}
displays:
  Moniteur:
    - !<View> {name: Brut, colorspace: raw}
    - !<View> {name: Film, colorspace: film}
colorspaces:
  - !<ColorSpace>
    name: raw
  - !<ColorSpace>
    name: film
    from_scene_reference: !<GroupTransform>
      children:
        - !<CDLTransform> {slope: [0.9, 0.8, 1], offset: [0.05, 0.1, 0], power: [1.1, 1, 0.9]}
        - !<ExponentTransform> {value: [2.2, 2.2, 2.2, 1]}
)";

inline std::filesystem::path writeText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path) << text;
  return path;
}

}  // namespace ombrik::test
