#include <gtest/gtest.h>

#include <QDir>
#include <QLabel>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <cstdlib>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/scheduler.h"
#include "media/video_source.h"
#include "shell/curve_editor_widget.h"
#include "shell/dark_theme.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

TEST(MainWindow, TitledOmbrikShowingTheWorld) {
  test::shellApp();
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>()});
  MainWindow window(model);
  window.show();
  EXPECT_EQ(window.windowTitle(), "Ombrik");
  auto* label = window.findChild<QLabel*>("worldName");
  ASSERT_NE(label, nullptr);
  EXPECT_EQ(label->text(), "Batch_01");

  model._batches[0].name = "Plan_07";
  window.refresh();
  EXPECT_EQ(label->text(), "Plan_07");
}

namespace {
// Spread of the grey levels: a blank or single-colour window has none.
// Screenshots go beside the build's test data, where a person can look at them after a run.
bool saveScreenshot(const QImage& shot, const char* name) {
  const char* support = std::getenv("OMBRIK_SUPPORT");
  const QDir folder(support ? QDir(QString::fromLocal8Bit(support)).absoluteFilePath("../screenshots")
                            : QDir::temp().absoluteFilePath("ombrik-screenshots"));
  return QDir().mkpath(folder.path()) && shot.save(folder.absoluteFilePath(name));
}

double greyVariance(const QImage& image) {
  double sum = 0, sum2 = 0;
  const int n = image.width() * image.height();
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      const double g = qGray(image.pixel(x, y));
      sum += g;
      sum2 += g * g;
    }
  const double mean = sum / n;
  return sum2 / n - mean * mean;
}
}  // namespace

// The whole window on the example world, saved for people to look at: the picture, the graph
// and the settings of the selected node must all be there.
TEST(MainWindow, ScreenshotOfTheExampleWorld) {
  QApplication& app = test::shellApp();
  const QString oldStyle = app.style()->name();
  const QPalette oldPalette = app.palette();
  applyDarkTheme(app);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  MainWindow window(model);
  window.resize(1280, 800);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  clock->runAll();
  window.refresh();
  QCoreApplication::processEvents();

  const QImage shot = window.grab().toImage();
  EXPECT_TRUE(saveScreenshot(shot, "main_window.png"));

  EXPECT_GT(greyVariance(shot), 100) << "the window shows more than a flat colour";
  ASSERT_FALSE(window.viewer()->picture().isNull()) << "the viewer shows a rendered picture";
  const QImage viewer = window.viewer()->grab().toImage();
  EXPECT_GT(greyVariance(viewer), 100) << "the picture in the viewer has content";
  EXPECT_FALSE(window.inspector()->row("amount") == nullptr) << "the selected node's settings are listed";

  app.setStyle(QStyleFactory::create(oldStyle));
  app.setPalette(oldPalette);
}

TEST(MainWindow, ScreenshotOfAnImportedClip) {
  QApplication& app = test::shellApp();
  const QString oldStyle = app.style()->name();
  const QPalette oldPalette = app.palette();
  applyDarkTheme(app);
  TempDir dir;
  const std::filesystem::path clip = dir.path / "rush.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc2=size=960x540:rate=25 -frames:v 30 -c:v libx264 "
                         "-pix_fmt yuv420p '" + clip.string() + "'").c_str()), 0);
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.blankStart = true, .scheduler = clock,
                                   .defaultsFile = (dir.path / "defaults.conf").string(), .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  const auto world = model.createWorld(clip);
  ASSERT_TRUE(world) << model._status;
  model.openBatch(*world);
  // A colour node with an animated exposure, so the curve editor has something to show.
  const Uuid color = model.addNode(NodeKind::color(), {400, 140});
  model.intercalate(color, model._edges.front().id);
  model.setKey(color, "exposure", 0, -0.5);
  model.setKey(color, "exposure", 29, 0.8);
  model.select(color);
  model.inspectedID = color;
  model.seekFrame(12);

  MainWindow window(model);
  window.resize(1280, 800);
  window.show();
  window.toggleCurveEditor();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  for (int i = 0; i < 200 && model.videos.begin()->second->seekBusy(); ++i) {
    clock->waitForThreads(0.05);
    clock->runAll();
  }
  clock->advance(0.05);  // the pump hands the frame over and the render runs
  window.refresh();
  QCoreApplication::processEvents();

  const QImage shot = window.grab().toImage();
  EXPECT_TRUE(saveScreenshot(shot, "main_window_clip.png"));
  EXPECT_EQ(model._currentFrame, 12);
  EXPECT_EQ(model._frameCount, 30);
  EXPECT_GT(greyVariance(window.viewer()->grab().toImage()), 100) << "the clip's frame is on screen";
  EXPECT_TRUE(window.curveEditor()->isVisible());

  app.setStyle(QStyleFactory::create(oldStyle));
  app.setPalette(oldPalette);
}
