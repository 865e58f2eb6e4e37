// The real worker's mattes and selections through TapServer, measured against masks the test knows:
// a hand-traced player on a photo from opencv-doc, a textured object over another texture, the same
// object moving through a clip. Needs the models of scripts/setup; without them the jobs fail with
// the worker's "modèle absent : <file>" text.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <thread>

#include "../platform/temp_dir.h"
#include "tracking/roto.h"
#include "tracking/tap_server.h"
#include "worker_clips.h"

using namespace ombrik;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

const fs::path kPhoto = "/usr/share/doc/opencv-doc/examples/data/messi5.jpg";  // 548 x 342

using test::Picture;

// A mask the worker wrote, its first channel (0..255); width 0 when it can't be read.
struct Mask {
  int w = 0, h = 0;
  Picture rgb;
  double at(int x, int y) const { return rgb[(std::size_t(y) * w + x) * 3]; }
};
Mask readMask(const fs::path& path) {
  const auto p = SourcePicture::load(path);
  return p ? Mask{p->width, p->height, test::rgbOf(*p)} : Mask{};
}

std::string frameName(int t) {
  char name[16];
  std::snprintf(name, sizeof name, "%05d.png", t);
  return name;
}

// Intersection over union of a written mask (above 127) and the truth.
template <class Truth>
double iou(const Mask& mask, Truth inside) {
  long both = 0, either = 0;
  for (int y = 0; y < mask.h; ++y)
    for (int x = 0; x < mask.w; ++x) {
      const bool m = mask.at(x, y) > 127, t = inside(x + 0.5, y + 0.5);
      both += m && t;
      either += m || t;
    }
  return either ? double(both) / either : 0.0;
}

// The player of the photo traced by hand (pixels): arms, head, shirt, shorts, legs, boots.
const std::vector<Point> kPlayer = {
    {72, 90},   {100, 97},  {130, 108}, {160, 116}, {210, 108}, {214, 82},  {225, 63},  {250, 62},
    {262, 80},  {262, 100}, {290, 113}, {320, 140}, {350, 155}, {378, 160}, {370, 172}, {345, 165},
    {310, 155}, {285, 160}, {288, 195}, {305, 215}, {340, 240}, {380, 250}, {410, 262}, {450, 265},
    {458, 285}, {440, 290}, {400, 270}, {350, 262}, {330, 265}, {300, 270}, {265, 275}, {255, 290},
    {270, 310}, {300, 318}, {308, 333}, {255, 335}, {245, 315}, {232, 295}, {222, 270}, {225, 245},
    {210, 200}, {195, 150}, {165, 128}, {130, 120}, {95, 106},  {72, 98}};

// A warm, textured blob (a disc and a bar: not convex) at (cx, cy) over a cooler texture of
// overlapping brightness.
constexpr int kW = 320, kH = 240;
bool inObject(double x, double y, double cx, double cy) {
  const double dx = x - cx, dy = y - cy;
  return dx * dx + dy * dy < 45 * 45 || (dx > 0 && dx < 80 && std::abs(dy) < 14);
}
Picture objectPicture(double cx, double cy) {
  std::mt19937 rng(11);
  static const auto back = test::plateWaves(rng, 0.3), front = test::plateWaves(rng, 0.3);
  Picture p(std::size_t(kW) * kH * 3);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const bool o = inObject(x + 0.5, y + 0.5, cx, cy);
      // Textures move with what they belong to.
      const double t = o ? test::plateAt(front, x - cx, y - cy) : test::plateAt(back, x, y);
      const double rgb[3] = {o ? 0.7 * t + 30 : 0.45 * t + 25, o ? 0.55 * t + 10 : 0.55 * t + 15, o ? 0.35 * t + 10 : 0.6 * t + 25};
      for (int c = 0; c < 3; ++c) p[(std::size_t(y) * kW + x) * 3 + c] = std::floor(std::clamp(rgb[c], 0.0, 255.0));
    }
  return p;
}

