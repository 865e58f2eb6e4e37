// OpenTimelineIO exchange: our own file comes back whole, a foreign one lands on the right frames,
// a broken one is refused with a reason.
#include "editorial/otio.h"

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "../platform/temp_dir.h"

using namespace ombrik;
namespace fs = std::filesystem;

TEST(Otio, OurFileReadsBackAsAnEqualTimeline) {
  const Uuid film = Uuid::generate(), world = Uuid::generate(), plate = Uuid::generate();
  Timeline t{Uuid::generate(), "Montage été", 23.976, 1280, 720, {}, 120, std::vector<double>{0.1, 0.2, 0.3},
             "/films/source.mov"};
  t.layers = {{Uuid::generate(), "Titre", LayerSource::media(film), 10, 5, 40, true, 0.5, int(LayerBlend::screen)},
              {Uuid::generate(), "Retouche", LayerSource::batch(world), 0, 0, 30, false, 1, 0},
              {Uuid::generate(), "Fond", LayerSource::media(plate), 20, 0, 15, true, 0.25, int(LayerBlend::multiply)}};
  const otio::PathOf pathOf = [&](const LayerSource& s) -> std::optional<fs::path> {
    if (s.id == film) return "/médias/plan A#1.mov";
    if (s.id == plate) return "plates/fond.mov";
    return std::nullopt;
  };
  TempDir dir;
  const fs::path file = dir.path / "montage.otio";
  std::string error;
  ASSERT_TRUE(otio::writeFile(file, t, pathOf, &error)) << error;

  // Bottom track first; a gap only before a layer that doesn't start at 0.
  const auto j = nlohmann::json::parse(slurp(file));
  const auto& tracks = j["tracks"]["children"];
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0]["children"][1]["name"], "Fond");
  ASSERT_EQ(tracks[1]["children"].size(), 1u);
  EXPECT_EQ(tracks[1]["children"][0]["media_references"]["DEFAULT_MEDIA"]["OTIO_SCHEMA"], "MissingReference.1");
  EXPECT_EQ(tracks[2]["children"][1]["media_references"]["DEFAULT_MEDIA"]["target_url"],
            "file:///m%C3%A9dias/plan%20A%231.mov");

  std::map<std::string, std::optional<fs::path>> seen;
  const otio::Resolve resolve = [&](const otio::ClipRef& c) {
    seen[c.name] = c.path;
    return c.source;
  };
  std::vector<std::string> messages;
  const auto back = otio::readFile(file, resolve, messages, &error);
  ASSERT_TRUE(back) << error;
  EXPECT_EQ(*back, t);
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(seen["Titre"], fs::path("/médias/plan A#1.mov"));
  EXPECT_EQ(seen["Fond"], dir.path / "plates/fond.mov") << "a relative URL is taken from the file's folder";
  EXPECT_EQ(seen["Retouche"], std::nullopt);
}

namespace {

using nlohmann::json;
json rt(double rate, double value) { return {{"OTIO_SCHEMA", "RationalTime.1"}, {"rate", rate}, {"value", value}}; }
json range(double rate, double start, double duration) {
  return {{"OTIO_SCHEMA", "TimeRange.1"}, {"start_time", rt(rate, start)}, {"duration", rt(rate, duration)}};
}
json external(const char* url, json available = nullptr) {
  return {{"OTIO_SCHEMA", "ExternalReference.1"}, {"target_url", url}, {"available_range", available}};
}
json clip(const char* name, json sourceRange, json media = nullptr) {
  json c = {{"OTIO_SCHEMA", "Clip.2"}, {"name", name}, {"source_range", sourceRange}};
  if (!media.is_null()) c["media_references"] = {{"DEFAULT_MEDIA", media}}, c["active_media_reference_key"] = "DEFAULT_MEDIA";
  return c;
}
json gap(double rate, double duration) { return {{"OTIO_SCHEMA", "Gap.1"}, {"source_range", range(rate, 0, duration)}}; }
json track(const char* name, const char* kind, json children) {
  return {{"OTIO_SCHEMA", "Track.1"}, {"name", name}, {"kind", kind}, {"children", children}};
}

// A foreign file: timecode-based media, mixed rates, a transition, an audio track, an object of a
// schema we don't know, an old Clip.1 with a single media reference. The first clip gives 24 fps.
std::string foreign() {
  json a = clip("A", range(24, 5, 20), external("file://localhost/media/a%20b.mov"));
  a["enabled"] = true;
  json c = {{"OTIO_SCHEMA", "Clip.1"}, {"name", "C"}, {"source_range", range(24, 86410, 6)},
            {"media_reference", external("file:///media/c.mov", range(24, 86400, 100))}};
  json d = clip("D", nullptr, external("file:///media/d.mov", range(24, 0, 12)));
  d["enabled"] = false;
  const json v1 = track("V1", "Video",
                        {gap(24, 10), a,
                         {{"OTIO_SCHEMA", "Transition.1"}, {"name", "fondu"}, {"transition_type", "SMPTE_Dissolve"},
                          {"in_offset", rt(24, 2)}, {"out_offset", rt(24, 2)}},
                         clip("B", range(48, 24, 48), {{"OTIO_SCHEMA", "MissingReference.1"}}),
                         {{"OTIO_SCHEMA", "Foo.1"}, {"name", "bizarre"}}, gap(25, 25), c});
  const json a1 = track("A1", "Audio", {clip("Son", range(48000, 0, 48000))});
  const json v2 = track("V2", "Video", {d, clip("Perdu", range(24, 0, 5))});
  return json{{"OTIO_SCHEMA", "Timeline.1"}, {"name", "Bobine 3"}, {"global_start_time", nullptr},
              {"tracks", {{"OTIO_SCHEMA", "Stack.1"}, {"name", "tracks"}, {"children", {v1, a1, v2}}}}}
      .dump();
}

}  // namespace

