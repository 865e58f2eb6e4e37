#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <map>

#include "document/project_file.h"
#include "engine/engine.h"
#include "groups/node_group.h"
#include "temp_model.h"

using namespace ombrik;

namespace {
Node node(const char* kind) { return Node(*NodeKind::find(kind)); }

Batch richWorld() {
  Batch b;
  b.id = Uuid::generate();
  b.name = "Plan_12";
  Node media = node("media"), mask = node("mask"), color = node("color"), tracker = node("tracker"), mesh = node("meshwarp"),
       paint = node("paintbeauty");
  media.mediaID = Uuid::generate();
  mask.track[3] = {40, 50, 20, 30, 5};
  mask.pins[7] = {41, 51, 21, 31, -5};
  mask.trackOff[9] = {0.5, -0.25};
  mask.trackRef = 3;
  mask.planarH[4] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  mask.shape = {{{0.1, 0.2}, {0.0, 0.1}, {0.2, 0.3}}, {{0.5, 0.6}, {0.4, 0.5}, {0.6, 0.7}}};
  mask.shapeClosed = true;
  mask.shapeBase = MaskKey{50, 50, 10, 10, 0};
  mask.magicPoints = {{{0.3, 0.4}, true}, {{0.6, 0.1}, false}};
  mask.magicFrame = 12;
  mask.prompt = "lampadaire";
  GMask second;
  second.params = {{"cx", 10}, {"cy", 20}};
  second.track[1] = {1, 2, 3, 4, 5};
  second.ellipse = true;
  mask.masks = {GMask{}, second};
  mask.maskIndex = 0;
  // the active mask's stored copy carries the node's own fields when written
  mask.masks[0].params = {{"cx", 39.6}, {"cy", 50}, {"rx", 23}, {"ry", 37}, {"rot", 0}, {"feather", 0.35},
                          {"invert", 0}, {"blend", 0}, {"trk_pos", 1}, {"trk_rot", 1}, {"trk_scale", 1},
                          {"trk_skew", 1}, {"trk_persp", 1}, {"out", 1}};
  mask.masks[0].track = mask.track, mask.masks[0].pins = mask.pins, mask.masks[0].trackOff = mask.trackOff;
  mask.masks[0].trackRef = mask.trackRef, mask.masks[0].planarH = mask.planarH, mask.masks[0].shape = mask.shape;
  mask.masks[0].shapeClosed = true, mask.masks[0].shapeBase = mask.shapeBase;
  Keyframe k1, k2;
  k1.f = 0, k1.v = 0.1, k1.interp = KeyInterp::bezier, k1.outSlope = 0.02;
  k2.f = 24, k2.v = 1.4, k2.inInf = 0.5;
  color.anim["exposure"] = {k1, k2};
  color.params["exposure"] = 0.7;
  color.params["_private"] = 3;
  color.bypass = true;
  color.name = "Étalonnage peau";  // renamed by the user
  color.keySamples = {{0.1, 0.2, 0.3, 1, 40, 60}};
  TrackerPt t;
  t.id = Uuid::generate();
  t.name = "Tracker 1";
  t.p0 = {0.25, 0.75};
  t.ref = 4;
  t.path[4] = {0.25, 0.75};
  t.path[5] = {0.26, 0.74};
  t.off[5] = {0.01, 0};
  t.weakAt = 9;
  t.half = Size{0.05, 0.04};
  tracker.trackers = {t};
  tracker.trackerLinks = {mask.id};
  mesh.mesh = {{0.1, 0.1}, {0.9, 0.1}};
  mesh.meshBase = {{0.1, 0.1}, {0.9, 0.2}};
  mesh.meshTrack[2] = {{0.1, 0.1}, {0.8, 0.1}};
  mesh.meshTracked = {2};
  mesh.followPts = {3, 7};
  mesh.followSrc = Uuid::generate();
  mesh.path = "/tmp/x";
  paint.paintLayers = {PaintLayer{{{"amount", 0.5}}, {{0.1, 0.2, 0.3}}}};
  paint.paintIndex = 0;
  paint.faceStrokes = {{1, 2, 3, 4}};
  b.nodes = {media, mask, color, tracker, mesh, paint};
  b.edges = {{Uuid::generate(), media.id, color.id, 0, 0}, {Uuid::generate(), mask.id, color.id, 1, 2}};
  for (const auto& n : b.nodes) b.positions[n.id] = {100.5, -20};
  b.mediaID = media.mediaID;
  b.worldPos = Point{3, 4};
  b.film = FilmShot{Uuid::generate(), 2, 100, 48};
  b.lut = "";
  b.lutRender = true;
  b.filmTimeline = Uuid::generate();
  b.group = Uuid::generate();
  b.lastUsed = std::chrono::system_clock::time_point(std::chrono::seconds(1790000000));
  b.shotsFolded = true;
  b.openGroups = {OpenGroup{Uuid::generate(), "Peau", {color.id}, {{color.id, "sat", "Saturation"}}, "info", "moi"}};
  b.creator = true;
  return b;
}

std::vector<std::tuple<Uuid, Uuid, int, int>> wires(const Batch& b) {
  std::vector<std::tuple<Uuid, Uuid, int, int>> out;
  for (const auto& e : b.edges) out.emplace_back(e.from, e.to, e.port, e.fromPort);
  return out;
}

const std::string kTooDeep = "imbrication trop profonde : plus de 512 niveaux";
const std::string kGroupsTooDeep = "groupes imbriqués sur plus de 64 niveaux";

std::string nested(int depth) { return std::string(depth, '[') + std::string(depth, ']'); }
std::string project(const std::string& nodes, const std::string& extra = "", const std::string& edges = "") {
  return R"({"version":1,"media":[],"recent":[],)" + extra +
         R"("batches":[{"id":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"W","positions":{},"edges":[)" + edges +
         R"(],"nodes":[)" + nodes + "]}]}";
}
std::string nodeText(const std::string& id, const char* kind, const std::string& params, const std::string& more = "") {
  return R"({"id":")" + id + R"(","kind":")" + kind + R"(","params":)" + params +
         R"(,"bypass":false,"track":{},"shape":[],"shapeClosed":false,"ellipse":false,"magicPoints":[],"magicFrame":0,"prompt":"")" +
         more + "}";
}
// A group holding a group… `levels` deep over a colour node, built front to back (linear time).
std::string nestedGroups(int levels) {
  std::vector<std::string> ids;
  for (int i = 0; i <= levels; ++i) ids.push_back(Uuid::generate().toString());
  std::string text;
  for (int i = 0; i < levels; ++i) {
    text += nodeText(ids[i], "group", "{}", R"(,"group":{"name":"G","nodes":[)");
    text.pop_back();  // the node's closing brace comes after its group
  }
  text += nodeText(ids[levels], "color", "{}");
  for (int i = levels - 1; i >= 0; --i)
    text += R"(],"edges":[],"positions":{},"inputs":[],"controls":[],"output":")" + ids[i + 1] + "\"}}";
  return project(text);
}
int groupLevels(const Node& n) { return n.group ? 1 + groupLevels(n.group->nodes.at(0)) : 0; }

