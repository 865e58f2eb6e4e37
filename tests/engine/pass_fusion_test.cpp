// Merged runs of pixel-wise passes give exactly the pictures of the passes one by one, for every
// kind of the catalogue, and keep in registers only what nothing else reads.
#include <cmath>
#include <set>

#include "engine/kernel_stages.h"
#include "engine/pass_fusion.h"
#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;

class PassFusionTest : public EngineTest {
protected:
  // The output of a graph evaluated lean (as the viewer and playback do), merged or not.
  struct Both {
    std::vector<float> merged, alone;
    Engine::FusionStats stats;
  };
  Both evaluateBoth(const std::vector<Node>& nodes, const std::vector<Edge>& edges, const Uuid& out) {
    Engine& e = engine();
    e.leanEval = true;
    Both b;
    for (const bool fuse : {false, true}) {  // ends merging, as the engine's default
      e.fusePasses = fuse;
      e.evaluate(nodes, edges, 0.7f);
      (fuse ? b.merged : b.alone) = pixels(out);
    }
    b.stats = e.lastFusion();
    return b;
  }
};

TEST_F(PassFusionTest, EveryPixelWiseKindGivesTheSamePictureMerged) {
  Engine& e = engine();
  e.setComp(40, 24, true);
  const Node media = mediaOf(SampleImage::make(160, 96));
  PassFusion shapes(e.device(), {});
  int pixelWise = 0;
  for (const auto& kind : NodeKind::all()) {
    if (!kind->kernel || !shapes.pixelWise(*kind->kernel)) continue;
    ++pixelWise;
    // media → colour (leads the run) → the kind → a second colour → output: the kind's input
    // and output both stay in registers.
    Node lead = node("color"), n(kind), tail = node("color"), output = node("output");
    lead.params["gamma"] = 1.3;
    lead.params["sat"] = 1.4;
    tail.params["exposure"] = -0.4;
    const Both b = evaluateBoth({media, lead, n, tail, output},
                                {wire(media, lead), wire(lead, n), wire(n, tail), wire(tail, output)}, output.id);
    ASSERT_EQ(b.merged.size(), 40u * 24 * 4) << kind->id;
    EXPECT_EQ(b.merged, b.alone) << kind->id;
    if (kind->id == "blur") continue;  // without a matte it blurs into its result, no kernel of its own
    EXPECT_EQ(b.stats.runs, 1) << kind->id;
    // A kind blurring its input first runs its blur between the two colours: it merges with the tail only.
    EXPECT_EQ(b.stats.merged, kind->blurParam ? 2 : 3) << kind->id;
  }
  // The colour rows of the catalogue and the pixel-wise tails of others: a change to the rules
  // that quietly stops merging them shows here.
  EXPECT_GE(pixelWise, 30);
}

