// Stills through OpenImageIO: linear EXR arrives sRGB-encoded; our own EXR and other formats as stored.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>
#include <cmath>

#include "../platform/temp_dir.h"
#include "engine/half_float.h"
#include "engine/source_picture.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

// A 2x1 RGBA picture of two colours, written in the given format and colour space tag.
fs::path write(const fs::path& path, const char* format, OIIO::TypeDesc type, const float (&px)[8], const char* space) {
  auto out = OIIO::ImageOutput::create(format);
  OIIO::ImageSpec spec(2, 1, 4, type);
  spec.attribute("oiio:UnassociatedAlpha", 1);
  if (space) spec.attribute(kEncodingAttribute, space);
  if (!out->open(path.string(), spec) || !out->write_image(OIIO::TypeDesc::FLOAT, px) || !out->close()) return {};
  return path;
}

// The reference curve, written out separately from the one under test.
double srgb(double x) {
  const double a = std::abs(x);
  const double e = a <= 0.0031308 ? 12.92 * a : 1.055 * std::pow(a, 1 / 2.4) - 0.055;
  return x < 0 ? -e : e;
}

}  // namespace

TEST(StillLoad, LinearExrIsEncodedAndTaggedFilesAreNot) {
  TempDir dir;
  const float px[8] = {0.18f, 2.0f, -0.05f, 1.0f, 0.001f, 0.5f, 1.0f, 1.0f};
  const fs::path linear = write(dir.path / "lin.exr", "openexr", OIIO::TypeDesc::HALF, px, nullptr);
  const fs::path tagged = write(dir.path / "srgb.exr", "openexr", OIIO::TypeDesc::HALF, px, "sRGB");
  const fs::path tiff = write(dir.path / "plate.tif", "tiff", OIIO::TypeDesc::FLOAT, px, nullptr);
  ASSERT_FALSE(linear.empty() || tagged.empty() || tiff.empty());

  auto lin = SourcePicture::load(linear);
  ASSERT_TRUE(lin);
  ASSERT_EQ(lin->width, 2);
  for (int i = 0; i < 8; ++i) {
    const double in = halfToFloat(floatToHalf(px[i]));  // the file holds halves
    const double want = i % 4 == 3 ? in : srgb(in);     // alpha is never encoded
    EXPECT_NEAR(halfToFloat((*lin->rgba)[i]), want, std::abs(want) * 2e-3 + 1e-4) << i;
  }
  EXPECT_GT(halfToFloat((*lin->rgba)[1]), 1.3f) << "highlights over 1 survive";
  EXPECT_LT(halfToFloat((*lin->rgba)[2]), -0.2f) << "negative values keep their sign";

  for (const auto& file : {tagged, tiff}) {
    auto p = SourcePicture::load(file);
    ASSERT_TRUE(p) << file;
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(halfToFloat((*p->rgba)[i]), px[i], std::abs(px[i]) * 1e-3 + 1e-4) << file << " " << i;
  }
}
