// Seed grids inside ellipse placements and polygons.
#include <gtest/gtest.h>

#include <cmath>

#include "tracking/roto.h"
#include "tracking/track_seeds.h"

using namespace ombrik;

TEST(TrackSeeds, EllipseSeedsLieInsideTheRotatedEllipseAndOnTheImage) {
  const double W = 1920, H = 1080;
  struct Case {
    MaskKey key;
    std::size_t min, max;
  };
  // 100 asked: an 11 x 11 grid, about π/4 of it inside; at the left edge about half is off the image.
  const Case cases[] = {{{50, 50, 20, 10, 30}, 80, 100}, {{0, 50, 20, 10, 0}, 35, 55}};
  for (const Case& c : cases) {
    const auto seeds = seedPoints(c.key, W, H, 100);
    EXPECT_GE(seeds.size(), c.min);
    EXPECT_LE(seeds.size(), c.max);
    const double a = c.key.rot * M_PI / 180;
    for (const Point& s : seeds) {
      EXPECT_TRUE(s.x >= 0 && s.x < 1 && s.y >= 0 && s.y < 1);
      const double dx = s.x * W - c.key.cx / 100 * W, dy = s.y * H - c.key.cy / 100 * H;
      const double u = (dx * std::cos(a) + dy * std::sin(a)) / (c.key.rx / 100 * W * 0.92);
      const double v = (dy * std::cos(a) - dx * std::sin(a)) / (c.key.ry / 100 * H * 0.92);
      EXPECT_LE(u * u + v * v, 1 + 1e-9);
    }
  }
}

TEST(TrackSeeds, PolygonSeedsFillTheShapeAndRefineWhenTooFewLand) {
  const std::vector<Point> ell = {{0.1, 0.1}, {0.5, 0.1}, {0.5, 0.3}, {0.3, 0.3}, {0.3, 0.5}, {0.1, 0.5}};
  const std::vector<Point> square = {{0.2, 0.2}, {0.6, 0.2}, {0.6, 0.6}, {0.2, 0.6}};
  // Mostly off the image: 4 passes (g 10, 14, 19, 25), the last keeping 2 columns of 25.
  const std::vector<Point> offImage = {{0.9, 0.2}, {1.9, 0.2}, {1.9, 0.6}, {0.9, 0.6}};
  struct Case {
    const std::vector<Point>* poly;
    std::size_t count;
    const char* what;
  };
  const Case cases[] = {{&ell, 75, "L: the notch's 5 x 5 cells left out"},
                        {&square, 100, "square: the whole first grid"},
                        {&offImage, 50, "off the image"}};
  for (const Case& c : cases) {
    const auto seeds = seedPoints(*c.poly, 1920, 1080, 100);
    EXPECT_EQ(seeds.size(), c.count) << c.what;
    for (const Point& s : seeds) {
      EXPECT_TRUE(Roto::contains(*c.poly, s)) << c.what;
      EXPECT_TRUE(s.x < 1 && s.y < 1) << c.what;
      EXPECT_FALSE(s.x > 0.3 && s.y > 0.3 && c.poly == &ell) << "in the notch";
    }
  }
  EXPECT_TRUE(seedPoints(std::vector<Point>{{0.1, 0.1}, {0.5, 0.5}}, 1920, 1080, 100).empty());
}