// One world "W" of one colour node whose saturation is set, every other key left out.
const std::string kMinimal = project(nodeText("1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8", "color", R"({"sat":0.5})"));
}  // namespace

TEST(ProjectCodec, WrittenAndReadBackIsEqualButForEdgeIds) {
  ProjectFile f;
  f.media = {{Uuid::generate(), "rush.mov", "/films/rush.mov"}};
  f.batches = {richWorld()};
  f.current = f.batches[0].id;
  f.recent = {"color", "mask"};
  f.folders = std::vector<std::string>{"/films"};
  Timeline cut{Uuid::generate(), "Montage", 23.976, 1280, 720, {}, 250, std::vector<double>{0.1, 0.2}, "/films/f.mov"};
  cut.layers.push_back({Uuid::generate(), "A", LayerSource::batch(f.batches[0].id), 5, 3, 40, false, 0.5, 3});
  f.timelines = {cut, Timeline{}};
  f.confidential = true;
  const auto text = ProjectCodec::encode(f);
  ASSERT_TRUE(text);
  std::string error;
  const auto back = ProjectCodec::decode(*text, &error);
  ASSERT_TRUE(back) << error;
  const Batch& a = f.batches[0];
  const Batch& b = back->batches[0];
  ASSERT_EQ(a.nodes.size(), b.nodes.size());
  for (std::size_t i = 0; i < a.nodes.size(); ++i) EXPECT_EQ(a.nodes[i], b.nodes[i]) << a.nodes[i].kind->id;
  EXPECT_EQ(wires(a), wires(b));
  EXPECT_NE(a.edges[0].id, b.edges[0].id);  // edges get new ids
  Batch withEdges = b;
  withEdges.edges = a.edges;
  EXPECT_EQ(withEdges, a);
  EXPECT_EQ(back->media, f.media);
  EXPECT_EQ(back->current, f.current);
  EXPECT_EQ(back->recent, f.recent);
  EXPECT_EQ(back->folders, f.folders);
  EXPECT_TRUE(back->confidential);
  EXPECT_EQ(back->timelines, f.timelines);
  EXPECT_EQ(ProjectCodec::encode(*back), text);      // and the same state gives the same bytes
}

