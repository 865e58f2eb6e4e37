#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "graph/node.h"
#include "graph/node_kind.h"

using namespace ombrik;

namespace {
std::vector<std::string> ids(const std::vector<KindRef>& kinds) {
  std::vector<std::string> out;
  for (const auto& k : kinds) out.push_back(k->id);
  return out;
}
const NodeKind& K(const char* id) {
  const KindRef* k = NodeKind::find(id);
  if (!k) throw std::runtime_error(std::string("no kind ") + id);
  return **k;
}
}  // namespace

// The browser's categories in order, with how many kinds each offers: a kind whose category is
// mistyped drops out of the browser (and of all()), which only these counts notice.
TEST(KindCatalogue, CategoriesInOrderWithTheirKinds) {
  const std::vector<std::pair<std::string, std::size_t>> expected = {
      {"Sources", 1},         {"Couleur", 19},        {"Peau & beauté", 6}, {"Flou & netteté", 8},
      {"Lumière", 11},        {"Keying & matte", 14}, {"Peinture IA", 1},   {"Profondeur IA", 4},
      {"Grain & bruit", 2},   {"Transformation", 11}, {"Distorsion", 11},   {"Composite", 3},
      {"Stylisation", 16},    {"Film & numérique", 7}};
  const auto& cats = NodeKind::categories();
  ASSERT_EQ(cats.size(), expected.size());
  for (std::size_t i = 0; i < cats.size(); ++i) {
    EXPECT_EQ(cats[i].name.raw, expected[i].first);
    EXPECT_EQ(cats[i].kinds.size(), expected[i].second) << expected[i].first;
    for (const auto& k : cats[i].kinds) EXPECT_EQ(k->category, cats[i].name);
  }
  // Within a category, the candidate order holds (core kinds first), not the alphabet.
  EXPECT_EQ(ids(cats[5].kinds)[0], "mask");
  EXPECT_EQ(ids(cats[11].kinds), (std::vector<std::string>{"mux", "comp", "merge"}));
}

TEST(KindCatalogue, AllEndsWithOutputAndDotWhichTheBrowserDoesNotOffer) {
  const auto all = ids(NodeKind::all());
  ASSERT_GE(all.size(), 2u);
  EXPECT_EQ(all[all.size() - 2], "output");
  EXPECT_EQ(all.back(), "dot");
  EXPECT_EQ(all.front(), "media");
  for (const auto& cat : NodeKind::categories())
    for (const auto& k : cat.kinds) EXPECT_TRUE(k->id != "output" && k->id != "dot");
  EXPECT_EQ(NodeKind::output()->category.raw, "Sortie");
  EXPECT_FALSE(NodeKind::output()->hasOutput);
  EXPECT_TRUE(NodeKind::dot()->hasOutput);
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
}

TEST(KindCatalogue, EffectRowOrderAndKernels) {
  const auto fx = ids(NodeKind::fx());
  EXPECT_EQ(fx.front(), "wheels");
  EXPECT_EQ(fx[25], "keyer3d");
  EXPECT_EQ(fx[29], "comp");
  EXPECT_EQ(fx.back(), "noise");
  const auto more = ids(NodeKind::fxMore());
  EXPECT_EQ(more.front(), "shafts");
  EXPECT_EQ(more.back(), "depthparallax");
  for (const auto* list : {&NodeKind::fx(), &NodeKind::fxMore()})
    for (const auto& k : *list) {
      EXPECT_EQ(k->kernel, "fx_" + k->id);
      EXPECT_TRUE(k->hasOutput);
      EXPECT_LE(k->params.size(), 15u) << k->id << ": P[15] belongs to the Composite";
      if (k->blurParam) {
        EXPECT_NE(k->param(*k->blurParam), nullptr) << k->id;
      }
    }
  for (const char* core : {"media", "mask", "color", "output", "dot", "retime"}) EXPECT_FALSE(K(core).kernel) << core;
}

TEST(KindCatalogue, DerivedLists) {
  EXPECT_EQ(ids(NodeKind::localAI()),
            (std::vector<std::string>{"facereshape", "paintbeauty", "beautyzones", "magicmask", "objectmask",
                                      "bodymask", "hairmatte", "greenkeyai", "genfill", "denoise", "camtrack",
                                      "motionvec"}));  // in the order of the categories
  std::vector<std::string> matte;
  for (const auto& k : NodeKind::all())
    if (k->makesMatte()) matte.push_back(k->id);
  std::sort(matte.begin(), matte.end());
  EXPECT_EQ(matte, (std::vector<std::string>{"bodymask", "chromakey", "edgeblur", "keyer3d", "lumakey", "magicmask",
                                             "mask", "matteedit", "negative", "objectmask"}));
  EXPECT_EQ(K("glow").tint(), 0x8E9198u);
  NodeKind model = K("glow");
  model.id = "model.flux";
  EXPECT_TRUE(model.isModel());
  EXPECT_EQ(model.tint(), 0xE6CD6Bu);
  EXPECT_FALSE(K("glow").isModel());
}

