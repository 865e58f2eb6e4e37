// The AI tools through the window: each AI kind's buttons, Objet IA's search and found objects,
// Masque au clic's points on the picture, and a running job's progress and cancel.
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QToolButton>
#include <fstream>

#include "ai/object_boxes.h"
#include "shell/ai_panel.h"
#include "shell/ai_progress_row.h"
#include "shell/inspector_widget.h"
#include "shell/roto_overlay.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

// A blank world without a picture engine: the AI tools refuse before they need one.
struct AiDesk : test::WindowDesk {
  Uuid inspect(const std::string& kind, double aimode = 0) {
    const Uuid id = m->addNode(*NodeKind::find(kind), {300, 200});
    if (aimode > 0) m->setParams(id, {{"aimode", aimode}});
    m->select(id);
    m->inspectedID = id;
    m->_status.clear();
    settle();
    return id;
  }
  void click(double x, double y, Qt::KeyboardModifiers mods = {}) {
    ViewerWidget* v = window->viewer();
    QTest::mouseClick(v, Qt::LeftButton, mods, RotoOverlay::toView({x, y}, v->pictureRect()).toPoint());
    settle();
  }
  QString text(const char* name) const {
    auto* label = window->findChild<QLabel*>(name);
    return label && label->isVisible() ? label->text() : QString();
  }
  bool aiShown() const { return window->inspector()->aiPanel()->isVisible(); }
};

}  // namespace

// Each button reaches its own model action: with nothing wired, each answers its own refusal.
TEST(AiPanel, EachAiKindOffersItsButtonsTheyReachTheModelAndAJobShowsItsProgress) {
  const struct {
    const char* kind;
    double aimode;
    std::vector<std::pair<const char*, const char*>> presses;  // button, what the model answers unwired
  } cases[] = {
      {"bodymask", 0,
       {{"aiFrame", "Il faut une image ou une vidéo dans le graphe."}, {"aiVideo", "Il faut une vidéo dans le graphe."}}},
      {"mask", 1, {{"aiFrame", "Il faut une image ou une vidéo dans le graphe."}}},
      {"magicmask", 0, {{"aiPropagate", "La propagation a besoin d'une vidéo reliée en amont du Masque au clic."}}},
      {"objectmask", 0,
       {{"aiFind", "Objet IA : écrivez l'objet à trouver (ex. : lampadaire, voiture, bouteille)."},
        {"aiPropagate", "Objet IA : trouvez d'abord l'objet."}}},
      {"denoise", 0,
       {{"aiFrame", "Le Denoise a besoin d'un Media (image ou vidéo) en amont."},
        {"aiVideo", "Le Denoise a besoin d'une vidéo en amont."}}},
      {"greenkeyai", 0,
       {{"aiDetect", "Reliez d'abord une image à l'entrée Source du keyer."},
        {"aiFrame", "Reliez une image à l'entrée Source du keyer."},
        {"aiVideo", "Le Keyer IA a besoin d'une vidéo en amont."}}},
      {"retime", 0, {{"aiFlow", "Le node Vitesse a besoin d'un rush en amont (placez-le juste après le Media)."}}},
  };
  AiDesk d;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    d.inspect(c.kind, c.aimode);
    ASSERT_TRUE(d.aiShown());
    for (const auto& [button, status] : c.presses) {
      auto* b = d.find<QPushButton>(button);
      ASSERT_TRUE(b && b->isVisible()) << button;
      d.m->_status.clear();
      d.press(button);
      EXPECT_EQ(d.m->_status, status) << button;
    }
  }
  // A shape mask without "Détourage IA", and a kind with no AI, show no AI part.
  d.inspect("mask");
  EXPECT_FALSE(d.aiShown());
  d.inspect("blur");
  EXPECT_FALSE(d.aiShown());

  // A running job shows its progress in its node's panel and in the status bar; Annuler l'IA
  // cancels it.
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
  EXPECT_EQ(d.find<QProgressBar>("aiProgressBar")->value(), 400);
  EXPECT_TRUE(bottom->isVisible());
  d.m->ai.aiNodeID = other;
  d.settle();
  EXPECT_FALSE(panel->isVisible()) << "another node's job: not this panel's";
  EXPECT_TRUE(bottom->isVisible()) << "the status bar shows any job";

  d.press("aiStatusProgressCancel");
  EXPECT_TRUE(d.m->ai.cancelled());
  d.m->_magicProgress.reset();  // as the job's end does once the worker is stopped
  d.m->ai.aiNodeID.reset();
  d.settle();
  EXPECT_FALSE(bottom->isVisible());
}

