// The triangle pass the mesh warp draws with.
#include <gtest/gtest.h>

#include "gpu/device.h"
#include "kernel_runner.h"

using namespace ombrik::test;

TEST(MeshPass, TrianglesSampleTheSourceOverWhatTheTargetHolds) {
  auto& k = KernelRunner::shared();
  ASSERT_TRUE(k.has("mesh"));
  Image src(8, 8);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) src.at(x, y) = {half(x / 8.0f), half(y / 8.0f), 0.5f, 1};
  Image under(8, 8, {0, 0, 1, 1});
  auto target = k.upload(under);
  // The upper-left triangle of the square: its own texture coordinates, mirrored in x.
  const std::vector<float> tri = {0, 0, 1, 0, 1, 0, 0, 0, 0, 1, 1, 1};
  k.drawTriangles(k.upload(src), target, tri);
  const Image r = k.read(target);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      const bool inside = x + y < 7;  // pixel centres strictly above the diagonal
      if (x + y == 7) continue;       // on the edge: either rule is right
      if (!inside) {
        EXPECT_EQ(r.at(x, y).b, 1.0f) << x << "," << y;  // untouched
        continue;
      }
      // u = 1 - x', v = y' at the pixel centre: a mirrored, bilinear read of the source
      const float u = 1 - (x + 0.5f) / 8, v = (y + 0.5f) / 8;
      EXPECT_NEAR(r.at(x, y).r, std::clamp(u * 8 - 0.5f, 0.0f, 7.0f) / 8, 2e-3) << x << "," << y;
      EXPECT_NEAR(r.at(x, y).g, std::clamp(v * 8 - 0.5f, 0.0f, 7.0f) / 8, 2e-3) << x << "," << y;
      EXPECT_EQ(r.at(x, y).b, 0.5f);
    }
}