// Kernels read parameters by position and ports by order: those orders are the contract checked
// here. The texts themselves are covered catalogue-wide (every one has its English).
TEST(KindTables, PortsAndParameterPositions) {
  const auto ports = [](const char* id) {
    std::vector<std::pair<std::string, bool>> out;
    for (const auto& p : K(id).inputs) out.emplace_back(p.name, p.isMatte);
    return out;
  };
  using P = std::vector<std::pair<std::string, bool>>;
  EXPECT_EQ(ports("mask"), (P{{"Front", false}, {"Matte", true}}));
  EXPECT_EQ(ports("wheels"), (P{{"Front", false}, {"Matte", true}}));
  EXPECT_EQ(ports("comp"), (P{{"Front", false}, {"Back", false}, {"Alpha", true}, {"Matte 2", true}, {"Matte 3", true}, {"Matte 4", true}}));
  EXPECT_EQ(ports("edgeblur"), (P{{"Matte", false}}));
  EXPECT_EQ(ports("matteedit"), (P{{"Matte", false}, {"Garbage", true}}));
  EXPECT_EQ(ports("negative"), (P{{"Front", false}}));
  EXPECT_EQ(ports("depthdof"), (P{{"Front", false}, {"Depth", false}, {"Matte", true}}));
  EXPECT_EQ(ports("renoise")[1], (std::pair<std::string, bool>{"Original (rush)", false}));

  const std::pair<const char*, std::vector<std::string>> positions[] = {
      {"mask", {"cx", "cy", "rx", "ry", "rot"}}, {"color", {"exposure"}}, {"blur", {"size"}},
  };
  for (const auto& [id, keys] : positions)
    for (std::size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(K(id).params[i].key, keys[i]) << id << " P[" << i << "]";
  const NodeKind& comp = K("comp");
  ASSERT_EQ(comp.params.size(), 13u);
  EXPECT_EQ(comp.params[6].key, "mattes");
  EXPECT_EQ(comp.params[10].key, "compo");
  EXPECT_EQ(K("mask").param("blend")->options.raw.size(), 6u);
  EXPECT_EQ(K("color").params[0], (ParamSpec{"exposure", {"Exposition"}, -2, 2, 0.15, 0.05, " stops", false, {}}));
  EXPECT_TRUE(K("mask").param("invert")->isToggle);
  EXPECT_EQ(K("dot").tintHex, 0u);
}

TEST(KindTables, BeautyTrioShareKeysWithTheirOwnDefaults) {
  EXPECT_EQ(Node(NodeKind::beauty()).params.at("skin"), 1);
  EXPECT_EQ(Node(NodeKind::paintbeauty()).params.at("skin"), 0);
  EXPECT_EQ(K("beauty").param("large")->def, 0.25);
  EXPECT_EQ(K("paintbeauty").param("large")->def, 0.2);
  EXPECT_EQ(K("beautyzones").param("redness")->def, 0.3);
}

TEST(KindTables, AiKeyerIsTheGreenKeyerPlusBand) {
  const auto& key = K("greenkey").params;
  const auto& ai = K("greenkeyai").params;
  ASSERT_EQ(ai.size(), key.size() + 1);
  EXPECT_TRUE(std::equal(key.begin(), key.end(), ai.begin()));
  EXPECT_EQ(ai.back().key, "band");
}

TEST(KindTables, ParameterSpecsAreConsistent) {
  for (const auto& k : NodeKind::all()) {
    std::set<std::string> keys;
    for (const auto& p : k->params) {
      EXPECT_TRUE(keys.insert(p.key).second) << k->id << "." << p.key;
      EXPECT_LE(p.min, p.def) << k->id << "." << p.key;
      EXPECT_LE(p.def, p.max) << k->id << "." << p.key;
      if (p.isToggle) {
        EXPECT_TRUE(p.min == 0 && p.max == 1 && p.step == 0.01) << k->id << "." << p.key;
      }
      if (p.isMenu()) {
        EXPECT_EQ(p.max, static_cast<double>(p.options.size() - 1)) << k->id << "." << p.key;
      }
    }
  }
}
