// The generic effect path: what a kernel receives, and the inputs it is given.
#include "engine_fixture.h"
#include "gpu/device.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
KindRef probeKind(const std::string& kernel, std::vector<ParamSpec> params, std::vector<PortSpec> inputs) {
  auto k = std::make_shared<NodeKind>(**NodeKind::find("invert"));
  k->id = "user." + kernel;
  k->kernel = kernel;
  k->params = std::move(params);
  k->inputs = std::move(inputs);
  return KindRef(k);
}
ParamSpec param(const char* key, double def, const char* unit) { return ParamSpec{key, {key}, -1e6, 1e6, def, 1, unit, false, {}}; }
}  // namespace

TEST_F(EngineTest, EffectsReceiveScaledPaddedParametersAndTheirInfo) {
  Engine& e = engine();
  // The kernel writes what it was given: P[0], P[1], P[2] and the comp width.
  ASSERT_FALSE(e.compileUserKernel("fx_probe_p", "", "o = vec4(P[0], P[1], P[15] + P[2], I.width + I.useMatte * 1000.0);", {}));
  e.setComp(8, 4, true);
  e.pxScale = 0.5f;  // half preview: " px" values halve, " %" values don't
  Node media = node("media");
  media.mediaID = Uuid::generate();
  e.addSource(flat(8, 4, {0.5f, 0.5f, 0.5f, 1}), *media.mediaID);
  Node fx(probeKind("fx_probe_p", {param("size", 40, " px"), param("pos", 30, " %")}, {{"Front", false}, {"Matte", true}}));
  e.evaluate({media, fx}, {wire(media, fx)}, 0);
  auto px = pixels(fx.id);
  ASSERT_FALSE(px.empty());
  EXPECT_EQ(px[0], 20.0f);
  EXPECT_EQ(px[1], 30.0f);
  EXPECT_EQ(px[2], 0.0f);  // padded with zeros up to 16
  EXPECT_EQ(px[3], 8.0f);  // width, no matte bound

  Node mask = node("mask");
  mask.bypass = true;  // full white, as a matte
  e.evaluate({media, fx, mask}, {wire(media, fx), wire(mask, fx, 1)}, 0);
  EXPECT_EQ(pixels(fx.id)[3], 1008.0f);
  e.pxScale = 1;
}

TEST_F(EngineTest, CompositeWithoutBackAndBlurMatteMode) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node media = node("media"), comp = node("comp"), blur = node("blur"), mask = node("mask");
  media.mediaID = Uuid::generate();
  e.addSource(flat(4, 4, {0.5f, 0.25f, 1, 1}), *media.mediaID);
  // Nothing on Back: Front on transparent black, premultiplied output by default.
  e.evaluate({media, comp}, {wire(media, comp)}, 0);
  auto px = pixels(comp.id);
  ASSERT_FALSE(px.empty());
  EXPECT_NEAR(px[0], 0.5f, 1e-3);
  EXPECT_NEAR(px[3], 1.0f, 1e-3);

  mask.bypass = true;
  blur.params["mattemode"] = 1;  // the matte is blurred and given out as alpha
  e.evaluate({media, mask, blur}, {wire(media, blur), wire(mask, blur, 1)}, 0);
  ASSERT_TRUE(e.alphaSideOf(blur.id));
  EXPECT_NEAR(e.readPixels(e.alphaSideOf(blur.id))[0], 1.0f, 1e-3);
}
