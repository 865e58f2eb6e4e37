// The viewer and the transport bar: what is said when there is no picture and the name over it,
// zoom and pan of the picture, the window-wide keys, the colour readout, stepping through the
// frames, clicks on the time bar and its key marks.
#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <QToolButton>
#include <QWheelEvent>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/frame_slider.h"
#include "shell/transport_bar.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

std::unique_ptr<AppModel> blankModel(std::shared_ptr<ManualScheduler> clock) {
  return std::make_unique<AppModel>(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
}

void show(QWidget& w, int width, int height) {
  w.resize(width, height);
  w.show();
  w.activateWindow();
  EXPECT_TRUE(QTest::qWaitForWindowActive(&w));
}

// Where a view point falls in the picture, as fractions of its width and height.
QPointF fractionAt(const ViewerWidget& v, QPointF p) {
  const QRectF r = v.pictureRect();
  return {(p.x() - r.x()) / r.width(), (p.y() - r.y()) / r.height()};
}

}  // namespace

// A new project has nothing to show: the viewer says how to begin and offers the import.
TEST(ViewerWidget, AnEmptyProjectShowsHowToImport) {
  test::shellApp();
  auto clock = std::make_shared<ManualScheduler>();
  auto dialogs = std::make_shared<ScriptedDialogs>();
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock, .dialogs = dialogs});
  ViewerWidget viewer(model);
  show(viewer, 400, 240);
  viewer.refresh();
  EXPECT_TRUE(viewer.picture().isNull());
  EXPECT_EQ(viewer.blankText(), "Glissez une vidéo ici pour commencer\nChaque rush devient un monde, avec son propre graphe de nodes.");
  const QImage shot = viewer.grab().toImage();
  const QRgb background = shot.pixel(2, 2);
  EXPECT_EQ(qRed(background), 9) << "the viewer's dark background";
  EXPECT_EQ(qBlue(background), 10);
  int lit = 0;  // the headline, just above the middle
  for (int x = 0; x < shot.width(); ++x) lit += qGray(shot.pixel(x, shot.height() / 2 - 8)) > 60;
  EXPECT_GT(lit, 10);

  QPushButton* import = viewer.importButton();
  ASSERT_TRUE(import->isVisible());
  EXPECT_EQ(import->text(), "Importer des rushs…");
  EXPECT_GT(import->y(), viewer.height() / 2) << "under the text";
  QTest::mouseClick(import, Qt::LeftButton);
  ASSERT_EQ(dialogs->openPanels.size(), 1u) << "the media import's panel";
  EXPECT_EQ(dialogs->openPanels[0].title, "Importer des médias…");
  viewer.setDropHint(true);
  EXPECT_FALSE(import->isVisible()) << "a node held over the viewer: the drop's invitation alone";
}

// With media in the project, the name over the picture is the node on screen, and without a
// picture the viewer says what is wrong, in the interface's language.
TEST(ViewerWidget, NamesWhatItShowsAndSaysWhyNothing) {
  test::shellApp();
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  model.setPreviewScale(0.25);
  ViewerWidget viewer(model);
  show(viewer, 480, 300);
  auto nodeOf = [&](const char* kind) {
    for (const auto& n : model._nodes)
      if (n.kind->id == kind) return n.id;
    return Uuid();
  };
  const Uuid blur = model.addNode(*NodeKind::find("blur"), {900, 400});
  struct Case {
    Uuid select;
    AppLanguage language;
    bool picture;
    const char* caption;
    const char* text;
  };
  const Case cases[] = {
      {nodeOf("color"), AppLanguage::french, true, "Réglage couleur", ""},
      {nodeOf("color"), AppLanguage::english, true, "Color Correct", ""},
      {nodeOf("mask"), AppLanguage::french, true, "Masque de forme", ""},
      {blur, AppLanguage::french, false, "Blur",
       "« Blur » n'est pas branché\nReliez son entrée à une image (un rush ou un autre node) pour voir un résultat."},
      {blur, AppLanguage::english, false, "Blur",
       "\"Blur\" is not connected\nConnect its input to a picture (a shot or another node) to see a result."},
  };
  const AppLanguage before = interfaceLanguage();
  for (const Case& c : cases) {
    setInterfaceLanguage(c.language);
    model.select(c.select);
    model.requestRender();
    clock->runAll();
    viewer.refresh();
    SCOPED_TRACE(c.caption);
    EXPECT_EQ(!viewer.picture().isNull(), c.picture);
    EXPECT_EQ(viewer.caption(), c.caption);
    EXPECT_EQ(viewer.blankText(), c.text);
    EXPECT_FALSE(viewer.importButton()->isVisible()) << "the project has media";
  }
  setInterfaceLanguage(before);
}

