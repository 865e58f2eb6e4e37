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

TEST(KindCatalogue, Counts) {
  EXPECT_EQ(NodeKind::all().size(), 116u);
  EXPECT_EQ(NodeKind::byID().size(), 116u);
  EXPECT_EQ(NodeKind::fx().size(), 36u);
  EXPECT_EQ(NodeKind::fxMore().size(), 51u);
  std::size_t params = 0, core = 0, coreParams = 0;
  for (const auto& k : NodeKind::all()) {
    params += k->params.size();
    if (!k->kernel) {
      ++core;
      coreParams += k->params.size();
    }
  }
  // One beyond the reference tables: the output node's H.264 quality.
  EXPECT_EQ(params, 632u);
  EXPECT_EQ(core, 29u);
  EXPECT_EQ(coreParams, 230u);
}

TEST(KindCatalogue, CategoriesInOrderWithoutEmptyOnes) {
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
  const std::vector<std::string> keying = {"mask", "magicmask", "objectmask", "bodymask", "hairmatte",
                                           "greenkey", "greenkeyai", "lumakey", "chromakey", "matteedit",
                                           "trackboost", "negative", "edgeblur", "keyer3d"};
  EXPECT_EQ(ids(cats[5].kinds), keying);
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
  std::vector<std::string> blurred;
  for (const auto* list : {&NodeKind::fx(), &NodeKind::fxMore()})
    for (const auto& k : *list) {
      EXPECT_EQ(k->kernel, "fx_" + k->id);
      EXPECT_TRUE(k->hasOutput);
      EXPECT_LE(k->params.size(), 15u) << k->id << ": P[15] belongs to the Composite";
      if (k->blurParam) {
        blurred.push_back(k->id);
        EXPECT_NE(k->param(*k->blurParam), nullptr) << k->id;
      }
    }
  EXPECT_EQ(blurred, (std::vector<std::string>{"blur", "sharpen", "bloom", "matteedit", "trackboost", "edgeblur",
                                                "prismglow", "mist", "halation", "neon", "clarity", "toon", "sketch",
                                                "watercolor", "frosted", "reeded"}));
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

TEST(KindTables, CoreKindTextsAndParameters) {
  const NodeKind& mask = K("mask");
  EXPECT_EQ(mask.title.raw, "Masque de forme");
  EXPECT_EQ(mask.tag.raw, "Masque");
  EXPECT_EQ(mask.tintHex, 0x7AA9F2u);
  ASSERT_EQ(mask.inputs.size(), 2u);
  EXPECT_EQ(mask.inputs[1], (PortSpec{"Matte", true}));
  const ParamSpec& rot = mask.params[4];
  EXPECT_EQ(rot.key, "rot");
  EXPECT_EQ(rot.unit, "°");
  EXPECT_EQ(rot.min, -90);
  EXPECT_EQ(mask.params[5].label.raw, "Adoucissement");
  const ParamSpec& blend = *mask.param("blend");
  EXPECT_EQ(blend.options.raw, (std::vector<std::string>{"Addition", "Soustraction", "Intersection", "Différence", "Max", "Min"}));
  EXPECT_EQ(mask.param("outwhite")->label.raw, "Key limité à la forme : blanc dehors (CC noir, reste blanc)");
  EXPECT_TRUE(mask.param("invert")->isToggle);

  const ParamSpec& exposure = K("color").params[0];
  EXPECT_EQ(exposure, (ParamSpec{"exposure", {"Exposition"}, -2, 2, 0.15, 0.05, " stops", false, {}}));
  EXPECT_EQ(K("motionvec").param("tsmooth")->unit, " img");
  EXPECT_EQ(K("genfill").param("quality")->options.raw[2], "Très haute — 2048 px (FLUX max)");
  EXPECT_EQ(K("media").hint.raw, "Importez une image ou une vidéo avec ⌘I ou par glisser-déposer.");
  EXPECT_EQ(K("greenkey").param("grow")->label.raw, "Réduire (−) / étendre (+) la matte");
  EXPECT_EQ(K("dot").tintHex, 0u);
  EXPECT_TRUE(K("renoise").inputs[1] == (PortSpec{"Original (rush)", false}));
}

TEST(KindTables, BeautyTrioShareKeysWithTheirOwnDefaults) {
  EXPECT_EQ(Node(NodeKind::beauty()).params.at("skin"), 1);
  EXPECT_EQ(Node(NodeKind::paintbeauty()).params.at("skin"), 0);
  EXPECT_EQ(Node(NodeKind::beautyzones()).params.at("skin"), 0);
  EXPECT_EQ(K("beauty").param("large")->def, 0.25);
  EXPECT_EQ(K("paintbeauty").param("large")->def, 0.2);
  EXPECT_EQ(K("beauty").param("redness")->def, 0.35);
  EXPECT_EQ(K("beautyzones").param("redness")->def, 0.3);
  EXPECT_EQ(K("paintbeauty").params.size(), 32u);
  EXPECT_EQ(K("beautyzones").params.size(), 37u);
}

TEST(KindTables, AiKeyerIsTheGreenKeyerPlusBand) {
  const auto& key = K("greenkey").params;
  const auto& ai = K("greenkeyai").params;
  ASSERT_EQ(ai.size(), key.size() + 1);
  EXPECT_TRUE(std::equal(key.begin(), key.end(), ai.begin()));
  EXPECT_EQ(ai.back(), (ParamSpec{"band", {"Largeur des bords confiés à l'IA"}, 2, 60, 12, 1, " px", false, {}}));
}

TEST(KindTables, EffectRowsPortsHintsAndParameters) {
  const auto ports = [](const char* id) {
    std::vector<std::pair<std::string, bool>> out;
    for (const auto& p : K(id).inputs) out.emplace_back(p.name, p.isMatte);
    return out;
  };
  using P = std::vector<std::pair<std::string, bool>>;
  EXPECT_EQ(ports("wheels"), (P{{"Front", false}, {"Matte", true}}));
  EXPECT_EQ(ports("comp"), (P{{"Front", false}, {"Back", false}, {"Alpha", true}, {"Matte 2", true}, {"Matte 3", true}, {"Matte 4", true}}));
  EXPECT_EQ(ports("edgeblur"), (P{{"Matte", false}}));
  EXPECT_EQ(ports("matteedit"), (P{{"Matte", false}, {"Garbage", true}}));
  EXPECT_EQ(ports("negative"), (P{{"Front", false}}));
  EXPECT_EQ(ports("depthdof"), (P{{"Front", false}, {"Depth", false}, {"Matte", true}}));

  int ownHints = 0;
  for (const auto* list : {&NodeKind::fx(), &NodeKind::fxMore()})
    for (const auto& k : *list) ownHints += k->hint != NodeKind::defaultHint();
  EXPECT_EQ(ownHints, 10);
  EXPECT_EQ(NodeKind::defaultHint().raw,
            "Réglez l'effet à droite. Reliez un masque de forme à l'entrée Masque (bleue) pour limiter l'effet à une zone.");

  const NodeKind& comp = K("comp");
  ASSERT_EQ(comp.params.size(), 13u);
  EXPECT_EQ(comp.params[6], (ParamSpec{"mattes", {"Nombre d'entrées Masque (1 = Alpha seule)"}, 1, 4, 1, 1, "", false, {}}));
  EXPECT_EQ(comp.params[0].options.raw[8], "Subtract (Fond − Source)");
  EXPECT_EQ(comp.params[10].key, "compo");
  EXPECT_EQ(K("kaleido").param("spin")->unit, "°/s");
  EXPECT_EQ(K("skintexture").params[11].options.raw.back(), "Texture seule (gris 50 %)");
  EXPECT_EQ(K("blur").params[0], (ParamSpec{"size", {"Taille"}, 0, 2000, 8, 1, " px", false, {}}));
  EXPECT_EQ(K("wheels").tintHex, 0xD27A50u);
  EXPECT_EQ(K("depthparallax").params[5].unit, " s");

  int px = 0;
  for (const auto* list : {&NodeKind::fx(), &NodeKind::fxMore()})
    for (const auto& k : *list)
      for (const auto& p : k->params) px += p.unit == " px";
  EXPECT_EQ(px, 51);
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
