#include <gtest/gtest.h>

#include <algorithm>

#include "engine/engine.h"
#include "temp_model.h"

using namespace ombrik;

namespace {
struct Graph : test::GraphDesk {
  std::vector<const Edge*> into(const Uuid& to, int port) {
    std::vector<const Edge*> out;
    for (const auto& e : m._edges)
      if (e.to == to && e.port == port) out.push_back(&e);
    return out;
  }
  const Edge& edge(const Uuid& id) { return *std::find_if(m._edges.begin(), m._edges.end(), [&](const Edge& e) { return e.id == id; }); }
};
}  // namespace

TEST(GraphEditing, ConnectionRulesAndLoops) {
  Graph g;
  const Uuid a = g.add("color"), b = g.add("grain"), c = g.add("glow");
  g.m.connect(a, a, 0, 0);
  EXPECT_TRUE(g.m._edges.empty());  // a node onto itself: nothing
  g.m.connect(a, b, 0, 0);
  g.m.connect(b, c, 0, 0);
  g.m.connect(c, a, 0, 0);  // would close a loop
  EXPECT_EQ(g.m._status, "Connexion impossible : elle créerait une boucle.");
  EXPECT_EQ(g.m._edges.size(), 2u);
  const Uuid d = g.add("color");
  g.m.connect(d, b, 0, 0);  // a second wire on an ordinary port replaces the first
  ASSERT_EQ(g.into(b, 0).size(), 1u);
  EXPECT_EQ(g.into(b, 0)[0]->from, d);
  EXPECT_TRUE(g.m._status.empty());
  g.m.connect(d, c, 0, 0);  // c was fed by b: the wire into c's port 0 is replaced, no loop
  EXPECT_EQ(g.into(c, 0)[0]->from, d);

  const Uuid xf = g.add("xform"), m1 = g.add("mask"), m2 = g.add("mask");
  g.m.connect(m1, xf, 2, 0);
  g.m.connect(m2, xf, 2, 0);  // the alpha port adds its wires up
  g.m.connect(m2, xf, 2, 0);  // the same wire again isn't doubled
  EXPECT_EQ(g.into(xf, 2).size(), 2u);
  g.m.connect(m1, xf, 1, 0);  // a mask on the Position port turns on its tracking
  EXPECT_EQ(g.m.nodeByID(m1)->params.at("trackmode"), 1);
  EXPECT_EQ(g.m._status, "Masque de forme relié en Position : trackez-le, le Transform suivra automatiquement.");
}

TEST(GraphEditing, TabMovesAWireToTheNextFreePort) {
  Graph g;
  const Uuid color = g.add("color"), mask = g.add("mask"), grain = g.add("grain"), dot = g.add("dot");
  g.m.connect(color, dot, 0, 0);
  const Uuid single = g.m._edges.back().id;
  EXPECT_EQ(g.m.cycleEdgePort(single), single);  // one input: unchanged

  g.m.connect(color, grain, 0, 0);
  const Uuid wire = g.m._edges.back().id;
  const auto moved = g.m.cycleEdgePort(wire);  // to the matte port: a picture gives its alpha
  ASSERT_TRUE(moved && *moved != wire);
  EXPECT_EQ(g.edge(*moved).port, 1);
  EXPECT_EQ(g.edge(*moved).fromPort, 1);
  EXPECT_EQ(g.m._status, "Réglage couleur → Grain : Masque (sortie Alpha)  · Tab pour changer");

  const Uuid out = g.add("output");
  g.m.connect(mask, out, 0, 0);
  g.m.connect(color, out, 1, 1);  // port 1 taken
  const auto stays = g.m.cycleEdgePort(g.into(out, 0)[0]->id);
  EXPECT_EQ(g.edge(*stays).port, 0);  // the only other port is taken: nothing changes
  g.m.disconnect(g.into(out, 1)[0]->id);
  const auto toMatte = g.m.cycleEdgePort(g.into(out, 0)[0]->id);
  EXPECT_EQ(g.edge(*toMatte).port, 1);
  EXPECT_EQ(g.edge(*toMatte).fromPort, 0);  // a mask is a matte already

  const Uuid xf = g.add("xform"), other = g.add("mask");
  g.m.connect(other, xf, 2, 0);  // the multi-wire port doesn't count as taken
  g.m.connect(color, xf, 1, 1);
  const auto cycled = g.m.cycleEdgePort(g.into(xf, 1)[0]->id);
  EXPECT_EQ(g.edge(*cycled).port, 2);
}

