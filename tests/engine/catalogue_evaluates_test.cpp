// Every built-in kind, fed the sample picture, gives a finite picture, but for the kinds whose
// machinery belongs to features still to come; the time-driven ones change with time only.
#include <cmath>
#include <set>

#include "engine_fixture.h"

using namespace ombrik;
using namespace ombrik::test;

TEST_F(EngineTest, EveryKindEvaluatesAndTimeDrivenOnesChangeWithTime) {
  Engine& e = engine();
  e.setComp(48, 27, true);
  const Uuid sample = Uuid::generate();
  e.addSource(SampleImage::make(192, 108), sample);
  // Warps, motion fields, face and paint beauty, generative fill.
  const std::set<std::string> later = {"meshwarp", "motionvec", "facereshape", "paintbeauty", "beautyzones", "genfill"};
  std::set<std::string> without;
  Node media = node("media");
  media.mediaID = sample;
  for (const auto& kind : NodeKind::all()) {
    Node n(kind);
    if (kind->id == "media") n.mediaID = sample;
    e.evaluate({media, n}, {wire(media, n)}, 0.5f);
    auto it = e.outputs.find(n.id);
    if (it == e.outputs.end()) {
      without.insert(kind->id);
      continue;
    }
    const auto px = e.readPixels(it->second);
    ASSERT_EQ(px.size(), 48u * 27 * 4) << kind->id;
    bool finite = true;
    for (float v : px) finite = finite && std::isfinite(v);
    EXPECT_TRUE(finite) << kind->id << " gives non-finite values";
  }
  EXPECT_EQ(without, later);

  // Time-driven effects change with time, and only with it.
  for (const char* id : {"noise", "lightleak", "wornfilm", "glitch", "vhs", "hologram", "crt", "static", "ripple", "heathaze",
                         "shake", "wave", "kaleido", "depthparallax", "grain"}) {
    Node n(*NodeKind::find(id));
    if (std::string(id) == "kaleido") n.params["spin"] = 30;  // still unless it spins
    auto at = [&](float t) {
      e.evaluate({media, n}, {wire(media, n)}, t);
      return pixels(n.id);
    };
    const auto a = at(1.0f), b = at(1.0f), c = at(2.37f);
    ASSERT_FALSE(a.empty()) << id;
    EXPECT_EQ(a, b) << id << ": the same time gives the same picture";
    EXPECT_NE(a, c) << id << ": another time gives another picture";
  }
}
