#include <gtest/gtest.h>

#include <cstring>

#include "graph/batch.h"
#include "graph/graph_snapshot.h"
#include "graph/node.h"
#include "groups/node_group.h"

using namespace ombrik;

namespace {
const KindRef& kind(const char* id) {
  const KindRef* k = NodeKind::find(id);
  EXPECT_NE(k, nullptr) << id;
  return *k;
}
}  // namespace

TEST(NodeParams, FreshNodeHoldsEveryDeclaredKeyAtItsDefault) {
  for (const auto& k : NodeKind::all()) {
    const Node n(k);
    EXPECT_EQ(n.params.size(), k->params.size()) << k->id;
    for (const auto& p : k->params) EXPECT_EQ(n.params.at(p.key), p.def) << k->id << "." << p.key;
  }
}

TEST(NodeParams, ReadsStoredThenDeclaredDefaultThenZero) {
  Node n(NodeKind::color());
  n.params.erase("gamma");
  EXPECT_FLOAT_EQ(n.p("gamma"), 1.06f);  // declared, not stored: the kind's default, not 0
  n.params["gamma"] = 1.5;
  EXPECT_FLOAT_EQ(n.p("gamma"), 1.5f);
  EXPECT_EQ(n.p("nosuchkey"), 0.0f);     // neither stored nor declared
  EXPECT_FALSE(n.on("nosuchkey"));
  n.params["_cx"] = 12.25;  // private keys are stored and read like any other
  EXPECT_FLOAT_EQ(n.p("_cx"), 12.25f);
  EXPECT_TRUE(Node().params.empty());
  EXPECT_EQ(Node().p("x"), 0.0f);  // a node without a kind reads everything as 0
  n.params["exposure"] = 0.1;      // read as a 32-bit float
  EXPECT_EQ(n.p("exposure"), 0.1f);
  EXPECT_NE(static_cast<double>(n.p("exposure")), 0.1);
}

TEST(NodeParams, SwitchIsStrictlyAboveHalfOnTheDoubleValue) {
  Node n(NodeKind::mask());
  n.params["invert"] = 0.5;
  EXPECT_FALSE(n.on("invert"));
  n.params["invert"] = 0.51;
  EXPECT_TRUE(n.on("invert"));
  // Rounds to exactly 0.5 as a float, but the switch compares the double.
  n.params["invert"] = 0.50000001;
  EXPECT_EQ(n.p("invert"), 0.5f);
  EXPECT_TRUE(n.on("invert"));
  n.params.erase("invert");
  EXPECT_FALSE(n.on("invert"));  // default 0
  n.params.erase("trk_pos");
  EXPECT_TRUE(n.on("trk_pos"));  // default 1
}

// Composite shows its matte count (rounded, clamped to 1..4) beside Front and Back; other kinds
// show all their ports, even with a "mattes" value stored.
TEST(NodeInputs, CompositeShowsItsMatteCountOthersAllTheirPorts) {
  Node comp(kind("comp"));
  ASSERT_EQ(comp.kind->inputs.size(), 6u);
  const std::pair<double, int> cases[] = {{0, 3}, {1, 3}, {2, 4}, {3, 5}, {4, 6}, {7, 6}, {-3, 3}, {2.4, 4}, {2.5, 5}, {1.6, 4}};
  for (auto [mattes, ports] : cases) {
    comp.params["mattes"] = mattes;
    EXPECT_EQ(comp.inputCount(), ports) << "mattes " << mattes;
  }
  comp.params.erase("mattes");  // default 1
  EXPECT_EQ(comp.inputCount(), 3);
  Node merge(kind("merge"));
  merge.params["mattes"] = 4;
  EXPECT_EQ(merge.inputCount(), 3);
  EXPECT_EQ(Node(NodeKind::media()).inputCount(), 0);
  EXPECT_EQ(Node(NodeKind::renoise()).inputCount(), 4);
}

