// boxes.json of an Objet IA node: read, one box removed, broken files refused untouched.
#include <gtest/gtest.h>

#include "../platform/temp_dir.h"
#include "ai/object_boxes.h"

using namespace ombrik;
namespace fs = std::filesystem;

TEST(ObjectBoxes, ReadsAndRemovesOneBox) {
  TempDir dir;
  const fs::path file = dir.path / "boxes.json";
  std::ofstream(file) << R"({"frame": 3, "boxes": [[0.1, 0.2, 0.3, 0.4, 0.874], [0.5, 0.5, 0.6, 0.7], [0, 0, 1, 1, 0.3]]})";
  const std::optional<ObjectBoxes> b = objectBoxes(file);
  ASSERT_TRUE(b);
  EXPECT_EQ(b->frame, 3);
  ASSERT_EQ(b->boxes.size(), 3u);
  EXPECT_EQ(confidenceText(b->boxes[0]), " · confiance 87 %");
  EXPECT_EQ(confidenceText(b->boxes[1]), "");

  EXPECT_EQ(removeBox(file, 0), std::nullopt);
  const std::optional<ObjectBoxes> left = objectBoxes(file);
  ASSERT_TRUE(left);
  EXPECT_EQ(left->frame, 3);
  EXPECT_EQ(left->boxes, (std::vector<std::vector<double>>{{0.5, 0.5, 0.6, 0.7}, {0, 0, 1, 1, 0.3}}));

  const std::string before = slurp(file);
  EXPECT_EQ(removeBox(file, 2), std::string("Objet IA : ce cadre n'existe plus."));
  EXPECT_EQ(slurp(file), before);
}

TEST(ObjectBoxes, BrokenFilesAreRefusedAndLeftAsTheyWere) {
  TempDir dir;
  const fs::path file = dir.path / "boxes.json";
  for (const std::string text : {"{not json", "[]", R"({"frame": "3", "boxes": []})", R"({"frame": 1})",
                                 R"({"frame": 1, "boxes": [[1, 2, 3]]})", R"({"frame": 1, "boxes": [[1, 2, 3, "x"]]})",
                                 R"({"frame": 1, "boxes": [[1, 2, 3, 4, 5, 6]]})"}) {
    std::ofstream(file, std::ios::trunc) << text;
    std::string why;
    EXPECT_FALSE(objectBoxes(file, &why)) << text;
    EXPECT_EQ(why.rfind("boxes.json illisible : ", 0), 0u) << why;
    EXPECT_EQ(removeBox(file, 0), why);
    EXPECT_EQ(slurp(file), text);
  }
  fs::remove(file);
  EXPECT_TRUE(removeBox(file, 0));
  EXPECT_FALSE(fs::exists(file));
}
