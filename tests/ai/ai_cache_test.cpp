// The node result folders: names, counts, the guarded removal and the node a job writes for.
#include <gtest/gtest.h>

#include <fstream>

#include "../platform/temp_dir.h"
#include "ai/ai_cache.h"

using namespace ombrik;
namespace fs = std::filesystem;

TEST(AiCache, FolderAndFrameNames) {
  const Uuid id = *Uuid::parse("0a1b2c3d-0000-4000-8000-00000000abcd");
  EXPECT_EQ(magicDir("/p", id), fs::path("/p/Cache/0A1B2C3D-0000-4000-8000-00000000ABCD"));
  EXPECT_EQ(frameFile("/d", 42, "png"), fs::path("/d/00042.png"));
  EXPECT_EQ(frameFile("/d", 123456, ".dn"), fs::path("/d/123456.dn"));

  TempDir dir;
  for (const char* name : {"00000.png", "00001.png", "source.png", "00000.dn", "boxes.json"}) touch(dir.path / name);
  fs::create_directories(dir.path / "masks.png");
  EXPECT_EQ(countResultFrames(dir.path), 2);
  EXPECT_EQ(countResultFrames(dir.path / "missing"), 0);
}

TEST(AiCache, RemovalIsRefusedOutsideANodeFolderOfTheCache) {
  TempDir root;
  const fs::path project = root.path / "Proj", cache = project / "Cache", outside = root.path / "Outside";
  touch(outside / "keep.txt");
  touch(cache / "A" / "00000.png");
  touch(cache / "M" / "clip.mov");
  touch(cache / "M" / "sub" / "00000.png");
  touch(project / "Media" / "shot.mov");
  fs::create_directory_symlink(outside, cache / "L");
  const std::vector<fs::path> media{cache / "M" / "clip.mov", project / "Media" / "shot.mov"};

  struct Case {
    fs::path path;
    std::string reasonStart;
    fs::path stays;
  };
  const std::string refused = "Suppression refusée : ";
  for (const Case& c : std::vector<Case>{
           {cache / "A" / ".." / ".." / ".." / "Outside", refused + cache.string(), outside / "keep.txt"},
           {cache / "L", refused + (cache / "L").string() + " est hors", outside / "keep.txt"},
           {cache, refused + "c'est le dossier Cache", cache / "A" / "00000.png"},
           {cache / "A" / "..", refused + "c'est le dossier Cache", cache / "A" / "00000.png"},
           {cache / "M", refused + (cache / "M").string() + " contient un média", cache / "M" / "clip.mov"},
           {cache / "M" / "sub", refused + (cache / "M" / "sub").string() + " est dans un dossier",
            cache / "M" / "sub" / "00000.png"},
           {outside, refused + outside.string() + " est hors", outside / "keep.txt"},
           {project, refused + project.string() + " est hors", project / "Media" / "shot.mov"},
       }) {
    const std::optional<std::string> why = safeRemoveCache(c.path, project, media);
    ASSERT_TRUE(why) << c.path;
    EXPECT_EQ(why->rfind(c.reasonStart, 0), 0u) << *why;
    EXPECT_TRUE(fs::exists(c.stays)) << c.path;
  }
  EXPECT_TRUE(fs::is_symlink(cache / "L"));

  // A node's own folder goes, with what it holds; a media file elsewhere in the project is no bar.
  EXPECT_EQ(safeRemoveCache(cache / "A", project, media), std::nullopt);
  EXPECT_FALSE(fs::exists(cache / "A"));
  EXPECT_EQ(safeRemoveCache(cache / "A", project, media), std::nullopt);  // already gone: nothing to do
}

TEST(AiCache, JobNodeIsTheIdAfterACacheComponent) {
  const std::string a = "0A1B2C3D-0000-4000-8000-00000000ABCD", b = "11111111-2222-4333-8444-555555555555";
  struct Case {
    nlohmann::json job;
    std::optional<std::string> id;
  };
  for (const Case& c : std::vector<Case>{
           {{{"outdir", "/p/Cache/" + a}}, a},
           {{{"out", "/p/Cache/0a1b2c3d-0000-4000-8000-00000000abcd/00001.png"}}, a},
           {{{"out", "/p/Cache/x/00001.png"}, {"flowdir", "/p/Cache/" + b + "/mvflow"}}, b},
           {{{"out", "/p/Cache/" + b + "/x.png"}, {"outdir", "/p/Cache/" + a}}, a},  // outdir first
           {{{"outdir", "/Cache/x/Cache/" + b + "/masks"}}, b},
           {{{"out", "/tmp/" + a + "/x.png"}}, std::nullopt},
           {{{"out", "/p/Cache"}}, std::nullopt},
           {{{"outdir", 5}, {"image", "/p/Cache/" + a + "/source.png"}}, std::nullopt},
           {nlohmann::json::array(), std::nullopt},
       }) {
    const std::optional<Uuid> got = aiNodeOfJob(c.job);
    EXPECT_EQ(got ? std::optional(got->toString()) : std::nullopt, c.id) << c.job;
  }
}
