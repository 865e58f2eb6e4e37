// Folding nodes into groups and back, in the open world: inputs, refusals, opening and closing,
// and undo of each step.
#include <gtest/gtest.h>

#include <algorithm>

#include "groups/group_fold.h"
#include "temp_model.h"

using namespace ombrik;

namespace {

struct World : test::GraphDesk {
  Uuid add(const char* kind, double x, double y = 100) { return GraphDesk::add(kind, {x, y}); }
  void wire(Uuid a, Uuid b, int port = 0, int fromPort = 0) { m.connect(a, b, port, fromPort); }
};

// Wires without their ids, which every fold renews.
std::multiset<std::tuple<Uuid, Uuid, int, int>> wires(const std::vector<Edge>& edges) {
  std::multiset<std::tuple<Uuid, Uuid, int, int>> out;
  for (const auto& e : edges) out.insert({e.from, e.to, e.port, e.fromPort});
  return out;
}

std::set<Uuid> ids(const std::vector<Node>& nodes) {
  std::set<Uuid> out;
  for (const auto& n : nodes) out.insert(n.id);
  return out;
}

}  // namespace

TEST(Groups, InputsGatherBySourceOrderedLeftToRightWithMattesLast) {
  World w;
  const Uuid s1 = w.add("media", 0), s2 = w.add("media", 0, 300), mask = w.add("mask", 0, 500);
  const Uuid b = w.add("color", 100), c = w.add("color", 200), d = w.add("invert", 300);
  w.wire(s1, b);
  w.wire(mask, b, 1);
  w.wire(s1, c);  // one wire source feeding two inner nodes: one input, two targets
  w.wire(s2, d);
  const auto id = w.m.collapse({b, c, d}, "G", std::nullopt, {}, "", "");
  ASSERT_TRUE(id);
  const NodeGroup& g = *w.node(*id).group;
  ASSERT_EQ(g.inputs.size(), 3u);
  struct Want {
    std::string name;
    bool matte;
    std::vector<GroupTarget> targets;
  } want[] = {{"Front", false, {{b, 0}, {c, 0}}}, {"Front 2", false, {{d, 0}}}, {"Matte", true, {{b, 1}}}};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(g.inputs[i].name, want[i].name) << i;
    EXPECT_EQ(g.inputs[i].isMatte, want[i].matte) << i;
    EXPECT_EQ(g.inputs[i].targets, want[i].targets) << i;
  }
  EXPECT_EQ(g.output, d);  // nothing leaves: the rightmost member that feeds no other
  EXPECT_EQ(wires(w.m._edges), (std::multiset<std::tuple<Uuid, Uuid, int, int>>{
                                   {s1, *id, 0, 0}, {s2, *id, 1, 0}, {mask, *id, 2, 0}}));
  EXPECT_EQ(w.m._selected, id);
  EXPECT_TRUE(w.m._selection.empty());
  const auto at = w.m.layout.position(*id);
  ASSERT_TRUE(at);
  EXPECT_DOUBLE_EQ(at->x, 200);  // the members' mean
}

TEST(Groups, RefusalsChangeNothing) {
  struct Case { const char* name; int fromPort; bool twoOutputs; std::string status; } cases[] = {
      {"two nodes leave", 0, true,
       "Impossible de fusionner : la sélection a plusieurs sorties. Fusionnez une chaîne qui se termine par un seul node."},
      {"a mask's own output leaves", 2, false,
       "Impossible de fusionner : une sortie de masque séparée d'un masque de forme sort de la sélection."},
  };
  for (const auto& k : cases) {
    World w;
    const Uuid a = w.add("mask", 100), b = w.add("color", 200), out = w.add("output", 400);
    w.wire(a, b, 1);
    w.wire(b, out);
    w.wire(a, out, 1, k.fromPort);
    if (k.twoOutputs) w.wire(a, w.add("invert", 300));
    const GraphSnapshot before = w.m.snapshot();
    EXPECT_FALSE(w.m.collapse({a, b}, "G", std::nullopt, {}, "", "")) << k.name;
    EXPECT_EQ(w.m._status, k.status) << k.name;
    EXPECT_EQ(w.m.snapshot(), before) << k.name;
  }
  World w;
  w.m._selection = {*w.m.outputNode()};
  EXPECT_FALSE(w.m.mergeSelection("G"));
  EXPECT_EQ(w.m._status, "Sélectionnez les nodes à fusionner (le Media et le node Sortie restent dehors).");
}

