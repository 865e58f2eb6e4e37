// The viewer's clip: seeks land on exact frames off the main thread, and a burst of seeks during
// one in flight runs only the newest. The forward readers of renders read each frame once.
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>
#include <thread>

#include "../platform/temp_dir.h"
#include "media/forward_readers.h"
#include "media/frame_reader.h"
#include "media/video_source.h"
#include "platform/scheduler.h"
#include "test_clips.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

struct Clip {
  TempDir dir;
  fs::path path = test::writeClip(dir.path / "clip.mp4", "-c:v libx264 -g 12 -bf 2 -pix_fmt yuv420p");
};

// Runs the main thread's side until the seek in flight has ended (or 20 s have passed).
void settle(ManualScheduler& main, VideoSource& video) {
  for (int i = 0; i < 400 && video.seekBusy(); ++i) {
    main.waitForThreads(0.05);
    main.runAll();
  }
}

}  // namespace

TEST(VideoSource, SeeksLandOnExactFramesAndOnlyTheNewestWishSurvives) {
  Clip clip;
  std::string error;
  EXPECT_FALSE(VideoSource::open(clip.dir.path / "absent.mov", nullptr, &error));
  // Sound only: a movie file with no video track is refused.
  const fs::path sound = clip.dir.path / "sound.mov";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=frequency=440:duration=1 -c:a pcm_s16le '" +
                         sound.string() + "'").c_str()), 0);
  EXPECT_FALSE(VideoSource::open(sound, nullptr, &error));
  EXPECT_EQ(error, "Vidéo illisible : sound.mov (aucune image vidéo)");

  ASSERT_FALSE(clip.path.empty());
  auto main = std::make_shared<ManualScheduler>();
  auto video = VideoSource::open(clip.path, [main](std::function<void()> w) { main->postFromThread(std::move(w)); });
  ASSERT_TRUE(video);
  EXPECT_EQ(std::tuple(video->width(), video->height(), video->fps(), video->frameCount()),
            std::tuple(test::kClipW, test::kClipH, 25.0, test::kClipFrames));
  EXPECT_FALSE(video->takeFrame()) << "nothing decoded before a seek";

  for (int f : {31, 4, 39, 17}) {
    bool done = false;
    video->seek(f, [&] { done = true; });
    EXPECT_TRUE(video->seekBusy());
    settle(*main, *video);
    EXPECT_TRUE(done);
    auto got = video->takeFrame();
    ASSERT_TRUE(got) << f;
    EXPECT_EQ(got->frame, f);
    EXPECT_EQ(test::frameShown(got->picture), f);
    EXPECT_FALSE(video->takeFrame()) << "a frame is taken once";
  }

  // Three wishes while one seek is in flight: the first runs, the middle one is forgotten.
  const int before = video->seeksRun();
  std::vector<int> ended;
  video->seek(2, [&] { ended.push_back(2); });
  video->seek(20, [&] { ended.push_back(20); });
  video->seek(500, [&] { ended.push_back(500); });  // clamped to the last frame
  EXPECT_EQ(video->seekPending(), test::kClipFrames - 1);
  settle(*main, *video);  // the first ends and starts the pending one
  settle(*main, *video);
  EXPECT_EQ(video->seeksRun() - before, 2);
  EXPECT_EQ(ended, (std::vector<int>{2, 500}));
  auto got = video->takeFrame();
  ASSERT_TRUE(got);
  EXPECT_EQ(test::frameShown(got->picture), test::kClipFrames - 1);
  EXPECT_EQ(video->currentFrame(), test::kClipFrames - 1);

  // A still is independent of the seeks.
  auto still = video->still(7);
  ASSERT_TRUE(still);
  EXPECT_EQ(test::frameShown(*still), 7);

  // A source gone before its seek ends is forgotten: its end, posted to the main thread, does nothing.
  bool ran = false;
  video->seek(10, [&] { ran = true; });
  video.reset();  // joins the decoder
  main->waitForThreads(5);
  main->runAll();
  EXPECT_FALSE(ran);
}

