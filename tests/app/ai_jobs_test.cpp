// A whole-shot AI job through the application, with the real worker and its model: the Body
// Matte of a 50-frame clip, its frames on disk, in the viewer and in `ombrik render`, the waiting
// line of a second press, and a cancel.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>
#include <QProcess>
#include <QProcessEnvironment>
#include <cmath>

#include "../document/temp_model.h"
#include "ai/ai_cache.h"
#include "app/render_command.h"
#include "engine/engine.h"

namespace fs = std::filesystem;
using namespace ombrik;

namespace {

constexpr int kFrames = 50;

std::vector<float> readGrey(const fs::path& path) {
  auto in = OIIO::ImageInput::open(path.string());
  if (!in) return {};
  const OIIO::ImageSpec& spec = in->spec();
  std::vector<float> px(std::size_t(spec.width) * spec.height * spec.nchannels);
  in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, px.data());
  std::vector<float> grey(std::size_t(spec.width) * spec.height);
  for (std::size_t i = 0; i < grey.size(); ++i) grey[i] = px[i * spec.nchannels];
  return grey;
}

// Mean absolute difference between two pictures of the same size over their first `channels`
// channels of `stride`, or a huge number when the sizes differ.
double distance(const std::vector<float>& a, int aStride, const std::vector<float>& b, int bStride, int channels = 1) {
  if (a.empty() || a.size() / aStride != b.size() / bStride) return 1e9;
  double d = 0;
  for (std::size_t i = 0; i < a.size() / aStride; ++i)
    for (int c = 0; c < channels; ++c) d += std::abs(a[i * aStride + c] - b[i * bStride + c]);
  return d / double(a.size() / aStride * channels);
}

// A player panned across: 50 frames of 320 x 240 at 25 frames a second, 3.6 pixels a frame.
fs::path writePan(const fs::path& clip) {
  const fs::path photo = "/usr/share/doc/opencv-doc/examples/data/messi5.jpg";  // installed by scripts/setup
  const std::string cmd = "ffmpeg -v error -y -loop 1 -i '" + photo.string() +
                          "' -vf \"crop=320:240:x='min(t*90,228)':y=60\" -r 25 -frames:v 50 -c:v libx264 -crf 16 "
                          "-pix_fmt yuv420p '" + clip.string() + "'";
  return fs::exists(photo) && std::system(cmd.c_str()) == 0 ? clip : fs::path();
}

// A model on the pan clip at the clip's own size (pixel for pixel with the result files), with
// the engine, its media and output nodes.
struct PanDesk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> model;
  Uuid media, output;

  bool open() {
    const fs::path clip = writePan(dir.path / "pan.mp4");
    if (clip.empty()) return false;
    model = std::make_unique<AppModel>(test::tempModelOptions(dir, clock));
    model->buildDefaultGraph();
    if (!model->engine || !model->importURL(clip, true)) return false;
    model->setPreviewScale(1.0);
    model->recomputeComp();
    media = test::nodeOfKind(*model, "media"), output = test::nodeOfKind(*model, "output");
    return true;
  }
  void waitJob() { test::waitWhile(*clock, [&] { return bool(model->_magicProgress); }, 120); }
  // The node's result at frame f, the frame's plate decoded first.
  std::vector<float> picture(const Uuid& id, int f) {
    model->seekFrame(f);
    test::settleSeeks(*clock, *model);
    clock->advance(1);
    model->evalFrameOverride = f;
    model->performRender(true);
    model->evalFrameOverride.reset();
    const auto it = model->engine->outputs.find(id);
    return it == model->engine->outputs.end() ? std::vector<float>() : model->engine->readPixels(it->second);
  }
};

}  // namespace

