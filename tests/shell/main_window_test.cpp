// The main window holds the world's name; its screenshots are taken under Xvfb (tests/screenshots).
#include <gtest/gtest.h>

#include <QLabel>

#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/main_window.h"
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
