// Evaluating graphs: conforming sources, wiring rules, lean evaluation, checkpoints, raw frames.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "../platform/temp_dir.h"
#include "colour_reference.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;

TEST_F(EngineTest, SourcesFitTheCompCentredOnBlackOrTransparent) {
  Engine& e = engine();
  e.setComp(16, 8, true);
  const Uuid tall = Uuid::generate(), wide = Uuid::generate();
  e.addSource(flat(3, 6, {0.5f, 0.25f, 1, 1}), tall);  // scale 8/6: 4 px wide, centred at 6..10
  const auto a = e.readPixels(e.conform(tall));
  ASSERT_EQ(a.size(), 16u * 8 * 4);
  for (int x = 0; x < 16; ++x) {
    const Px p = at(a, 16, x, 4);
    const bool bar = x < 6 || x >= 10;
    EXPECT_NEAR(p.r, bar ? 0 : 0.5f, bar ? 0 : 1e-3) << x;  // black bars
    EXPECT_NEAR(p.b, bar ? 0 : 1.0f, bar ? 0 : 1e-3) << x;
    EXPECT_EQ(p.a, 1.0f) << x;
  }
  e.setComp(8, 8, true);
  e.addSource(flat(8, 2, {1, 1, 1, 1}), wide);  // scale 1: rows 3..4 only
  const auto b = e.readPixels(e.conform(wide));
  for (int y = 0; y < 8; ++y) EXPECT_EQ(at(b, 8, 5, y).g, (y == 3 || y == 4) ? 1.0f : 0.0f) << y;

  // Fitted at any size, on black (8-bit frames) or transparent (work textures), and as thumbnails.
  e.setComp(8, 4, true);
  const SourcePicture square = flat(2, 2, {1, 1, 1, 1});
  const auto fast = e.fastFrame(square, 8, 4);  // 4x4 of white centred in 8x4, black bars
  ASSERT_EQ(fast->format(), gpu::Format::rgba8Unorm);
  EXPECT_NEAR((*e.readColor(fast, 0, 1, 0))[0], 0.0f, 1e-6);
  EXPECT_NEAR((*e.readColor(fast, 3, 1, 0))[0], 1.0f, 1e-6);
  EXPECT_EQ(e.fastFrame(square, 0, 4), nullptr);
  EXPECT_EQ(e.fastFrame(SourcePicture{}, 8, 4), nullptr);

  const auto fit = e.fitTexture(square, "fit-test");
  EXPECT_EQ(fit, e.workTexture("fit-test"));
  const auto px = e.readPixels(fit);
  EXPECT_EQ(px[(1 * 8 + 0) * 4 + 3], 0.0f);  // transparent outside
  EXPECT_EQ(px[(1 * 8 + 4) * 4 + 3], 1.0f);

  const Uuid id = Uuid::generate();
  e.addSource(flat(4, 2, {0.2f, 0.2f, 0.2f, 1}), id);
  const auto thumb = e.sourceThumb(id, 16);
  ASSERT_TRUE(thumb);
  EXPECT_EQ(thumb->width, 16);
  EXPECT_EQ(thumb->height, 8);
  EXPECT_EQ((*thumb->rgba)[0], 51);
}