TEST(ForwardReaders, ReadForwardOnceAndReopenOnlyOnJumps) {
  Clip clip;
  TempDir other;
  const fs::path second = test::writeClip(other.path / "b.mov", "-c:v prores_ks");
  ASSERT_FALSE(second.empty());
  const Uuid a = Uuid::generate(), b = Uuid::generate();
  ForwardReaders readers;
  // Two clips read side by side, the second one frame behind, with a skip of 5.
  const auto shown = [&](const Uuid& id, const fs::path& file, int f) {
    auto p = readers.frame(id, file, f);
    return p ? test::frameShown(*p) : -2;  // -2: no picture
  };
  for (int f : {0, 1, 2, 3, 8, 9, 10}) {
    EXPECT_EQ(shown(a, clip.path, f), f);
    EXPECT_EQ(shown(b, second, std::max(0, f - 1)), std::max(0, f - 1));
  }
  // The frame just given, asked again while the next one is read ahead, is the same picture.
  EXPECT_EQ(shown(a, clip.path, 10), 10);
  EXPECT_EQ(readers.opened(), 2) << "walking forward never reopens";
  EXPECT_EQ(shown(a, clip.path, 3), 3);    // backwards: a new reader
  EXPECT_EQ(shown(a, clip.path, 39), 39);  // a skip of 35 reads on
  EXPECT_EQ(readers.opened(), 3);

  // Beyond 48 frames ahead a new reader is cheaper than reading on.
  const fs::path longer = test::writeClip(other.path / "long.mp4", "-c:v libx264 -g 30 -pix_fmt yuv420p", false, 120);
  const Uuid c = Uuid::generate();
  EXPECT_EQ(shown(c, longer, 0), 0);
  EXPECT_EQ(shown(c, longer, 60), 60 % 40);  // the levels repeat every 40 frames
  EXPECT_EQ(readers.opened(), 5);

  // A vanished file gives the last good picture of that media.
  fs::remove(second);
  EXPECT_EQ(shown(b, second, 0), 9);
  readers.cancel();
  EXPECT_FALSE(readers.frame(b, second, 4)) << "nothing is left after a cancel";
}

TEST(VideoSource, ThePlayerPresentsEveryFrameInOrderAndPausesWhereItIs) {
  Clip clip;
  auto main = std::make_shared<ManualScheduler>();
  auto video = VideoSource::open(clip.path, [main](std::function<void()> w) { main->postFromThread(std::move(w)); });
  ASSERT_TRUE(video);
  video->seek(30);
  settle(*main, *video);
  video->play();
  EXPECT_FALSE(video->liveFrame()) << "nothing live until attached";
  video->pause();
  const int stoppedAt = video->playerFrame();
  EXPECT_GE(stoppedAt, 30);
  EXPECT_FALSE(video->playing());

  // Attached, from frame 30 to the end: each frame once, in order, the picture of its index.
  video->seek(30);
  settle(*main, *video);
  video->attachLive();
  video->play();
  std::vector<int> frames;
  for (int i = 0; i < 2000 && (video->playing() || frames.empty() || frames.back() != test::kClipFrames - 1); ++i) {
    if (auto live = video->liveFrame()) {
      EXPECT_EQ(test::frameShown(live->picture), live->frame);
      frames.push_back(live->frame);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_FALSE(video->playing()) << "it stops after the last frame";
  ASSERT_FALSE(frames.empty());
  EXPECT_EQ(frames.back(), test::kClipFrames - 1);
  EXPECT_EQ(video->playerFrame(), test::kClipFrames - 1);
  for (std::size_t i = 1; i < frames.size(); ++i) EXPECT_GT(frames[i], frames[i - 1]);
  // Polled every 2 ms against a 40 ms frame period, hardly any frame goes untaken.
  EXPECT_GE(frames.size(), std::size_t(test::kClipFrames - 30 - 2));

  // A run that ended by itself leaves the seek's position: seeking 5 and playing starts at 5.
  video->seek(5);
  settle(*main, *video);
  video->play();
  std::optional<VideoSource::Tapped> first;
  for (int i = 0; i < 1000 && !first; ++i) {
    first = video->liveFrame();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ASSERT_TRUE(first);
  EXPECT_LE(first->frame, 7);
  EXPECT_GE(first->frame, 5);
  video->detachLive();
  video.reset();  // destroyed while playing: the player stops and joins
}