// One worker for the whole suite (starting it is the slow part); one that a test stopped is started again.
struct WorkerMattesTest : ::testing::Test {
  static inline TempDir* logs = nullptr;
  static inline TapServer* server = nullptr;
  static void SetUpTestSuite() {
    logs = new TempDir;
    server = new TapServer(TapServer::Role::shared, test::testWorkerSetup(logs->path));
  }
  static void TearDownTestSuite() {
    delete server;
    delete logs;
  }
  TempDir dir;
  std::string at(const std::string& name) const { return (dir.path / name).string(); }
  void SetUp() override {
    ASSERT_TRUE(fs::exists(kPhoto)) << "opencv-doc is one of scripts/packages.txt";
    ASSERT_EQ(server->ensureRunning(workerPython(AppPaths::shared()).value_or("/usr/bin/python3"), nullptr), std::nullopt);
  }
  // A job that must end well; its `seg` lines.
  std::vector<int> run(const json& request) {
    std::vector<int> segs;
    const JobResult r = server->runJob(request, [&](const json& m) {
      if (m.contains("seg")) segs.push_back(m["seg"]);
    });
    EXPECT_TRUE(r.ok()) << request["type"] << ": " << r.text;
    return segs;
  }
};

TEST_F(WorkerMattesTest, BodyHairAndFaceSearchOnAPhoto) {
  run({{"type", "body_frame"}, {"image", kPhoto.string()}, {"out", at("body.png")}});
  const Mask body = readMask(dir.path / "body.png");
  ASSERT_EQ(body.w, 548);
  ASSERT_EQ(body.h, 342);
  const double player = iou(body, [](double x, double y) { return Roto::contains(kPlayer, {x, y}); });
  std::printf("[ figures  ] body matte IoU against the hand-traced player: %.3f\n", player);
  // 0.72 measured: the network is 256 x 256, misses the thin raised arm and keeps some of the ball
  // and the grass under the legs; a matte that lost the player or took the crowd falls far below.
  EXPECT_GT(player, 0.65);

  // Hair: the head region above the face found by the detector (face at x 221-258, y 96-133).
  run({{"type", "hair_frame"}, {"image", kPhoto.string()}, {"out", at("hair.png")}});
  const Mask hair = readMask(dir.path / "hair.png");
  ASSERT_EQ(hair.w, 548);
  long on = 0, head = 0;
  for (int y = 0; y < hair.h; ++y)
    for (int x = 0; x < hair.w; ++x)
      if (hair.at(x, y) > 127) {
        ++on;
        head += x >= 195 && x < 285 && y >= 50 && y < 125;
      }
  std::printf("[ figures  ] hair matte: %ld pixels, %.3f of them in the head box\n", on, on ? double(head) / on : 0.0);
  EXPECT_GT(on, 600);  // the hair covers about 2,000 pixels
  EXPECT_GT(double(head) / std::max(1L, on), 0.95);

  // A picture without a face has no hair to find.
  const JobResult none = server->runJob({{"type", "hair_frame"}, {"image", at("body.png")},
                                        {"out", at("none.png")}}, nullptr);
  EXPECT_EQ(none.text, "aucun visage trouvé : la matte des cheveux part d'un visage détecté");
  EXPECT_FALSE(fs::exists(dir.path / "none.png"));

  // Search by text: the face, and what the installed models can't search.
  auto detect = [&](const char* text, int frame) {
    return json{{"type", "sam_detect"}, {"image", kPhoto.string()}, {"text", text}, {"out", at("found.png")},
                {"boxes_out", at("boxes.json")}, {"frame", frame}, {"threshold", 0.5}, {"max", 5}};
  };
  run(detect("le visage", 12));
  const json found = json::parse(slurp(at("boxes.json")));
  EXPECT_EQ(found["frame"], 12);
  ASSERT_EQ(found["boxes"].size(), 1u) << found;
  const auto& b = found["boxes"][0];
  // The face spans about x 221-258, y 96-133 (brows to chin).
  const double face[4] = {221, 96, 258, 133}, side[4] = {548, 342, 548, 342};
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(b[i].get<double>() * side[i], face[i], 10) << "face box " << i;
  std::printf("[ figures  ] face box: %.0f %.0f %.0f %.0f px, confidence %.2f\n", b[0].get<double>() * 548,
              b[1].get<double>() * 342, b[2].get<double>() * 548, b[3].get<double>() * 342, b[4].get<double>());
  EXPECT_GE(b[4].get<double>(), 0.5);
  const Mask m = readMask(at("found.png"));
  ASSERT_EQ(m.w, 548);
  EXPECT_EQ(m.at(240, 115), 255);
  EXPECT_EQ(m.at(100, 300), 0);
  EXPECT_EQ(server->runJob(detect("un chat", 0), nullptr).text,
            "« un chat » : seuls les visages et les personnes peuvent être cherchés avec les modèles installés");
}