// Objet IA: its field is the node's prompt and Return searches; the objects found are listed and
// go by their cross or a Ctrl-click in their frame. Masque au clic: clicks on the picture place
// points (Alt: a negative one), Effacer clears them, and they are its alone.
TEST(AiPanel, PromptFoundObjectsAndViewerPoints) {
  AiDesk d;
  const Uuid object = d.inspect("objectmask");
  auto* field = d.find<QLineEdit>("aiPrompt");
  ASSERT_NE(field, nullptr);
  QTest::keyClicks(field, "voiture");
  EXPECT_EQ(d.m->nodeByID(object)->prompt, "voiture");
  QTest::keyClick(field, Qt::Key_Return);
  d.settle();
  EXPECT_EQ(d.m->_status, "Reliez une image ou une vidéo à l'entrée de l'Objet IA.");

  fs::create_directories(d.m->magicDir(object));
  std::ofstream(d.m->magicDir(object) / "boxes.json")
      << objectBoxesJson(ObjectBoxes{0, {{0.1, 0.1, 0.4, 0.5, 0.87}, {0.5, 0.2, 0.9, 0.8, 0.62}}});
  d.m->_status = "Objet IA : 2 objets.";  // what the end of a search says; the panel reads the file again
  d.settle();
  EXPECT_EQ(d.text("aiBox1"), "Objet 2 · confiance 62 %");
  d.press("aiRemoveBox0");
  EXPECT_EQ(d.text("aiBox0"), "Objet 1 · confiance 62 %") << "the first one went";
  d.click(0.2, 0.9, Qt::ControlModifier);  // outside every frame: nothing, not even a point
  ASSERT_TRUE(d.m->objectBoxes(object));
  EXPECT_EQ(d.m->objectBoxes(object)->boxes.size(), 1u);
  EXPECT_TRUE(d.m->nodeByID(object)->magicPoints.empty());
  d.click(0.7, 0.5, Qt::ControlModifier);
  EXPECT_TRUE(!d.m->objectBoxes(object) || d.m->objectBoxes(object)->boxes.empty());
  EXPECT_TRUE(d.m->nodeByID(object)->magicPoints.empty());

  const Uuid magic = d.inspect("magicmask");
  d.click(0.25, 0.5);
  d.click(0.75, 0.4, Qt::AltModifier);
  const Node* n = d.m->nodeByID(magic);
  ASSERT_EQ(n->magicPoints.size(), 2u);
  EXPECT_NEAR(n->magicPoints[0].p.x, 0.25, 0.003);
  EXPECT_NEAR(n->magicPoints[0].p.y, 0.5, 0.003);
  EXPECT_TRUE(n->magicPoints[0].positive);
  EXPECT_FALSE(n->magicPoints[1].positive);
  EXPECT_EQ(d.text("aiPoints"), "2 point(s) sur l'image 1 : 1 + · 1 −");
  EXPECT_EQ(d.m->_status, "Reliez une image ou une vidéo à l'entrée du Masque au clic") << "the preview was asked for";
  d.press("aiClear");
  EXPECT_TRUE(d.m->nodeByID(magic)->magicPoints.empty());
  d.inspect("blur");
  d.click(0.5, 0.5);
  EXPECT_TRUE(d.m->nodeByID(magic)->magicPoints.empty()) << "another kind inspected: the click pans";
}
