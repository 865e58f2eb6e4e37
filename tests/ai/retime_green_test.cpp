// The Vitesse time map and its signature; the keyer's screen colour.
#include <gtest/gtest.h>

#include <random>

#include "ai/green_detect.h"
#include "ai/retime_map.h"

using namespace ombrik;

TEST(RetimeMap, BySpeedAndBySourceFrame) {
  auto constant = [](double v) { return [v](int) { return v; }; };
  struct Case {
    RetimeParams params;
    std::vector<double> head;  // the map starts so
    std::size_t size;
  };
  for (const Case& c : std::vector<Case>{
           {{0, constant(100), nullptr, 5, 0}, {0, 1, 2, 3, 4}, 5},
           {{0, constant(50), nullptr, 3, 1}, {1, 1.5, 2}, 3},
           {{0, constant(100), nullptr, 3, -4}, {0, 1, 2}, 3},
           {{0, [](int f) { return f == 0 ? 200.0 : 100.0; }, nullptr, 5, 0}, {0, 2, 3, 4}, 4},
           // 0 % still advances 0.01 a frame, and the map stops at 40 times the source's frames.
           {{0, constant(0), nullptr, 3, 0}, {0, 0.01, 0.02}, 120},
           {{0, constant(-50), nullptr, 100, 0}, {0, 0.01}, 4000},
           {{1, nullptr, [](int f) { return f * 2.0 - 1; }, 4, 0}, {0, 1, 3, 3}, 4},
           {{1, nullptr, constant(2.5), 0, 0}, {0}, 1},
       }) {
    const std::vector<double> map = retimeMap(c.params);
    ASSERT_EQ(map.size(), c.size) << c.params.n;
    for (std::size_t i = 0; i < c.head.size(); ++i) EXPECT_NEAR(map[i], c.head[i], 1e-9) << i;
  }
  EXPECT_EQ(retimeSig({0, 0.5, 1.123456}, "/a.mov"), "/a.mov|0.0000,0.5000,1.1235");
  EXPECT_NE(retimeSig({0, 0.5}, "/a.mov"), retimeSig({0, 0.5001}, "/a.mov"));
}

TEST(GreenKeyDetect, ScreenColourOfThePicture) {
  struct Case {
    float plate[3], patch[3];
    int patchPixels;  // of 100
    std::optional<GreenScreen> found;
    std::string status;
  };
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> grain(-0.02f, 0.02f);
  for (const Case& c : std::vector<Case>{
           {{0.1f, 0.8f, 0.2f}, {0.9f, 0.7f, 0.6f}, 10, GreenScreen{0, 0.1, 0.8, 0.2, 90},
            "Écran vert détecté (90 % de l'image) : R 0.10 · V 0.80 · B 0.20"},
           {{0.15f, 0.3f, 0.85f}, {0.2f, 0.9f, 0.1f}, 25, GreenScreen{1, 0.15, 0.3, 0.85, 75},
            "Écran bleu détecté (75 % de l'image) : R 0.15 · V 0.30 · B 0.85"},
           {{0.5f, 0.5f, 0.5f}, {0.5f, 0.5f, 0.5f}, 0, std::nullopt,
            "Pas d'écran vert ou bleu reconnu dans l'image : prenez sa couleur à la pipette (clic dans le viewer)."},
       }) {
    std::vector<float> px;
    for (int i = 0; i < 100; ++i) {
      const float* rgb = i < c.patchPixels ? c.patch : c.plate;
      // A grey plate with grain in each channel stays grey; the plates are clean.
      auto n = [&] { return c.found ? 0.0f : grain(rng); };
      px.insert(px.end(), {rgb[0] + n(), rgb[1] + n(), rgb[2] + n(), 1});
    }
    const std::optional<GreenScreen> got = greenKeyDetect(px.data(), 10, 10);
    ASSERT_EQ(got.has_value(), c.found.has_value()) << c.status;
    if (got) {
      EXPECT_EQ(got->screen, c.found->screen);
      EXPECT_EQ(got->percent, c.found->percent);
      EXPECT_NEAR(got->r, c.found->r, 1e-6);
      EXPECT_NEAR(got->g, c.found->g, 1e-6);
      EXPECT_NEAR(got->b, c.found->b, 1e-6);
    }
    EXPECT_EQ(greenKeyStatus(got), c.status);
  }
}
