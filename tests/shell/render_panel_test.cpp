// Renders driven from the window: menu and keys, progress, the render button, a Relais's cache,
// the queue panel, and quitting during a render.
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>

#include "engine/source_picture.h"
#include "shell/render_queue_panel.h"
#include "shell/shown_text.h"
#include "shell_app.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

struct Desk : test::WindowDesk {
  fs::path out = dir.path / "rendus";
  Desk() : WindowDesk(blankWithEngine) {
    clock->jobSeconds = 0.01;  // with steps of half that, each frame of a render is a step of its own
  }
  // A world of `frames` frames: a small picture wired to its output, rendered into `out`.
  Uuid world(const std::string& name, int frames = 4) {
    const Uuid batch = m->makeWorld(*m->addMedia(SampleImage::make(64, 36), name), name);
    m->openBatch(batch);
    m->_frameCount = frames;
    m->setRenderFolder(*m->outputNode(), out);
    m->saveCurrentBatch();
    return batch;
  }
  void step() {
    clock->advance(0.005);
    window->refresh();
  }
  void finish() {
    for (int i = 0; i < 2000 && (m->rendering || renderqueue::count(m->delivery.renderQueue, RenderJob::State::waiting)); ++i) step();
    clock->advance(0.1);
    window->refresh();
  }
  QAction* action(const char* text) const {
    for (QAction* a : window->findChildren<QAction*>())
      if (a->text() == shown(text)) return a;
    ADD_FAILURE() << "no menu entry " << text;
    return nullptr;
  }
};

// The rows of the queue panel, each as "world | state | file".
std::vector<std::string> rows(RenderQueuePanel& panel) {
  std::vector<std::string> out;
  for (int i = 0; i < panel.jobs()->topLevelItemCount(); ++i) {
    const QTreeWidgetItem* r = panel.jobs()->topLevelItem(i);
    out.push_back((r->text(0) + " | " + r->text(1) + " | " + r->text(2)).toStdString());
  }
  return out;
}

}  // namespace

TEST(RenderPanel, RenderingShowsItsProgressLeavesTheMovieARelaisShowsItsCacheAndQuittingStopsIt) {
  Desk d;
  ASSERT_TRUE(d.m->engine) << d.m->_status;
  d.world("Plan");
  // Ctrl+E exports the frame through a save panel.
  d.dialogs->panelAnswers = {d.dir.path / "image.png"};
  QTest::keyClick(d.window.get(), Qt::Key_E, Qt::ControlModifier);
  ASSERT_EQ(d.dialogs->savePanels.size(), 1u);
  EXPECT_TRUE(fs::exists(d.dir.path / "image.png"));

  d.m->inspectedID = d.m->outputNode();
  d.window->refresh();
  auto* progress = d.find<QProgressBar>("renderProgress");
  auto* button = d.find<QPushButton>("renderShot");
  ASSERT_TRUE(progress && button);
  EXPECT_EQ(button->text(), "Rendre le plan (4)") << "the shot's frames";
  const QString shotLabel = button->text();
  EXPECT_TRUE(progress->isHidden());
  EXPECT_FALSE(d.find<QPushButton>("showLastRender")->isEnabled());
  d.action("Rendre le monde")->trigger();
  ASSERT_TRUE(d.m->rendering);
  int shownWhileRendering = 0;
  while (d.m->rendering) {
    d.step();
    if (!d.m->rendering) break;
    EXPECT_NE(button->text(), shotLabel) << "the button cancels while it renders";
    if (!progress->isHidden() && progress->value() > 0 && progress->value() < progress->maximum()) ++shownWhileRendering;
  }
  EXPECT_GE(shownWhileRendering, 2) << "the bar moves on with the frames";
  d.finish();
  EXPECT_TRUE(progress->isHidden());
  EXPECT_TRUE(d.find<QPushButton>("cancelRender")->isHidden());
  EXPECT_EQ(button->text(), shotLabel) << "back to rendering";
  EXPECT_TRUE(fs::exists(d.out / "Plan.mov"));
  EXPECT_TRUE(d.find<QPushButton>("showLastRender")->isEnabled());

  // The inspector's button starts the next version; the status bar's stops it before its end.
  QTest::mouseClick(button, Qt::LeftButton);
  d.step();
  ASSERT_FALSE(progress->isHidden());
  QTest::mouseClick(d.find<QPushButton>("cancelRender"), Qt::LeftButton);
  d.finish();
  EXPECT_EQ(d.m->_status.rfind("Rendu interrompu : annulé", 0), 0u) << d.m->_status;
  EXPECT_FALSE(fs::exists(d.out / "Plan_v02.mov"));

  // A Relais shows its cache in place of the render section, which other nodes don't show.
  const Uuid media = d.m->_edges.front().from;
  const Uuid mux = d.m->addNode(*NodeKind::find("mux"), {0, 0});
  d.m->connect(media, mux, 0, 0);
  d.m->inspectedID = media;
  d.window->refresh();
  EXPECT_FALSE(d.find<QWidget>("renderSection")->isVisibleTo(d.window.get()));
  d.m->inspectedID = mux;
  d.window->refresh();
  auto* count = d.find<QLabel>("muxCount");
  auto* cache = d.find<QPushButton>("muxCache");
  auto* clear = d.find<QPushButton>("muxClear");
  ASSERT_TRUE(count && cache && clear);
  EXPECT_FALSE(button->isVisibleTo(d.window.get()));
  EXPECT_FALSE(clear->isEnabled());
  QTest::mouseClick(cache, Qt::LeftButton);
  d.finish();
  EXPECT_EQ(count->text(), "4 images en cache");
  QTest::mouseClick(clear, Qt::LeftButton);
  d.window->refresh();
  EXPECT_EQ(count->text(), "0 images en cache");

  // Quitting during a render asks first: kept rendering, then quit, which stops it.
  d.world("Long", 40);
  d.dialogs->alertAnswers = {0, 1};  // keep rendering, then quit
  d.m->renderSequence(*d.m->outputNode());
  d.step();
  EXPECT_FALSE(d.window->close());
  ASSERT_EQ(d.dialogs->alerts.size(), 1u);
  EXPECT_TRUE(d.window->isVisible());
  EXPECT_TRUE(d.m->rendering);
  EXPECT_FALSE(d.m->delivery.renderCancel);
  EXPECT_TRUE(d.window->close());
  EXPECT_TRUE(d.m->delivery.renderCancel);
  d.finish();
  EXPECT_FALSE(fs::exists(d.out / "Long.mov")) << "a stopped movie leaves nothing";
  d.window->show();
  EXPECT_TRUE(d.window->close()) << "nothing running: no question";
  EXPECT_EQ(d.dialogs->alerts.size(), 2u);
}