TEST(Groups, OpenCloseAndDissolveGiveBackTheGraphAndUndoWalksEachStep) {
  World w;
  const Uuid media = w.add("media", 0), a = w.add("color", 100), b = w.add("blur", 200), out = *w.m.outputNode();
  w.wire(media, a);
  w.wire(a, b);
  w.wire(b, out);
  w.settle();
  const GraphSnapshot flat = w.m.snapshot();
  w.m._viewedNode = b;
  const auto id = w.m.collapse({a, b}, "G", std::nullopt, {{a, "exposure", "Expo"}}, "", "");
  ASSERT_TRUE(id);
  EXPECT_EQ(w.m._viewedNode, id);
  w.settle();
  const GraphSnapshot closed = w.m.snapshot();

  // Opened: the nodes are back where they stood, framed; the control's value went down.
  w.m.setParams(*id, {{"c0", 0.7}});
  w.settle();
  w.m.expandGroup(*id, false);
  EXPECT_EQ(ids(w.m._nodes), ids(flat.nodes));
  EXPECT_EQ(wires(w.m._edges), wires(flat.edges));
  EXPECT_EQ(w.m.layout.positions(), flat.positions);
  EXPECT_DOUBLE_EQ(w.node(a).params.at("exposure"), 0.7);
  ASSERT_EQ(w.m._openGroups.size(), 1u);
  EXPECT_EQ(w.m._openGroups[0].id, *id);
  EXPECT_EQ(w.m._selected, b);
  EXPECT_EQ(w.m._viewedNode, b);
  w.settle();

  // A node dropped in the frame joins on closing; a media node there doesn't.
  const Uuid joined = w.add("invert", 150, 150), media2 = w.add("media", 150, 60);
  w.settle();
  w.m._selection = {a};
  w.m.groupKey();  // Ctrl+G on a member closes its group, under its own id
  ASSERT_TRUE(w.m.nodeByID(*id));
  EXPECT_TRUE(w.m._openGroups.empty());
  const NodeGroup& g = *w.node(*id).group;
  EXPECT_EQ(ids(g.nodes), (std::set<Uuid>{a, b, joined}));
  EXPECT_TRUE(w.m.nodeByID(media2));
  EXPECT_DOUBLE_EQ(w.node(*id).params.at("c0"), 0.7);
  w.settle();

  // Each step undone in turn, the open frame with it.
  w.m.undo();
  EXPECT_EQ(w.m._openGroups.size(), 1u);
  EXPECT_TRUE(w.m.nodeByID(a));
  w.m.undo();  // before the two nodes were added
  w.m.undo();  // before the group was opened
  EXPECT_TRUE(w.m._openGroups.empty());
  EXPECT_EQ(ids(w.m._nodes), ids(closed.nodes));
  w.m.undo();  // before c0 moved
  w.m.undo();  // before the fold
  EXPECT_EQ(ids(w.m._nodes), ids(flat.nodes));
  EXPECT_EQ(wires(w.m._edges), wires(flat.edges));

  // Dissolved for good: plain nodes again, no frame.
  w.m.redo();
  w.m._selected = id;
  w.m._viewedNode = id;
  w.m.dissolveGroup();
  EXPECT_EQ(w.m._viewedNode, b);  // the group's output, read before the nodes were replaced
  EXPECT_EQ(ids(w.m._nodes), ids(flat.nodes));
  EXPECT_TRUE(w.m._openGroups.empty());
}

TEST(Groups, ClosingAGroupThatNowHasTwoOutputsLeavesItOpen) {
  World w;
  const Uuid a = w.add("color", 100), b = w.add("blur", 200), out = *w.m.outputNode();
  w.wire(a, b);
  w.wire(b, out);
  const auto id = w.m.collapse({a, b}, "G", std::nullopt, {}, "", "");
  ASSERT_TRUE(id);
  w.m.expandGroup(*id, false);
  w.wire(a, w.add("invert", 600, 600));  // outside the frame: a second way out
  w.m.closeGroup(*id);
  EXPECT_EQ(w.m._openGroups.size(), 1u);
  EXPECT_TRUE(w.m.nodeByID(a));
  EXPECT_NE(w.m._status.find("plusieurs sorties"), std::string::npos);

  // Without the frame, the nodes stay as they are.
  w.m._selection = {a};
  w.m.dissolveGroup();
  EXPECT_TRUE(w.m._openGroups.empty());
}

TEST(Groups, ControlsMoveBetweenTheGroupAndItsNodes) {
  World w;
  const Uuid a = w.add("color", 100), b = w.add("blur", 200);
  w.wire(a, b);
  const auto id = w.m.collapse({a, b}, "G", std::nullopt, {{a, "exposure", "Expo"}}, "", "");
  ASSERT_TRUE(id);
  w.m.setParams(*id, {{"c0", 0.4}});
  w.m.setKey(*id, "c0", 10, 0.2);
  w.m.setGroupControls(*id, {{b, "size", "Taille"}, {a, "exposure", "Expo"}});
  EXPECT_TRUE(w.node(*id).anim.count("c1")) << "the exposure's keys follow it to its new place";
  EXPECT_FALSE(w.node(*id).anim.count("c0"));
  w.m.setGroupControls(*id, {{b, "size", "Taille"}, {a, "gamma", "Gamma"}});
  EXPECT_TRUE(w.node(*id).anim.empty());
  const Node& g = w.node(*id);
  EXPECT_DOUBLE_EQ(AppModel::innerNode(a, w.m._nodes)->params.at("exposure"), 0.4);  // written down
  ASSERT_EQ(g.kind->params.size(), 2u);
  EXPECT_EQ(g.kind->params[0].label.raw, "Taille");
  EXPECT_EQ(g.kind->params[0].max, NodeKind::find("blur")->operator->()->param("size")->max);
  EXPECT_DOUBLE_EQ(g.params.at("c0"), AppModel::innerNode(b, w.m._nodes)->params.at("size"));
  w.m.renameGroup(*id, "  Look  ");
  EXPECT_EQ(w.node(*id).kind->title.raw, "Look");
  w.m.renameGroup(*id, "   ");
  EXPECT_EQ(w.node(*id).kind->title.raw, "Look");
}