TEST(ProjectCodec, OptionalKeysAreLeftOutSortedAndFilledWithDefaults) {
  ProjectFile f;
  Batch w;
  w.id = Uuid::generate();
  w.name = "Vide";
  w.nodes = {node("output")};
  f.batches = {w};
  const std::string text = *ProjectCodec::encode(f);
  for (const char* absent : {"\"current\"", "\"folders\"", "\"confidential\"", "\"timelines\"", "\"mediaID\"",
                             "\"world\"", "\"shotsFolded\"", "\"openGroups\"", "\"placeholder\"", "\"anim\"",
                             "\"masks\"", "\"path\"", "null"})
    EXPECT_EQ(text.find(absent), std::string::npos) << absent;
  EXPECT_LT(text.find("\"batches\""), text.find("\"media\""));
  EXPECT_LT(text.find("\"recent\""), text.find("\"version\""));
  EXPECT_NE(text.find(w.id.toString()), std::string::npos);  // upper-case UUIDs

  // A minimal file reads with the defaults of what it leaves out.
  std::string error;
  const auto minimal = ProjectCodec::decode(kMinimal, &error);
  ASSERT_TRUE(minimal) << error;
  const Batch& b = minimal->batches[0];
  ASSERT_TRUE(b.lastUsed);  // stamped now
  EXPECT_LT(std::abs(std::chrono::duration<double>(std::chrono::system_clock::now() - *b.lastUsed).count()), 60.0);
  const Node& n = b.nodes[0];
  EXPECT_EQ(n.params.at("sat"), 0.5);
  EXPECT_EQ(n.params.at("gamma"), 1.06);  // the kind's defaults fill what the file lacks
}

