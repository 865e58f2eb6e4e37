// The AI tools through the real window: each AI kind's buttons in the inspector reach the model
// (with nothing wired, the model's refusal reaches the status), the search field of Objet IA, the
// found objects and their removal, the clicks of Masque au clic on the picture, and the running
// job's progress and cancel in the panel and the status bar.
#include <gtest/gtest.h>

#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <fstream>

#include "../document/temp_model.h"
#include "ai/object_boxes.h"
#include "document/app_model.h"
#include "shell/ai_panel.h"
#include "shell/ai_progress_row.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/roto_overlay.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

// A blank world without a picture engine: the AI tools refuse before they need one.
struct AiDesk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> m;
  std::unique_ptr<MainWindow> window;

  AiDesk() {
    test::shellApp();
    m = std::make_unique<AppModel>(test::tempModelOptions(dir, clock, false));
    window = std::make_unique<MainWindow>(*m);
    window->resize(1280, 800);
    window->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
  }
  Uuid inspect(const std::string& kind, double aimode = 0) {
    const Uuid id = m->addNode(*NodeKind::find(kind), {300, 200});
    if (aimode > 0) m->setParams(id, {{"aimode", aimode}});
    m->select(id);
    m->inspectedID = id;
    m->_status.clear();
    settle();
    return id;
  }
  void settle() {
    clock->runAll();
    window->refresh();
    QCoreApplication::processEvents();
    window->refresh();
  }
  template <typename T>
  T* find(const QString& name) const {
    return window->findChild<T*>(name);
  }
  void press(const QString& name) {
    auto* b = find<QAbstractButton>(name);
    ASSERT_NE(b, nullptr) << name.toStdString();
    QTest::mouseClick(b, Qt::LeftButton);
    settle();
  }
  void click(double x, double y, Qt::KeyboardModifiers mods = {}) {
    ViewerWidget* v = window->viewer();
    QTest::mouseClick(v, Qt::LeftButton, mods, RotoOverlay::toView({x, y}, v->pictureRect()).toPoint());
    settle();
  }
  QString text(const char* name) const {
    auto* label = find<QLabel>(name);
    return label && label->isVisible() ? label->text() : QString();
  }
};

struct Press {
  const char* button;
  const char* label;
  const char* status;  // what the model answers with nothing wired
};
struct KindCase {
  const char* kind;
  double aimode;
  std::vector<Press> presses;
};

}  // namespace

TEST(AiPanel, EachAiKindOffersItsButtonsAndTheyReachTheModel) {
  const std::vector<KindCase> cases = {
      {"bodymask", 0,
       {{"aiFrame", "Calculer cette image", "Il faut une image ou une vidéo dans le graphe."},
        {"aiVideo", "Calculer toute la vidéo", "Il faut une vidéo dans le graphe."}}},
      {"hairmatte", 0, {{"aiVideo", "Calculer toute la vidéo", "Il faut une vidéo dans le graphe."}}},
      {"mask", 1, {{"aiFrame", "Calculer cette image", "Il faut une image ou une vidéo dans le graphe."}}},
      {"magicmask", 0,
       {{"aiPropagate", "Propager sur la vidéo", "La propagation a besoin d'une vidéo reliée en amont du Masque au clic."}}},
      {"objectmask", 0,
       {{"aiFind", "Trouver", "Objet IA : écrivez l'objet à trouver (ex. : lampadaire, voiture, bouteille)."},
        {"aiPropagate", "Propager sur la vidéo", "Objet IA : trouvez d'abord l'objet."}}},
      {"denoise", 0,
       {{"aiFrame", "Calculer cette image", "Le Denoise a besoin d'un Media (image ou vidéo) en amont."},
        {"aiVideo", "Toute la vidéo", "Le Denoise a besoin d'une vidéo en amont."}}},
      {"greenkeyai", 0,
       {{"aiDetect", "Détecter l'écran", "Reliez d'abord une image à l'entrée Source du keyer."},
        {"aiFrame", "Cette image", "Reliez une image à l'entrée Source du keyer."},
        {"aiVideo", "Tout le plan", "Le Keyer IA a besoin d'une vidéo en amont."}}},
      {"retime", 0,
       {{"aiFlow", "Calculer le flux optique",
         "Le node Vitesse a besoin d'un rush en amont (placez-le juste après le Media)."}}},
  };
  AiDesk d;
  for (const KindCase& c : cases) {
    SCOPED_TRACE(c.kind);
    d.inspect(c.kind, c.aimode);
    ASSERT_TRUE(d.window->inspector()->aiPanel()->isVisible());
    for (const Press& p : c.presses) {
      auto* b = d.find<QPushButton>(p.button);
      ASSERT_TRUE(b && b->isVisible()) << p.button;
      EXPECT_EQ(b->text().toStdString(), p.label);
      d.m->_status.clear();
      d.press(p.button);
      EXPECT_EQ(d.m->_status, p.status) << p.button;
    }
  }
  // A shape mask without "Détourage IA", and a kind with no AI, show no AI part.
  d.inspect("mask");
  EXPECT_FALSE(d.window->inspector()->aiPanel()->isVisible());
  d.inspect("blur");
  EXPECT_FALSE(d.window->inspector()->aiPanel()->isVisible());
}

TEST(AiPanel, TheSearchFieldIsTheNodesPromptAndReturnSearches) {
  AiDesk d;
  const Uuid id = d.inspect("objectmask");
  auto* field = d.find<QLineEdit>("aiPrompt");
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(field->placeholderText(), "ex. : lampadaire, voiture, bouteille");
  QTest::keyClicks(field, "voiture");
  EXPECT_EQ(d.m->nodeByID(id)->prompt, "voiture");
  QTest::keyClick(field, Qt::Key_Return);
  d.settle();
  EXPECT_EQ(d.m->_status, "Reliez une image ou une vidéo à l'entrée de l'Objet IA.");
}