TEST(ViewerWidget, ZoomPanAndTheViewKeys) {
  test::shellApp();
  auto clock = std::make_shared<ManualScheduler>();
  auto model = blankModel(clock);
  clock->runAll();  // the comp takes its size
  ViewerWidget viewer(*model);
  show(viewer, 640, 360);

  // The wheel zooms about the pointer: the picture point under it stays under it.
  const QPointF pointer(420, 120);
  const QPointF before = fractionAt(viewer, pointer);
  QWheelEvent wheel(pointer, viewer.mapToGlobal(pointer), QPoint(), QPoint(0, 240), Qt::NoButton, Qt::NoModifier,
                    Qt::NoScrollPhase, false);
  QApplication::sendEvent(&viewer, &wheel);
  EXPECT_NEAR(model->viewZoom, 1.44, 1e-9);
  EXPECT_NEAR(fractionAt(viewer, pointer).x(), before.x(), 1e-9);
  EXPECT_NEAR(fractionAt(viewer, pointer).y(), before.y(), 1e-9);

  // A drag moves the picture with the pointer.
  const QRectF r0 = viewer.pictureRect();
  QTest::mousePress(&viewer, Qt::LeftButton, {}, QPoint(100, 100));
  QTest::mouseMove(&viewer, QPoint(130, 80));
  QTest::mouseRelease(&viewer, Qt::LeftButton, {}, QPoint(130, 80));
  EXPECT_NEAR(viewer.pictureRect().x(), r0.x() + 30, 1e-9);
  EXPECT_NEAR(viewer.pictureRect().y(), r0.y() - 20, 1e-9);

  QTest::keyClick(&viewer, Qt::Key_1, Qt::ControlModifier);
  EXPECT_NEAR(model->viewerPixelRatio(640, 360, viewer.devicePixelRatioF()), 1, 1e-9) << "Ctrl+1: real pixels";
  QTest::keyClick(&viewer, Qt::Key_0, Qt::ControlModifier);
  EXPECT_EQ(model->viewZoom, 1) << "Ctrl+0: fitted";
  EXPECT_EQ(model->viewPan, (Point{}));

  // F3 shows the alpha channel full view; F3 again goes back.
  QTest::keyClick(&viewer, Qt::Key_F3);
  EXPECT_TRUE(model->_viewerFull);
  EXPECT_EQ(model->_viewChannel, 3);
  QTest::keyClick(&viewer, Qt::Key_F3);
  EXPECT_FALSE(model->_viewerFull);
  // Esc steps back: out of full view, then from the channel to the result.
  QTest::keyClick(&viewer, Qt::Key_F1);
  QTest::keyClick(&viewer, Qt::Key_Escape);
  EXPECT_FALSE(model->_viewerFull);
  EXPECT_EQ(model->_viewChannel, 1);
  QTest::keyClick(&viewer, Qt::Key_Escape);
  EXPECT_EQ(model->_viewChannel, 4);

  // \ compares with the rush, result and rush in turn.
  QTest::keyClick(&viewer, Qt::Key_Backslash);
  EXPECT_TRUE(model->isCompare());
  EXPECT_TRUE(model->_showingBefore);
  QTest::keyClick(&viewer, Qt::Key_Backslash);
  EXPECT_FALSE(model->_showingBefore);
  // In the wipe style a drag moves the wipe, not the picture.
  model->setCompareStyle(1);
  const QRectF r = viewer.pictureRect();
  const QPoint from(int(r.x() + r.width() * 0.5), int(r.center().y()));
  const QPoint to(int(r.x() + r.width() * 0.25), int(r.center().y()) + 30);
  QTest::mousePress(&viewer, Qt::LeftButton, {}, from);
  QTest::mouseMove(&viewer, to);
  QTest::mouseRelease(&viewer, Qt::LeftButton, {}, to);
  EXPECT_NEAR(model->_wipe, 0.25, 0.01);
  EXPECT_EQ(viewer.pictureRect(), r);
}

TEST(ViewerWidget, ShowsTheRenderAndReadsTheColourUnderThePointer) {
  test::shellApp();
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  model.setPreviewScale(0.25);
  clock->runAll();
  ViewerWidget viewer(model);
  show(viewer, 480, 300);
  viewer.refresh();
  ASSERT_FALSE(viewer.picture().isNull());
  const QRectF r = viewer.pictureRect();
  EXPECT_LE(viewer.picture().width(), std::ceil(r.width() * viewer.devicePixelRatioF()));
  EXPECT_NEAR(double(viewer.picture().width()) / viewer.picture().height(), 16.0 / 9.0, 0.02);

  // Nothing changed: the same picture, not read again.
  const qint64 key = viewer.picture().cacheKey();
  viewer.refresh();
  EXPECT_EQ(viewer.picture().cacheKey(), key);

  // Over a blob of the sample picture, the readout agrees with the pixel shown there.
  const QPointF p(r.x() + r.width() * 0.35, r.y() + r.height() * 0.52);
  QTest::mouseMove(&viewer, p.toPoint());
  viewer.refresh();
  const QString text = viewer.readoutText();
  ASSERT_FALSE(text.isEmpty());
  const QRegularExpression numbers("R ([0-9.]+)  G ([0-9.]+)  B ([0-9.]+)");
  const auto m = numbers.match(text);
  ASSERT_TRUE(m.hasMatch()) << text.toStdString();
  const QImage& pic = viewer.picture();
  const QRgb shown = pic.pixel(int(0.35 * pic.width()), int(0.52 * pic.height()));
  EXPECT_NEAR(m.captured(1).toDouble(), qRed(shown) / 255.0, 0.04);
  EXPECT_NEAR(m.captured(2).toDouble(), qGreen(shown) / 255.0, 0.04);
  EXPECT_NEAR(m.captured(3).toDouble(), qBlue(shown) / 255.0, 0.04);

  // Off the picture there is nothing to read.
  QTest::mouseMove(&viewer, QPoint(2, 2));
  viewer.refresh();
  EXPECT_TRUE(viewer.readoutText().isEmpty());
}