TEST(ProjectCodec, DamagedRowsAndKeysAreSkippedOneByOne) {
  const std::string text = R"({"version":1,"media":[],"recent":[],"batches":[{
    "id":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"W",
    "positions":{"1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8":[5],"2E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8":[1,2,3],"nope":[1,2]},
    "edges":[{"from":"1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","to":"2E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","port":0},
             {"from":"3E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","to":"2E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","port":1,"fromPort":1}],
    "nodes":[
      {"id":"1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","kind":"mask","params":{},"bypass":false,
       "track":{"abc":[1,2,3,4,5],"7":[1,2,3,4,5],"8":[1,2]},"shape":[[1,2,3,4,5,6],[1,2]],"shapeClosed":true,
       "ellipse":false,"magicPoints":[[0.5,0.5,0.2]],"magicFrame":0,"prompt":"",
       "anim":{"cx":[[0,1,7,0.3,0,0.3,0],[5,2,1,0.3,0,0.3]],"cy":[[0,1,0,0.3,0,0.3]]}},
      {"id":"2E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","kind":"comp","params":{"mattes":1},"bypass":false,"track":{},
       "shape":[],"shapeClosed":false,"ellipse":false,"magicPoints":[],"magicFrame":0,"prompt":""},
      {"id":"3E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","kind":"no_such_kind","params":{},"bypass":false,"track":{},
       "shape":[],"shapeClosed":false,"ellipse":false,"magicPoints":[],"magicFrame":0,"prompt":""}]}]})";
  std::string error;
  const auto f = ProjectCodec::decode(text, &error);
  ASSERT_TRUE(f) << error;
  const Batch& b = f->batches[0];
  ASSERT_EQ(b.nodes.size(), 2u);  // the unknown kind is dropped
  const Node& mask = b.nodes[0];
  EXPECT_EQ(mask.track.size(), 1u);  // "abc" and the short row go, frame 7 stays
  EXPECT_TRUE(mask.track.count(7));
  EXPECT_EQ(mask.shape.size(), 1u);
  EXPECT_FALSE(mask.magicPoints[0].positive);
  ASSERT_EQ(mask.anim.at("cx").size(), 1u);  // the six-number row is dropped
  EXPECT_EQ(mask.anim.at("cx")[0].interp, KeyInterp::linear);  // code 7 reads as linear
  EXPECT_FALSE(mask.anim.count("cy"));  // every row dropped: not animated
  ASSERT_EQ(b.edges.size(), 1u);        // the edge from the dropped node goes too
  EXPECT_EQ(b.positions.size(), 1u);    // a single number, a bad key: gone
}

