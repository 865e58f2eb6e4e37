// The AI tools' document side without the worker: what each refuses and says, the waiting line,
// the point sets of the click tools, and the result files a resolved node finds.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "ai/ai_cache.h"
#include "temp_model.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
struct Desk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel m{tempModelOptions(dir, clock, false)};
  Uuid add(const char* kind) { return m.addNode(*NodeKind::find(kind), {0, 0}); }
};
}  // namespace

TEST(AiTools, EachToolSaysWhatItLacksAndStartsNothing) {
  struct Case { const char* kind; std::function<void(AppModel&, const Uuid&)> act; const char* status; } cases[] = {
      {"bodymask", [](AppModel& m, const Uuid& id) { m.bodyFrame(id); }, "Il faut une image ou une vidéo dans le graphe."},
      {"hairmatte", [](AppModel& m, const Uuid& id) { m.bodyVideo(id); }, "Il faut une vidéo dans le graphe."},
      {"magicmask", [](AppModel& m, const Uuid& id) { m.magicAddPoint(id, {0.5, 0.5}, true); },
       "Reliez une image ou une vidéo à l'entrée du Masque au clic"},
      {"magicmask", [](AppModel& m, const Uuid& id) { m.magicPropagate(id); },
       "La propagation a besoin d'une vidéo reliée en amont du Masque au clic."},
      {"objectmask", [](AppModel& m, const Uuid& id) { m.objectFind(id); },
       "Objet IA : écrivez l'objet à trouver (ex. : lampadaire, voiture, bouteille)."},
      {"objectmask",
       [](AppModel& m, const Uuid& id) {
         m.nodeByID(id)->prompt = "visage";
         m.objectFind(id);
       },
       "Reliez une image ou une vidéo à l'entrée de l'Objet IA."},
      {"objectmask", [](AppModel& m, const Uuid& id) { m.objectPropagate(id); }, "Objet IA : trouvez d'abord l'objet."},
      {"denoise", [](AppModel& m, const Uuid& id) { m.denoiseFrame(id); },
       "Le Denoise a besoin d'un Media (image ou vidéo) en amont."},
      {"denoise", [](AppModel& m, const Uuid& id) { m.denoiseVideo(id); }, "Le Denoise a besoin d'une vidéo en amont."},
      {"greenkeyai", [](AppModel& m, const Uuid& id) { m.greenKeyDetect(id); },
       "Reliez d'abord une image à l'entrée Source du keyer."},
      {"greenkeyai", [](AppModel& m, const Uuid& id) { m.greenAIFrame(id); }, "Reliez une image à l'entrée Source du keyer."},
      {"greenkeyai", [](AppModel& m, const Uuid& id) { m.greenAIVideo(id); }, "Le Keyer IA a besoin d'une vidéo en amont."},
      {"retime", [](AppModel& m, const Uuid& id) { m.retimeCompute(id); },
       "Le node Vitesse a besoin d'un rush en amont (placez-le juste après le Media)."},
  };
  for (const Case& c : cases) {
    Desk d;
    const Uuid id = d.add(c.kind);
    c.act(d.m, id);
    EXPECT_EQ(d.m._status, c.status) << c.kind;
    EXPECT_FALSE(d.m._magicProgress) << c.status;
    EXPECT_TRUE(d.m.ai.queue.empty()) << c.status;
  }
}

TEST(AiTools, WhileATrackerRunsJobsWaitOnceAndACancelWithoutAJobChangesNothing) {
  Desk d;
  const Uuid body = d.add("bodymask"), noise = d.add("denoise");
  d.m._trackingProgress = 0.3;
  d.m.bodyVideo(body);
  d.m.bodyVideo(body);
  d.m.denoiseVideo(noise);
  d.m.bodyVideo(body);
  ASSERT_EQ(d.m.ai.queue.size(), 2u);
  EXPECT_EQ(d.m.ai.queue.entries()[0].key, "bodyv-" + body.toString());
  EXPECT_EQ(d.m.ai.queue.entries()[1].key, "dnv-" + noise.toString());
  d.m.cancelAI();  // no job runs: the line stays
  EXPECT_EQ(d.m.ai.queue.size(), 2u);
  // When the tracker ends, the first job comes out (and says what it lacks here).
  d.m._trackingProgress.reset();
  d.m.drainAIQueue();
  d.clock->runAll();
  EXPECT_EQ(d.m.ai.queue.size(), 1u);
  EXPECT_EQ(d.m._status, "Il faut une vidéo dans le graphe.");
}

TEST(AiTools, ClickPointsBelongToOneFrameAndRemovingTheLastEmptiesTheSelection) {
  Desk d;
  const Uuid id = d.add("magicmask");
  d.m._currentFrame = 4;
  d.m.magicAddPoint(id, {0.2, 0.3}, true);
  d.m.magicAddPoint(id, {0.6, 0.3}, false);
  ASSERT_EQ(d.m.nodeByID(id)->magicPoints.size(), 2u);
  EXPECT_FALSE(d.m.nodeByID(id)->magicPoints[1].positive);
  d.m._currentFrame = 7;  // another frame starts a new selection
  d.m.magicAddPoint(id, {0.5, 0.5}, true);
  EXPECT_EQ(d.m.nodeByID(id)->magicPoints.size(), 1u);
  EXPECT_EQ(d.m.nodeByID(id)->magicFrame, 7);
  const auto file = frameFile(d.m.magicDir(id), 7, "png");
  touch(file);
  d.m.magicRemovePoint(id, 0);
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_FALSE(d.m._magicProgress);

  // An Objet IA clicked away from its detection frame goes there first and adds nothing.
  const Uuid object = d.add("objectmask");
  std::filesystem::create_directories(d.m.magicDir(object));
  std::ofstream(d.m.magicDir(object) / "boxes.json") << R"({"frame": 2, "boxes": [[0.1, 0.1, 0.4, 0.5, 0.9]]})";
  d.m.magicAddPoint(object, {0.3, 0.3}, true);
  EXPECT_TRUE(d.m.nodeByID(object)->magicPoints.empty());
  EXPECT_EQ(d.m._status, "Objet IA : corrections sur l'image de détection (image 3) — cliquez à nouveau.");
}

TEST(AiTools, ResolvedNodesFindTheirFrameFiles) {
  Desk d;
  const Uuid body = d.add("bodymask"), object = d.add("objectmask"), noise = d.add("denoise");
  d.m._currentFrame = 3;
  touch(frameFile(d.m.magicDir(body), 3, "png"));
  touch(frameFile(d.m.magicDir(object), 1, "png"));
  touch(frameFile(d.m.magicDir(noise), 3, "png"));
  touch(frameFile(d.m.magicDir(noise), 3, "dn"));
  auto resolved = [&](const Uuid& id) { return d.m.resolved(*d.m.nodeByID(id)); };
  EXPECT_EQ(resolved(body).magicFile, frameFile(d.m.magicDir(body), 3, "png").string());
  EXPECT_EQ(resolved(body).magicCur, 3);
  EXPECT_FALSE(resolved(object).magicFile) << "no matte at this frame";
  d.m.nodeByID(object)->magicFrame = 1;
  d.m.nodeByID(object)->params["freeze"] = 1;  // frozen: the detection frame's matte everywhere
  EXPECT_EQ(resolved(object).magicFile, frameFile(d.m.magicDir(object), 1, "png").string());
  EXPECT_EQ(resolved(noise).magicFile, frameFile(d.m.magicDir(noise), 3, "dn").string());  // raw frames first
  d.m._currentFrame = 4;
  EXPECT_FALSE(resolved(body).magicFile);
}