TEST(TransportBar, StepsThroughTheFramesAndShowsTheTime) {
  test::shellApp();
  auto clock = std::make_shared<ManualScheduler>();
  auto model = blankModel(clock);
  model->_frameCount = 50;
  model->_fps = 25;
  TransportBar bar(*model);
  show(bar, 600, 40);
  auto* timecode = bar.findChild<QLabel*>("timecode");
  auto* slider = bar.findChild<QSlider*>("frameSlider");
  ASSERT_TRUE(timecode && slider);
  ASSERT_EQ(slider, bar.timeBar());
  EXPECT_EQ(bar.findChild<QToolButton*>("previousFrame")->toolTip(), "Image précédente (←)");
  EXPECT_EQ(bar.findChild<QToolButton*>("play")->toolTip(), "Lecture / pause (Espace)");
  EXPECT_EQ(bar.findChild<QToolButton*>("nextFrame")->toolTip(), "Image suivante (→)");

  QTest::mouseClick(bar.findChild<QToolButton*>("nextFrame"), Qt::LeftButton);
  QTest::mouseClick(bar.findChild<QToolButton*>("nextFrame"), Qt::LeftButton);
  EXPECT_EQ(model->_currentFrame, 2);
  QTest::keyClick(&bar, Qt::Key_Left);
  EXPECT_EQ(model->_currentFrame, 1);
  QTest::mouseClick(bar.findChild<QToolButton*>("lastFrame"), Qt::LeftButton);
  EXPECT_EQ(model->_currentFrame, 49);
  bar.refresh();
  EXPECT_EQ(timecode->text(), "00:00:01:24   49 / 50");
  EXPECT_EQ(slider->maximum(), 49);
  EXPECT_EQ(slider->value(), 49);

  slider->setValue(30);  // scrubbing
  EXPECT_EQ(model->_currentFrame, 30);
  QTest::mouseClick(bar.findChild<QToolButton*>("firstFrame"), Qt::LeftButton);
  bar.refresh();
  EXPECT_EQ(model->_currentFrame, 0);
  EXPECT_EQ(slider->value(), 0);
  EXPECT_EQ(timecode->text(), "00:00:00:00   0 / 50");
}

// A click on the time bar goes to the frame under the pointer, wherever it falls, and a drag
// from there scrubs; the inspected node's keys are marked in amber.
TEST(TransportBar, AClickGoesToItsFrameAndKeysAreMarked) {
  test::shellApp();
  auto clock = std::make_shared<ManualScheduler>();
  auto model = blankModel(clock);
  model->_frameCount = 100;
  TransportBar bar(*model);
  show(bar, 700, 40);
  bar.refresh();
  FrameSlider* slider = bar.timeBar();
  const int y = slider->height() / 2;
  for (int frame : {60, 5, 99, 0, 37}) {
    QTest::mouseClick(slider, Qt::LeftButton, {}, QPoint(int(std::round(slider->xOf(frame))), y));
    EXPECT_EQ(model->_currentFrame, frame) << "a click far from the handle";
    bar.refresh();
  }
  QTest::mousePress(slider, Qt::LeftButton, {}, QPoint(int(slider->xOf(20)), y));
  QTest::mouseMove(slider, QPoint(int(slider->xOf(70)), y));
  QTest::mouseRelease(slider, Qt::LeftButton, {}, QPoint(int(slider->xOf(70)), y));
  EXPECT_NEAR(model->_currentFrame, 70, 1) << "the press goes on as a drag";

  const Uuid color = model->addNode(NodeKind::color(), {0, 0});
  model->setKey(color, "exposure", 10, 0.2);
  model->setKey(color, "exposure", 80, 0.6);
  model->select(std::nullopt);
  bar.refresh();
  EXPECT_TRUE(slider->keys().empty()) << "the keys of a node not inspected";
  model->select(color);
  bar.refresh();
  EXPECT_EQ(slider->keys(), (std::set<int>{10, 80}));
  const QImage shot = slider->grab().toImage();
  auto amber = [&](int frame) {
    const QColor c = shot.pixelColor(int(std::round(slider->xOf(frame))), 1);
    return c.red() > 200 && c.green() > 140 && c.blue() < 120;
  };
  EXPECT_TRUE(amber(10));
  EXPECT_TRUE(amber(80));
  EXPECT_FALSE(amber(45)) << "no mark between the keys";
}