TEST(NodeEquality, ComparesDeeplyKindsByIdAndGroupsByContent) {
  Node a(NodeKind::mask());
  Node b = a;
  EXPECT_EQ(a, b);
  GMask extra;
  extra.track[12] = MaskKey{1, 2, 3, 4, 5};
  a.masks.push_back(extra);
  b.masks.push_back(extra);
  EXPECT_EQ(a, b);
  b.masks[0].track[12].rot = 6;
  EXPECT_NE(a, b);

  // A kind built elsewhere (a group's, a user node's) with the same id is the same kind.
  auto twin = std::make_shared<NodeKind>(*NodeKind::mask());
  twin->title.raw = "Autre titre";
  twin->params.clear();
  Node c = a;
  c.kind = KindRef(twin);
  EXPECT_EQ(c, a);
  c.kind = NodeKind::color();
  EXPECT_NE(c, a);

  // Groups compare by content, and copies stay independent.
  Node g(NodeKind::dot());
  NodeGroup inner;
  inner.nodes.push_back(Node(NodeKind::color()));
  inner.output = inner.nodes[0].id;
  g.group = inner;
  Node h = g;
  EXPECT_EQ(g, h);
  h.group.mutate().nodes[0].params["sat"] = 0;
  EXPECT_NE(g, h);
  EXPECT_DOUBLE_EQ(g.group->nodes[0].params.at("sat"), 0.92);  // the original is untouched
  Node i = g;
  i.group = NodeGroup(inner);  // separate storage, same content
  EXPECT_EQ(g, i);
}


// A fresh key's influences are a third of the way out, to the bit.
TEST(RecordDefaults, KeyInfluenceIsAThird) {
  Keyframe k;
  std::uint64_t bits;
  std::memcpy(&bits, &k.inInf, 8);
  EXPECT_EQ(bits, 0x3FD5555555555555ull);
  EXPECT_EQ(k.outInf, k.inInf);
  EXPECT_EQ(k.interp, KeyInterp::linear);
}

TEST(RecordEquality, SnapshotsAndWorldsCompareDeeply) {
  GraphSnapshot s1;
  s1.nodes.push_back(Node(NodeKind::output()));
  s1.positions[s1.nodes[0].id] = {600, 140};
  GraphSnapshot s2 = s1;
  EXPECT_EQ(s1, s2);
  s2.positions[s1.nodes[0].id].y = 141;
  EXPECT_NE(s1, s2);

  Batch w1;
  w1.lut = "";  // the choice of no LUT differs from no choice
  Batch w2;
  EXPECT_NE(w1, w2);
  w2.lut = "";
  EXPECT_EQ(w1, w2);

  Picture p1{2, 1, std::make_shared<std::vector<std::uint8_t>>(8, 7)};
  Picture p2{2, 1, std::make_shared<std::vector<std::uint8_t>>(8, 7)};
  EXPECT_EQ(p1, p2);
  w1.thumb = p1;
  w2.thumb = p2;
  EXPECT_EQ(w1, w2);
}

TEST(UuidText, UpperCaseRoundTrip) {
  const Uuid id = Uuid::generate();
  const std::string text = id.toString();
  ASSERT_EQ(text.size(), 36u);
  for (char c : text) EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || c == '-') << text;
  EXPECT_EQ(Uuid::parse(text), id);

  std::string lower = text;
  for (auto& c : lower) c = static_cast<char>(std::tolower(c));
  EXPECT_EQ(Uuid::parse(lower), id);
  EXPECT_EQ(Uuid::parse("{" + text + "}"), id);
  EXPECT_FALSE(Uuid::parse(text.substr(1)));
  EXPECT_FALSE(Uuid::parse("ZZZZZZZZ-0000-0000-0000-000000000000"));
  EXPECT_FALSE(Uuid::parse("00000000_0000-0000-0000-000000000000"));
  EXPECT_EQ(Uuid::parse("00000000-0000-0000-0000-0000000000AB")->toString(), "00000000-0000-0000-0000-0000000000AB");
  EXPECT_NE(Uuid::generate(), Uuid::generate());
  EXPECT_TRUE(Uuid().isNil());
}
