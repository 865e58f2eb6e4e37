// The user node library without an engine: files in and out, the id rule of imports, histories,
// and saved groups placed as nodes of their own.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "../platform/temp_dir.h"
#include "document/quick_add.h"
#include "groups/user_nodes.h"
#include "platform/string_catalogue.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

UserNodeDef codeDef(const std::string& id, const std::string& name, const std::string& code) {
  UserNodeDef d;
  d.id = id;
  d.name = name;
  d.code = code;
  d.created = 1.7e9;
  d.params = {{"gain", "Gain", 0, 4, 2, {}, {}, {}, {}}};
  return d;
}

// A compiler that refuses any code holding "nope", and counts what it was given.
struct FakeCompiler {
  std::vector<std::string> names;
  UserNodes::Compile fn() {
    return [this](const std::string& name, const std::string&, const std::string& code, const std::vector<std::string>&) {
      names.push_back(name);
      return code.find("nope") != std::string::npos ? std::optional<std::string>("code, ligne 1 : 'nope' undeclared")
                                                     : std::nullopt;
    };
  }
};

std::map<std::string, std::string> folderContents(const fs::path& dir) {
  std::map<std::string, std::string> out;
  for (const auto& e : fs::directory_iterator(dir)) out[e.path().filename().string()] = slurp(e.path());
  return out;
}

void writeText(const fs::path& p, const std::string& text) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << text;
}

// A group of three nodes, the last itself a group, with one input and one control.
NodeGroup sampleGroup() {
  Node a(*NodeKind::find("invert")), b(*NodeKind::find("blur")), c(*NodeKind::find("invert"));
  NodeGroup inner;
  inner.nodes = {c};
  inner.output = c.id;
  inner.positions[c.id] = {5, 5};
  Node nested(NodeKind::group("Dedans", inner));
  nested.group = inner;
  NodeGroup g;
  g.nodes = {a, b, nested};
  g.edges = {{Uuid::generate(), a.id, b.id, 0, 0}, {Uuid::generate(), b.id, nested.id, 0, 0}};
  g.positions = {{a.id, {0, 0}}, {b.id, {100, 0}}, {nested.id, {200, 0}}};
  g.inputs = {{"Front", false, {{a.id, 0}}}};
  g.output = nested.id;
  g.controls = {{b.id, b.kind->params.front().key, "Flou"}};
  g.info = "Un look";
  return g;
}

void collectIDs(const NodeGroup& g, std::vector<Uuid>& out) {
  for (const auto& n : g.nodes) {
    out.push_back(n.id);
    if (n.group) collectIDs(*n.group, out);
  }
}

}  // namespace

TEST(UserNodes, ACodeNodeSavedIsFoundAgainAndAnImportNeverOverwritesAnother) {
  TempDir dir;
  const fs::path folder = dir.path / "Nodes";
  UserNodes first(folder);
  first.register_(codeDef("user.ab-12cd3", "Gain doux", "o.rgb = s.rgb * gain;"), {}, true);
  ASSERT_TRUE(fs::exists(folder / "user.ab-12cd3.ombrik"));

  FakeCompiler compiler;
  UserNodes second(folder);
  second.loadAll(compiler.fn());
  ASSERT_EQ(second.defs().size(), 1u);
  EXPECT_TRUE(second.problems().empty());
  EXPECT_EQ(compiler.names, std::vector<std::string>{"u_user_ab_12cd3"});
  const KindRef kind = second.kind("user.ab-12cd3");
  ASSERT_TRUE(kind);
  EXPECT_EQ(kind->kernel, "u_user_ab_12cd3");
  EXPECT_EQ(kind->category.raw, "Mes nodes");
  const auto found = quickAddResults("gain doux", {}, second.kinds());
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->id, "user.ab-12cd3");
  EXPECT_EQ(quickAddResults("", {"user.ab-12cd3"}, second.kinds()).front()->id, "user.ab-12cd3") << "a recent user kind leads";

  // An import never overwrites a different node.
  UserNodes& lib = second;
  const UserNodeDef def = *lib.known("user.ab-12cd3");
  UserNodes::export_(def, dir.path / "same.ombrik");
  EXPECT_EQ(lib.read(dir.path / "same.ombrik"), def) << "identical: the same id, no duplicate";

  UserNodeDef other = def;
  other.code = "o.rgb = s.rgb * gain * 2.0;";
  UserNodes::export_(other, dir.path / "other.ombrik");
  const UserNodeDef read = lib.read(dir.path / "other.ombrik");
  EXPECT_TRUE(std::regex_match(read.id, std::regex("user\\.[0-9a-f]{8}"))) << read.id;
  EXPECT_EQ(read.code, other.code);

  // Only the format is tested: a later file version is read.
  std::string text = slurp(dir.path / "same.ombrik");
  text.replace(text.find("\"version\": 1"), 12, "\"version\": 2");
  writeText(dir.path / "v2.ombrik", text);
  EXPECT_EQ(lib.read(dir.path / "v2.ombrik").id, def.id);

  lib.trash = [](const fs::path&) { return false; };  // the user's trash stays out of tests
  lib.remove(def.id);  // out of the library, still known: a placed node keeps its kind
  EXPECT_FALSE(fs::exists(dir.path / "Nodes" / (def.id + ".ombrik")));
  EXPECT_TRUE(lib.defs().empty());
  EXPECT_TRUE(lib.kind(def.id));
  EXPECT_EQ(lib.read(dir.path / "same.ombrik").id, def.id);
}