TEST(Otio, AForeignFileGivesOneLayerPerVideoClipTopTrackFirst) {
  std::map<std::string, std::optional<fs::path>> seen;
  const otio::Resolve resolve = [&](const otio::ClipRef& c) -> std::optional<LayerSource> {
    seen[c.name] = c.path;
    if (c.name == "Perdu") return std::nullopt;
    return LayerSource::media(Uuid::generate());
  };
  std::vector<std::string> messages;
  std::string error;
  const auto t = otio::read(foreign(), resolve, messages, &error);
  ASSERT_TRUE(t) << error;
  EXPECT_EQ(t->name, "Bobine 3");
  EXPECT_EQ(t->fps, 24);
  struct Row {
    const char* name;
    int start, inPoint, length;
    bool enabled;
  };
  const Row expected[] = {{"D", 0, 0, 12, false},   // top track; no source_range: the media's range
                          {"A", 10, 5, 20, true},   // after a 10-frame gap
                          {"B", 30, 12, 24, true},  // 48 fps; the transition takes no time
                          {"C", 78, 10, 6, true}};  // after a second of gap at 25; media starts at 01:00:00:00
  ASSERT_EQ(t->layers.size(), std::size(expected));
  for (std::size_t i = 0; i < t->layers.size(); ++i) {
    const TLayer& l = t->layers[i];
    const Row& e = expected[i];
    EXPECT_EQ(std::tuple(l.name, l.start, l.inPoint, l.length, l.enabled),
              std::tuple(std::string(e.name), e.start, e.inPoint, e.length, e.enabled));
    EXPECT_FALSE(l.id.isNil());
  }
  EXPECT_EQ(seen["A"], fs::path("/media/a b.mov"));
  EXPECT_EQ(seen["B"], std::nullopt);
  EXPECT_FALSE(seen.contains("Son")) << "audio tracks are skipped";
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_NE(messages[0].find("Foo.1"), std::string::npos) << messages[0];
  EXPECT_NE(messages[1].find("Perdu"), std::string::npos) << messages[1];
}

TEST(Otio, BrokenInputIsRefusedWithAReason) {
  const auto inTrack = [](const std::string& clip) {
    return R"({"OTIO_SCHEMA": "Timeline.1", "tracks": {"OTIO_SCHEMA": "Stack.1", "children": [
      {"OTIO_SCHEMA": "Track.1", "kind": "Video", "children": [)" +
           clip + "]}]}}";
  };
  const std::pair<std::string, const char*> rows[] = {
      {"{\"OTIO_SCHEMA\": \"Timeline.1\", ", "JSON illisible"},
      {R"({"OTIO_SCHEMA": "Clip.2", "name": "x"})", "Timeline.1"},
      {"[1, 2]", "Timeline.1"},
      {R"({"OTIO_SCHEMA": "Timeline.1", "tracks": 3})", "tracks"},
      {inTrack(R"({"OTIO_SCHEMA": "Clip.2", "name": "x", "source_range": "0-10"})"), "source_range"},
      {inTrack(R"({"OTIO_SCHEMA": "Gap.1", "source_range": {"start_time": {"rate": 24, "value": 0},
                   "duration": {"rate": 24, "value": "dix"}}})"),
       "nombre attendu"},
  };
  for (const auto& [text, why] : rows) {
    std::vector<std::string> messages;
    std::string error;
    std::optional<Timeline> t;
    EXPECT_NO_THROW(t = otio::read(text, [](const otio::ClipRef&) { return LayerSource(); }, messages, &error));
    EXPECT_FALSE(t) << text;
    EXPECT_NE(error.find(why), std::string::npos) << error;
  }
}