TEST(AiPanel, ViewerClicksPlacePointsAndEffacerClearsThem) {
  AiDesk d;
  const Uuid id = d.inspect("magicmask");
  d.click(0.25, 0.5);
  d.click(0.75, 0.4, Qt::AltModifier);
  const Node* n = d.m->nodeByID(id);
  ASSERT_EQ(n->magicPoints.size(), 2u);
  EXPECT_NEAR(n->magicPoints[0].p.x, 0.25, 0.003);
  EXPECT_NEAR(n->magicPoints[0].p.y, 0.5, 0.003);
  EXPECT_TRUE(n->magicPoints[0].positive);
  EXPECT_NEAR(n->magicPoints[1].p.x, 0.75, 0.003);
  EXPECT_FALSE(n->magicPoints[1].positive);
  EXPECT_EQ(d.text("aiPoints"), "2 point(s) sur l'image 1 : 1 + · 1 −");
  // The preview was asked for, and told why it can't run.
  EXPECT_EQ(d.m->_status, "Reliez une image ou une vidéo à l'entrée du Masque au clic");

  d.press("aiClear");
  EXPECT_TRUE(d.m->nodeByID(id)->magicPoints.empty());
  EXPECT_EQ(d.text("aiPoints"), "Aucun point : cliquez sur le sujet dans le viewer.");

  // Another kind inspected: the click pans, and the mask keeps no new point.
  d.inspect("blur");
  d.click(0.5, 0.5);
  EXPECT_TRUE(d.m->nodeByID(id)->magicPoints.empty());
}

TEST(AiPanel, FoundObjectsAreListedAndRemovedByTheirCrossOrByCtrlClick) {
  AiDesk d;
  const Uuid id = d.inspect("objectmask");
  fs::create_directories(d.m->magicDir(id));
  std::ofstream(d.m->magicDir(id) / "boxes.json")
      << objectBoxesJson(ObjectBoxes{0, {{0.1, 0.1, 0.4, 0.5, 0.87}, {0.5, 0.2, 0.9, 0.8, 0.62}}});
  d.m->_status = "Objet IA : 2 objets.";  // what the end of a search says; the panel reads the file again
  d.settle();
  EXPECT_EQ(d.text("aiFound"), "2 objet(s) trouvé(s) sur l'image 1. Ctrl + clic dans un cadre ou ✕ : le retirer.");
  EXPECT_EQ(d.text("aiBox0"), "Objet 1 · confiance 87 %");
  EXPECT_EQ(d.text("aiBox1"), "Objet 2 · confiance 62 %");
  auto* cross = d.find<QToolButton>("aiRemoveBox0");
  ASSERT_NE(cross, nullptr);
  EXPECT_EQ(cross->toolTip(), "Supprimer cet objet de la sélection");

  d.press("aiRemoveBox0");
  auto boxes = d.m->objectBoxes(id);
  ASSERT_TRUE(boxes);
  ASSERT_EQ(boxes->boxes.size(), 1u);
  EXPECT_DOUBLE_EQ(boxes->boxes[0][4], 0.62);
  EXPECT_EQ(d.text("aiBox0"), "Objet 1 · confiance 62 %");

  d.click(0.2, 0.9, Qt::ControlModifier);  // outside every frame: nothing, not even a point
  EXPECT_EQ(d.m->objectBoxes(id)->boxes.size(), 1u);
  EXPECT_TRUE(d.m->nodeByID(id)->magicPoints.empty());
  d.click(0.7, 0.5, Qt::ControlModifier);
  boxes = d.m->objectBoxes(id);
  EXPECT_TRUE(!boxes || boxes->boxes.empty());
  EXPECT_TRUE(d.m->nodeByID(id)->magicPoints.empty());
}

TEST(AiPanel, ARunningJobShowsItsProgressAndAnnulerLIaCancelsIt) {
  AiDesk d;
  const Uuid id = d.inspect("bodymask");
  const Uuid other = d.m->addNode(*NodeKind::find("hairmatte"), {500, 200});
  AiProgressRow* panel = d.window->inspector()->aiPanel()->progress();
  AiProgressRow* bottom = d.window->aiProgress();
  EXPECT_FALSE(panel->isVisible());
  EXPECT_FALSE(bottom->isVisible());

  d.m->_magicProgress = 0.4;
  d.m->ai.aiNodeID = id;
  d.settle();
  EXPECT_TRUE(panel->isVisible());
  EXPECT_EQ(panel->etaShown(), "40 %");
  EXPECT_EQ(d.find<QProgressBar>("aiProgressBar")->value(), 400);
  EXPECT_TRUE(bottom->isVisible());

  // Another node's job: its bar isn't this panel's, the status bar still shows it.
  d.m->ai.aiNodeID = other;
  d.settle();
  EXPECT_FALSE(panel->isVisible());
  EXPECT_TRUE(bottom->isVisible());

  d.press("aiStatusProgressCancel");
  EXPECT_EQ(d.m->_status, "Calcul IA annulé (les images déjà calculées sont gardées).");
  EXPECT_TRUE(d.m->ai.cancelled());
  d.m->_magicProgress.reset();  // as the job's end does once the worker is stopped
  d.m->ai.aiNodeID.reset();
  d.settle();
  EXPECT_FALSE(bottom->isVisible());
}