TEST(UserNodes, BrokenFilesAreNamedAndSkippedAndNothingOnDiskChanges) {
  TempDir dir;
  const fs::path folder = dir.path / "Nodes";
  UserNodes writer(folder);
  writer.register_(codeDef("user.good0001", "Bon", "o.rgb = s.rgb;"), {}, true);
  writer.register_(codeDef("user.nope0001", "Cassé", "o.rgb = nope;"), {}, true);
  const std::string good = slurp(folder / "user.good0001.ombrik");
  auto replaced = [&](std::string from, const std::string& to) {
    const auto at = good.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return good.substr(0, at) + to + good.substr(at + from.size());
  };
  const struct {
    const char* file;
    std::string text;
    const char* reason;  // found in the problem's text
  } broken[] = {
      {"json.ombrik", "{\"format\": \"ombrik-node\", \"node\": {", "JSON"},
      {"champ.ombrik", replaced("\"code\": \"o.rgb = s.rgb;\",", ""), "champ manquant : code"},
      {"type.ombrik", replaced("\"min\": 0.0", "\"min\": \"zéro\""), "min : nombre attendu"},
      {"format.ombrik", replaced("\"ombrik-node\"", "\"ombrik-world\""), "Ce fichier n'est pas un node Ombrik."},
      {"id.ombrik", replaced("\"user.good0001\"", "\"user./../../x\""), "identifiant invalide"},
  };
  for (const auto& b : broken) writeText(folder / b.file, b.text);
  const auto before = folderContents(folder);

  FakeCompiler compiler;
  UserNodes lib(folder);
  lib.loadAll(compiler.fn());
  EXPECT_EQ(folderContents(folder), before);
  std::set<std::string> loaded;
  for (const auto& d : lib.defs()) loaded.insert(d.id);
  EXPECT_EQ(loaded, (std::set<std::string>{"user.good0001", "user.nope0001"})) << "a kernel that fails still registers";
  EXPECT_TRUE(lib.lastError("user.nope0001"));
  EXPECT_FALSE(lib.lastError("user.good0001"));
  ASSERT_EQ(lib.problems().size(), std::size(broken) + 1);
  for (const auto& b : broken) {
    auto p = std::find_if(lib.problems().begin(), lib.problems().end(), [&](const auto& p) { return p.file == b.file; });
    ASSERT_NE(p, lib.problems().end()) << b.file;
    EXPECT_TRUE(p->skipped);
    EXPECT_NE(p->reason.find(b.reason), std::string::npos) << b.file << ": " << p->reason;
  }
  const std::string report = UserNodes::report(lib.problems());
  EXPECT_EQ(report.rfind("Mes nodes : 6 fichiers en défaut (", 0), 0u) << report;
  EXPECT_EQ(translate(report, AppLanguage::english).rfind("My nodes: 6 faulty files (champ.ombrik : ", 0), 0u)
      << translate(report, AppLanguage::english);
  for (const char* name : {"json.ombrik", "type.ombrik", "user.nope0001.ombrik : ne compile plus — code, ligne 1"})
    EXPECT_NE(report.find(name), std::string::npos) << name;
}

TEST(UserNodeDef, SnapshotsKeepChangesOnlyAndRestoreGoesBack) {
  UserNodeDef d = codeDef("user.hist0001", "Gain", "o.rgb = s.rgb;");
  d.snapshot(1000);
  ASSERT_TRUE(d.versions);
  ASSERT_EQ(d.versions->size(), 1u);
  EXPECT_EQ(d.version, 1);
  EXPECT_TRUE(std::regex_match(d.versions->front().label(), std::regex("v1 · \\d\\d/\\d\\d \\d\\d:\\d\\d")));
  d.info = "texte seul";  // not code: no new version
  d.snapshot(2000);
  EXPECT_EQ(d.versions->size(), 1u);
  d.code = "o.rgb = 1.0 - s.rgb;";
  d.snapshot(3000);
  ASSERT_EQ(d.versions->size(), 2u);
  EXPECT_EQ(d.version, 2);
  d.restore(1);
  EXPECT_EQ(d.code, "o.rgb = s.rgb;");
  EXPECT_EQ(d.version, 1);
  d.restore(9);
  EXPECT_EQ(d.version, 1);
  // Compared with the version in use, not the last one.
  d.snapshot(4000);
  EXPECT_EQ(d.versions->size(), 2u);
}

