// The generic effect path: kernels written by the user, what a kernel receives, and the inputs it is given.
#include <regex>

#include "engine_fixture.h"
#include "gpu/device.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
// A user node's kind: Front and a matte (as invert has), parameters as given, its kernel by name.
KindRef userKind(const std::string& kernel, std::vector<ParamSpec> params) {
  auto k = std::make_shared<NodeKind>(**NodeKind::find("invert"));
  k->id = "user." + kernel;
  k->kernel = kernel;
  k->params = std::move(params);
  return KindRef(k);
}
ParamSpec param(const char* key, double def, const char* unit = "") { return ParamSpec{key, {key}, -1e6, 1e6, def, 0.01, unit, false, {}}; }

std::vector<std::string> lines(const std::string& s) {
  std::vector<std::string> out;
  std::size_t at = 0;
  for (std::size_t nl; (nl = s.find('\n', at)) != std::string::npos; at = nl + 1) out.push_back(s.substr(at, nl - at));
  out.push_back(s.substr(at));
  return out;
}
}  // namespace

TEST_F(EngineTest, UserKernelsRunLikeCatalogueEffectsAndTheirErrorsPointIntoTheText) {
  Engine& e = engine();
  // "s" is reserved and declares nothing; "gain" keeps index 1; a second "gain" and "1x" are dropped.
  auto error = e.compileUserKernel("fx_user_gain", "float user_twice(float v) { return 2.0 * v; }",
                                   "o.rgb = s.rgb * gain + user_twice(offset);", {"s", "gain", "gain", "1x", "offset"});
  ASSERT_FALSE(error) << *error;
  e.setComp(8, 4, true);
  Node media = mediaOf(flat(8, 4, {0.25f, 0.5f, 0.125f, 1}));
  Node fx(userKind("fx_user_gain", {param("s", 9), param("gain", 3), param("gain2", 0), param("1x", 0), param("offset", 0.05)}));
  e.evaluate({media, fx}, {wire(media, fx)}, 0);
  auto px = pixels(fx.id);
  ASSERT_FALSE(px.empty());
  EXPECT_NEAR(px[0], 0.25f * 3 + 0.1f, 1e-3);  // P[1] = 3, P[4] = 0.05
  EXPECT_NEAR(px[1], 0.5f * 3 + 0.1f, 2e-3);
  // A new text replaces the pipeline at once.
  ASSERT_FALSE(e.compileUserKernel("fx_user_gain", "", "o.rgb = vec3(0.75);", {}));
  e.evaluate({media, fx}, {wire(media, fx)}, 0);
  EXPECT_NEAR(pixels(fx.id)[2], 0.75f, 1e-3);

  // The kernel writes what it was given: P[0], P[1], P[2] and the comp width.
  ASSERT_FALSE(e.compileUserKernel("fx_probe_p", "", "o = vec4(P[0], P[1], P[15] + P[2], I.width + I.useMatte * 1000.0);", {}));
  e.pxScale = 0.5f;  // half preview: " px" values halve, " %" values don't
  Node probe(userKind("fx_probe_p", {param("size", 40, " px"), param("pos", 30, " %")}));
  e.evaluate({media, probe}, {wire(media, probe)}, 0);
  px = pixels(probe.id);
  ASSERT_FALSE(px.empty());
  EXPECT_EQ(px[0], 20.0f);
  EXPECT_EQ(px[1], 30.0f);
  EXPECT_EQ(px[2], 0.0f);  // padded with zeros up to 16
  EXPECT_EQ(px[3], 8.0f);  // width, no matte bound
  Node mask = node("mask");
  mask.bypass = true;  // full white, as a matte
  e.evaluate({media, probe, mask}, {wire(media, probe), wire(mask, probe, 1)}, 0);
  EXPECT_EQ(pixels(probe.id)[3], 1008.0f);

  // Compile errors point into the user's text.
  const struct {
    const char *name, *functions, *code;
    std::vector<std::string> params;
    const char* firstLine;
  } cases[] = {
      {"fx_user_bad1", "", "o.rgb = undefined_thing;\no.a = 1.0;", {"gain"}, "code, ligne 1 : .*undefined_thing.*"},
      {"fx_user_bad2", "float ok() { return 1.0; }\nfloat broken() { return nope; }", "o.rgb = s.rgb;", {}, "fonctions, ligne 2 : .*nope.*"},
      // A parameter named with a word of the shading language fails in the parameter lines.
      {"fx_user_bad3", "", "o.rgb = s.rgb;", {"in"}, "réglages : .*"},
  };
  for (const auto& c : cases) {
    const auto err = e.compileUserKernel(c.name, c.functions, c.code, c.params);
    ASSERT_TRUE(err) << c.name;
    EXPECT_TRUE(std::regex_match(lines(*err)[0], std::regex(c.firstLine))) << *err;
  }
  std::string many;
  for (int i = 0; i < 10; ++i) many += "float v" + std::to_string(i) + " = missing" + std::to_string(i) + ";\n";
  const auto err = e.compileUserKernel("fx_user_bad4", "", many, {});
  ASSERT_TRUE(err);
  const auto l = lines(*err);
  EXPECT_EQ(l.size(), 8u) << *err;  // the first eight errors
  EXPECT_EQ(l[0].rfind("code, ligne 1 : ", 0), 0u) << *err;
  EXPECT_EQ(l[7].rfind("code, ligne 8 : ", 0), 0u) << *err;
  EXPECT_FALSE(e.device().hasPipeline("fx_user_bad4"));  // nothing stored on failure
}
