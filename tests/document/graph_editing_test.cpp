// Editing the graph: wires and their rules, deletion, effects added behind the selection, copies,
// starting worlds, the Tab search, and where a new node lands.
#include <gtest/gtest.h>

#include <QString>
#include <algorithm>
#include <cmath>

#include "document/node_place.h"
#include "document/quick_add.h"
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

bool has(const std::vector<KindRef>& list, std::string_view id) {
  return std::any_of(list.begin(), list.end(), [&](const KindRef& k) { return k->id == id; });
}

const NodeRoom kPlain{40, 34, 40, 58};  // a plain node and the name under it

NodeFootprint at(double x, double y, NodeRoom room = kPlain) { return {{x, y}, room}; }

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
  for (const auto& n : g.m._nodes) EXPECT_TRUE(ids.insert(n.id).second) << "every copy has its own id";
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
  EXPECT_FALSE(world.placeholder);
  EXPECT_EQ(blank._currentBatchID, world.id);
  ASSERT_EQ(blank._nodes.size(), 1u);
  EXPECT_EQ(blank._nodes[0].kind->id, "output");
  EXPECT_TRUE(blank._edges.empty());
  EXPECT_EQ(world.nodes, blank._nodes);
  EXPECT_EQ(world.positions, blank.layout.positions());
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
  int fromMask = 0;
  for (const auto& e : g.m._edges) fromMask += e.from == mask && e.port == 1;
  EXPECT_EQ(fromMask, 2);
}

TEST(QuickAdd, EveryTermMustMatchNamesSortTheResultsAndRecentKindsLead) {
  const std::vector<KindRef> blur = quickAddResults("  BLUR ", {});
  ASSERT_FALSE(blur.empty());
  EXPECT_TRUE(has(blur, "blur")) << "the internal name, in any case, blanks trimmed";
  for (std::size_t i = 1; i < blur.size(); ++i)
    EXPECT_LE(QString::localeAwareCompare(QString::fromStdString(blur[i - 1]->title.value()),
                                          QString::fromStdString(blur[i]->title.value())),
              0);
  // Two words narrow the list: each must be found somewhere in the kind's texts.
  const std::vector<KindRef> narrowed = quickAddResults("blur " + blur.front()->category.value(), {});
  EXPECT_LE(narrowed.size(), blur.size());
  for (const KindRef& k : narrowed) EXPECT_TRUE(has(blur, k->id));
  EXPECT_TRUE(quickAddResults("blur zzzz", {}).empty());
  // The shown title finds its kind.
  const KindRef colour = NodeKind::color();
  EXPECT_TRUE(has(quickAddResults(colour->title.value(), {}), "color"));
  // What the browser doesn't offer isn't found.
  EXPECT_FALSE(has(quickAddResults("output", {}), "output"));

  // An empty search lists every kind, the recent ones first.
  const std::vector<KindRef> all = quickAddResults("", {});
  const std::vector<KindRef> recent = quickAddResults("", {"glow", "gone-kind", "blur", "glow"});
  ASSERT_EQ(recent.size(), all.size()) << "every kind once, a vanished one left out";
  EXPECT_EQ(recent[0]->id, "glow");
  EXPECT_EQ(recent[1]->id, "blur");
  // The rest keep the catalogue's order.
  std::vector<KindRef> rest;
  for (const KindRef& k : all)
    if (k->id != "glow" && k->id != "blur") rest.push_back(k);
  EXPECT_TRUE(std::equal(rest.begin(), rest.end(), recent.begin() + 2));
}

TEST(NodePlace, NearestFreeSpotThatOverlapsNothing) {
  // Without a gap the numbers are plain: a plain node is 80 wide and 92 high.
  const struct { const char* what; Point wanted; std::vector<NodeFootprint> others; Point expected; } cases[] = {
      {"nothing around: kept", {10, 20}, {}, {10, 20}},
      {"edge to edge counts as free", {80, 0}, {at(0, 0)}, {80, 0}},
      {"just over the right edge: pushed right", {70, 0}, {at(0, 0)}, {80, 0}},
      {"just over the bottom: pushed down", {0, 80}, {at(0, 0)}, {0, 92}},
      {"above a node: pushed up", {0, -85}, {at(0, 0)}, {0, -92}},
      {"straight on top: the nearer side wins (left and right tie, the right is taken)", {0, 0}, {at(0, 0)}, {80, 0}},
      {"between two nodes side by side: out past the nearer edge",
       {60, 10}, {at(0, 0), at(100, 0)}, {60, 92}},
      {"in a row with no room between: below the row", {40, 0}, {at(0, 0), at(80, 0)}, {40, 92}},
      {"a wider node reaches further", {100, 0}, {at(0, 0, {120, 34, 120, 58})}, {160, 0}},
  };
  for (const auto& c : cases) {
    const Point got = clearPlace(c.wanted, kPlain, c.others, 0);
    EXPECT_NEAR(got.x, c.expected.x, 1e-9) << c.what;
    EXPECT_NEAR(got.y, c.expected.y, 1e-9) << c.what;
  }
  // By default a gap keeps nodes apart.
  EXPECT_TRUE(footprintsOverlap(at(0, 0), at(80 + kNodeGap - 1, 0)));
  EXPECT_FALSE(footprintsOverlap(at(0, 0), at(80 + kNodeGap, 0)));
  EXPECT_NEAR(std::abs(clearPlace({0, 0}, kPlain, {at(0, 0)}).x), 80 + kNodeGap, 1e-9);

  // A crowded grid with a single hole: whatever is asked for nearby ends free, and no free
  // point of a fine search is closer.
  std::vector<NodeFootprint> crowd;
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 4; ++j)
      if (!(i == 2 && j == 2)) crowd.push_back(at(i * 100.0, j * 110.0));
  for (Point wanted : {Point{200, 220}, Point{150, 150}, Point{0, 0}, Point{410, 330}, Point{-30, 500}}) {
    const Point got = clearPlace(wanted, kPlain, crowd);
    for (const auto& o : crowd) EXPECT_FALSE(footprintsOverlap({got, kPlain}, o)) << wanted.x << "," << wanted.y;
    const double found = std::hypot(got.x - wanted.x, got.y - wanted.y);
    for (double dx = -300; dx <= 300; dx += 5)
      for (double dy = -300; dy <= 300; dy += 5) {
        const Point p{wanted.x + dx, wanted.y + dy};
        const bool free = std::none_of(crowd.begin(), crowd.end(), [&](const auto& o) { return footprintsOverlap({p, kPlain}, o); });
        if (free) {
          EXPECT_GE(std::hypot(dx, dy), found - 1e-9) << "a free spot closer than " << found;
        }
      }
  }
}
