#pragma once
// A decoded picture on the CPU, before it becomes a texture: half floats, premultiplied,
// row 0 on top. Stills come through OpenImageIO; the built-in sample is drawn here.
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ombrik {

// The comp's longest side: a source beyond it holds detail nothing can show.
inline constexpr int kMaxSourceSide = 4096;

// A video frame as its decoder gave it, for the device to convert: Y, Cb and Cr planes of 8-bit
// samples, or of 16-bit little-endian ones holding `bits` bits.
struct PlanarPicture {
  int chromaShiftX = 0, chromaShiftY = 0;  // 1 where chroma has half the luma's samples
  int bytesPerSample = 1;
  int bits = 8;
  bool fullRange = false;
  float kr = 0.2126f, kb = 0.0722f;  // the matrix's luma weights of red and blue
  std::array<std::shared_ptr<const std::vector<std::uint8_t>>, 3> planes;
  std::array<int, 3> strides{};  // bytes a row, a multiple of 4
};

struct SourcePicture {
  int width = 0;
  int height = 0;
  std::shared_ptr<const std::vector<std::uint16_t>> rgba;  // width * height * 4 halves
  // A clip's frame may come as planes instead (readers asked for them): only the device reads it.
  std::shared_ptr<const PlanarPicture> planar = nullptr;

  bool empty() const { return width < 1 || height < 1 || (!rgba && !planar); }
  static SourcePicture fromFloats(int width, int height, const std::vector<float>& rgba);
  // Any still OpenImageIO reads; nullopt with a message when it can't. A picture longer than
  // kMaxSourceSide arrives averaged down to it, as the comp would show it.
  static std::optional<SourcePicture> load(const std::filesystem::path& path, std::string* error = nullptr);
};

// The sRGB curve, extended to any value by symmetry and continuation: linear light to the
// working encoding.
float linearToSRGB(float v);
// The header attribute of the EXR files we write: their values are already sRGB-encoded
// (OpenEXR has no colour space field of its own, and OpenImageIO reports every EXR as linear).
inline constexpr const char* kEncodingAttribute = "ombrik:encoding";

// The built-in picture shown when a development start has no footage: a dark vertical
// gradient with soft round shapes, 1920 by 1080.
struct SampleImage {
  static SourcePicture make(int width = 1920, int height = 1080);
};

}  // namespace ombrik