TEST_F(PassFusionTest, WhatIsReadElsewhereIsWrittenAndValuesRoundAsInTextures) {
  Engine& e = engine();
  e.setComp(64, 36, true);
  const Node media = mediaOf(SampleImage::make(128, 72));
  // colour feeds the glow's bright pass and its screen: its picture must be written; the
  // blur's upscale, the screen and the grain run as one kernel.
  Node color = node("color"), glow = node("glow"), grain = node("grain"), output = node("output");
  color.params["gamma"] = 1.1;
  glow.params["size"] = 40;
  grain.params["amount"] = 0.08;
  const std::vector<Node> nodes = {media, color, glow, grain, output};
  const std::vector<Edge> edges = {wire(media, color), wire(color, glow), wire(glow, grain), wire(grain, output)};
  const Both b = evaluateBoth(nodes, edges, output.id);  // the engine is left as merged
  EXPECT_EQ(b.merged, b.alone);
  EXPECT_GE(b.stats.runs, 1);
  EXPECT_FALSE(e.outputs.count(glow.id)) << "a picture kept in registers is no result to show";
  EXPECT_TRUE(e.outputs.count(color.id)) << "read again after the run, so written";
  // A second consumer (a node reading no pass, as an AI tool reads its input) keeps colour's
  // picture even where the first consumer merges it away.
  Node tail = node("invert"), ai = node("magicmask");
  e.evaluate({media, color, tail, ai, output}, {wire(media, color), wire(color, tail), wire(color, ai), wire(tail, output)},
             0.7f);
  EXPECT_TRUE(e.outputs.count(color.id));
  EXPECT_GE(e.lastFusion().runs, 1);
  // The viewed node (alwaysEval) keeps its picture, the same as passes one by one give.
  e.alwaysEval = {glow.id};
  const Both viewed = evaluateBoth(nodes, edges, glow.id);
  ASSERT_FALSE(viewed.merged.empty());
  EXPECT_EQ(viewed.merged, viewed.alone);
  e.alwaysEval.clear();
  // Not lean (the thumbnails' full render): every node keeps its picture.
  e.leanEval = false;
  e.evaluate(nodes, edges, 0.7f);
  for (const auto& n : nodes) EXPECT_TRUE(e.outputs.count(n.id)) << n.kind->id;

  // Values between stages round as the texture would, at every scale: tiny values (below the
  // normal halves), negatives, values past the largest half once brightened, and ordinary ones.
  e.setComp(8, 4, true);
  const float values[] = {3e-6f, 1e-5f, 5.9e-5f, -0.3f, -2e-5f, 0.1f, 0.7071f, 1.0f, 3.3f, 900.0f, 1500.0f, 60000.0f};
  std::vector<float> rgba;
  for (int i = 0; i < 32; ++i) rgba.insert(rgba.end(), {values[i % 12], values[(i + 5) % 12], values[(i + 7) % 12], 1.0f});
  const Node values8x4 = mediaOf(SourcePicture::fromFloats(8, 4, rgba));
  // Each chain: colour at an exposure, then kinds that carry what rounding did to the next
  // stage (the second colour undoes the exposure, so values below the normal halves come back).
  struct Chain {
    double exposure;
    std::vector<const char*> kinds;
  };
  const Chain chains[] = {{0, {"contrast", "invert", "color"}}, {-6, {"color", "contrast"}}, {-12, {"color", "invert"}},
                          {-20, {"color"}}, {6, {"color"}}, {12, {"invert", "color"}}};
  // Colour with nothing but its exposure, so what reaches the next stage is known.
  auto exposed = [](double stops) {
    Node n = node("color");
    n.params = {{"exposure", stops}, {"lift", 0.0}, {"gamma", 1.0}, {"gain", 1.0}, {"sat", 1.0}, {"temp", 0.0}};
    return n;
  };
  for (const auto& c : chains) {
    Node first = exposed(c.exposure), sink = node("output");
    std::vector<Node> chain = {values8x4, first};
    std::vector<Edge> links = {wire(values8x4, first)};
    for (const char* k : c.kinds) {
      Node n = std::string(k) == "color" ? exposed(-c.exposure) : node(k);
      if (std::string(k) == "contrast") n.params["contrast"] = 1.7;
      links.push_back(wire(chain.back(), n));
      chain.push_back(n);
    }
    links.push_back(wire(chain.back(), sink));
    chain.push_back(sink);
    const Both both = evaluateBoth(chain, links, sink.id);
    EXPECT_EQ(both.stats.merged, int(c.kinds.size()) + 1) << c.exposure;
    ASSERT_EQ(both.merged.size(), both.alone.size());
    for (std::size_t i = 0; i < both.merged.size(); ++i)  // equal, or both not a number
      ASSERT_TRUE(both.merged[i] == both.alone[i] || (std::isnan(both.merged[i]) && std::isnan(both.alone[i])))
          << "exposure " << c.exposure << " value " << i << ": " << both.merged[i] << " vs " << both.alone[i];
  }
}

TEST(KernelStages, ShapesFromTheKernelText) {
  struct Case {
    const char* text;
    bool lead, pixelWise;
  };
  const Case cases[] = {
      {"void k() { ivec2 g = pixelID(); if (outsideOf(g, imageSize(W1))) return; imageStore(W1, g, texelFetch(T0, g, 0)); }",
       true, true},
      // reads a neighbour: may lead, never join
      {"void k() { ivec2 g = pixelID(); imageStore(W1, g, texelFetch(T0, g + ivec2(1, 0), 0)); }", true, false},
      {"void k() { ivec2 g = pixelID(); imageStore(W1, g, textureLod(T0, vec2(0.5), 0.0)); }", true, false},
      {"void k() { ivec2 g = pixelID(); imageStore(W1, g, sampleZero(T0, vec2(0.5))); }", true, false},
      // `g` moved after it was the pixel
      {"void k() { ivec2 g = pixelID(); g = g / 2; imageStore(W1, g, texelFetch(T0, g, 0)); }", false, false},
      // two writes, shared memory, a table
      {"void k() { ivec2 g = pixelID(); imageStore(W1, g, vec4(0)); imageStore(W1, g, vec4(1)); }", false, false},
      {"shared vec4 s[4]; void k() { ivec2 g = pixelID(); imageStore(W1, g, s[0]); }", false, false},
      {"void k() { ivec2 g = pixelID(); imageStore(W1, g, vec4(D[0])); }", false, false},
  };
  for (const auto& c : cases) {
    const StageShape s = stageShape(c.text, "k", {"sampleZero"});
    EXPECT_EQ(s.lead, c.lead) << c.text;
    EXPECT_EQ(s.pixelWise, c.pixelWise) << c.text;
  }
}
