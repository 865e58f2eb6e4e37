#pragma once
// Display transforms from an OpenColorIO config: the displays it offers and their views, and one
// display/view baked into a LutTable, so the viewer applies it through the same 3D-table pass as
// the world's LUT. A key names the config, the display, the view and the world's LUT to apply
// first; LUTLib::cached makes its table through bakeKey().
//
// The table's domain is 0..1 on each channel, like every viewing LUT: values beyond it are
// clamped before the lookup, so a view meant for scene-linear light above 1 loses its highlights.
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "color/lut_lib.h"

namespace ombrik {

struct OcioView {
  std::string display;
  std::string view;
  bool operator==(const OcioView&) const = default;
};

class OcioDisplay {
public:
  struct Display {
    std::string name;
    std::vector<std::string> views;
  };
  static constexpr std::string_view kPrefix = "ocio:";
  // 65 points put the grid on every 1/64: a gamma curve's trilinear error stays under 1e-4.
  static constexpr int kTableSize = 65;

  // The config named by $OCIO; nothing when the variable is unset or empty.
  static std::optional<std::filesystem::path> envConfig();

  // Reads and checks the config. When it can't be used, ok() is false, displays() is empty and
  // error() says "Configuration OCIO illisible : NAME (REASON)".
  explicit OcioDisplay(const std::filesystem::path& config);
  // The same, read once per process and path like the LUT tables (a config edited while running
  // needs a restart); nothing, with error()'s text in `error`, for one that can't be used, which
  // is not kept, so a repaired file is read again.
  static std::shared_ptr<const OcioDisplay> open(const std::filesystem::path& config, std::string* error = nullptr);
  ~OcioDisplay();
  OcioDisplay(const OcioDisplay&) = delete;
  OcioDisplay& operator=(const OcioDisplay&) = delete;

  bool ok() const { return config_ != nullptr; }
  const std::string& error() const { return error_; }
  const std::filesystem::path& path() const { return path_; }
  const std::vector<Display>& displays() const { return displays_; }
  bool offers(const OcioView& v) const;
  // The colour space our pixels are taken to be in: the config's "default" role (its space for
  // untagged pictures, which ours are), else "scene_linear", else its first colour space.
  const std::string& inputSpace() const { return input_; }

  // `under` (a LUTLib key, or empty) applied first, then the display/view, on a size³ grid over
  // 0..1. Nothing, with the reason in `error`, when OCIO can't build the transform.
  std::optional<LutTable> bake(const OcioView& v, int size, const LutTable* under, std::string* error = nullptr) const;

  // "ocio:" CONFIG US DISPLAY US VIEW US UNDER, US being the unit separator (0x1f), which no
  // path or display name has in practice.
  static std::string key(const std::filesystem::path& config, const OcioView& v, const std::string& under = "");
  static bool isKey(std::string_view key) { return key.starts_with(kPrefix); }
  // The table of a key made by key(), at kTableSize.
  static std::optional<LutTable> bakeKey(const std::string& key, std::string* error = nullptr);

private:
  struct Config;
  std::filesystem::path path_;
  std::unique_ptr<Config> config_;
  std::string error_, input_;
  std::vector<Display> displays_;
};

}  // namespace ombrik
