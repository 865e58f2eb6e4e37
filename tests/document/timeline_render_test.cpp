// A timeline's film: layers of a clip, a world with an effect and a still, composited and written
// to a movie that carries the sound of the film the timeline stands for.
#include <gtest/gtest.h>

#include <cstdio>

#include "../media/test_clips.h"
#include "engine/half_float.h"
#include "media/frame_reader.h"
#include "temp_model.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

// A flat still of the clips' size, as a 16-bit TIFF.
fs::path flatStill(const fs::path& path, float r, float g, float b) {
  return test::writeStill(path, test::kClipW, test::kClipH, {r, g, b}, "uint16");
}

std::array<double, 3> centre(const SourcePicture& p) {
  const std::size_t i = (std::size_t(p.height / 2) * p.width + p.width / 2) * 4;
  return {halfToFloat((*p.rgba)[i]), halfToFloat((*p.rgba)[i + 1]), halfToFloat((*p.rgba)[i + 2])};
}

std::string probe(const fs::path& movie, const std::string& entries) {
  const std::string cmd = "ffprobe -v error " + entries + " -of csv=p=0 '" + movie.string() + "'";
  std::string out;
  if (FILE* p = popen(cmd.c_str(), "r")) {
    char buf[256];
    while (fgets(buf, sizeof buf, p)) out += buf;
    pclose(p);
  }
  return out;
}

}  // namespace

TEST(TimelineRender, ThreeLayersBecomeAMovieOfTheirCompositeWithTheFilmsSound) {
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(test::tempModelOptions(dir, clock));
  ASSERT_TRUE(m.engine);
  // 12 frames of grey levels at 25 fps, with a tone as long.
  const fs::path rush = test::writeClip(dir.path / "rush.mov",
                                        "-f lavfi -i sine=frequency=440:sample_rate=48000 -shortest -c:v libx264 -qp 0 "
                                        "-pix_fmt yuv444p -c:a pcm_s16le",
                                        false, 12);
  ASSERT_FALSE(rush.empty());
  const std::array<float, 3> a{0.2f, 0.5f, 0.7f}, b{0.9f, 0.6f, 0.3f};
  ASSERT_TRUE(m.importURL(flatStill(dir.path / "a.tif", a[0], a[1], a[2])));
  const Uuid stillA = m._media.back().id;
  ASSERT_TRUE(m.importURL(flatStill(dir.path / "b.tif", b[0], b[1], b[2])));
  const Uuid stillB = m._media.back().id;
  ASSERT_TRUE(m.importURL(rush));
  const Uuid clip = m._media.back().id;

  // Top first: B multiplies frames 4 to 9, the world of A inverted at half opacity, the clip.
  m.newTimeline();
  m.addLayer(LayerSource::media(stillB), 4);
  m.addLayer(LayerSource::batch(m.makeWorld(stillA, "A")), 0);
  m.addLayer(LayerSource::media(clip), 0);
  Timeline& t = *m.tl.current();
  ASSERT_EQ((std::array{t.width, t.height}), (std::array{test::kClipW, test::kClipH}));
  const Uuid top = t.layers[0].id, middle = t.layers[1].id;
  m.updateLayer(top, [](TLayer& l) { l.length = 6, l.blend = int(LayerBlend::multiply); });
  m.updateLayer(middle, [](TLayer& l) { l.length = 12, l.opacity = 0.5; });
  m.tl.tlSelection = {middle};
  m.addLayerEffect(*NodeKind::find("invert"));
  m.tl.current()->filmPath = rush.string();
  ASSERT_EQ(m.tl.current()->duration(), 12);

  const fs::path movie = dir.path / "film.mov";
  ASSERT_TRUE(m.exportTimelineMovie(m.tl.current()->id, movie)) << m._status;
  for (int i = 0; i < 1000 && m.rendering; ++i) clock->runAll();
  ASSERT_EQ(m._status, "Film exporté : film.mov (12 images, timing d'origine).");
  EXPECT_EQ(m.delivery.lastRender, movie);
  for (const auto& e : fs::directory_iterator(dir.path))  // no temporary left beside it
    EXPECT_NE(e.path().filename().string().rfind(".ombrik_video_", 0), 0u) << e.path();

  auto film = FrameReader::open(movie), source = FrameReader::open(rush);
  ASSERT_TRUE(film && source);
  EXPECT_EQ(film->info().frames, 12);
  for (int k : {0, 4, 9, 11}) {
    const auto got = film->read(k), from = source->read(k);
    ASSERT_TRUE(got && from) << k;
    const auto made = centre(*got), under = centre(*from);
    for (int c = 0; c < 3; ++c) {
      double want = under[c];
      want += ((1.0 - a[c]) - want) * 0.5;  // the inverted still at half opacity
      if (k >= 4 && k < 10) want *= b[c];   // B multiplies while it lasts
      EXPECT_NEAR(made[c], want, 0.012) << "frame " << k << " channel " << c;
    }
  }
  EXPECT_EQ(probe(movie, "-select_streams a -show_entries stream=codec_type"), "audio\n");
  const double video = std::stod(probe(movie, "-select_streams v -show_entries stream=duration"));
  const double sound = std::stod(probe(movie, "-select_streams a -show_entries stream=duration"));
  EXPECT_NEAR(video, 12 / 25.0, 1e-3);
  EXPECT_LE(sound, video + 0.03);

  // Without a film the movie is silent; a stop leaves nothing behind.
  m.tl.current()->filmPath.reset();
  const fs::path silent = dir.path / "silent.mov";
  ASSERT_TRUE(m.exportTimelineMovie(m.tl.current()->id, silent));
  for (int i = 0; i < 1000 && m.rendering; ++i) clock->runAll();
  EXPECT_EQ(probe(silent, "-select_streams a -show_entries stream=codec_type"), "");
  ASSERT_TRUE(m.exportTimelineMovie(m.tl.current()->id, dir.path / "stopped.mov"));
  m.delivery.renderCancel = true;  // before the first frame
  for (int i = 0; i < 1000 && m.rendering; ++i) clock->runAll();
  EXPECT_EQ(m._status, "Export interrompu : annulé");
  EXPECT_FALSE(fs::exists(dir.path / "stopped.mov"));
}
