#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "../platform/temp_dir.h"
#include "colour_reference.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;

TEST_F(EngineTest, ConformLetterboxesOddAspectRatiosCentred) {
  Engine& e = engine();
  e.setComp(16, 8, true);
  const Uuid tall = Uuid::generate(), wide = Uuid::generate();
  e.addSource(flat(3, 6, {0.5f, 0.25f, 1, 1}), tall);  // scale 8/6: 4 px wide, centred at 6..10
  const auto a = e.readPixels(e.conform(tall));
  ASSERT_EQ(a.size(), 16u * 8 * 4);
  for (int x = 0; x < 16; ++x) {
    const Px p = at(a, 16, x, 4);
    if (x < 6 || x >= 10) {
      EXPECT_EQ(p.r, 0.0f) << x;  // black bars
      EXPECT_EQ(p.a, 1.0f);
    } else {
      EXPECT_NEAR(p.r, 0.5f, 1e-3) << x;
      EXPECT_NEAR(p.b, 1.0f, 1e-3);
    }
  }
  e.setComp(8, 8, true);
  e.addSource(flat(8, 2, {1, 1, 1, 1}), wide);  // scale 1: rows 3..4 only
  const auto b = e.readPixels(e.conform(wide));
  for (int y = 0; y < 8; ++y) EXPECT_EQ(at(b, 8, 5, y).g, (y == 3 || y == 4) ? 1.0f : 0.0f) << y;
}

TEST_F(EngineTest, ColourKindFollowsItsFormulaEndToEnd) {
  Engine& e = engine();
  e.setComp(8, 4, true);
  Node media = node("media"), color = node("color"), out = node("output");
  media.mediaID = Uuid::generate();
  e.addSource(flat(8, 4, {0.5f, 0.25f, 0.125f, 1}), *media.mediaID);
  e.evaluate({media, color, out}, {wire(media, color), wire(color, out)}, 0);
  const auto px = pixels(out.id);
  ASSERT_FALSE(px.empty());
  const auto c = colourAtDefaults({0.5f, 0.25f, 0.125f});
  const Px p = at(px, 8, 3, 2);
  EXPECT_NEAR(p.r, c[0], 2e-3);
  EXPECT_NEAR(p.g, c[1], 2e-3);
  EXPECT_NEAR(p.b, c[2], 2e-3);
  EXPECT_EQ(p.a, 1.0f);
}

TEST_F(EngineTest, CycleReadsAsAnUnconnectedInput) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node media = node("media"), a = node("color"), b = node("color"), c = node("grain");
  media.mediaID = Uuid::generate();
  e.addSource(flat(4, 4, {0.2f, 0.2f, 0.2f, 1}), *media.mediaID);
  // a <- b <- a is a loop with no picture; c is fed by the media and still computes.
  e.evaluate({a, b, media, c}, {wire(b, a), wire(a, b), wire(media, c)}, 0);
  EXPECT_FALSE(e.outputs.count(a.id));
  EXPECT_FALSE(e.outputs.count(b.id));
  EXPECT_TRUE(e.outputs.count(c.id));
  // A loop through a fed node: the node that closes it sees nothing on that port.
  Node d = node("color");
  e.evaluate({media, a, d}, {wire(media, a), wire(d, a, 1), wire(a, d)}, 0);
  EXPECT_TRUE(e.outputs.count(a.id));
  EXPECT_TRUE(e.outputs.count(d.id));
}

TEST_F(EngineTest, FirstEdgeOnAPortWins) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node m1 = node("media"), m2 = node("media"), out = node("output");
  m1.mediaID = Uuid::generate();
  m2.mediaID = Uuid::generate();
  e.addSource(flat(4, 4, {1, 0, 0, 1}), *m1.mediaID);
  e.addSource(flat(4, 4, {0, 1, 0, 1}), *m2.mediaID);
  e.evaluate({m1, m2, out}, {wire(m2, out), wire(m1, out)}, 0);
  EXPECT_EQ(at(pixels(out.id), 4, 1, 1).g, 1.0f);
}

TEST_F(EngineTest, LeanEvaluationSkipsSideBranchesUnlessAskedFor) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node media = node("media"), main = node("color"), side = node("grain"), out = node("output");
  media.mediaID = Uuid::generate();
  e.addSource(flat(4, 4, {0.3f, 0.3f, 0.3f, 1}), *media.mediaID);
  const std::vector<Node> nodes{media, main, side, out};
  const std::vector<Edge> edges{wire(media, main), wire(main, out), wire(media, side)};
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
}