TEST(RenderPanel, TheQueuePanelFollowsEachWorldAndEmptiesOnDemand) {
  Desk d;
  ASSERT_TRUE(d.m->engine) << d.m->_status;
  d.world("A");
  d.world("B");
  d.action("File de rendu…")->trigger();
  RenderQueuePanel* panel = d.window->renderQueue();
  ASSERT_NE(panel, nullptr);
  EXPECT_TRUE(panel->isVisible());
  EXPECT_TRUE(rows(*panel).empty());

  // The blank world of the start has nothing wired to its output: it fails and the queue goes on.
  d.action("Ajouter tous les mondes à la file de rendu")->trigger();
  d.step();
  const std::string failed = "Batch_01 | Échec : Reliez votre comp à l'entrée du node Sortie. | ";
  EXPECT_EQ(rows(*panel), (std::vector<std::string>{failed, "A | En cours | ", "B | En attente | "}));
  QTest::mouseClick(panel->findChild<QPushButton*>("removeWaiting"), Qt::LeftButton);
  d.finish();
  EXPECT_EQ(rows(*panel), (std::vector<std::string>{failed, "A | Terminé | A.mov"}));
  EXPECT_TRUE(fs::exists(d.out / "A.mov"));
  EXPECT_FALSE(fs::exists(d.out / "B.mov"));
  QTest::mouseClick(panel->findChild<QPushButton*>("clearFinished"), Qt::LeftButton);
  EXPECT_TRUE(rows(*panel).empty());

  // Stop: the waiting world goes, the running one ends cancelled.
  d.m->openBatch(d.m->_batches.back().id);
  d.action("Ajouter à la file de rendu")->trigger();
  d.m->enqueueRender({d.m->_batches[1].id});
  d.step();
  EXPECT_EQ(rows(*panel), (std::vector<std::string>{"B | En cours | ", "A | En attente | "}));
  QTest::mouseClick(panel->findChild<QPushButton*>("stopRenders"), Qt::LeftButton);
  d.finish();
  EXPECT_EQ(rows(*panel), (std::vector<std::string>{"B | Échec : annulé | "}));
}
