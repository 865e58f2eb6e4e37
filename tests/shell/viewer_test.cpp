// The viewer and the transport bar: the empty and blank states, zoom and pan, keys, the colour
// readout, frame stepping, the time bar and its key marks.
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QToolButton>
#include <QWheelEvent>

#include "platform/string_catalogue.h"
#include "shell/frame_slider.h"
#include "shell/transport_bar.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

// A model of its own (the example world, or a blank one without an engine) and one widget on it.
template <typename W>
struct Alone {
  QApplication& app = test::shellApp();
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::shared_ptr<ScriptedDialogs> dialogs = std::make_shared<ScriptedDialogs>();
  std::unique_ptr<AppModel> m;
  std::unique_ptr<W> w;
  Alone(bool example, int width, int height) {
    AppModel::Options options = test::tempModelOptions(dir, clock, example);
    options.blankStart = !example;
    options.dialogs = dialogs;
    m = std::make_unique<AppModel>(options);
    if (example) m->setPreviewScale(0.25);
    clock->runAll();  // the comp takes its size
    w = std::make_unique<W>(*m);
    w->resize(width, height);
    w->show();
    w->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(w.get()));
  }
};

// Where a view point falls in the picture, as fractions of its width and height.
QPointF fractionAt(const ViewerWidget& v, QPointF p) {
  const QRectF r = v.pictureRect();
  return {(p.x() - r.x()) / r.width(), (p.y() - r.y()) / r.height()};
}

}  // namespace

