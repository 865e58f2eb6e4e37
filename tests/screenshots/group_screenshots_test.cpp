// Screenshots of groups and of the editor's less common gestures, in each language: a closed group
// node with its panel in the inspector, the same group open in its frame, an input armed by a tap
// of Alt, and a Shift marquee being drawn.
#include <gtest/gtest.h>

#include <QTest>

#include "screenshot_look.h"
#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/main_window.h"
#include "shell/node_editor.h"

using namespace ombrik;

namespace {

void settle(MainWindow& window) {
  for (int i = 0; i < 3; ++i) {
    window.refresh();
    QCoreApplication::processEvents();
  }
}

void groupShots(AppLanguage language) {
  test::ScreenshotLook look(language);
  const std::string suffix = test::languageSuffix(language);
  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
  const Uuid output = m._nodes.front().id;
  m.layout.set(output, {760, 160});
  const Uuid color = m.addNode(NodeKind::color(), {160, 160});
  const Uuid blur = m.addNode(*NodeKind::find("blur"), {340, 120});
  const Uuid glow = m.addNode(NodeKind::glow(), {500, 200});
  m.connect(color, blur, 0, 0);
  m.connect(blur, glow, 0, 0);
  m.connect(glow, output, 0, 0);
  m._selection = {blur, glow};
  m._selected = glow;
  const Uuid group = *m.mergeSelection("Halo doux");
  const ParamSpec& size = (*NodeKind::find("blur"))->params.front();
  m.setGroupControls(group, {{blur, size.key, size.label.value()}});
  m.select(group);

  MainWindow window(m);
  window.resize(1280, 800);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  settle(window);
  NodeEditor& editor = *window.nodeEditor();
  editor.frameAll();
  settle(window);
  EXPECT_TRUE(test::saveScreenshot(window.grab().toImage(), "group_closed" + suffix));

  m.expandGroup(group, false);
  settle(window);
  editor.frameAll();
  settle(window);
  EXPECT_FALSE(editor.groupFrame(group).isEmpty());
  EXPECT_TRUE(test::saveScreenshot(window.grab().toImage(), "group_open" + suffix));

  // Blur's second input armed: the pointer near it, Alt tapped twice.
  editor.setFocus();
  QTest::mouseMove(&editor, editor.toView(*m.layout.position(blur)).toPoint());
  QTest::qWait(50);  // the X server's move reaches the editor
  QTest::keyClick(&editor, Qt::Key_Alt);
  QTest::keyClick(&editor, Qt::Key_Alt);
  settle(window);
  EXPECT_TRUE(editor.armedInput());
  EXPECT_TRUE(test::saveScreenshot(window.grab().toImage(), "node_editor_armed_input" + suffix));
  QTest::keyClick(&editor, Qt::Key_Escape);

  // A marquee drawn around the correction and the blur, not yet let go.
  const QPoint from = editor.toView({100, 40}).toPoint(), to = editor.toView({400, 220}).toPoint();
  QTest::mousePress(&editor, Qt::LeftButton, Qt::ShiftModifier, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(&editor, from + (to - from) * k / 4);
  settle(window);
  EXPECT_TRUE(test::saveScreenshot(window.grab().toImage(), "node_editor_marquee" + suffix));
  QTest::mouseRelease(&editor, Qt::LeftButton, Qt::ShiftModifier, to);
  EXPECT_TRUE(m.isSelected(color) && m.isSelected(blur));
}

}  // namespace

TEST(GroupScreens, GroupsAndGesturesInFrench) { groupShots(AppLanguage::french); }
TEST(GroupScreens, GroupsAndGesturesInEnglish) { groupShots(AppLanguage::english); }
