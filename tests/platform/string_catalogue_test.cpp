#include <gtest/gtest.h>

#include "graph/node_kind.h"
#include "graph/port_spec.h"
#include "platform/string_catalogue.h"

using namespace ombrik;

namespace {
struct LanguageGuard {
  AppLanguage saved = interfaceLanguage();
  ~LanguageGuard() { setInterfaceLanguage(saved); }
};
}  // namespace

TEST(StringCatalogue, EnglishLookupFallsBackToTheFrenchKey) {
  EXPECT_EQ(translate("Masque de forme", AppLanguage::english), "Shape Mask");
  EXPECT_EQ(translate("Masque de forme", AppLanguage::french), "Masque de forme");
  EXPECT_EQ(translate("Texte sans traduction", AppLanguage::english), "Texte sans traduction");
  EXPECT_EQ(translate("", AppLanguage::english), "");
}

TEST(StringCatalogue, TextsMadeFromNumberedTemplatesFindTheirEnglish) {
  EXPECT_EQ(translate("Mask 02 créé", AppLanguage::english), "Mask 02 created");
  EXPECT_EQ(translate("Mask 12 seul · double I pour revoir tous les masques", AppLanguage::english),
            "Mask 12 alone · double I to see every mask again");
  EXPECT_EQ(translate("Mask 02 créé", AppLanguage::french), "Mask 02 créé");
  EXPECT_EQ(translate("Mask 02 perdu", AppLanguage::english), "Mask 02 perdu");  // no such template
  EXPECT_EQ(translate("Rendu terminé : Plan_v02.mov", AppLanguage::english), "Render finished: Plan_v02.mov");
  EXPECT_EQ(translate("Rendu terminé : ", AppLanguage::english), "Render finished: ");
  // Names beside counts, and two names apart.
  const std::pair<const char*, const char*> mixed[] = {
      {"Rassembler « Plan 2 » : 3/12…", "Packing \"Plan 2\": 3/12…"},
      {"Rassembler « A » : copie de 1 élément…", "Packing \"A\": copying 1 item…"},
      {"LUT du monde « Drone 04 » : drone.cube", "World LUT \"Drone 04\": drone.cube"},
      {"Rassembler « B » interrompu : No space left on device", "Packing \"B\" stopped: No space left on device"},
      {"LUT du monde « X » sans deux-points", "LUT du monde « X » sans deux-points"},  // the words between are missing
      {"Export interrompu : annulé", "Export stopped: cancelled"},  // a field that is a text of its own
  };
  for (const auto& [french, english] : mixed) EXPECT_EQ(translate(french, AppLanguage::english), english) << french;
}

TEST(StringCatalogue, EveryTableTextHasEnglish) {
  std::vector<std::string> missing;
  auto need = [&](const std::string& s) {
    if (!catalogueHasEnglish(s)) missing.push_back(s);
  };
  for (const auto& cat : NodeKind::categories()) need(cat.name.raw);
  for (const auto& k : NodeKind::all()) {
    for (const auto* text : {&k->title, &k->tag, &k->category, &k->info, &k->hint}) need(text->raw);
    for (const auto& p : k->params) {
      need(p.label.raw);
      for (const auto& o : p.options.raw) need(o);
    }
  }
  EXPECT_TRUE(missing.empty()) << missing.size() << " missing, first: " << missing.front();
  EXPECT_GT(catalogueSize(), 700u);
}

TEST(StringCatalogue, LocalizedValuesFollowTheInterfaceLanguage) {
  LanguageGuard guard;
  const NodeKind& color = **NodeKind::find("color");
  setInterfaceLanguage(AppLanguage::french);
  EXPECT_EQ(color.title.value(), "Réglage couleur");
  EXPECT_EQ(color.params[0].label.value(), "Exposition");
  setInterfaceLanguage(AppLanguage::english);
  EXPECT_EQ(color.title.value(), "Color Correct");
  EXPECT_EQ(color.params[0].label.value(), "Exposure");
  EXPECT_EQ(color.category.value(), "Color");
  const auto options = (*NodeKind::find("mask"))->param("blend")->options.value();
  ASSERT_EQ(options.size(), 6u);
  EXPECT_EQ(options[1], "Subtract");
}

TEST(PortLabels, NineNamesShowTheirOwnTextOthersStayAsTheyAre) {
  LanguageGuard guard;
  struct Case {
    AppLanguage language;
    const char *name, *label;
  };
  // "Front" is also the forehead zone of the beauty tables; the port keeps its own text.
  const Case cases[] = {{AppLanguage::french, "Front", "Source"},           {AppLanguage::french, "Back", "Fond"},
                        {AppLanguage::french, "Matte 3", "Masque 3"},       {AppLanguage::french, "Garbage", "Garbage"},
                        {AppLanguage::french, "Position (Gmask / Tracker)", "Position (masque / tracker)"},
                        {AppLanguage::french, "Original (rush)", "Original (rush)"},
                        {AppLanguage::english, "Back", "Background"},      {AppLanguage::english, "Matte", "Matte"},
                        {AppLanguage::english, "Front", "Source"},         {AppLanguage::english, "Depth", "Depth"}};
  for (const Case& c : cases) {
    setInterfaceLanguage(c.language);
    EXPECT_EQ((PortSpec{c.name, false}).label(), c.label) << c.name;
  }
}