TEST(GraphEditing, DeletingNodes) {
  Graph g;
  const Uuid out = g.m._nodes[0].id;
  const Uuid a = g.add("color"), b = g.add("grain");
  g.m.connect(a, b, 0, 0);
  g.m.connect(b, out, 0, 0);
  g.m.deleteNode(out);
  EXPECT_TRUE(g.m.nodeByID(out));  // the output stays
  g.m.deleteNode(b);  // the chain is cut, not rewired
  EXPECT_TRUE(g.m._edges.empty());
  const Uuid c = g.add("glow");
  g.m.select(out);
  g.m.select(a, true);
  g.m.select(c, true);
  g.m.deleteSelection();
  ASSERT_EQ(g.m._nodes.size(), 1u);
  EXPECT_EQ(g.m._nodes[0].id, out);
  EXPECT_FALSE(g.m._selected);
}

TEST(GraphEditing, AddEffectTakesOverTheSelectedNodesBranches) {
  Graph g;
  g.m._selected.reset();
  g.m.addEffect(*NodeKind::find("color"));
  const Uuid first = *g.m._selected;
  EXPECT_EQ(g.m.layout.position(first), (Point{400, 420}));
  EXPECT_TRUE(g.m._edges.empty());
  const Uuid x = g.add("grain", {900, 0}), y = g.add("glow", {900, 300});
  g.m.connect(first, x, 0, 0);
  g.m.connect(first, y, 0, 0);
  g.m.select(first);
  g.m.addEffect(*NodeKind::find("blur"));
  const Uuid blur = *g.m._selected;
  EXPECT_EQ(g.m.layout.position(blur), (Point{430, 580}));
  EXPECT_EQ(g.into(x, 0)[0]->from, blur);
  EXPECT_EQ(g.into(y, 0)[0]->from, blur);
  EXPECT_EQ(g.into(blur, 0)[0]->from, first);
}

TEST(GraphEditing, PastedCopiesAreIndependentAndKeepInnerWires) {
  Graph g;
  const Uuid outside = g.add("media"), a = g.add("color", {10, 10}), b = g.add("grain", {50, 10});
  g.m.connect(outside, a, 0, 0);
  g.m.connect(a, b, 0, 0);
  g.m.select(a);
  g.m.select(b, true);
  g.m.select(a, true);
  g.m.copyNodes();
  ASSERT_EQ(g.m.copiedNodes.size(), 2u);
  ASSERT_EQ(g.m.copiedEdges.size(), 1u);  // the wire from outside isn't copied
  const std::size_t before = g.m._nodes.size();
  g.m.pasteNodes({100, 0});
  g.m.pasteNodes({200, 0});
  ASSERT_EQ(g.m._nodes.size(), before + 4);
  std::set<Uuid> ids;
  for (const auto& n : g.m._nodes) ids.insert(n.id);
  EXPECT_EQ(ids.size(), g.m._nodes.size());  // every copy has its own id
  int fromOutside = 0, inner = 0;
  for (const auto& e : g.m._edges) {
    fromOutside += e.from == outside;
    if (e.from != outside && e.from != a) ++inner;
  }
  EXPECT_EQ(fromOutside, 1);  // the copies aren't wired to the outside node
  EXPECT_EQ(inner, 2);        // each paste kept its own copy of the inner wire
  const Node& last = g.m._nodes.back();
  EXPECT_EQ(g.m.layout.position(last.id)->x, (last.kind->id == "grain" ? 50 : 10) + 200);
  EXPECT_EQ(g.m._selection.size(), 2u);
}