// Cycles, doubled ports, bypass, a moved picture and an empty comp, on one small comp.
TEST_F(EngineTest, WiringBypassTransformAndCompositeRules) {
  Engine& e = engine();
  e.setComp(8, 4, true);
  {  // The colour kind end to end, against its own formula.
    Node m = mediaOf(flat(8, 4, {0.5f, 0.25f, 0.125f, 1})), color = node("color"), out = node("output");
    e.evaluate({m, color, out}, {wire(m, color), wire(color, out)}, 0);
    const auto px = pixels(out.id);
    ASSERT_FALSE(px.empty());
    const auto c = colourAtDefaults({0.5f, 0.25f, 0.125f});
    const Px p = at(px, 8, 3, 2);
    EXPECT_NEAR(p.r, c[0], 2e-3);
    EXPECT_NEAR(p.g, c[1], 2e-3);
    EXPECT_NEAR(p.b, c[2], 2e-3);
    EXPECT_EQ(p.a, 1.0f);
  }
  Node m = mediaOf(flat(8, 4, {0.25f, 0.5f, 0.75f, 1})), a = node("color"), b = node("color"), c = node("grain");
  // a <- b <- a is a loop with no picture; c is fed by the media and still computes.
  e.evaluate({a, b, m, c}, {wire(b, a), wire(a, b), wire(m, c)}, 0);
  EXPECT_FALSE(e.outputs.count(a.id) || e.outputs.count(b.id)) << "a loop gives no picture";
  EXPECT_TRUE(e.outputs.count(c.id));
  // A loop through a fed node: the node that closes it sees nothing on that port.
  Node d = node("color");
  e.evaluate({m, a, d}, {wire(m, a), wire(d, a, 1), wire(a, d)}, 0);
  EXPECT_TRUE(e.outputs.count(a.id) && e.outputs.count(d.id)) << "a loop through a fed node";

  // Two edges on one port: the first listed wins.
  Node green = mediaOf(flat(8, 4, {0, 1, 0, 1})), out = node("output");
  e.evaluate({m, green, out}, {wire(green, out), wire(m, out)}, 0);
  EXPECT_EQ(at(pixels(out.id), 8, 1, 1).g, 1.0f) << "first edge on a port";

  // Bypassed: a source still shows its picture, an effect passes Front, a shape mask is white.
  Node color = node("color"), mask = node("mask");
  m.bypass = color.bypass = mask.bypass = true;
  e.evaluate({m, color, mask}, {wire(m, color), wire(m, mask)}, 0);
  EXPECT_EQ(at(pixels(m.id), 8, 0, 0).b, 0.75f);
  EXPECT_EQ(pixels(color.id), pixels(m.id));
  for (int i = 0; i < 32; ++i) EXPECT_EQ(pixels(mask.id)[i * 4], 1.0f) << "bypassed mask " << i;
  m.bypass = false;

  // A transform a quarter of the width to the right leaves transparent black behind.
  Node white = mediaOf(flat(8, 4, {1, 1, 1, 1})), xf = node("xform");
  xf.params["tx"] = 25;
  e.evaluate({white, xf}, {wire(white, xf)}, 0);
  for (int x = 0; x < 8; ++x) {
    EXPECT_EQ(at(pixels(xf.id), 8, x, 1).r, x < 2 ? 0.0f : 1.0f) << x;
    EXPECT_EQ(at(pixels(xf.id), 8, x, 1).a, x < 2 ? 0.0f : 1.0f) << x;
  }

  // No comp: nothing is evaluated.
  e.setComp(0, 0, true);
  e.evaluate({m}, {}, 0);
  EXPECT_TRUE(e.outputs.empty());

  // A comp with nothing on Back, and a blur giving its matte out as alpha.
  e.setComp(4, 4, true);
  Node blue = mediaOf(flat(4, 4, {0.5f, 0.25f, 1, 1})), comp = node("comp"), blur = node("blur"), matte = node("mask");
  // Nothing on a comp's Back: Front on transparent black, premultiplied output by default.
  e.evaluate({blue, comp}, {wire(blue, comp)}, 0);
  auto px = pixels(comp.id);
  ASSERT_FALSE(px.empty());
  EXPECT_NEAR(px[0], 0.5f, 1e-3);
  EXPECT_NEAR(px[3], 1.0f, 1e-3);

  matte.bypass = true;
  blur.params["mattemode"] = 1;  // the matte is blurred and given out as alpha
  e.evaluate({blue, matte, blur}, {wire(blue, blur), wire(matte, blur, 1)}, 0);
  ASSERT_TRUE(e.alphaSideOf(blur.id));
  EXPECT_NEAR(e.readPixels(e.alphaSideOf(blur.id))[0], 1.0f, 1e-3);
}

