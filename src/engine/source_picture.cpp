#include "engine/source_picture.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <cmath>

#include "engine/half_float.h"

namespace ombrik {

float linearToSRGB(float v) {
  const float a = std::fabs(v);
  const float e = a <= 0.0031308f ? 12.92f * a : 1.055f * std::pow(a, 1.0f / 2.4f) - 0.055f;
  return std::copysign(e, v);
}

SourcePicture SourcePicture::fromFloats(int width, int height, const std::vector<float>& rgba) {
  auto halves = std::make_shared<std::vector<std::uint16_t>>(rgba.size());
  std::transform(rgba.begin(), rgba.end(), halves->begin(), floatToHalf);
  return {width, height, std::move(halves)};
}

std::optional<SourcePicture> SourcePicture::load(const std::filesystem::path& path, std::string* error) {
  auto fail = [&](const std::string& why) -> std::optional<SourcePicture> {
    if (error) *error = why;
    return std::nullopt;
  };
  const std::string name = path.filename().string();
  // Only regular files: a pipe or a device would block or never end.
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return fail("Image illisible : " + name + " (ce n'est pas un fichier ordinaire)");
  auto in = OIIO::ImageInput::open(path.string());
  if (!in) {
    const bool empty = std::filesystem::file_size(path, ec) == 0 && !ec;
    return fail("Image illisible : " + name + (empty ? " (fichier vide)" : " (pas une image ni un film)"));
  }
  const OIIO::ImageSpec spec = in->spec();
  const int w = spec.width, h = spec.height, nc = spec.nchannels;
  if (w < 1 || h < 1 || nc < 1) return fail("Image illisible : " + name + " (image sans pixels)");
  // Refused from the header, before anything is decoded: past 8K UHD the comp (4096 at most) can't
  // use the detail, and a file may claim a size its few bytes will never fill.
  if (std::int64_t(w) * h > (std::int64_t(1) << 25) || w > 16384 || h > 16384)
    return fail("Image illisible : " + name + " (image trop grande : " + std::to_string(w) + " × " + std::to_string(h) + ")");
  // Working values are sRGB-encoded. An EXR holds linear light unless its header says otherwise
  // (ours, written from the working values, carry kEncodingAttribute): its colours are encoded on
  // the way in, with the curve extended beyond 0..1 so highlights survive.
  const bool linear = std::string(in->format_name()) == "openexr" &&
                      !OIIO::Strutil::iequals(spec.get_string_attribute(kEncodingAttribute), "sRGB");
  auto encode = [&](float v) { return linear ? linearToSRGB(v) : v; };

  // Decoded a strip of rows at a time and averaged down to what the comp can show (the same
  // size the comp takes from it): memory follows the comp, never the file's claims.
  const double s = std::min(1.0, double(kMaxSourceSide) / std::max(w, h));
  const int ow = std::max(1, int(s * w)), oh = std::max(1, int(s * h));
  auto halves = std::make_shared<std::vector<std::uint16_t>>(std::size_t(ow) * oh * 4);
  std::vector<int> column(w);
  for (int x = 0; x < w; ++x) column[x] = int(std::int64_t(x) * ow / w);
  std::vector<float> sum(std::size_t(ow) * 4);
  std::vector<int> count(ow);
  int row = 0;  // the output row being summed
  auto flush = [&] {
    for (int x = 0; x < ow; ++x)
      for (int c = 0; c < 4; ++c)
        (*halves)[(std::size_t(row) * ow + x) * 4 + c] = floatToHalf(count[x] ? sum[x * 4 + c] / float(count[x]) : 0.f);
    std::fill(sum.begin(), sum.end(), 0.f);
    std::fill(count.begin(), count.end(), 0);
  };
  constexpr int kStrip = 32;
  std::vector<float> strip(std::size_t(w) * kStrip * nc);
  for (int y0 = 0; y0 < h; y0 += kStrip) {
    const int y1 = std::min(h, y0 + kStrip);
    // OpenImageIO associates alpha on reading: the picture arrives premultiplied.
    if (!in->read_scanlines(0, 0, spec.y + y0, spec.y + y1, 0, 0, nc, OIIO::TypeDesc::FLOAT, strip.data()))
      return fail("Image illisible : " + name + " (données tronquées ou corrompues)");
    for (int y = y0; y < y1; ++y) {
      const int target = int(std::int64_t(y) * oh / h);
      if (target != row) flush(), row = target;
      const float* line = &strip[std::size_t(y - y0) * w * nc];
      for (int x = 0; x < w; ++x) {
        const float* p = line + std::size_t(x) * nc;
        const float r = encode(p[0]), g = nc >= 3 ? encode(p[1]) : r, b = nc >= 3 ? encode(p[2]) : r;
        const float a = nc == 2 ? p[1] : nc >= 4 ? p[3] : 1.0f;
        float* acc = &sum[std::size_t(column[x]) * 4];
        acc[0] += r, acc[1] += g, acc[2] += b, acc[3] += a;
        ++count[column[x]];
      }
    }
  }
  flush();
  return SourcePicture{ow, oh, std::move(halves)};
}

SourcePicture SampleImage::make(int width, int height) {
  struct Blob {
    float x, y, r, cr, cg, cb;
  };
  // Positions and radii as fractions of the height, so any size draws the same picture.
  static constexpr Blob blobs[] = {{0.62f, 0.52f, 0.30f, 0.86f, 0.62f, 0.50f},
                                   {0.38f, 0.40f, 0.18f, 0.35f, 0.55f, 0.80f},
                                   {1.25f, 0.30f, 0.22f, 0.95f, 0.80f, 0.45f},
                                   {0.95f, 0.80f, 0.14f, 0.55f, 0.75f, 0.50f},
                                   {1.45f, 0.72f, 0.10f, 0.90f, 0.40f, 0.45f}};
  std::vector<float> rgba(std::size_t(width) * height * 4);
  const float hs = float(height);
  for (int y = 0; y < height; ++y) {
    const float t = (y + 0.5f) / hs;
    for (int x = 0; x < width; ++x) {
      float r = 0.16f - 0.11f * t, g = 0.17f - 0.12f * t, b = 0.22f - 0.15f * t;
      for (const auto& s : blobs) {
        const float dx = (x + 0.5f) / hs - s.x, dy = t - s.y;
        const float d = std::sqrt(dx * dx + dy * dy) / s.r;
        const float k = 0.85f * std::clamp(1.0f - d * d, 0.0f, 1.0f) * std::clamp(1.0f - d * d, 0.0f, 1.0f);
        r += (s.cr - r) * k, g += (s.cg - g) * k, b += (s.cb - b) * k;
      }
      float* p = &rgba[(std::size_t(y) * width + x) * 4];
      p[0] = r, p[1] = g, p[2] = b, p[3] = 1.0f;
    }
  }
  return SourcePicture::fromFloats(width, height, rgba);
}

}  // namespace ombrik
