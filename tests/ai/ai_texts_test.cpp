// The English of the texts this subsystem composes, found by the catalogue's templates.
#include <gtest/gtest.h>

#include "ai/ai_queue.h"
#include "ai/green_detect.h"
#include "ai/hf_downloads.h"
#include "ai/magic_job.h"
#include "ai/object_boxes.h"
#include "ai/task_eta.h"
#include "platform/string_catalogue.h"

using namespace ombrik;

TEST(AiTexts, ComposedTextsHaveTheirEnglish) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {aiWaitingText("Denoise"), "Denoise waiting: it starts as soon as the current computation ends."},
      {aiStoppedText("/l/last_run.log"), "the AI computation stopped (see /l/last_run.log)"},
      {hfDownloadText(12), "Downloading the AI model (only once): 12 MB…"},
      {etaText(0.25, 60), "25 % · ~3 min 00 left · 1 min 00"},
      {greenKeyStatus(GreenScreen{1, 0.1, 0.2, 0.9, 64}),
       "Blue screen detected (64 % of the picture): R 0.10 · G 0.20 · B 0.90"},
      {greenKeyStatus(GreenScreen{0, 0.1, 0.8, 0.2, 7}),
       "Green screen detected (7 % of the picture): R 0.10 · G 0.80 · B 0.20"},
      {confidenceText({0, 0, 1, 1, 0.5}), " · confidence 50 %"},
      {kAiCancelled, "cancelled"},
  };
  for (const auto& [fr, en] : cases) EXPECT_EQ(translate(fr, AppLanguage::english), en) << fr;
}
