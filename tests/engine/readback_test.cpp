// Reading pictures back: colour picks, thumbnails, previews and the mask view.
#include <OpenImageIO/imageio.h>

#include "../platform/temp_dir.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
Engine::Tex quadrants(Engine& e) {
  // 8x4: left half (0.2, 0.4, 0.6), right half (1, 0, 0.5).
  static constexpr float left[] = {0.2f, 0.4f, 0.6f, 1}, right[] = {1, 0, 0.5f, 1};
  std::vector<float> v;
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) v.insert(v.end(), x < 4 ? left : right, (x < 4 ? left : right) + 4);
  e.setComp(8, 4, true);
  return e.conformed(SourcePicture::fromFloats(8, 4, v));
}
}  // namespace

TEST_F(EngineTest, ReadColorThumbnailsAndMaskViewOfAPicture) {
  Engine& e = engine();
  const auto t = quadrants(e);
  auto c = e.readColor(t, 0, 0, 1);  // 2x2 inside the left half
  ASSERT_TRUE(c);
  EXPECT_NEAR((*c)[0], 0.2f, 1e-3);
  EXPECT_NEAR((*c)[2], 0.6f, 1e-3);
  c = e.readColor(t, 4, 1, 1);  // columns 3..5: one left, two right
  ASSERT_TRUE(c);
  EXPECT_NEAR((*c)[0], (0.2f + 2 * 1.0f) / 3, 1e-3);
  EXPECT_NEAR((*c)[1], 0.4f / 3, 1e-3);
  EXPECT_FALSE(e.readColor(t, 20, 20, 2));  // the square misses the texture
  const auto small = e.snapshotScaled(t, 4, 2);
  ASSERT_EQ(small->format(), gpu::Format::rgba8Unorm);
  c = e.readColor(small, 3, 1, 0);
  ASSERT_TRUE(c);
  EXPECT_NEAR((*c)[2], 0.5f, 1.0f / 255);
  EXPECT_EQ(e.snapshotScaled(t, 0, 0)->width(), 1);

  // Thumbnails scale to their longer side.
  const auto px = e.thumbPixels(t, 2, 1);
  ASSERT_EQ(px.size(), 2u);
  EXPECT_NEAR(px[0][1], 0.4f, 1e-3);
  EXPECT_NEAR(px[1][0], 1.0f, 1e-3);
  const auto big = e.thumbnail(t, 16);  // enlarges
  ASSERT_TRUE(big);
  EXPECT_EQ(big->width, 16);
  EXPECT_EQ(big->height, 8);
  EXPECT_EQ((*big->rgba)[0], 51);  // 0.2 * 255, left column
  TempDir dir;
  ASSERT_TRUE(e.writePreview(t, dir.path / "p.png", 100));  // never enlarges
  auto in = OIIO::ImageInput::open((dir.path / "p.png").string());
  ASSERT_TRUE(in);
  EXPECT_EQ(in->spec().width, 8);
  EXPECT_EQ(in->spec().height, 4);

  // The mask view darkens and tints the outside.
  std::vector<float> m(8 * 4 * 4, 1.0f);
  for (int y = 0; y < 4; ++y)
    for (int x = 4; x < 8; ++x) m[(y * 8 + x) * 4] = 0;  // outside on the right
  const auto view = e.maskView(e.conformed(SourcePicture::fromFloats(8, 4, m)), t);
  const auto inside = e.readColor(view, 1, 1, 0), outside = e.readColor(view, 6, 1, 0);
  ASSERT_TRUE(inside && outside);
  EXPECT_NEAR((*inside)[1], 0.4f, 1.0f / 255);
  // m = 0: b * 0.35 + (0.18, 0.02, 0.03), saturated
  EXPECT_NEAR((*outside)[0], std::min(1.0f, 0.35f + 0.18f), 1.0f / 255);
  EXPECT_NEAR((*outside)[1], 0.02f, 1.0f / 255);
  EXPECT_NEAR((*outside)[2], 0.5f * 0.35f + 0.03f, 1.0f / 255);
}