TEST_F(EngineTest, CheckpointWithAFileCutsItsUpstream) {
  Engine& e = engine();
  TempDir dir;
  e.setComp(6, 4, true);
  Node media = node("media"), color = node("color"), mux = node("mux"), out = node("output");
  media.mediaID = Uuid::generate();
  e.addSource(flat(6, 4, {0.1f, 0.2f, 0.3f, 1}), *media.mediaID);
  const std::vector<Edge> edges{wire(media, color), wire(color, mux), wire(mux, out)};

  // No file for this frame: the upstream runs and the checkpoint passes it through.
  e.evaluate({media, color, mux, out}, edges, 0);
  ASSERT_TRUE(e.outputs.count(color.id));
  const auto live = pixels(out.id);
  EXPECT_EQ(live, e.readPixels(e.outputs.at(color.id)));

  // A cached frame: a flat orange picture written as the checkpoint's file.
  const auto cached = e.conformed(flat(6, 4, {1, 0.5f, 0, 1}));
  const auto file = dir.path / "00000.tif";
  ASSERT_TRUE(e.export_(cached, file));
  mux.magicFile = file.string();
  e.evaluate({media, color, mux, out}, edges, 0);
  EXPECT_FALSE(e.outputs.count(color.id));  // not evaluated
  EXPECT_FALSE(e.outputs.count(media.id));
  EXPECT_FALSE(e.muxAlpha.count(mux.id));   // no alpha file beside it
  ASSERT_TRUE(e.export_(e.conformed(flat(6, 4, {0.5f, 0.5f, 0.5f, 1})), dir.path / "00000_a.tif"));
  e.evaluate({media, color, mux, out}, edges, 0);
  EXPECT_FALSE(e.outputs.count(color.id));
  ASSERT_TRUE(e.muxAlpha.count(mux.id));
  EXPECT_NEAR(e.readPixels(e.muxAlpha.at(mux.id))[0], 0.5f, 3e-3);
  const Px p = at(pixels(out.id), 6, 2, 2);
  EXPECT_NEAR(p.r, 1.0f, 1e-3);
  EXPECT_NEAR(p.g, 0.5f, 2e-3);
  EXPECT_NEAR(p.b, 0.0f, 1e-3);
  mux.bypass = true;  // a bypassed checkpoint reads live again
  e.evaluate({media, color, mux, out}, edges, 0);
  EXPECT_TRUE(e.outputs.count(color.id));
}

TEST_F(EngineTest, BypassRules) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node media = node("media"), color = node("color"), mask = node("mask");
  media.mediaID = Uuid::generate();
  media.bypass = true;  // a source still shows its picture
  color.bypass = true;  // an effect passes Front unchanged
  mask.bypass = true;   // a shape mask gives full white
  e.addSource(flat(4, 4, {0.25f, 0.5f, 0.75f, 1}), *media.mediaID);
  e.evaluate({media, color, mask}, {wire(media, color), wire(media, mask)}, 0);
  const Px m = at(pixels(media.id), 4, 0, 0);
  EXPECT_EQ(m.b, 0.75f);
  EXPECT_EQ(pixels(color.id), pixels(media.id));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(pixels(mask.id)[i * 4], 1.0f);
}

TEST_F(EngineTest, TransformMovesThePictureAndLeavesTransparentBlackBehind) {
  Engine& e = engine();
  e.setComp(8, 4, true);
  Node media = node("media"), xf = node("xform");
  media.mediaID = Uuid::generate();
  e.addSource(flat(8, 4, {1, 1, 1, 1}), *media.mediaID);
  xf.params["tx"] = 25;  // a quarter of the width to the right
  e.evaluate({media, xf}, {wire(media, xf)}, 0);
  const auto px = pixels(xf.id);
  for (int x = 0; x < 8; ++x) {
    EXPECT_EQ(at(px, 8, x, 1).r, x < 2 ? 0.0f : 1.0f) << x;
    EXPECT_EQ(at(px, 8, x, 1).a, x < 2 ? 0.0f : 1.0f) << x;
  }
}

TEST_F(EngineTest, ZeroCompEvaluatesNothing) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  Node media = node("media");
  media.mediaID = Uuid::generate();
  e.addSource(flat(4, 4, {1, 1, 1, 1}), *media.mediaID);
  e.evaluate({media}, {}, 0);
  ASSERT_FALSE(e.outputs.empty());
  e.setComp(0, 0, true);
  e.evaluate({media}, {}, 0);
  EXPECT_TRUE(e.outputs.empty());
}