// What an evaluation costs: lean runs skip side branches, a steady frame allocates nothing, a long
// chain produces each node once, and passes outside an evaluation do nothing.
TEST_F(EngineTest, EvaluationDoesOnlyTheWorkAskedFor) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node m = mediaOf(flat(4, 4, {0.3f, 0.3f, 0.3f, 1})), main = node("color"), side = node("grain"), out = node("output");
  const std::vector<Node> nodes{m, main, side, out};
  const std::vector<Edge> edges{wire(m, main), wire(main, out), wire(m, side)};
  e.leanEval = true;
  e.evaluate(nodes, edges, 0);
  EXPECT_TRUE(e.outputs.count(out.id));
  EXPECT_FALSE(e.outputs.count(side.id));
  e.alwaysEval = {side.id};  // the node selected in the editor
  e.evaluate(nodes, edges, 0);
  EXPECT_TRUE(e.outputs.count(side.id));
  e.leanEval = false;  // full: every sink
  e.alwaysEval.clear();
  e.evaluate(nodes, edges, 0);
  EXPECT_TRUE(e.outputs.count(side.id));
  EXPECT_EQ(e.producedCount(), 4u);

  // A steady frame allocates no texture.
  e.setComp(16, 8, true);
  Node big = mediaOf(flat(20, 10, {0.9f, 0.8f, 0.7f, 1})), color = node("color"), glow = node("glow"), grain = node("grain"),
       xf = node("xform"), sink = node("output");
  const std::vector<Node> steadyNodes{big, color, glow, grain, xf, sink};
  const std::vector<Edge> steadyEdges{wire(big, color), wire(color, glow), wire(glow, grain), wire(grain, xf), wire(xf, sink)};
  e.evaluate(steadyNodes, steadyEdges, 0);
  ASSERT_TRUE(e.outputs.count(sink.id));
  const std::size_t textures = e.device().liveTextureCount(), pool = e.poolSize();
  e.evaluate(steadyNodes, steadyEdges, 0.04f);
  e.evaluate(steadyNodes, steadyEdges, 0.08f);
  EXPECT_EQ(e.device().liveTextureCount(), textures);
  EXPECT_EQ(e.poolSize(), pool);

  // A long chain costs its length: a node that gives nothing is not produced again by each node
  // below it, and a chain carrying a picture is pulled upstream first, in one pass.
  e.setComp(2, 2, true);
  for (const bool fed : {false, true}) {
    Node source = node("media");
    source.mediaID = Uuid::generate();  // a picture only when fed
    if (fed) e.addSource(flat(2, 2, {0.5f, 0.5f, 0.5f, 1}), *source.mediaID);
    std::vector<Node> chain{source};
    std::vector<Edge> links;
    for (int i = 0; i <= 300; ++i) {
      chain.push_back(node(i < 300 ? "dot" : "output"));
      links.push_back(wire(chain[chain.size() - 2], chain.back()));
    }
    std::reverse(chain.begin(), chain.end());  // listed bottom first: order must not matter
    e.viewAlphaOf = chain.front().id;
    e.evaluate(chain, links, 0);
    EXPECT_EQ(e.producedCount(), chain.size()) << fed;
    EXPECT_EQ(e.outputs.count(chain.front().id), fed ? 1u : 0u);
    if (fed) {
      EXPECT_NEAR(at(pixels(chain.front().id), 2, 1, 1).r, 0.5f, 1e-3);
    }
    EXPECT_EQ(e.viewAlpha != nullptr, fed);
  }
  e.viewAlphaOf.reset();

  // Passes outside an evaluation, or of unknown kernels, do nothing.
  e.setComp(4, 4, true);
  const auto a = e.conformed(flat(4, 4, {0.5f, 0.5f, 0.5f, 1})), target = e.conformed(flat(4, 4, {0.25f, 0, 0, 1}));
  const auto before = e.readPixels(target);
  e.dispatch("k_mix2", {a, a, target}, {0.5f});  // no open evaluation: nothing recorded
  EXPECT_EQ(e.readPixels(target), before);
  auto commands = e.device().begin();
  commands->dispatch("k_nosuchkernel", {a, target}, {1.0f});
  EXPECT_EQ(commands->passCount(), 0u);
  ASSERT_TRUE(e.device().submitAndWait(*commands));
  EXPECT_EQ(e.readPixels(target), before);  // the texture keeps what it held
}

