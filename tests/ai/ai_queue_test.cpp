// The waiting line of AI jobs, the progress text and the end sound.
#include <gtest/gtest.h>

#include "ai/ai_queue.h"
#include "ai/task_eta.h"

using namespace ombrik;

TEST(AiQueue, OneEntryPerKeyInOrderUntilCleared) {
  const Uuid id = *Uuid::parse("0A1B2C3D-0000-4000-8000-00000000ABCD");
  EXPECT_EQ(aiKey(aiprefix::bodyFrame, id), "bodyf-" + id.toString());
  EXPECT_EQ(denoiseFrameKey(id, 12), "dnf-" + id.toString() + "-12");

  AiQueue q;
  std::vector<std::string> ran;
  EXPECT_EQ(q.enqueue(aiKey(aiprefix::bodyFrame, id), "Body Matte", [&] { ran.push_back("first"); }),
            aiWaitingText("Body Matte"));
  EXPECT_EQ(q.enqueue(aiKey(aiprefix::object, id), "Objet IA", [&] { ran.push_back("obj"); }), aiWaitingText("Objet IA"));
  // A second press on the same job re-gives the message, neither doubling nor moving the job.
  EXPECT_EQ(q.enqueue(aiKey(aiprefix::bodyFrame, id), "Body Matte", [&] { ran.push_back("second"); }),
            aiWaitingText("Body Matte"));
  EXPECT_EQ(q.size(), 2u);
  while (auto e = q.take()) e->run();
  EXPECT_EQ(ran, (std::vector<std::string>{"first", "obj"}));

  q.enqueue("a", "A", [] {});
  q.enqueue("b", "B", [] {});
  q.clear();
  EXPECT_FALSE(q.take());
}

TEST(TaskEta, TextAndTimes) {
  struct Case {
    double p;
    std::optional<double> t;
    std::string text;
  };
  for (const Case& c : std::vector<Case>{
           {0.5, std::nullopt, "50 %"},
           {0.02, 100, "2 %"},
           {0.5, 2.0, "50 %"},
           {0.5, 10, "50 % · reste ~10 s · 10 s"},
           {0.25, 60, "25 % · reste ~3 min 00 · 1 min 00"},
           {0.1, 400, "10 % · reste ~1 h 00 · 6 min 40"},
           {1.5, 100, "100 % · reste ~0 s · 1 min 40"},
       })
    EXPECT_EQ(etaText(c.p, c.t), c.text) << c.p;
  const std::vector<std::pair<double, std::string>> fmt{
      {0, "0 s"}, {59.9, "59 s"}, {60, "1 min 00"}, {3599, "59 min 59"}, {3600, "1 h 00"}, {7325, "2 h 02"}};
  for (const auto& [s, text] : fmt) EXPECT_EQ(etaFmt(s), text) << s;
}

TEST(TaskSound, RingsOnlyAfterALongUncancelledTask) {
  struct Case {
    double end;
    bool cancelled, enabled, plays;
  };
  for (const Case& c : {Case{3.5, false, true, true}, Case{3.0, false, true, false}, Case{10, true, true, false},
                        Case{10, false, false, false}}) {
    TaskSound sound;
    sound.enabled = c.enabled;
    EXPECT_FALSE(sound.change("magic", false, true, 100, false));
    EXPECT_FALSE(sound.change("magic", true, true, 101, false));  // progress moves: still running
    EXPECT_EQ(sound.change("magic", true, false, 100 + c.end, c.cancelled), c.plays) << c.end;
    EXPECT_TRUE(sound.started.empty());
    EXPECT_EQ(shouldPlayTaskSound(c.end, c.cancelled, c.enabled), c.plays);
  }
  TaskSound sound;
  EXPECT_FALSE(sound.change("track", true, false, 50, false));  // an end with no start known
}