TEST(AiJobs, AWholeShotMatteFillsEveryFrameShowsEverywhereWaitsInLineAndCancels) {
  PanDesk desk;
  ASSERT_TRUE(desk.open()) << "scripts/setup installs opencv-doc; the engine runs on lavapipe";
  AppModel& m = *desk.model;
  auto& clock = desk.clock;
  const Uuid body = m.addNode(*NodeKind::find("bodymask"), {0, 0});
  m.connect(body, desk.output, 0, 0);

  int rings = 0;
  m.playTaskSound = [&] { ++rings; };
  // Wired to a clip, it computes the whole shot by itself.
  m.connect(desk.media, body, 0, 0);
  clock->runAll();
  ASSERT_TRUE(m._magicProgress) << m._status;
  EXPECT_TRUE(m.ai.videoJobRunning);
  EXPECT_EQ(m.aiProgress(body), m._magicProgress);
  desk.waitJob();
  ASSERT_FALSE(m._magicProgress);
  const fs::path folder = m.magicDir(body);
  EXPECT_EQ(countResultFrames(folder), kFrames);
  for (int f = 0; f < kFrames; ++f) ASSERT_TRUE(fs::exists(frameFile(folder, f, "png"))) << f;

  // The viewer's evaluation reads the frame's matte.
  for (int f : {5, 40}) {
    const double d = distance(readGrey(frameFile(folder, f, "png")), 1, desk.picture(body, f), 4);  // sizes must agree
    std::printf("[ figures  ] frame %d: viewer against the matte file, mean difference %.3f\n", f, d);
    EXPECT_LT(d, 0.05) << f;  // the node's defaults (a little chatter between frames) move it slightly
  }

  // `ombrik render` of the saved project finds the same files.
  m._projectURL = desk.dir.path / "ai.tarvom";
  m.saveProject();
  QProcess p;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("OMBRIK_DATA", QString::fromStdString((desk.dir.path / "data").string()));  // where the results lie
  p.setProcessEnvironment(env);
  const fs::path pattern = desk.dir.path / "out_%03d.png";
  p.start(OMBRIK_BINARY, {"render", QString::fromStdString(m._projectURL->string()), "--frames", "21-21", "--out",
                          QString::fromStdString(pattern.string())});
  ASSERT_TRUE(p.waitForFinished(120000));
  ASSERT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
  const std::vector<float> rendered = readGrey(RenderCommand::fileFor(pattern.string(), 20));
  const std::vector<float> matte = readGrey(frameFile(folder, 20, "png"));
  const double d = distance(rendered, 1, matte, 1);
  std::printf("[ figures  ] ombrik render frame 21 against the matte file, mean difference %.3f\n", d);
  EXPECT_LT(d, 0.05);

  // Pressed again while it runs: the job waits once, whatever the presses (its texts: AiTools).
  m.bodyVideo(body);
  ASSERT_TRUE(m._magicProgress);
  for (int i = 0; i < 2; ++i) m.bodyVideo(body);
  m.bodyFrame(body);
  ASSERT_EQ(m.ai.queue.size(), 2u);
  EXPECT_EQ(m.ai.queue.entries()[1].key, "bodyf-" + body.toString());

  // A cancel ends the job and the line, without the end sound; the frames on disk stay whole.
  const int rang = rings;
  m.cancelAI();
  EXPECT_TRUE(m.ai.queue.empty());
  desk.waitJob();
  clock->runAll();
  EXPECT_FALSE(m._magicProgress) << "a queued job started after the cancel";
  EXPECT_EQ(rings, rang);
  for (const auto& entry : fs::directory_iterator(folder)) {
    EXPECT_NE(entry.path().extension(), ".part") << entry.path();
    if (entry.path().extension() == ".png") {
      EXPECT_FALSE(readGrey(entry.path()).empty()) << entry.path();
    }
  }
}

TEST(AiJobs, ASlowMotionComputedByFlowReplacesThePlateFrameByFrame) {
  PanDesk d;
  ASSERT_TRUE(d.open());
  AppModel& m = *d.model;
  const Uuid media = d.media, retime = m.addNode(*NodeKind::find("retime"), {0, 0});
  m.connect(media, retime, 0, 0);
  m.connect(retime, d.output, 0, 0);
  m.setParams(retime, {{"speed", 50}, {"method", 1}});  // half speed, in-betweens by optical flow
  m.retimeCompute(retime);
  ASSERT_TRUE(m._magicProgress) << m._status;
  d.waitJob();
  EXPECT_EQ(m._status, "Vitesse : ralenti calculé par flux optique (99 images).");
  ASSERT_TRUE(m.retimeFlowReady(*m.nodeByID(retime)));

  // At half speed, output frame 20 shows the source's frame 10.
  const auto slow = d.picture(retime, 20), source10 = d.picture(media, 10), source20 = d.picture(media, 20);
  const double near = distance(slow, 4, source10, 4, 2), far = distance(slow, 4, source20, 4, 2);
  std::printf("[ figures  ] retimed frame 20 against source frame 10: %.4f, against source frame 20: %.4f\n", near, far);
  EXPECT_LT(near, 0.02);
  EXPECT_GT(far, 5 * near);
  // A changed speed leaves the movie unused until it is computed again.
  m.setParams(retime, {{"speed", 40}});
  EXPECT_FALSE(m.retimeFlowReady(*m.nodeByID(retime)));
  EXPECT_FALSE(m.resolved(*m.nodeByID(retime)).retimeSource);
}
