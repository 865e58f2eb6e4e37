// The device layer and the engine's own passes on the CPU driver. (k_mix2 is checked in
// LayerKernels.MixTwoOnAllChannels, g_conform through EngineTest.ConformLetterboxesOddAspectRatiosCentred.)
#include <gtest/gtest.h>

#include <cmath>

#include "kernel_runner.h"

using namespace ombrik::test;

TEST(DevicePasses, UploadThenReadBackIsExact) {
  auto& k = KernelRunner::shared();
  Image in(13, 7);
  for (int y = 0; y < 7; ++y)
    for (int x = 0; x < 13; ++x) in.at(x, y) = {half(x / 13.f), half(y / 7.f), half(0.25f + 0.01f * ((x * 7 + y * 3) % 11)), 1};
  const Image zero = k.read(k.blank(5, 3));
  for (const auto& p : zero.px) EXPECT_EQ(p.r + p.g + p.b + p.a, 0.0f);  // a new texture starts black
  // Transfers of one size in turn reuse the staging memory of the ones before: each still
  // carries its own picture, never one left there.
  for (float scale : {1.0f, 2.0f, -1.0f, 0.5f}) {
    Image next = in;
    for (auto& p : next.px) p = {half(p.r * scale), half(p.g + scale - 1), p.b, 1.0f};
    const Image back = k.read(k.upload(next));
    ASSERT_EQ(back.w, 13);
    for (std::size_t i = 0; i < next.px.size(); ++i) {
      ASSERT_EQ(back.px[i].r, next.px[i].r) << scale;
      ASSERT_EQ(back.px[i].g, next.px[i].g) << scale;
      ASSERT_EQ(back.px[i].b, next.px[i].b) << scale;
    }
  }
}

TEST(DevicePasses, GaussianHalvesClampToTheEdge) {
  auto& k = KernelRunner::shared();
  Image in(12, 3, {0, 0, 0, 1});
  in.at(0, 1) = {1, 1, 1, 1};  // a lit pixel on the left border
  in.at(7, 1) = {1, 0, 0, 1};
  auto out = k.blank(12, 3);
  const float sigma = 1.5f;
  const int radius = 5;
  k.run("g_blurh", {k.upload(in), out}, {sigma, float(radius)});
  const Image r = k.read(out);
  double wsum = 0;
  for (int i = -radius; i <= radius; ++i) wsum += std::exp(-i * i / (2.0 * sigma * sigma));
  for (int x = 0; x < 12; ++x) {
    double expR = 0, expG = 0;
    for (int i = -radius; i <= radius; ++i) {
      const int sx = std::clamp(x + i, 0, 11);  // clamp-to-edge: the border pixel repeats
      const double w = std::exp(-i * i / (2.0 * sigma * sigma)) / wsum;
      expR += w * in.at(sx, 1).r;
      expG += w * in.at(sx, 1).g;
    }
    EXPECT_NEAR(r.at(x, 1).r, expR, 2e-3) << x;
    EXPECT_NEAR(r.at(x, 1).g, expG, 2e-3) << x;
    EXPECT_NEAR(r.at(x, 0).r, 0, 1e-6);  // horizontal only
  }
}