TEST(UserNodeDef, KindsFollowTheDefinition) {
  const struct {
    UserParam p;
    double step;
  } steps[] = {
      {{"a", "A", 0, 1, 0, {}, {}, {}, {}}, 0.01},
      {{"b", "B", 2, 2, 2, {}, {}, {}, {}}, 0.001},  // a range of zero never gives a step of zero
      {{"c", "C", 0, 1, 0, {}, {}, true, {}}, 1},
      {{"d", "D", 0, 2, 0, {}, {}, {}, std::vector<std::string>{"x", "y", "z"}}, 1},
      {{"e", "E", 0, 10, 0, 0.5, std::string(" px"), {}, {}}, 0.5},
  };
  for (const auto& s : steps) EXPECT_DOUBLE_EQ(s.p.spec().step, s.step) << s.p.key;

  UserNodeDef d = codeDef("user.kind0001", "K", "");
  EXPECT_EQ(d.kind()->inputs, (std::vector<PortSpec>{{"Front", false}, {"Matte", true}}));
  d.back = true;
  EXPECT_EQ(d.kind()->inputs, (std::vector<PortSpec>{{"Front", false}, {"Back", false}, {"Matte", true}}));
  d.group = GroupRef(sampleGroup(), "Look", {});
  EXPECT_FALSE(d.kind()->kernel) << "a saved group is never evaluated by itself";
  EXPECT_EQ(d.kind()->inputs, (std::vector<PortSpec>{{"Front", false}}));
}

TEST(UserNodes, AHistoryOfTwoNamesLoadsAsTwoDefinitionsWithABackup) {
  TempDir dir;
  const fs::path folder = dir.path / "Nodes";
  UserNodeDef mixed = codeDef("user.mix00001", "Alpha", "a1");
  mixed.snapshot(10);
  mixed.name = "Beta", mixed.code = "b1";
  mixed.snapshot(20);
  mixed.code = "b2";
  mixed.snapshot(30);
  mixed.name = "Alpha", mixed.code = "a2";
  mixed.snapshot(40);
  writeText(folder / "user.mix00001.ombrik", encodeUserNodeFile(mixed));
  const std::string original = slurp(folder / "user.mix00001.ombrik");

  UserNodes lib(folder);
  lib.loadAll({});
  ASSERT_EQ(lib.defs().size(), 2u);
  EXPECT_EQ(slurp(folder / "user.mix00001.ombrik.avant-separation"), original);
  const UserNodeDef& alpha = lib.defs()[0];
  const UserNodeDef& beta = lib.defs()[1];
  EXPECT_EQ(alpha.id, "user.mix00001");
  ASSERT_EQ(alpha.versions->size(), 2u);
  EXPECT_EQ(beta.name, "Beta");
  EXPECT_EQ(beta.code, "b2") << "the highest version of that name";
  EXPECT_EQ(beta.version, 3);
  EXPECT_TRUE(fs::exists(folder / (beta.id + ".ombrik")));
  EXPECT_EQ(decodeUserNodeFile(slurp(folder / "user.mix00001.ombrik")), alpha) << "rewritten with one name";
}

TEST(UserNodes, ASavedGroupRoundTripsAndItsInstancesShareNoInnerId) {
  TempDir dir;
  const NodeGroup group = sampleGroup();
  UserNodeDef def;
  def.id = "usergroup.look0001";
  def.name = "Look";
  def.group = GroupRef(group, "Look", {{"c0", 7}, {"other", 1}});
  def.snapshot(1);
  UserNodes(dir.path / "Nodes").register_(def, {}, true);

  UserNodes lib(dir.path / "Nodes");
  lib.loadAll({});
  const UserNodeDef* loaded = lib.known(def.id);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(*loaded, def);
  const auto stored = loaded->group->nodeGroup(lib.lookup());
  ASSERT_TRUE(stored);
  EXPECT_EQ(ProjectCodec::encodeGroup(stored->group, "Look", stored->values), def.group->stored());
  EXPECT_EQ(stored->values, (std::map<std::string, double>{{"c0", 7}}));

  std::vector<Uuid> original;
  collectIDs(group, original);
  std::set<Uuid> seen(original.begin(), original.end());
  for (int i = 0; i < 2; ++i) {
    const auto node = lib.instance(def.id);
    ASSERT_TRUE(node && node->group);
    EXPECT_EQ(node->kind->id, "group");
    EXPECT_EQ(node->params.at("c0"), 7);
    const NodeGroup& g = *node->group;
    std::vector<Uuid> ids;
    collectIDs(g, ids);
    ASSERT_EQ(ids.size(), original.size());
    for (const auto& id : ids) EXPECT_TRUE(seen.insert(id).second) << "an inner id shared";
    // Everything that names an inner node names one of the new ones.
    const std::set<Uuid> own(ids.begin(), ids.end());
    EXPECT_TRUE(own.count(g.output));
    EXPECT_TRUE(own.count(g.inputs[0].targets[0].node));
    EXPECT_TRUE(own.count(g.controls[0].node));
    for (const auto& e : g.edges) EXPECT_TRUE(own.count(e.from) && own.count(e.to));
    for (const auto& [id, p] : g.positions) EXPECT_TRUE(own.count(id));
    EXPECT_EQ(g.positions.size(), group.positions.size());
  }
  EXPECT_FALSE(lib.instance("usergroup.unknown"));
}
