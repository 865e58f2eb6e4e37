// The edits of a timeline at their clamps and edges, and its stored form.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "editorial/timeline_codec.h"
#include "editorial/timeline_edits.h"
#include "platform/json_fields.h"

using namespace ombrik;

namespace {
// Layers named by letter: (start, inPoint, length).
struct Span {
  int start, inPoint, length;
};
Timeline timelineOf(std::initializer_list<Span> spans) {
  Timeline t;
  t.id = Uuid::generate();
  char name = 'A';
  for (const Span& s : spans)
    t.layers.push_back({Uuid::generate(), std::string(1, name++), LayerSource::media(Uuid::generate()), s.start,
                        s.inPoint, s.length, true, 1, 0});
  return t;
}
std::vector<Uuid> ids(const Timeline& t, std::initializer_list<int> at) {
  std::vector<Uuid> out;
  for (int i : at) out.push_back(t.layers[std::size_t(i)].id);
  return out;
}
// "name:start+inPoint/length" for each layer in list order.
std::string layout(const Timeline& t) {
  std::string out;
  for (const auto& l : t.layers)
    out += (out.empty() ? "" : " ") + l.name + ":" + std::to_string(l.start) + "+" + std::to_string(l.inPoint) + "/" +
           std::to_string(l.length);
  return out;
}
}  // namespace

TEST(TimelineEdits, CommandsAtTheirEdges) {
  struct Case {
    const char* what;
    std::initializer_list<Span> spans;
    std::function<void(Timeline&)> edit;
    std::string after;
  };
  const Case cases[] = {
      {"blade inside keeps the source continuous, the right part just after", {{10, 5, 20}, {0, 0, 50}},
       [](Timeline& t) { EXPECT_EQ(tledit::blade(t, ids(t, {0, 1}), 15).size(), 2u); },
       "A:10+5/5 A:15+10/15 B:0+0/15 B:15+15/35"},
      {"blade at a layer's first or last frame boundary cuts nothing", {{10, 0, 20}},
       [](Timeline& t) {
         EXPECT_TRUE(tledit::blade(t, ids(t, {0}), 10).empty());
         EXPECT_TRUE(tledit::blade(t, ids(t, {0}), 30).empty());
       },
       "A:10+0/20"},
      {"ripple delete of two adjacent layers closes both gaps", {{0, 0, 10}, {10, 0, 20}, {30, 0, 5}, {5, 0, 40}},
       [](Timeline& t) { EXPECT_EQ(tledit::removeLayers(t, ids(t, {0, 1}), true), 2); },
       "C:0+0/5 D:5+0/40"},  // D only overlapped the gap: it stays
      {"plain delete leaves the gap", {{0, 0, 10}, {10, 0, 20}, {30, 0, 5}},
       [](Timeline& t) { tledit::removeLayers(t, ids(t, {1}), false); }, "A:0+0/10 C:30+0/5"},
      {"trim the start to the playhead moves the in point", {{10, 4, 20}, {40, 0, 5}},
       [](Timeline& t) { tledit::trimToFrame(t, ids(t, {0, 1}), 18, true); }, "A:18+12/12 B:40+0/5"},
      {"trim the end to the playhead", {{10, 4, 20}},
       [](Timeline& t) { tledit::trimToFrame(t, ids(t, {0}), 18, false); }, "A:10+4/8"},
      {"a block moved up at the top stays, the layer behind it blocked", {{0, 0, 1}, {1, 0, 1}, {2, 0, 1}},
       [](Timeline& t) { tledit::moveLayers(t, ids(t, {0, 1}), true); }, "A:0+0/1 B:1+0/1 C:2+0/1"},
      {"a block moves down as one", {{0, 0, 1}, {1, 0, 1}, {2, 0, 1}},
       [](Timeline& t) { tledit::moveLayers(t, ids(t, {0, 1}), false); }, "C:2+0/1 A:0+0/1 B:1+0/1"},
      {"duplicates land after their originals", {{0, 0, 3}, {5, 1, 2}},
       [](Timeline& t) { tledit::duplicateLayers(t, ids(t, {0, 1})); },
       "A:0+0/3 A copie:0+0/3 B:5+1/2 B copie:5+1/2"},
  };
  for (const auto& c : cases) {
    Timeline t = timelineOf(c.spans);
    c.edit(t);
    EXPECT_EQ(layout(t), c.after) << c.what;
  }
}

TEST(TimelineEdits, RippleShrinksAFixedDurationToOneFrameAtLeast) {
  Timeline t = timelineOf({{0, 0, 30}, {30, 0, 5}});
  t.fixedDuration = 10;
  tledit::removeLayers(t, ids(t, {0}), true);
  EXPECT_EQ(t.fixedDuration, 1);
  EXPECT_EQ(t.duration(), 1);  // a fixed duration holds even with layers beyond it
}

