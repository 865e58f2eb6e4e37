#include <gtest/gtest.h>

#include <fstream>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/scheduler.h"
#include "platform/user_defaults.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
struct Fixture {
  TempDir dir;
  std::shared_ptr<ManualScheduler> scheduler = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> make(bool engine = false) {
    return std::make_unique<AppModel>(AppModel::Options{.withEngine = engine, .scheduler = scheduler,
                                                        .defaultsFile = (dir.path / "defaults.conf").string()});
  }
};
}  // namespace

TEST(ProjectLife, WriteThenLoadGivesTheSameWorldsAndRemembersThePath) {
  Fixture t;
  auto a = t.make();
  Node color(NodeKind::color());
  color.params["sat"] = 0.3;
  a->_nodes.push_back(color);
  a->layout.set(color.id, {10, 20});
  a->_recentKinds = {"color"};
  const fs::path file = t.dir.path / "Projet.tarvom";
  ASSERT_TRUE(a->write(file)) << a->_status;
  EXPECT_EQ(a->_projectURL, file);
  EXPECT_EQ(a->defaults().string("lastProjectPath"), file.string());

  auto b = t.make();
  ASSERT_TRUE(b->load(file)) << b->_status;
  EXPECT_EQ(b->_nodes, a->_nodes);
  EXPECT_EQ(b->layout.positions(), a->layout.positions());
  EXPECT_EQ(b->_batches.size(), 1u);
  EXPECT_EQ(b->_currentBatchID, a->_currentBatchID);
  EXPECT_EQ(b->_recentKinds, a->_recentKinds);
  EXPECT_EQ(slurp(file).find("\"folders\""), std::string::npos);  // empty: left out
  // Reading stamps worlds without a date; from then on the same state gives the same bytes.
  EXPECT_TRUE(b->write(t.dir.path / "once.tarvom"));
  EXPECT_TRUE(b->write(t.dir.path / "twice.tarvom"));
  EXPECT_EQ(slurp(t.dir.path / "once.tarvom"), slurp(t.dir.path / "twice.tarvom"));
}

TEST(ProjectLife, BadFilesChangeNothing) {
  Fixture t;
  auto m = t.make();
  const auto nodes = m->_nodes;
  const fs::path file = t.dir.path / "broken.tarvom";
  std::ofstream(file) << "{\"version\": 1, \"media\": [";
  const std::string before = slurp(file);
  EXPECT_FALSE(m->load(file));
  EXPECT_EQ(m->_status, "Projet illisible : broken.tarvom (JSON illisible)");  // the reader's reason is kept
  EXPECT_EQ(m->_nodes, nodes);
  EXPECT_FALSE(m->_projectURL);
  EXPECT_EQ(slurp(file), before);
  EXPECT_FALSE(m->load(t.dir.path / "absent.tarvom"));

  // A failed write leaves the old file whole and the state as it was.
  const fs::path good = t.dir.path / "good.tarvom";
  ASSERT_TRUE(m->write(good));
  const std::string saved = slurp(good);
  m->_nodes[0].params["format"] = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(m->write(good));
  EXPECT_EQ(m->_status.rfind("Enregistrement impossible : ", 0), 0u);
  EXPECT_EQ(slurp(good), saved);
  EXPECT_FALSE(fs::exists(t.dir.path / ".good.tarvom.part"));
  EXPECT_FALSE(m->write(t.dir.path / "no_such_folder" / "x.tarvom"));
}

TEST(ProjectLife, MissingMediaIsReportedAndKeptForTheNextSave) {
  Fixture t;
  const std::string text = R"({"version":1,"recent":[],
    "media":[{"id":"9E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"rush.mov","path":"/nowhere/rush.mov"}],
    "batches":[{"id":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"Attente","placeholder":true,"nodes":[],"edges":[],"positions":{}},
               {"id":"1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"Plan","nodes":[],"edges":[],"positions":{}}],
    "current":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8"})";
  const fs::path file = t.dir.path / "p.tarvom";
  std::ofstream(file) << text;
  auto m = t.make();
  ASSERT_TRUE(m->load(file));
  EXPECT_EQ(m->_status, "Médias introuvables : rush.mov");
  EXPECT_EQ(m->currentBatch()->name, "Plan");  // the current world is a placeholder: the first real one
  ASSERT_TRUE(m->write(t.dir.path / "q.tarvom"));
  EXPECT_NE(slurp(t.dir.path / "q.tarvom").find("/nowhere/rush.mov"), std::string::npos);
}
