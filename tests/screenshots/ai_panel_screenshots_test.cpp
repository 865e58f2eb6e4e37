// Screenshots of the AI tools' panel under Xvfb, in each language: Body Matte while its job runs
// (the bar and "Annuler l'IA" in the panel and the status bar), Objet IA with two objects found,
// their frames and two clicks drawn over the example picture, and the other AI kinds idle.
#include <gtest/gtest.h>

#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <fstream>

#include "screenshot_look.h"
#include "../platform/temp_dir.h"
#include "ai/object_boxes.h"
#include "document/app_model.h"
#include "shell/ai_panel.h"
#include "shell/ai_progress_row.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/viewer_widget.h"

using namespace ombrik;

namespace {

// The example world with a node of `kind` added and inspected; the viewer stays on the media.
struct AiShotDesk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel model{AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"}};
  Uuid node;

  explicit AiShotDesk(const std::string& kind) {
    for (const Node& n : model._nodes)
      if (n.kind->id == "media") model._viewedNode = n.id;
    model._viewLocked = true;
    node = model.addNode(*NodeKind::find(kind), {300, 260});
    model.select(node);
    model.inspectedID = node;
  }
};

void shoot(MainWindow& window, ManualScheduler& clock, const std::string& name) {
  ASSERT_TRUE(test::showSettled(window, clock));
  for (int i = 0; i < 2; ++i) {
    window.refresh();
    QCoreApplication::processEvents();
  }
  EXPECT_TRUE(test::saveScreenshot(window.grab().toImage(), name));
  for (auto* scroll : window.inspector()->findChildren<QScrollArea*>())
    EXPECT_FALSE(scroll->horizontalScrollBar()->isVisible()) << name;
}

void bodyMatteShot(AppLanguage language) {
  test::ScreenshotLook look(language);
  AiShotDesk desk("bodymask");
  desk.model._magicProgress = 0.42;  // a whole-shot job under way for this node
  desk.model.ai.aiNodeID = desk.node;
  MainWindow window(desk.model);
  shoot(window, *desk.clock, "ai_bodymatte" + test::languageSuffix(language));
  EXPECT_TRUE(window.inspector()->aiPanel()->progress()->isVisible());
  EXPECT_TRUE(window.aiProgress()->isVisible());
  auto* video = window.findChild<QPushButton*>("aiVideo");
  ASSERT_NE(video, nullptr);
  EXPECT_EQ(video->text(), language == AppLanguage::english ? "Compute the whole video" : "Calculer toute la vidéo");
  desk.model._magicProgress.reset();
  window.refresh();  // the job seen ending: the next one's time starts from zero
}

void objectShot(AppLanguage language) {
  test::ScreenshotLook look(language);
  AiShotDesk desk("objectmask");
  Node* n = desk.model.nodeByID(desk.node);
  n->prompt = "lampadaire, voiture";
  n->magicPoints = {{{0.30, 0.62}, true}, {{0.70, 0.35}, false}};
  n->magicFrame = desk.model._currentFrame;
  std::filesystem::create_directories(desk.model.magicDir(desk.node));
  std::ofstream(desk.model.magicDir(desk.node) / "boxes.json")
      << objectBoxesJson(ObjectBoxes{desk.model._currentFrame, {{0.12, 0.18, 0.46, 0.86, 0.91}, {0.55, 0.22, 0.88, 0.58, 0.47}}});
  MainWindow window(desk.model);
  shoot(window, *desk.clock, "ai_objectmask" + test::languageSuffix(language));
  ASSERT_FALSE(window.viewer()->picture().isNull()) << desk.model._status;
  EXPECT_TRUE(window.findChild<QWidget*>("aiRemoveBox1")) << "both objects are listed";
}

// The other AI kinds' panels, idle, to look at their buttons and texts.
void otherKindsShots(AppLanguage language) {
  test::ScreenshotLook look(language);
  for (const char* kind : {"magicmask", "denoise", "greenkeyai", "retime"}) {
    AiShotDesk desk(kind);
    if (std::string(kind) == "retime") desk.model.setParams(desk.node, {{"method", 1}});
    MainWindow window(desk.model);
    shoot(window, *desk.clock, std::string("ai_") + kind + test::languageSuffix(language));
    EXPECT_TRUE(window.inspector()->aiPanel()->isVisible()) << kind;
  }
}

}  // namespace

TEST(AiPanelScreenshots, OtherKindsInFrench) { otherKindsShots(AppLanguage::french); }
TEST(AiPanelScreenshots, OtherKindsInEnglish) { otherKindsShots(AppLanguage::english); }
TEST(AiPanelScreenshots, BodyMatteInFrench) { bodyMatteShot(AppLanguage::french); }
TEST(AiPanelScreenshots, BodyMatteInEnglish) { bodyMatteShot(AppLanguage::english); }
TEST(AiPanelScreenshots, ObjectMaskInFrench) { objectShot(AppLanguage::french); }
TEST(AiPanelScreenshots, ObjectMaskInEnglish) { objectShot(AppLanguage::english); }
