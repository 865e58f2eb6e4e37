// Screenshots of the timeline workspace, saved for people to look at: the window with three layers
// (one selected, one with an effect, one screened at 60 %), the playhead half-way, and the
// timeline's settings sheet, in each language.
#include <gtest/gtest.h>

#include <QTest>
#include <cstdlib>

#include "../document/temp_model.h"
#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "document/world_list.h"
#include "screenshot_look.h"
#include "shell/main_window.h"
#include "shell/timeline_settings.h"
#include "shell/timeline_view.h"

using namespace ombrik;

namespace {
std::filesystem::path clip(const TempDir& dir, const char* name, const char* source, int frames) {
  const std::filesystem::path out = dir.path / name;
  const std::string command = std::string("ffmpeg -v error -y -f lavfi -i ") + source + " -frames:v " + std::to_string(frames) +
                              " -c:v libx264 -pix_fmt yuv420p '" + out.string() + "'";
  return std::system(command.c_str()) == 0 ? out : std::filesystem::path();
}

void screenshotsOfTheTimeline(AppLanguage language) {
  test::ScreenshotLook look(language);
  TempDir dir;
  const auto beach = clip(dir, "plage.mp4", "testsrc2=size=960x540:rate=25", 75);
  const auto bars = clip(dir, "mire.mp4", "smptehdbars=size=960x540:rate=25", 50);
  ASSERT_FALSE(beach.empty());
  ASSERT_FALSE(bars.empty());
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(test::tempModelOptions(dir, clock));
  ASSERT_TRUE(model.engine) << model._status;
  const auto first = model.createWorld(beach), second = model.createWorld(bars);
  ASSERT_TRUE(first && second) << model._status;
  const Uuid barsMedia = *worldlist::find(model._batches, *second)->mediaID;

  model.newTimeline();
  model.tl.timelineSettingsOpen = false;
  const Uuid id = *model.tl.currentTimelineID;
  model.renameTimeline(id, "Bande-annonce");
  model.addLayer(LayerSource::batch(*first), 0);
  model.addLayer(LayerSource::media(barsMedia), 30);
  model.addLayer(LayerSource::batch(*second), 55);
  const auto layer = [&](int i) { return model.tl.current()->layers[std::size_t(i)].id; };
  model.updateLayer(layer(2), [](TLayer& l) { l.opacity = 0.6, l.blend = 2, l.inPoint = 10, l.length = 40; });
  model.tl.tlSelection = {layer(0)};
  model.addLayerEffect(NodeKind::color());  // "fx · …" in its header
  model.selectLayer(layer(1), false);
  model.seekFrame(model.tl.current()->duration() / 2);

  MainWindow window(model);
  ASSERT_TRUE(test::showSettled(window, *clock));
  test::settleSeeks(*clock, model);
  for (int i = 0; i < 4; ++i) {  // the frame of the timeline is rendered, then handed over
    clock->advance(0.5);
    window.refresh();
    QCoreApplication::processEvents();
  }
  ASSERT_TRUE(window.timelineView()->isVisible());
  EXPECT_TRUE(test::saveScreenshot(window.grab().toImage(), "timeline_workspace" + test::languageSuffix(language)));

  TimelineSettings* sheet = window.openTimelineSettings();
  ASSERT_NE(sheet, nullptr);
  EXPECT_TRUE(QTest::qWaitForWindowExposed(sheet));
  QCoreApplication::processEvents();
  EXPECT_TRUE(test::saveScreenshot(sheet->grab().toImage(), "timeline_settings" + test::languageSuffix(language)));
  sheet->close();
}
}  // namespace

TEST(TimelineScreenshots, TheWorkspaceAndItsSettingsInFrench) { screenshotsOfTheTimeline(AppLanguage::french); }
TEST(TimelineScreenshots, TheWorkspaceAndItsSettingsInEnglish) { screenshotsOfTheTimeline(AppLanguage::english); }
