#include <regex>

#include "engine_fixture.h"
#include "gpu/device.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
// A user node's kind: Front and a matte, parameters by name, its kernel by name.
KindRef userKind(const std::string& kernel, const std::vector<std::pair<std::string, double>>& params) {
  auto k = std::make_shared<NodeKind>(**NodeKind::find("invert"));
  k->id = "user." + kernel;
  k->kernel = kernel;
  k->params.clear();
  for (const auto& [key, def] : params) {
    ParamSpec spec;
    spec.key = spec.label.raw = key;
    spec.min = -10, spec.max = 10, spec.def = def, spec.step = 0.01;
    k->params.push_back(spec);
  }
  return KindRef(k);
}

std::vector<std::string> lines(const std::string& s) {
  std::vector<std::string> out;
  std::size_t at = 0;
  while (at <= s.size()) {
    const auto nl = s.find('\n', at);
    out.push_back(s.substr(at, nl == std::string::npos ? std::string::npos : nl - at));
    if (nl == std::string::npos) break;
    at = nl + 1;
  }
  return out;
}
}  // namespace

TEST_F(EngineTest, UserKernelRunsLikeACatalogueEffect) {
  Engine& e = engine();
  // "s" is reserved and declares nothing; "gain" keeps index 1; a second "gain" and "1x" are dropped.
  auto error = e.compileUserKernel("fx_user_gain", "float user_twice(float v) { return 2.0 * v; }",
                                   "o.rgb = s.rgb * gain + user_twice(offset);", {"s", "gain", "gain", "1x", "offset"});
  ASSERT_FALSE(error) << *error;
  e.setComp(4, 2, true);
  Node media = node("media");
  media.mediaID = Uuid::generate();
  e.addSource(flat(4, 2, {0.25f, 0.5f, 0.125f, 1}), *media.mediaID);
  Node fx(userKind("fx_user_gain", {{"s", 9}, {"gain", 3}, {"gain2", 0}, {"1x", 0}, {"offset", 0.05}}));
  e.evaluate({media, fx}, {wire(media, fx)}, 0);
  const auto px = pixels(fx.id);
  ASSERT_FALSE(px.empty());
  EXPECT_NEAR(px[0], 0.25f * 3 + 0.1f, 1e-3);  // P[1] = 3, P[4] = 0.05
  EXPECT_NEAR(px[1], 0.5f * 3 + 0.1f, 2e-3);

  // A new text replaces the pipeline at once.
  ASSERT_FALSE(e.compileUserKernel("fx_user_gain", "", "o.rgb = vec3(0.75);", {}));
  e.evaluate({media, fx}, {wire(media, fx)}, 0);
  EXPECT_NEAR(pixels(fx.id)[2], 0.75f, 1e-3);
}

TEST_F(EngineTest, UserKernelErrorsPointIntoTheUsersText) {
  Engine& e = engine();
  auto err = e.compileUserKernel("fx_user_bad1", "", "o.rgb = undefined_thing;\no.a = 1.0;", {"gain"});
  ASSERT_TRUE(err);
  EXPECT_TRUE(std::regex_match(lines(*err)[0], std::regex("code, ligne 1 : .*undefined_thing.*"))) << *err;

  err = e.compileUserKernel("fx_user_bad2", "float ok() { return 1.0; }\nfloat broken() { return nope; }",
                            "o.rgb = s.rgb;", {});
  ASSERT_TRUE(err);
  EXPECT_TRUE(std::regex_match(lines(*err)[0], std::regex("fonctions, ligne 2 : .*nope.*"))) << *err;

  // A parameter named with a word of the shading language fails in the parameter lines.
  err = e.compileUserKernel("fx_user_bad3", "", "o.rgb = s.rgb;", {"in"});
  ASSERT_TRUE(err);
  EXPECT_EQ(err->rfind("réglages : ", 0), 0u) << *err;

  std::string many;
  for (int i = 0; i < 10; ++i) many += "float v" + std::to_string(i) + " = missing" + std::to_string(i) + ";\n";
  err = e.compileUserKernel("fx_user_bad4", "", many, {});
  ASSERT_TRUE(err);
  const auto l = lines(*err);
  EXPECT_EQ(l.size(), 8u) << *err;
  EXPECT_EQ(l[0].rfind("code, ligne 1 : ", 0), 0u) << *err;
  EXPECT_EQ(l[7].rfind("code, ligne 8 : ", 0), 0u) << *err;
  EXPECT_FALSE(e.device().hasPipeline("fx_user_bad4"));  // nothing stored on failure
}
