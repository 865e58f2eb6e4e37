// Groups evaluate exactly as the nodes they fold: flat, nested, with controls, bypassed, and
// after a trip through the stored form.
#include <tuple>

#include "document/project_file.h"
#include "engine_fixture.h"
#include "groups/group_fold.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {

constexpr int kW = 16, kH = 8;

SourcePicture gradient() {
  std::vector<float> v(std::size_t(kW) * kH * 4);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      float* p = &v[(std::size_t(y) * kW + x) * 4];
      p[0] = float(x) / kW, p[1] = float(y) / kH, p[2] = 0.5f * float((x + y) % 3), p[3] = 1;
    }
  return SourcePicture::fromFloats(kW, kH, v);
}

// media → color → blur → invert (matted by a mask) → glow → transform → output; the five
// effects and the mask between media and output are what the tests fold.
struct Chain {
  GraphSnapshot g;
  Uuid media, output, color, blur, invert, glow, xform, mask;
};

Chain chain() {
  Chain c;
  auto add = [&](const char* kind, double x, std::map<std::string, double> params = {}) {
    Node n(*NodeKind::find(kind));
    for (const auto& [k, v] : params) n.params[k] = v;
    c.g.nodes.push_back(n);
    c.g.positions[n.id] = {x, 100};
    return n.id;
  };
  c.media = add("media", 0);
  c.color = add("color", 100, {{"sat", 1.4}, {"exposure", 0.3}});
  c.blur = add("blur", 200, {{"size", 3}});
  c.invert = add("invert", 300);
  c.glow = add("glow", 400);
  c.xform = add("xform", 500, {{"tx", 10}});
  c.mask = add("mask", 250);
  c.output = add("output", 600);
  c.g.nodes.front().mediaID = Uuid::generate();
  auto wire = [&](Uuid a, Uuid b, int port = 0) { c.g.edges.push_back(Edge{Uuid::generate(), a, b, port, 0}); };
  wire(c.media, c.color);
  wire(c.color, c.blur);
  wire(c.blur, c.invert);
  wire(c.mask, c.invert, 1);
  wire(c.invert, c.glow);
  wire(c.glow, c.xform);
  wire(c.xform, c.output);
  return c;
}

class GroupEvaluation : public EngineTest {
protected:
  std::vector<float> render(const GraphSnapshot& g, const Uuid& output, const Uuid& mediaID) {
    Engine& e = engine();
    e.setComp(kW, kH, true);
    e.addSource(gradient(), mediaID);
    e.evaluate(g.nodes, g.edges, 0);
    return pixels(output);
  }
};

}  // namespace

TEST_F(GroupEvaluation, FoldedNodesGiveThePicturesOfTheFlatGraphAndFollowTheirControls) {
  Chain c = chain();
  const Uuid mediaID = *c.g.nodes.front().mediaID;
  const std::vector<float> flat = render(c.g, c.output, mediaID);
  ASSERT_EQ(flat.size(), std::size_t(kW * kH * 4));

  // Five effects and the mask in one group, then that group with two of its neighbours folded
  // again inside a second one: nested two deep.
  GraphSnapshot once = c.g;
  const Folded inner = foldGroup(once, {{c.blur, c.invert, c.mask, c.glow}, "Dedans", {}, {}, "", ""});
  ASSERT_TRUE(inner.id) << inner.refusal;
  GraphSnapshot twice = once;
  const Folded outer = foldGroup(twice, {{c.color, *inner.id, c.xform}, "Dehors", {}, {}, "", ""});
  ASSERT_TRUE(outer.id) << outer.refusal;
  ASSERT_EQ(twice.nodes.size(), 3u);  // media, output, the outer group
  GraphSnapshot direct = once;  // the outer group's input feeds the inner group itself
  ASSERT_TRUE(foldGroup(direct, {{*inner.id, c.xform}, "Direct", {}, {}, "", ""}).id);

  struct Case {
    const char* name;
    const GraphSnapshot* graph;
  } cases[] = {{"one group", &once}, {"nested", &twice}, {"input into a nested group", &direct}};
  for (const auto& k : cases) EXPECT_EQ(render(*k.graph, c.output, mediaID), flat) << k.name;

  // Through the stored form of a world.
  Batch world;
  world.id = Uuid::generate();
  world.name = "groupes";
  std::tie(world.nodes, world.edges, world.positions) = std::tie(twice.nodes, twice.edges, twice.positions);
  std::string error;
  const std::optional<Batch> back = ProjectCodec::decodeBatch(ProjectCodec::encodeBatch(world), &error);
  ASSERT_TRUE(back) << error;
  EXPECT_EQ(render({back->nodes, back->edges, back->positions}, c.output, mediaID), flat);

  // A control on the group drives the inner node's parameter.
  GraphSnapshot grouped = c.g;
  const Folded f = foldGroup(grouped, {{c.color, c.blur}, "Réglage", {}, {{c.color, "exposure", "Expo"}}, "", ""});
  ASSERT_TRUE(f.id);
  Node& group = grouped.nodes.back();
  ASSERT_EQ(group.id, *f.id);
  EXPECT_DOUBLE_EQ(group.params.at("c0"), 0.3);  // the inner value, shown on the group
  group.params["c0"] = -0.5;

  GraphSnapshot changed = c.g;
  for (auto& n : changed.nodes)
    if (n.id == c.color) n.params["exposure"] = -0.5;
  EXPECT_EQ(render(grouped, c.output, mediaID), render(changed, c.output, mediaID));

  // Bypassed, the group is its first input: the same as the chain without colour and blur.
  group.bypass = true;
  GraphSnapshot without = c.g;
  std::erase_if(without.edges, [&](const Edge& e) { return e.to == c.blur || e.from == c.blur || e.to == c.color; });
  without.edges.push_back(Edge{Uuid::generate(), c.media, c.invert, 0, 0});
  EXPECT_EQ(render(grouped, c.output, mediaID), render(without, c.output, mediaID));
}
