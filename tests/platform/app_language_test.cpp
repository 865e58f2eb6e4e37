#include <gtest/gtest.h>

#include "platform/app_language.h"
#include "platform/user_defaults.h"
#include "temp_dir.h"

using namespace ombrik;

TEST(AppLanguage, CodesRoundTripAndOthersAreRefused) {
  for (AppLanguage l : {AppLanguage::english, AppLanguage::french}) EXPECT_EQ(AppLanguage::fromCode(l.code()), l);
  EXPECT_EQ(AppLanguage(AppLanguage::english).code(), "en");
  for (const char* other : {"FR", "", "de"}) EXPECT_FALSE(AppLanguage::fromCode(other)) << other;
}

// The default follows the installation form; a choice overrides it, survives a restart, and
// `apply` writes only the platform's list, never a choice.
TEST(AppLanguage, DefaultChoiceAndRestart) {
  TempDir dir;
  const auto file = (dir.path / "Ombrik.conf").string();
  {
    UserDefaults defaults(file);
    EXPECT_EQ(AppLanguage::current(defaults, /*installed=*/false), AppLanguage::french);
    EXPECT_EQ(AppLanguage::current(defaults, /*installed=*/true), AppLanguage::english);
    AppLanguage::apply(defaults, /*installed=*/false);
    EXPECT_EQ(defaults.stringList("AppleLanguages"), std::vector<std::string>{"fr"});
    EXPECT_FALSE(defaults.contains("ombrikLanguage"));
    AppLanguage::apply(defaults, /*installed=*/true);
    EXPECT_EQ(defaults.stringList("AppleLanguages"), std::vector<std::string>{"en"});
    defaults.set("ombrikLanguage", "de");  // not a language we speak: the default holds
    EXPECT_EQ(AppLanguage::current(defaults, false), AppLanguage::french);
    EXPECT_EQ(AppLanguage::current(defaults, true), AppLanguage::english);
    defaults.set("ombrikLanguage", "fr");
    EXPECT_EQ(AppLanguage::current(defaults, true), AppLanguage::french);
    AppLanguage::choose(defaults, AppLanguage::english);
    EXPECT_EQ(defaults.stringList("AppleLanguages"), std::vector<std::string>{"en"});
  }
  UserDefaults reopened(file);
  EXPECT_EQ(reopened.string("ombrikLanguage"), "en");
  EXPECT_EQ(AppLanguage::current(reopened, false), AppLanguage::english);
  EXPECT_EQ(reopened.stringList("AppleLanguages"), std::vector<std::string>{"en"});
}

TEST(UserDefaults, AbsentKeysReadTheTableDefaultsAndValuesPersist) {
  TempDir dir;
  UserDefaults defaults((dir.path / "Ombrik.conf").string());
  EXPECT_TRUE(defaults.boolean("trackCorrect"));
  EXPECT_FALSE(defaults.string("lastProjectPath"));
  EXPECT_EQ(UserDefaults::spec("boostPercent")->type, UserDefaultSpec::Type::real);
  EXPECT_EQ(UserDefaults::spec("nosuchkey"), nullptr);

  defaults.set("trackCorrect", false);
  defaults.set("playMaxSide", 1024);
  defaults.set("filmCutSens", 0.75);
  defaults.sync();
  UserDefaults reopened((dir.path / "Ombrik.conf").string());
  EXPECT_FALSE(reopened.boolean("trackCorrect"));
  EXPECT_EQ(reopened.integer("playMaxSide"), 1024);
  EXPECT_DOUBLE_EQ(reopened.real("filmCutSens"), 0.75);
  reopened.remove("trackCorrect");
  EXPECT_TRUE(reopened.boolean("trackCorrect"));
}
