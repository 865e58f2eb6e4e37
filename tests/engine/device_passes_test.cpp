// The device layer and the engine's own passes on the CPU driver.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel_runner.h"

using namespace ombrik::test;

namespace {
Image ramp(int w, int h) {
  Image im(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) im.at(x, y) = {half(x / float(w)), half(y / float(h)), half(0.25f + 0.01f * ((x * 7 + y * 3) % 11)), 1};
  return im;
}
}  // namespace

TEST(DevicePasses, UploadThenReadBackIsExact) {
  auto& k = KernelRunner::shared();
  const Image in = ramp(13, 7);
  const Image out = k.read(k.upload(in));
  ASSERT_EQ(out.w, 13);
  for (std::size_t i = 0; i < in.px.size(); ++i) {
    EXPECT_EQ(out.px[i].r, in.px[i].r);
    EXPECT_EQ(out.px[i].b, in.px[i].b);
  }
  const Image zero = k.read(k.blank(5, 3));
  for (const auto& p : zero.px) EXPECT_EQ(p.r + p.g + p.b + p.a, 0.0f);  // a new texture starts black
  // Transfers of one size in turn reuse the staging memory of the ones before: each still
  // carries its own picture, never one left there.
  for (float scale : {2.0f, -1.0f, 0.5f}) {
    Image next = in;
    for (auto& p : next.px) p = {half(p.r * scale), half(p.g + scale), half(p.b), 1.0f};
    const Image back = k.read(k.upload(next));
    for (std::size_t i = 0; i < next.px.size(); ++i) {
      ASSERT_EQ(back.px[i].r, next.px[i].r) << scale;
      ASSERT_EQ(back.px[i].g, next.px[i].g) << scale;
    }
  }
}

TEST(DevicePasses, MixTwoPicturesPerChannel) {
  auto& k = KernelRunner::shared();
  Image a(9, 5, {0.25f, 0.5f, 1.0f, 1.0f}), b(9, 5, {1.0f, 0.0f, 0.5f, 0.0f});
  b.at(3, 2) = {2.0f, -1.0f, 0.0f, 0.5f};  // values outside 0..1 survive
  auto out = k.blank(9, 5);
  k.run("k_mix2", {k.upload(a), k.upload(b), out}, {0.25f});
  const Image r = k.read(out);
  EXPECT_EQ(r.at(0, 0).r, half(0.25f + 0.75f * 0.25f - 0.0f * 0 + 0.0f));
  EXPECT_NEAR(r.at(0, 0).r, 0.4375f, 1e-3);
  EXPECT_NEAR(r.at(3, 2).r, 0.25f * 0.75f + 2.0f * 0.25f, 1e-3);
  EXPECT_NEAR(r.at(3, 2).g, 0.5f * 0.75f - 0.25f, 1e-3);
  EXPECT_NEAR(r.at(3, 2).a, 0.75f + 0.125f, 1e-3);
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

TEST(DevicePasses, ConformLetterboxesCentredOnBlack) {
  auto& k = KernelRunner::shared();
  // A 4x4 white square into an 8x4 comp: scale 1, centred with 2 black columns each side.
  Image in(4, 4, {1, 1, 1, 1});
  auto out = k.blank(8, 4);
  k.run("g_conform", {k.upload(in), out}, {1.0f, 2.0f, 0.0f});
  const Image r = k.read(out);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) {
      const bool inside = x >= 2 && x < 6;
      EXPECT_EQ(r.at(x, y).r, inside ? 1.0f : 0.0f) << x << "," << y;
      EXPECT_EQ(r.at(x, y).a, 1.0f);
    }
}