TEST(TimelineEdits, TargetsAndEditPoints) {
  Timeline t = timelineOf({{10, 0, 20}, {0, 0, 10}, {15, 0, 5}});
  t.layers[2].enabled = false;
  // Without a selection: the enabled layers strictly under the playhead.
  EXPECT_EQ(tledit::targetLayers(t, {}, 10, true), ids(t, {}));
  EXPECT_EQ(tledit::targetLayers(t, {}, 16, true), ids(t, {0}));
  EXPECT_EQ(tledit::targetLayers(t, {}, 16, false), ids(t, {}));
  // A selection wins, in list order, whether or not it spans the playhead.
  EXPECT_EQ(tledit::targetLayers(t, {t.layers[2].id, t.layers[1].id}, 16, true), ids(t, {1, 2}));

  const std::pair<int, std::optional<int>> next[] = {{0, 10}, {10, 29}, {29, 29}};
  for (auto [from, to] : next) EXPECT_EQ(tledit::editPoint(t, from, true), to) << from;  // 30 is capped at 29
  EXPECT_EQ(tledit::editPoint(t, 12, false), 10);
  EXPECT_EQ(tledit::editPoint(t, 0, false), std::nullopt);
  const Timeline empty = timelineOf({});
  EXPECT_EQ(empty.duration(), 1);
  EXPECT_EQ(tledit::editPoint(empty, 0, true), std::nullopt);
  t.fixedDuration = 12;
  EXPECT_EQ(tledit::editPoint(t, 10, true), 11);  // the end of a fixed duration
}

TEST(TimelineEdits, DragsClampAtTheSourceAndAtOneFrame) {
  const TLayer was{Uuid::generate(), "A", LayerSource::media(Uuid()), 20, 5, 10, true, 1, 0};
  struct Case {
    tledit::DragPart part;
    int delta;
    Span after;
  };
  const Case cases[] = {
      {tledit::DragPart::left, -50, {15, 0, 15}},   // stops at the source's first frame
      {tledit::DragPart::left, 50, {29, 14, 1}},    // leaves one frame
      {tledit::DragPart::left, 3, {23, 8, 7}},
      {tledit::DragPart::right, -50, {20, 5, 1}},
      {tledit::DragPart::right, 4, {20, 5, 14}},
      {tledit::DragPart::body, -50, {0, 5, 10}},    // never before frame 0
      {tledit::DragPart::body, 7, {27, 5, 10}},
  };
  for (const auto& c : cases) {
    const TLayer l = tledit::dragged(was, c.part, c.delta);
    EXPECT_EQ((std::array{l.start, l.inPoint, l.length}), (std::array{c.after.start, c.after.inPoint, c.after.length}))
        << int(c.part) << " by " << c.delta;
  }
  EXPECT_EQ(tledit::dragPart(7.9, 100), tledit::DragPart::left);
  EXPECT_EQ(tledit::dragPart(50, 100), tledit::DragPart::body);
  EXPECT_EQ(tledit::dragPart(92.1, 100), tledit::DragPart::right);
}

TEST(TimelineEdits, UndoKeepsTheNewestHundredAndForgetsVanishedSelections) {
  TimelineState s;
  s.timelines = {timelineOf({{0, 0, 5}})};
  s.currentTimelineID = s.timelines[0].id;
  for (int i = 0; i < 101; ++i) {
    tledit::checkpoint(s);
    s.timelines[0].layers[0].length = 6 + i;
  }
  EXPECT_EQ(s.tlUndo.size(), 100u);
  EXPECT_EQ(s.tlUndo.front()[0].layers[0].length, 6);  // the first snapshot (length 5) went
  const Timeline before = s.timelines[0];
  tledit::checkpoint(s);
  const auto copies = tledit::duplicateLayers(s.timelines[0], {s.timelines[0].layers[0].id});
  s.tlSelection = {copies[0], s.timelines[0].layers[0].id};
  ASSERT_TRUE(tledit::undo(s));
  EXPECT_EQ(s.timelines[0], before);
  EXPECT_EQ(s.tlSelection, std::set<Uuid>{before.layers[0].id});
  ASSERT_TRUE(tledit::redo(s));
  EXPECT_EQ(s.timelines[0].layers.size(), 2u);
  EXPECT_FALSE(tledit::redo(s));
}

TEST(TimelineEdits, StoredFormRoundTripsAndRefusesOddSources) {
  Timeline t = timelineOf({{3, 2, 7}});
  t.layers[0].source = LayerSource::batch(Uuid::generate());
  t.background = std::vector<double>{0.5, 0.25};
  EXPECT_EQ(t.bg(), (std::array<double, 3>{0.5, 0.25, 0}));
  const auto back = timelinecodec::decode(timelinecodec::encode({t}));
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0], t);

  const std::string id = "0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8";
  auto withSource = [&](const std::string& source) {
    return nlohmann::json::parse(R"([{"id":")" + id + R"(","name":"T","fps":25,"width":640,"height":360,"layers":[
      {"id":")" + id + R"(","name":"L","source":)" + source + R"(,"start":0,"inPoint":0,"length":4,
       "enabled":true,"opacity":1,"blend":2}]}])");
  };
  const auto read = timelinecodec::decode(withSource(R"({"media":{"_0":")" + id + R"("}})"));
  EXPECT_EQ(read[0].layers[0].source, LayerSource::media(*Uuid::parse(id)));
  EXPECT_FALSE(read[0].fixedDuration);
  for (const char* odd : {R"({})", R"({"media":{"_0":"x"},"batch":{"_0":"y"}})"}) {
    try {
      timelinecodec::decode(withSource(odd));
      ADD_FAILURE() << odd;
    } catch (const jsonfields::Unreadable& e) {
      EXPECT_STREQ(e.what(), "Invalid number of keys found, expected one.") << odd;
    }
  }
}
