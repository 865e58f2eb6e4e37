#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "platform/app_paths.h"
#include "temp_dir.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
AppPaths::Inputs inputs(const fs::path& root, std::map<std::string, std::string> env = {}) {
  AppPaths::Inputs in;
  in.home = root / "home";
  in.executableDir = root / "prefix" / "bin";
  in.sourceRoot = root / "repo";
  in.env = [env](const std::string& k) -> std::optional<std::string> {
    auto it = env.find(k);
    if (it == env.end()) return std::nullopt;
    return it->second;
  };
  return in;
}
}  // namespace

// In a development tree everything lives in the repository; the variables move data, and support
// with what grows in it at run time (models, logs), so that a test or a sandbox writes nothing into
// the tree. The worker's scripts stay in the tree.
TEST(AppPaths, DevelopmentTreeAndTheVariablesThatMoveDataAndSupport) {
  TempDir t;
  const fs::path repo = t.path / "repo";
  struct Case {
    std::map<std::string, std::string> env;
    fs::path data, support, models, logs;
  };
  const Case cases[] = {
      {{}, repo, repo, repo / "Tracker" / "models", repo / "Tracker"},
      {{{"OMBRIK_DATA", "/d"}}, "/d", repo, repo / "Tracker" / "models", repo / "Tracker"},
      {{{"OMBRIK_SUPPORT", "/s"}}, repo, "/s", "/s/Models", "/s/Logs"},
      {{{"OMBRIK_DATA", "/d"}, {"OMBRIK_SUPPORT", "/s"}}, "/d", "/s", "/s/Models", "/s/Logs"},
      {{{"OMBRIK_DATA", ""}, {"OMBRIK_SUPPORT", ""}}, repo, repo, repo / "Tracker" / "models", repo / "Tracker"},  // empty: unset
  };
  for (const Case& c : cases) {
    const AppPaths p = AppPaths::resolve(inputs(t.path, c.env));
    SCOPED_TRACE(c.support.string() + " " + c.data.string());
    EXPECT_FALSE(p.isBundled);
    EXPECT_EQ(p.devRoot, repo);
    EXPECT_EQ(p.resources, repo);
    EXPECT_EQ(p.data, c.data);
    EXPECT_EQ(p.support, c.support);
    EXPECT_EQ(p.models, c.models);
    EXPECT_EQ(p.logs, c.logs);
    EXPECT_EQ(p.python, c.support / "Python");
    EXPECT_EQ(p.scripts, repo / "Tracker");
    EXPECT_EQ(p.projectsDir(), c.data / "Projets");
  }
}

TEST(AppPaths, InstalledProgramUsesTheUserFolders) {
  TempDir t;
  touch(t.path / "prefix" / "share" / "ombrik" / "Tracker" / "om_track.pyc");
  AppPaths p = AppPaths::resolve(inputs(t.path));
  ASSERT_TRUE(p.isBundled);
  const fs::path home = t.path / "home";
  EXPECT_EQ(p.resources, t.path / "prefix" / "share" / "ombrik");
  EXPECT_EQ(p.devRoot, home / "Tarvane Ombrik");
  EXPECT_EQ(p.data, home / "Videos" / "Ombrik");
  EXPECT_EQ(p.support, home / ".local" / "share" / "Ombrik");
  EXPECT_EQ(p.scripts, p.resources / "Tracker");
  EXPECT_EQ(p.models, p.support / "Models");
  EXPECT_EQ(p.logs, p.support / "Logs");
  EXPECT_EQ(p.python, p.support / "Python");

  fs::create_directories(home / "Tarvane Ombrik" / "Projets");  // an old project folder is kept
  EXPECT_EQ(AppPaths::resolve(inputs(t.path)).data, home / "Tarvane Ombrik");
  p = AppPaths::resolve(inputs(t.path, {{"XDG_DATA_HOME", "/x"}, {"OMBRIK_DATA", "/d"}}));
  EXPECT_EQ(p.support, fs::path("/x/Ombrik"));
  EXPECT_EQ(p.data, fs::path("/d"));
  p = AppPaths::resolve(inputs(t.path, {{"XDG_DATA_HOME", "/x"}, {"OMBRIK_SUPPORT", "/s"}}));
  EXPECT_EQ(p.support, fs::path("/s"));
}

TEST(AppPaths, ScriptPrefersSourceOverCompiledAndPrepareMakesTheFolders) {
  TempDir t;
  const AppPaths p = AppPaths::resolve(inputs(t.path));
  EXPECT_EQ(p.script("om_track.py"), p.scripts / "om_track.py.pyc");  // neither exists
  touch(p.scripts / "om_track.py.pyc");
  EXPECT_EQ(p.script("om_track.py"), p.scripts / "om_track.py.pyc");
  touch(p.scripts / "om_track.py");
  EXPECT_EQ(p.script("om_track.py"), p.scripts / "om_track.py");

  // Preparing makes the folders and ignores errors; it makes nothing in the tree (gone again here).
  fs::remove_all(t.path / "repo");
  const AppPaths moved = AppPaths::resolve(inputs(t.path, {{"OMBRIK_DATA", (t.path / "a/b/data").string()},
                                                           {"OMBRIK_SUPPORT", (t.path / "c/support").string()}}));
  moved.prepare();
  EXPECT_TRUE(fs::is_directory(t.path / "a/b/data"));
  EXPECT_TRUE(fs::is_directory(t.path / "c/support"));
  EXPECT_TRUE(fs::is_directory(moved.models));
  EXPECT_TRUE(fs::is_directory(moved.logs));
  EXPECT_FALSE(fs::exists(t.path / "repo")) << "nothing is made in the tree the program was built from";

  touch(t.path / "blocker");  // a file where a folder should go
  const AppPaths bad = AppPaths::resolve(inputs(t.path, {{"OMBRIK_DATA", (t.path / "blocker/data").string()}}));
  EXPECT_NO_THROW(bad.prepare());
}

TEST(AppPaths, PythonEnvironment) {
  TempDir t;
  const AppPaths p = AppPaths::resolve(inputs(t.path, {{"OMBRIK_SUPPORT", "/s"}}));
  const auto env = p.pythonEnvironment(AppLanguage::english);
  EXPECT_EQ(env.at("PYTHONNOUSERSITE"), "1");
  EXPECT_EQ(env.at("PYTHONUNBUFFERED"), "1");
  EXPECT_EQ(env.at("PYTHONPYCACHEPREFIX"), "/s/PyCache");
  EXPECT_EQ(env.at("OMBRIK_MODELS"), p.models.string());
  EXPECT_EQ(env.at("OMBRIK_LOGS"), p.logs.string());
  EXPECT_EQ(env.at("OMBRIK_LANG"), "en");
  EXPECT_EQ(p.pythonEnvironment(AppLanguage::french).at("OMBRIK_LANG"), "fr");
  EXPECT_EQ(env.size(), 6u);
}