TEST(GraphEditing, StartingWorldsRecentKindsAndDefaultGraph) {
  auto clock = std::make_shared<ManualScheduler>();
  AppModel installed(AppModel::Options{.installed = true, .withEngine = false, .scheduler = clock});
  EXPECT_TRUE(installed.currentBatch()->placeholder);
  installed.addNode(*NodeKind::find("media"), {0, 0});  // the second node makes it a real world
  installed.saveCurrentBatch();
  EXPECT_FALSE(installed.currentBatch()->placeholder);

  AppModel blank(AppModel::Options{.installed = false, .blankStart = true, .withEngine = false, .scheduler = clock});
  ASSERT_EQ(blank._batches.size(), 1u);
  const Batch& world = blank._batches[0];
  EXPECT_EQ(world.name, "Batch_01");
  EXPECT_FALSE(world.placeholder);
  EXPECT_EQ(blank._currentBatchID, world.id);
  ASSERT_EQ(blank._nodes.size(), 1u);
  EXPECT_EQ(blank._nodes[0].kind->id, "output");
  EXPECT_TRUE(blank._edges.empty());
  EXPECT_EQ(blank.layout.position(blank._nodes[0].id), (Point{600, 140}));
  EXPECT_EQ(world.nodes, blank._nodes);
  EXPECT_EQ(world.positions, blank.layout.positions());
  EXPECT_EQ(blank._fps, 25);
  EXPECT_EQ(blank._previewScale, 1);
  EXPECT_TRUE(blank._media.empty());
  EXPECT_TRUE(blank._status.empty());
  // The open world lags its batch until saved.
  blank._nodes.push_back(Node(NodeKind::color()));
  blank.layout.set(blank._nodes.back().id, {100, 100});
  EXPECT_EQ(blank.currentBatch()->nodes.size(), 1u);
  blank.saveCurrentBatch();
  EXPECT_EQ(blank.currentBatch()->nodes, blank._nodes);
  EXPECT_EQ(blank.currentBatch()->positions.size(), 2u);

  Graph g;
  for (const char* k : {"color", "grain", "glow", "blur", "color", "mask", "sharpen", "dot", "output", "mux"}) g.add(k);
  EXPECT_EQ(g.m._recentKinds, (std::vector<std::string>{"mux", "sharpen", "mask", "color", "blur"}));

  g.m.buildDefaultGraph();
  ASSERT_EQ(g.m._nodes.size(), 7u);
  ASSERT_EQ(g.m._edges.size(), 7u);
  EXPECT_EQ(g.m.nodeByID(*g.m._selected)->kind->id, "beauty");
  const Uuid mask = g.m._nodes[6].id;
  EXPECT_EQ(g.m.layout.position(mask), (Point{130, 290}));
  int fromMask = 0;
  for (const auto& e : g.m._edges) fromMask += e.from == mask && e.port == 1;
  EXPECT_EQ(fromMask, 2);
}

TEST(GraphEditing, ExampleWorldEvaluatesToAPicture) {
  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(AppModel::Options{.withEngine = true, .scheduler = clock});
  ASSERT_TRUE(m.engine) << m._status;
  EXPECT_EQ(m.currentBatch()->name, "Beauty_v01");
  ASSERT_EQ(m._media.size(), 1u);
  EXPECT_EQ(m._media[0].name, "Exemple beauté");
  m._previewScale = 0.05;  // 96x54: small enough for the CPU driver
  m.performRender(true);
  const Node& out = *std::find_if(m._nodes.begin(), m._nodes.end(), [](const Node& n) { return n.kind->id == "output"; });
  ASSERT_TRUE(m.engine->outputs.count(out.id));
  const auto px = m.engine->readPixels(m.engine->outputs.at(out.id));
  ASSERT_EQ(px.size(), 96u * 54 * 4);
  double sum = 0;
  for (std::size_t i = 0; i < px.size(); i += 4) sum += px[i] + px[i + 1] + px[i + 2];
  EXPECT_GT(sum / (96 * 54 * 3), 0.05);  // a picture, not black
}
