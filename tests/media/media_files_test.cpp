// What counts as media, and what folders give.
#include <gtest/gtest.h>

#include <fstream>

#include "../platform/temp_dir.h"
#include "media/media_files.h"

using namespace ombrik;
namespace fs = std::filesystem;

TEST(MediaFiles, ExtensionsCountAndFoldersGiveTheirMediaSortedAndCapped) {
  for (const char* yes : {"a.MOV", "b.mp4", "c.Tiff", "d.exr", "e.dpx", "f.heic", "g.jpeg", "h.avi", "i.mkv", "j.mxf"})
    EXPECT_TRUE(countsAsMedia(yes)) << yes;
  for (const char* no : {"a.txt", "b", "c.tarvom", ".mov", "d.cube", "e.mov.bak"}) EXPECT_FALSE(countsAsMedia(no)) << no;
  EXPECT_TRUE(isMovieFile("clip.M4V"));
  EXPECT_FALSE(isMovieFile("still.png"));

  TempDir dir;
  // 3000 files in two levels, with hidden ones and other files around them.
  for (int i = 2999; i >= 0; --i) touch(dir.path / (i % 2 ? "b" : "a") / ("shot_" + std::to_string(10000 + i) + ".png"));
  touch(dir.path / ".hidden" / "z.png");
  touch(dir.path / "a" / ".x.png");
  touch(dir.path / "a" / "notes.txt");
  auto all = mediaFiles(dir.path, 5000);
  EXPECT_EQ(all.size(), 3000u);
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
  for (const auto& p : all) EXPECT_EQ(p.string().find("/."), std::string::npos) << p;
  auto capped = mediaFiles(dir.path, 2000);
  EXPECT_EQ(capped.size(), 2000u);
  EXPECT_TRUE(std::is_sorted(capped.begin(), capped.end()));

  // Folders expand (capped at 2000), media files stay in order, other files go.
  touch(dir.path / "loose.mov");
  touch(dir.path / "readme.md");
  auto expanded = expandMedia({dir.path / "loose.mov", dir.path / "readme.md", dir.path / "a", dir.path / "missing"});
  ASSERT_EQ(expanded.size(), 1u + 1500u);
  EXPECT_EQ(expanded.front(), dir.path / "loose.mov");
  EXPECT_EQ(expanded[1], dir.path / "a" / "shot_10000.png");
  EXPECT_EQ(expandMedia({dir.path}).size(), 2000u);
}
