// "Mes nodes" from the model's side: a library node evaluates in a fresh model, projects carry
// their user nodes to another library, and groups go to the library and come back as files.
#include <gtest/gtest.h>

#include "document/quick_add.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "temp_model.h"

using namespace ombrik;
using namespace ombrik::test;
namespace fs = std::filesystem;

namespace {

UserNodeDef gainNode() {
  UserNodeDef d;
  d.id = "user.gain0001";
  d.name = "Gain maison";
  d.created = 1.7e9;
  d.params = {{"gain", "Gain", 0, 4, 3, {}, {}, {}, {}}};
  d.code = "o.rgb = s.rgb * gain + vec3(0.1);";
  return d;
}

int countKind(const std::vector<Node>& nodes, const std::string& kind) {
  return int(std::count_if(nodes.begin(), nodes.end(), [&](const Node& n) { return n.kind->id == kind; }));
}

}  // namespace

TEST(UserNodeLibrary, ACodeNodeOfTheLibraryEvaluatesInAFreshModel) {
  TempDir dir;
  UserNodes(dir.path / "Nodes").register_(gainNode(), {}, true);  // written without compiling

  AppModel m(tempModelOptions(dir, std::make_shared<ManualScheduler>()));
  ASSERT_TRUE(m.engine);
  EXPECT_FALSE(m.userNodes.lastError("user.gain0001")) << *m.userNodes.lastError("user.gain0001");
  const auto found = quickAddResults("gain maison", {}, m.userNodes.kinds());
  ASSERT_EQ(found.size(), 1u);

  const float plate[4] = {0.25f, 0.5f, 0.125f, 1};
  std::vector<float> rgba;
  for (int i = 0; i < 4 * 2; ++i) rgba.insert(rgba.end(), plate, plate + 4);
  ASSERT_TRUE(m.addMedia(SourcePicture::fromFloats(4, 2, rgba), "plaque"));
  m.addNode(NodeKind::media(), {100, 100});
  m.addEffect(found[0]);  // behind the selected media node
  const Uuid fx = *m._selected;
  m.setParams(fx, {{"gain", 2}});
  m.performRender(true);
  ASSERT_TRUE(m.engine->outputs.count(fx));
  const auto px = m.engine->readPixels(m.engine->outputs.at(fx));
  ASSERT_EQ(px.size(), std::size_t(m.engine->compW) * m.engine->compH * 4);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(px[c], plate[c] * 2 + 0.1f, 2e-3) << "channel " << c;
}

TEST(UserNodeLibrary, AProjectBringsItsUserNodesToALibraryThatLacksThem) {
  TempDir a, b;
  const fs::path project = a.path / "p.tarvom";
  {
    AppModel m(tempModelOptions(a, std::make_shared<ManualScheduler>(), false));
    m.userNodes.register_(gainNode(), {}, true);
    m.addNode(m.userNodes.kind("user.gain0001"), {300, 300});
    ASSERT_EQ(m.usedUserDefs().size(), 1u);
    ASSERT_TRUE(m.write(project));
  }
  AppModel m(tempModelOptions(b, std::make_shared<ManualScheduler>(), false));
  ASSERT_TRUE(m.userNodes.defs().empty());
  ASSERT_TRUE(m.load(project)) << m._status;
  EXPECT_EQ(countKind(m._nodes, "user.gain0001"), 1) << "the node isn't lost";
  EXPECT_TRUE(fs::exists(b.path / "Nodes" / "user.gain0001.ombrik")) << "the library is filled";
  ASSERT_EQ(m.userNodes.defs().size(), 1u);
  EXPECT_EQ(m.userNodes.defs()[0], gainNode());
}

TEST(UserNodeLibrary, GroupsGoToTheLibraryAndComeBackAsFiles) {
  TempDir dir;
  auto dialogs = std::make_shared<ScriptedDialogs>();
  AppModel::Options o = tempModelOptions(dir, std::make_shared<ManualScheduler>(), false);
  o.dialogs = dialogs;
  AppModel m(o);
  m.userNodes.trash = [](const fs::path&) { return false; };

  Node inner(*NodeKind::find("invert"));
  NodeGroup g;
  g.nodes = {inner};
  g.output = inner.id;
  g.inputs = {{"Front", false, {{inner.id, 0}}}};
  Node group(NodeKind::group("Look", g));
  group.group = g;
  const Uuid gid = group.id;
  m._nodes.push_back(group);
  m.storedNodes();

  m.saveGroupToLibrary(gid);
  m.saveGroupToLibrary(gid);
  EXPECT_EQ(m._status, "« Look » enregistré dans Mes nodes (v2) · exportable en .ombrik pour la communauté.");
  ASSERT_EQ(m.userNodes.defs().size(), 1u) << "the same name, the same definition";
  const std::string id = m.userNodes.defs()[0].id;
  m.revertUserNode(id, 1);
  EXPECT_EQ(m.userNodes.known(id)->version, 1);

  const UserNodeDef def = *m.userNodes.known(id);
  dialogs->panelAnswers.push_back(dir.path / "Look.ombrik");
  m.exportUserNode(def);
  EXPECT_EQ(dialogs->savePanels.back().proposedName, "Look.ombrik");

  m.deleteUserNode(def.id);
  EXPECT_TRUE(m.userNodes.defs().empty());
  EXPECT_FALSE(fs::exists(dir.path / "Nodes" / (def.id + ".ombrik")));

  // Dropped on the window, the exported file comes back under its own id and is placed.
  m.importFromFinder({dir.path / "Look.ombrik"});
  ASSERT_EQ(m.userNodes.defs().size(), 1u);
  EXPECT_EQ(m.userNodes.defs()[0].id, def.id);
  ASSERT_EQ(countKind(m._nodes, "group"), 2);
  const Node& placed = m._nodes.back();
  ASSERT_TRUE(placed.group);
  EXPECT_NE(placed.group->output, inner.id) << "a placed copy has inner ids of its own";

  std::ofstream(dir.path / "autre.ombrik") << R"({"format": "tarvom", "node": {}})";
  m.importOmbrik(dir.path / "autre.ombrik");
  EXPECT_EQ(m._status, "Import impossible : Ce fichier n'est pas un node Ombrik.");
}