TEST_F(EngineTest, CheckpointFilesAndRawFrames) {
  Engine& e = engine();
  TempDir dir;
  e.setComp(6, 4, true);
  Node m = mediaOf(flat(6, 4, {0.1f, 0.2f, 0.3f, 1})), color = node("color"), mux = node("mux"), out = node("output");
  const std::vector<Edge> edges{wire(m, color), wire(color, mux), wire(mux, out)};
  const auto run = [&] { e.evaluate({m, color, mux, out}, edges, 0); };

  // No file for this frame: the upstream runs and the checkpoint passes it through.
  run();
  ASSERT_TRUE(e.outputs.count(color.id));
  EXPECT_EQ(pixels(out.id), e.readPixels(e.outputs.at(color.id)));

  // A cached frame: a flat orange picture written as the checkpoint's file.
  ASSERT_TRUE(e.export_(e.conformed(flat(6, 4, {1, 0.5f, 0, 1})), dir.path / "00000.tif"));
  mux.magicFile = (dir.path / "00000.tif").string();
  run();
  EXPECT_FALSE(e.outputs.count(color.id) || e.outputs.count(m.id)) << "upstream not evaluated";
  EXPECT_FALSE(e.muxAlpha.count(mux.id));  // no alpha file beside it
  ASSERT_TRUE(e.export_(e.conformed(flat(6, 4, {0.5f, 0.5f, 0.5f, 1})), dir.path / "00000_a.tif"));
  run();
  EXPECT_FALSE(e.outputs.count(color.id));
  ASSERT_TRUE(e.muxAlpha.count(mux.id));
  EXPECT_NEAR(e.readPixels(e.muxAlpha.at(mux.id))[0], 0.5f, 3e-3);
  const Px p = at(pixels(out.id), 6, 2, 2);
  EXPECT_NEAR(p.r, 1.0f, 1e-3);
  EXPECT_NEAR(p.g, 0.5f, 2e-3);
  EXPECT_NEAR(p.b, 0.0f, 1e-3);
  mux.bypass = true;  // a bypassed checkpoint reads live again
  run();
  EXPECT_TRUE(e.outputs.count(color.id));

  // Raw frames round-trip exactly and are capped when asked.
  e.setComp(5, 3, true);
  std::vector<float> v(5 * 3 * 4);
  std::vector<std::uint16_t> halves;
  for (std::size_t i = 0; i < v.size(); ++i) halves.push_back(floatToHalf(v[i] = h16(float(i) / 7.0f - 2.0f)));  // beyond 0..1
  const auto t = e.device().createTexture(5, 3, gpu::Format::rgba16Float);
  ASSERT_TRUE(e.device().write(t, halves.data(), halves.size() * 2));
  const auto file = dir.path / "00001.dn";
  ASSERT_TRUE(e.writeRaw(t, file));
  EXPECT_EQ(std::filesystem::file_size(file), 8u + 5 * 3 * 8);
  std::string head(8, '\0');
  std::ifstream(file, std::ios::binary).read(head.data(), 8);
  EXPECT_EQ(head, std::string("\5\0\0\0\3\0\0\0", 8)) << "width and height, 32-bit little-endian";
  EXPECT_EQ(e.readPixels(e.rawNoise(file, false)), v);

  std::filesystem::resize_file(file, 8 + 5 * 3 * 8 - 1);  // short by one byte
  EXPECT_EQ(e.rawNoise(dir.path / "00001.dn", true), nullptr);  // uncached key, short file
  std::string error;
  EXPECT_FALSE(e.writeRaw(e.device().createTexture(2, 2, gpu::Format::rgba8Unorm), dir.path / "x.dn", &error));
  EXPECT_EQ(error, "Texture non copiable");
  EXPECT_FALSE(std::filesystem::exists(dir.path / "x.dn"));

  auto blank = [&](int w, int h) {
    const auto path = dir.path / (std::to_string(w) + "x" + std::to_string(h) + ".dn");
    std::ofstream out(path, std::ios::binary);
    const unsigned char head[8] = {static_cast<unsigned char>(w & 0xFF), static_cast<unsigned char>(w >> 8), 0, 0,
                                   static_cast<unsigned char>(h & 0xFF), static_cast<unsigned char>(h >> 8), 0, 0};
    out.write(reinterpret_cast<const char*>(head), 8);
    out << std::string(std::size_t(w) * h * 8, '\0');
    return path;
  };
  const std::pair<std::pair<int, int>, std::pair<int, int>> caps[] = {
      {{4096, 2304}, {2048, 1152}}, {{3000, 40}, {2048, 27}}, {{3000, 10}, {2048, 16}}, {{40, 3000}, {27, 2048}}};
  for (auto [in, want] : caps) {
    const auto capped = e.rawNoise(blank(in.first, in.second), true);
    ASSERT_TRUE(capped);
    EXPECT_EQ(std::pair(capped->width(), capped->height()), want) << in.first << "x" << in.second;
  }
  EXPECT_EQ(e.rawNoise(blank(3000, 10), false)->width(), 3000);  // uncapped read keeps the size
}
