#pragma once
// Colour tables for viewing camera log footage: ".cube" files, a generic table for each known
// log curve, the guess of a clip's curve, and a CPU path for thumbnails. A key is "auto:" and a
// curve id, an OpenColorIO display/view (ocio_display.h), or the path of a ".cube" file. Only
// viewing (and renders on demand) goes through a table: the graph stays in the colours of the
// source.
//
// lut_lib.cpp: the cache, generic tables, labels, the CPU path; lut_cube.cpp: reading files;
// lut_detect.cpp: the guess from a clip's names and pictures.
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "graph/picture.h"

namespace ombrik {

// n × n × n entries of (r, g, b, 1), red varying fastest, then green, then blue.
struct LutTable {
  int size = 0;
  std::vector<float> values;  // 4 n³ floats

  // The trilinear lookup the GPU pass makes: each channel clamped to 0..1, 0 and 1 landing on the
  // first and last entries.
  std::array<float, 3> lookup(float r, float g, float b) const;
};

class LUTLib {
public:
  struct Generic {
    std::string id;
    std::string label;
  };
  // The eight curves, in menu order.
  static const std::vector<Generic>& generics();
  static constexpr std::string_view kAutoPrefix = "auto:";
  static constexpr int kGenericSize = 33;
  // Larger cubes are refused: 256³ entries already take 256 MiB as floats.
  static constexpr int kMaxSize = 256;
  // Larger files are refused before reading: a 256³ cube as text is about 450 MB.
  static constexpr std::uintmax_t kMaxFileBytes = 512u << 20;

  // The table of a key, made or read on first use and kept for the life of the process (a changed
  // file needs a restart or a new name). Nothing for an unreadable file, with the reason in
  // `error`; a failure is not kept, so a repaired file is read again.
  static std::shared_ptr<const LutTable> cached(const std::string& key, std::string* error = nullptr);

  // The table of curve `id` (an unknown id decodes as identity): decode, gamut matrix to Rec.709,
  // a filmic tone curve at 0.6 exposure, gamma 2.4. `size` is kept within 2..kMaxSize.
  static LutTable generic(const std::string& id, int size);

  // A ".cube" file: a 3D table, or a 1D table turned into a 33³ cube. Nothing for a broken file,
  // with "LUT illisible : NAME (REASON)" in `error`.
  static std::optional<LutTable> parseCube(const std::filesystem::path& path, std::string* error = nullptr);

  // The badge: nothing for no key or an empty one, the curve's short label for "auto:<id>",
  // else "LUT". (`short` is a keyword.)
  static std::optional<std::string> short_(const std::optional<std::string>& key);

  // The generic key for a clip when it looks like log and its name or metadata names a known
  // camera; else nothing.
  static std::optional<std::string> detect(const std::filesystem::path& url);
  // The key of the first word group found in `text` (lower case); nothing when none is.
  static std::optional<std::string> keyForText(std::string_view text);
  // Lifted blacks, low contrast and low saturation in at least half the frames read at 0.2, 0.5
  // and 0.8 of the clip (one frame at 0 for a clip of 0.5 s or less), at most 160 px a side.
  static bool looksLog(const std::filesystem::path& url);

  struct FrameStats {
    double p1 = 0, p99 = 0;  // luminance percentiles, 0..1
    double chroma = 0;       // mean of the largest minus the smallest channel
    bool logLike() const { return p1 > 0.045 && p99 - p1 < 0.78 && chroma < 0.24; }
  };
  // Statistics of an 8-bit RGBA picture; nothing when it has no pixels.
  static std::optional<FrameStats> frameStats(const Picture& picture);

  // The table applied to an 8-bit picture (thumbnails), trilinear on the sRGB-encoded values;
  // the picture unchanged for no key, an empty key or no table.
  static Picture apply(const Picture& picture, const std::optional<std::string>& key);
};

}  // namespace ombrik