TEST_F(EngineTest, SteadyFrameAllocatesNoTexture) {
  Engine& e = engine();
  e.setComp(16, 8, true);
  Node media = node("media"), color = node("color"), glow = node("glow"), grain = node("grain"), xf = node("xform"),
       out = node("output");
  media.mediaID = Uuid::generate();
  e.addSource(flat(20, 10, {0.9f, 0.8f, 0.7f, 1}), *media.mediaID);
  const std::vector<Node> nodes{media, color, glow, grain, xf, out};
  const std::vector<Edge> edges{wire(media, color), wire(color, glow), wire(glow, grain), wire(grain, xf), wire(xf, out)};
  e.evaluate(nodes, edges, 0);
  ASSERT_TRUE(e.outputs.count(out.id));
  const std::size_t textures = e.device().liveTextureCount(), pool = e.poolSize();
  e.evaluate(nodes, edges, 0.04f);
  e.evaluate(nodes, edges, 0.08f);
  EXPECT_EQ(e.device().liveTextureCount(), textures);
  EXPECT_EQ(e.poolSize(), pool);
}

TEST_F(EngineTest, RawFramesRoundTripAndCap) {
  Engine& e = engine();
  TempDir dir;
  e.setComp(5, 3, true);
  std::vector<float> v(5 * 3 * 4);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = h16(float(i) / 7.0f - 2.0f);  // beyond 0..1 on purpose
  const auto t = e.device().createTexture(5, 3, gpu::Format::rgba16Float);
  std::vector<std::uint16_t> halves;
  for (float f : v) halves.push_back(floatToHalf(f));
  ASSERT_TRUE(e.device().write(t, halves.data(), halves.size() * 2));
  const auto file = dir.path / "00001.dn";
  ASSERT_TRUE(e.writeRaw(t, file));
  EXPECT_EQ(std::filesystem::file_size(file), 8u + 5 * 3 * 8);
  {
    std::ifstream in(file, std::ios::binary);
    unsigned char head[8];
    in.read(reinterpret_cast<char*>(head), 8);
    EXPECT_EQ(head[0], 5);
    EXPECT_EQ(head[4], 3);
    EXPECT_EQ(head[1] | head[2] | head[3] | head[5] | head[6] | head[7], 0);
  }
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
    EXPECT_EQ(capped->width(), want.first);
    EXPECT_EQ(capped->height(), want.second);
  }
  EXPECT_EQ(e.rawNoise(blank(3000, 10), false)->width(), 3000);  // uncapped read keeps the size
}

TEST_F(EngineTest, PassesOutsideAnEvaluationOrOfUnknownKernelsDoNothing) {
  Engine& e = engine();
  e.setComp(4, 4, true);
  const auto a = e.conformed(flat(4, 4, {0.5f, 0.5f, 0.5f, 1}));
  const auto out = e.conformed(flat(4, 4, {0.25f, 0, 0, 1}));
  const auto before = e.readPixels(out);
  e.dispatch("k_mix2", {a, a, out}, {0.5f});  // no open evaluation: nothing recorded
  EXPECT_EQ(e.readPixels(out), before);
  auto commands = e.device().begin();
  commands->dispatch("k_nosuchkernel", {a, out}, {1.0f});
  EXPECT_EQ(commands->passCount(), 0u);
  ASSERT_TRUE(e.device().submitAndWait(*commands));
  EXPECT_EQ(e.readPixels(out), before);  // the texture keeps what it held
}

// A long chain costs its length: a node that gives nothing is not produced again by each node
// below it, and a chain carrying a picture is pulled upstream first, in one pass.
TEST_F(EngineTest, LongChainsProduceEachNodeOnce) {
  Engine& e = engine();
  e.setComp(2, 2, true);
  for (const bool fed : {false, true}) {
    Node media = node("media");
    media.mediaID = Uuid::generate();
    if (fed) e.addSource(flat(2, 2, {0.5f, 0.5f, 0.5f, 1}), *media.mediaID);
    std::vector<Node> nodes{media};
    std::vector<Edge> edges;
    for (int i = 0; i < 300; ++i) {
      nodes.push_back(node("dot"));
      edges.push_back(wire(nodes[nodes.size() - 2], nodes.back()));
    }
    nodes.push_back(node("output"));
    edges.push_back(wire(nodes[nodes.size() - 2], nodes.back()));
    std::reverse(nodes.begin(), nodes.end());  // listed bottom first: order must not matter
    e.viewAlphaOf = nodes.front().id;
    e.evaluate(nodes, edges, 0);
    EXPECT_EQ(e.producedCount(), nodes.size()) << fed;
    EXPECT_EQ(e.outputs.count(nodes.front().id), fed ? 1u : 0u);
    if (fed) {
      EXPECT_NEAR(at(pixels(nodes.front().id), 2, 1, 1).r, 0.5f, 1e-3);
    }
    EXPECT_EQ(e.viewAlpha != nullptr, fed);
  }
  e.viewAlphaOf.reset();
}