TEST_F(WorkerMattesTest, SelectionFromClicksOrABox) {
  const double cx = 140, cy = 120;
  ASSERT_TRUE(test::writePictures(dir.path / "object.png", kW, kH, {objectPicture(cx, cy)}, "-frames:v 1"));
  struct Case {
    const char* what;
    json points, boxes;
    double minIou;
  } cases[] = {
      {"two clicks", {{cx / kW, cy / kH, 1.0}, {40.0 / kW, 200.0 / kH, 0.0}}, json::array(), 0.9},
      {"one box", json::array(), {{80.0 / kW, 60.0 / kH, 235.0 / kW, 180.0 / kH}}, 0.9},
  };
  for (const Case& c : cases) {
    const fs::path out = dir.path / "mask.png";
    json request = {{"type", "sam_preview"}, {"image", at("object.png")},
                    {"points", c.points}, {"out", out.string()}};
    if (!c.boxes.empty()) request["boxes"] = c.boxes;
    run(request);
    const Mask mask = readMask(out);
    ASSERT_EQ(mask.w, kW) << c.what;
    const double v = iou(mask, [&](double x, double y) { return inObject(x, y, cx, cy); });
    std::printf("[ figures  ] sam_preview from %s: IoU %.3f\n", c.what, v);
    EXPECT_GT(v, c.minIou) << c.what;
  }
  const JobResult bare = server->runJob({{"type", "sam_preview"}, {"image", at("object.png")},
                                        {"points", json::array()}, {"out", at("x.png")}}, nullptr);
  EXPECT_EQ(bare.text, "aucun point ni cadre pour sélectionner");
}

TEST_F(WorkerMattesTest, SelectionCarriedThroughAClipBothWaysAndBodyMattesOfIt) {
  // The object slides 3 px right and 1.5 px down a frame; the clicks are made on frame 8.
  const int n = 20, start = 8;
  auto centre = [](int t) { return std::pair{90.0 + 3 * t, 100.0 + 1.5 * t}; };
  std::vector<Picture> frames;
  for (int t = 0; t < n; ++t) frames.push_back(objectPicture(centre(t).first, centre(t).second));
  ASSERT_TRUE(test::writePictures(dir.path / "slide.mp4", kW, kH, frames, test::kH264));
  const auto [sx, sy] = centre(start);
  const std::vector<int> segs =
      run({{"type", "sam_propagate"}, {"video", at("slide.mp4")}, {"frame", start},
           {"points", {{sx / kW, sy / kH, 1.0}, {20.0 / kW, 220.0 / kH, 0.0}}}, {"outdir", at("out")}});
  EXPECT_EQ(segs.size(), std::size_t(n));
  EXPECT_EQ(segs.empty() ? 0 : segs.back(), n);
  double sum = 0, worst = 1;
  for (int t = 0; t < n; ++t) {
    const Mask mask = readMask(dir.path / "out" / frameName(t));
    ASSERT_EQ(mask.w, kW) << t;
    const double v = iou(mask, [&](double x, double y) { return inObject(x, y, centre(t).first, centre(t).second); });
    sum += v;
    worst = std::min(worst, v);
  }
  std::printf("[ figures  ] sam_propagate over %d frames: mean IoU %.3f, worst %.3f\n", n, sum / n, worst);
  EXPECT_GT(sum / n, 0.85);
  EXPECT_GT(worst, 0.7);

  // A body matte of every frame; a stop in the middle leaves whole files only.
  EXPECT_EQ(run({{"type", "body_video"}, {"video", at("slide.mp4")}, {"outdir", at("all")}}).size(), std::size_t(n));
  for (int t = 0; t < n; ++t) EXPECT_EQ(readMask(dir.path / "all" / frameName(t)).w, kW) << t;
  int reports = 0;
  const JobResult r = server->runJob({{"type", "body_video"}, {"video", at("slide.mp4")}, {"outdir", at("cut")}},
                                     [&](const json& m) {
                                       if (m.contains("seg") && reports++ == 0) std::thread([&] { server->stop(); }).join();
                                     });
  EXPECT_EQ(r.end, JobResult::End::cancelled);
  int whole = 0;
  for (const auto& e : fs::directory_iterator(dir.path / "cut")) {
    const Mask p = readMask(e.path());
    EXPECT_EQ(p.w, kW) << e.path() << " is not a whole mask";
    EXPECT_EQ(e.path().filename().string().size(), 9u) << e.path();  // %05d.png, no temporary left
    whole += p.w == kW;
  }
  EXPECT_GE(whole, 1);
  EXPECT_LT(whole, n);
}

}  // namespace