TEST(ProjectCodec, OldFilesAreCorrected) {
  auto world = [](const std::string& nodes, const std::string& edges) { return project(nodes, "", edges); };
  const char* A = "1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8";
  const char* C = "2E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8";
  const std::string edge = std::string(R"({"from":")") + A + R"(","to":")" + C + R"(","port":4})";
  auto comp = [&](const char* params) {
    auto f = ProjectCodec::decode(world(nodeText(A, "color", "{}") + "," + nodeText(C, "comp", params), edge));
    return f->batches[0].nodes[1].params.at("mattes");
  };
  EXPECT_EQ(comp(R"({"mattes":1})"), 3);
  EXPECT_EQ(comp(R"({"mattes":5})"), 5);
  EXPECT_EQ(comp("{}"), 3);  // the kind's default 1, then corrected
  // A hostile port's count holds from one reading to the next (found by the fuzzer).
  const std::string far = std::string(R"({"from":")") + A + R"(","to":")" + C + R"(","port":1000000000})";
  auto once = ProjectCodec::decode(world(nodeText(A, "color", "{}") + "," + nodeText(C, "comp", "{}"), far));
  auto twice = ProjectCodec::decode(*ProjectCodec::encode(*once));
  EXPECT_EQ(twice->batches[0].nodes[1].params.at("mattes"), 999999999);

  // Parameters whose meaning changed are brought to the new one; the rest at their defaults.
  const struct { const char* kind; const char* params; std::map<std::string, double> read; } renamed[] = {
      {"motionvec", R"({"soft":61})", {{"soft", 61}, {"mvv", 2}}},
      {"motionvec", R"({"soft":60,"tsmooth":6})", {{"soft", 12}, {"tsmooth", 0}}},
      {"bodymask", R"({"smooth":0,"contrast":1,"feather":0,"chatter":0.3})",
       {{"smooth", 2}, {"contrast", 3}, {"feather", 1}, {"chatter", 0.5}, {"grow", 0}}},
  };
  for (const auto& c : renamed) {
    const auto f = ProjectCodec::decode(world(nodeText(A, c.kind, c.params), ""));
    ASSERT_TRUE(f) << c.params;
    for (const auto& [key, value] : c.read) EXPECT_EQ(f->batches[0].nodes[0].params.at(key), value) << c.params << " " << key;
  }
}

TEST(ProjectCodec, RefusesWhatIsNotAProject) {
  const std::string good = kMinimal;
  auto with = [&](const std::string& from, const std::string& to) { return std::string(good).replace(good.find(from), from.size(), to); };
  std::vector<std::string> bad = {
      "",
      good.substr(0, good.size() / 2),                     // truncated
      "[1,2,3]",                                           // not an object
      with("\"version\":1", "\"version\":\"1\""),           // wrong type
      with("\"recent\":[]", "\"recent\":{}"),
      with("\"magicFrame\":0", "\"magicFrame\":1e300"),    // hostile number
      with("\"bypass\":false", "\"bypass\":0"),
      with("\"name\":\"W\"", "\"name\":\"\xC3\x28\""),       // not UTF-8
      std::string(500000, '[') + std::string(500000, ']'),  // deep nesting
  };
  for (std::size_t i = 0; i < bad.size(); ++i) {
    std::string error;
    EXPECT_FALSE(ProjectCodec::decode(bad[i], &error)) << i;
    EXPECT_FALSE(error.empty()) << i;
  }
  ProjectFile f = *ProjectCodec::decode(kMinimal);
  f.batches[0].nodes[0].params["sat"] = std::numeric_limits<double>::quiet_NaN();
  std::string error;
  EXPECT_FALSE(ProjectCodec::encode(f, &error));
  EXPECT_FALSE(error.empty());
}

TEST(ProjectCodec, GroupNodesKeepTheirInnerGraph) {
  NodeGroup g;
  Node inner1 = node("color"), inner2 = node("glow");
  inner1.params["sat"] = 0.4;
  g.nodes = {inner1, inner2};
  g.edges = {{Uuid::generate(), inner1.id, inner2.id, 0, 0}};
  g.positions[inner1.id] = {1, 2};
  g.inputs = {GroupInput{"Front", false, {{inner1.id, 0}}}, GroupInput{"Matte", true, {{inner2.id, 1}}}};
  g.output = inner2.id;
  g.controls = {{inner1.id, "sat", "Saturation du groupe"}};
  g.info = "Mon look";
  Node group(NodeKind::group("Look", g));
  group.group = g;
  group.params["c0"] = 0.4;
  EXPECT_EQ(group.kind->inputs.size(), 2u);
  EXPECT_EQ(group.kind->params[0].max, 2);  // taken from the inner parameter's spec
  EXPECT_EQ(group.kind->params[0].def, 0.4);
  EXPECT_EQ(group.kind->info.raw, "Mon look · Contient : Réglage couleur → Glow.");  // its inner nodes listed

  ProjectFile f;
  Batch w;
  w.id = Uuid::generate();
  w.name = "Groupes";
  w.lastUsed = std::chrono::system_clock::time_point(std::chrono::seconds(1790000000));
  w.nodes = {group};
  f.batches = {w};
  const auto back = ProjectCodec::decode(*ProjectCodec::encode(f));
  ASSERT_TRUE(back);
  ASSERT_EQ(back->batches[0].nodes.size(), 1u);
  const Node& read = back->batches[0].nodes[0];
  ASSERT_TRUE(read.group);
  EXPECT_EQ(read.kind->title.raw, "Look");
  EXPECT_EQ(read.group->nodes, g.nodes);
  EXPECT_EQ(read.group->inputs, g.inputs);
  EXPECT_EQ(read.group->controls, g.controls);
  EXPECT_EQ(read.group->output, g.output);
  EXPECT_EQ(read.params.at("c0"), 0.4);
  EXPECT_EQ(ProjectCodec::encode(*back), ProjectCodec::encode(f));
}

TEST(ProjectCodec, NestingIsBoundedBeforeAnyWalkRecurses) {
  const std::string color = "1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8";
  struct Case {
    const char* what;
    std::string text;
    std::string reason;  // empty: accepted
  };
  const Case cases[] = {
      {"timelines", project(nodeText(color, "color", "{}"), R"("timelines":)" + nested(100000) + ","), kTooDeep},
      {"groups", project(nodeText(color, "color", "{}"), R"("groups":)" + nested(100000) + ","), kTooDeep},
      {"userNodes", project(nodeText(color, "color", "{}"), R"("userNodes":)" + nested(100000) + ","), kTooDeep},
      {"params", project(nodeText(color, "color", R"({"sat":)" + nested(100000) + "}")), kTooDeep},
      {"512 levels", project(nodeText(color, "color", "{}"), R"("userNodes":)" + nested(511) + ","), ""},
      {"513 levels", project(nodeText(color, "color", "{}"), R"("userNodes":)" + nested(512) + ","), kTooDeep},
      {"brackets in a text", project(nodeText(color, "color", "{}"), R"("userNodes":["\")" + std::string(600, '[') + R"("],)"), ""},
      {"64 groups", nestedGroups(64), ""},
      {"65 groups", nestedGroups(65), kGroupsTooDeep},
      {"5000 groups", nestedGroups(5000), kTooDeep},  // the text's own nesting is refused first
  };
  for (const auto& c : cases) {
    std::string error;
    const auto f = ProjectCodec::decode(c.text, &error);
    EXPECT_EQ(error, c.reason) << c.what;
    if (!f) continue;
    EXPECT_TRUE(c.reason.empty()) << c.what;
    // What is accepted keeps all of itself and writes back to the same world.
    const auto text = ProjectCodec::encode(*f);
    ASSERT_TRUE(text) << c.what;
    const auto back = ProjectCodec::decode(*text);
    ASSERT_TRUE(back) << c.what;
    EXPECT_EQ(back->batches[0].nodes, f->batches[0].nodes) << c.what;
    EXPECT_EQ(back->userNodesJSON, f->userNodesJSON) << c.what;
    if (c.text.find("\"group\"") != std::string::npos) {
      EXPECT_EQ(groupLevels(back->batches[0].nodes.at(0)), std::stoi(c.what)) << c.what;
    }
  }
  std::string error;  // a world pack goes through the same bound
  EXPECT_FALSE(ProjectCodec::decodeBatch(nested(100000), &error));
  EXPECT_EQ(error, kTooDeep);
}

TEST(ProjectCodec, AnOpenedWorldClosesCleanlyAfterARender) {
  // Found by the fuzzer: the matte zone a motion field keeps outlived the GPU device when the
  // model closed, and the Vulkan loader aborted.
  TempDir dir;
  const std::string media = Uuid::generate().toString(), clip = Uuid::generate().toString(),
                    mask = Uuid::generate().toString(), motion = Uuid::generate().toString();
  auto edge = [](const std::string& from, const std::string& to, int port) {
    return R"({"from":")" + from + R"(","to":")" + to + R"(","port":)" + std::to_string(port) + "}";
  };
  std::string text = project(nodeText(media, "media", "{}", R"(,"mediaID":")" + clip + "\"") + "," +
                                 nodeText(mask, "mask", "{}") + "," + nodeText(motion, "motionvec", "{}"),
                             "", edge(media, motion, 0) + "," + edge(mask, motion, 2));
  // A one-frame grey clip (YUV4MPEG: a header, then the planes) for the motion field to work on.
  const auto y4m = dir.path / "a.y4m";
  std::ofstream(y4m) << "YUV4MPEG2 W64 H36 F25:1 Ip A1:1 C420jpeg\nFRAME\n" << std::string(64 * 36 * 3 / 2, char(128));
  text.replace(text.find(R"("media":[])"), 10,
               R"("media":[{"id":")" + clip + R"(","name":"a.y4m","path":")" + y4m.string() + R"("}])");
  const auto file = dir.path / "zone.tarvom";
  std::ofstream(file) << text;
  auto m = std::make_unique<AppModel>(test::tempModelOptions(dir, std::make_shared<ManualScheduler>()));
  ASSERT_TRUE(m->engine);
  ASSERT_TRUE(m->load(file)) << m->_status;
  m->loadVideoFrames(0);
  m->performRender(true);
  EXPECT_TRUE(m->engine->mergedSide.count(*Uuid::parse(motion)));  // the zone is there to outlive
  m.reset();
}