// A new project has nothing to show: the viewer says how to begin and offers the import. The
// wheel, a drag and the view keys move, fit and switch the view.
TEST(ViewerWidget, AnEmptyProjectShowsHowToImportAndTheViewMovesAndSwitches) {
  Alone<ViewerWidget> a(false, 640, 360);
  ViewerWidget& viewer = *a.w;
  viewer.refresh();
  EXPECT_TRUE(viewer.picture().isNull());
  EXPECT_FALSE(viewer.blankText().isEmpty());
  const QImage shot = viewer.grab().toImage();
  int lit = 0;  // the headline, just above the middle
  for (int x = 0; x < shot.width(); ++x) lit += qGray(shot.pixel(x, shot.height() / 2 - 8)) > 60;
  EXPECT_GT(lit, 10);

  QPushButton* import = viewer.importButton();
  ASSERT_TRUE(import->isVisible());
  QTest::mouseClick(import, Qt::LeftButton);
  EXPECT_EQ(a.dialogs->openPanels.size(), 1u) << "the media import's panel";
  viewer.setDropHint(true);
  EXPECT_FALSE(import->isVisible()) << "a node held over the viewer: the drop's invitation alone";

  viewer.setDropHint(false);
  AppModel* model = a.m.get();
  // The wheel zooms about the pointer: the picture point under it stays under it.
  const QPointF pointer(420, 120);
  const QPointF before = fractionAt(viewer, pointer);
  QWheelEvent wheel(pointer, viewer.mapToGlobal(pointer), QPoint(), QPoint(0, 240), Qt::NoButton, Qt::NoModifier,
                    Qt::NoScrollPhase, false);
  QApplication::sendEvent(&viewer, &wheel);
  EXPECT_GT(model->viewZoom, 1);
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

// The example's render on screen, read under the pointer; the name over the picture is the node
// on screen, and without a picture the viewer says what is wrong, in the interface's language.
TEST(ViewerWidget, ShowsTheRenderReadsItsColourAndSaysWhyNothing) {
  Alone<ViewerWidget> a(true, 480, 300);
  ASSERT_TRUE(a.m->engine) << a.m->_status;
  ViewerWidget& viewer = *a.w;
  viewer.refresh();
  ASSERT_FALSE(viewer.picture().isNull());
  const QRectF r = viewer.pictureRect();
  EXPECT_LE(viewer.picture().width(), std::ceil(r.width() * viewer.devicePixelRatioF()));
  EXPECT_NEAR(double(viewer.picture().width()) / viewer.picture().height(), 16.0 / 9.0, 0.02);
  const qint64 key = viewer.picture().cacheKey();
  viewer.refresh();
  EXPECT_EQ(viewer.picture().cacheKey(), key) << "nothing changed: the same picture, not read again";

  // Over a blob of the sample picture, the readout agrees with the pixel shown there.
  QTest::mouseMove(&viewer, QPointF(r.x() + r.width() * 0.35, r.y() + r.height() * 0.52).toPoint());
  viewer.refresh();
  const auto m = QRegularExpression("R ([0-9.]+)  G ([0-9.]+)  B ([0-9.]+)").match(viewer.readoutText());
  ASSERT_TRUE(m.hasMatch()) << viewer.readoutText().toStdString();
  const QRgb shown = viewer.picture().pixel(int(0.35 * viewer.picture().width()), int(0.52 * viewer.picture().height()));
  EXPECT_NEAR(m.captured(1).toDouble(), qRed(shown) / 255.0, 0.04);
  EXPECT_NEAR(m.captured(2).toDouble(), qGreen(shown) / 255.0, 0.04);
  EXPECT_NEAR(m.captured(3).toDouble(), qBlue(shown) / 255.0, 0.04);
  QTest::mouseMove(&viewer, QPoint(2, 2));
  viewer.refresh();
  EXPECT_TRUE(viewer.readoutText().isEmpty()) << "off the picture there is nothing to read";

  auto nodeOf = [&](const char* kind) {
    for (const auto& n : a.m->_nodes)
      if (n.kind->id == kind) return n.id;
    return Uuid();
  };
  const Uuid blur = a.m->addNode(*NodeKind::find("blur"), {900, 400});
  const struct {
    Uuid select;
    AppLanguage language;
    bool picture;
    const char* caption;
    const char* text;
  } cases[] = {
      {nodeOf("color"), AppLanguage::french, true, "Réglage couleur", ""},
      {nodeOf("color"), AppLanguage::english, true, "Color Correct", ""},
      {blur, AppLanguage::french, false, "Blur",
       "« Blur » n'est pas branché\nReliez son entrée à une image (un rush ou un autre node) pour voir un résultat."},
      {blur, AppLanguage::english, false, "Blur",
       "\"Blur\" is not connected\nConnect its input to a picture (a shot or another node) to see a result."},
  };
  const AppLanguage before = interfaceLanguage();
  for (const auto& c : cases) {
    setInterfaceLanguage(c.language);
    a.m->select(c.select);
    a.m->requestRender();
    a.clock->runAll();
    viewer.refresh();
    SCOPED_TRACE(c.caption);
    EXPECT_EQ(!viewer.picture().isNull(), c.picture);
    EXPECT_EQ(viewer.caption(), c.caption);
    EXPECT_EQ(viewer.blankText(), c.text);
    EXPECT_FALSE(viewer.importButton()->isVisible()) << "the project has media";
  }
  setInterfaceLanguage(before);
}

// The buttons and keys step through the frames and the time shows; a click on the time bar goes
// to the frame under the pointer, wherever it falls, and a drag from there scrubs; the inspected
// node's keys are marked in amber.
TEST(TransportBar, StepsClicksAndScrubsThroughTheFramesAndMarksTheKeys) {
  Alone<TransportBar> a(false, 700, 40);
  TransportBar& bar = *a.w;
  AppModel* model = a.m.get();
  model->_frameCount = 100;
  model->_fps = 25;
  bar.refresh();
  auto* timecode = bar.findChild<QLabel*>("timecode");
  ASSERT_TRUE(timecode);
  auto button = [&](const char* name) { return bar.findChild<QToolButton*>(name); };
  QTest::mouseClick(button("nextFrame"), Qt::LeftButton);
  QTest::mouseClick(button("nextFrame"), Qt::LeftButton);
  EXPECT_EQ(model->_currentFrame, 2);
  QTest::keyClick(&bar, Qt::Key_Left);
  EXPECT_EQ(model->_currentFrame, 1);
  QTest::mouseClick(button("lastFrame"), Qt::LeftButton);
  EXPECT_EQ(model->_currentFrame, 99);
  bar.refresh();
  FrameSlider* slider = bar.timeBar();
  EXPECT_EQ(timecode->text(), "00:00:03:24   99 / 100");
  EXPECT_EQ(slider->maximum(), 99);
  EXPECT_EQ(slider->value(), 99);
  QTest::mouseClick(button("firstFrame"), Qt::LeftButton);
  bar.refresh();
  EXPECT_EQ(model->_currentFrame, 0);
  EXPECT_EQ(slider->value(), 0);

  const int y = slider->height() / 2;
  for (int frame : {60, 99, 0}) {
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
