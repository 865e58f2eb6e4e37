// Files entering the project: stills and clips, refused files, media found again, the drop folder,
// and a clip's media node showing the frame the time asks for.
#include <gtest/gtest.h>

#include <fstream>

#include "../media/test_clips.h"
#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "temp_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "media/video_source.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

struct Fixture {
  TempDir dir;
  std::shared_ptr<ManualScheduler> scheduler = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> make(bool engine = true) {
    return std::make_unique<AppModel>(test::tempModelOptions(dir, scheduler, engine));
  }
  // A flat grey still, written by OpenImageIO's command-line tool.
  fs::path still(const std::string& name, int w = 40, int h = 20, double grey = 0.5) {
    const fs::path p = dir.path / name;
    const std::string g = std::to_string(grey);
    const std::string cmd = "oiiotool --pattern constant:color=" + g + "," + g + "," + g + " " + std::to_string(w) + "x" +
                            std::to_string(h) + " 3 -o '" + p.string() + "'";
    return std::system(cmd.c_str()) == 0 ? p : fs::path();
  }
  fs::path clip(const std::string& name) {
    return test::writeClip(dir.path / name, "-c:v libx264 -g 12 -bf 2 -pix_fmt yuv420p");
  }
};

const MediaItem* find(const AppModel& m, const Uuid& id) {
  for (const auto& item : m._media)
    if (item.id == id) return &item;
  return nullptr;
}

// The mean green of a node's result on 0..255, after the queued render has run.
double shownGrey(AppModel& m, const Uuid& node) {
  auto it = m.engine->outputs.find(node);
  if (it == m.engine->outputs.end() || !it->second) return -1;
  const auto px = m.engine->readPixels(it->second);
  double sum = 0;
  for (std::size_t i = 1; i < px.size(); i += 4) sum += px[i];
  return sum / double(px.size() / 4) * 255.0;
}

// Lets the decoder finish the seeks in flight, the pump hand their frames over and the render run.
void settle(Fixture& t, AppModel& m) {
  test::settleSeeks(*t.scheduler, m);
  t.scheduler->advance(0.05);
}

}  // namespace

TEST(MediaImport, StillsAndClipsBecomeMediaItemsWithThumbnails) {
  Fixture t;
  auto m = t.make();
  ASSERT_TRUE(m->engine) << m->_status;
  const fs::path png = t.still("plate.png", 400, 200);
  ASSERT_TRUE(m->importURL(png));
  const MediaItem& s = m->_media.back();
  EXPECT_EQ(s.name, "plate.png");
  EXPECT_EQ(s.url, png);
  EXPECT_EQ(s.width, 400);
  EXPECT_EQ(s.height, 200);
  EXPECT_FALSE(s.isVideo);
  EXPECT_EQ(s.frames, 0);
  ASSERT_TRUE(s.thumb && s.poster);
  EXPECT_EQ(std::max(s.thumb->width, s.thumb->height), 96);
  EXPECT_EQ(std::max(s.poster->width, s.poster->height), 360);
  EXPECT_TRUE(m->engine->hasSource(s.id));

  const fs::path mp4 = t.clip("shot.mp4");
  const Uuid given = Uuid::generate();
  ASSERT_TRUE(m->importURL(mp4, false, given));
  const MediaItem* v = find(*m, given);
  ASSERT_TRUE(v);
  EXPECT_TRUE(v->isVideo);
  EXPECT_EQ(v->frames, test::kClipFrames);
  EXPECT_DOUBLE_EQ(v->fps, 25);
  EXPECT_EQ(v->width, test::kClipW);
  ASSERT_TRUE(m->videos.count(given));
  // The clip's thumbnail is its first frame; thumbnails are 8-bit sRGB, like the clip's levels.
  ASSERT_TRUE(v->thumb);
  double sum = 0;
  for (std::size_t i = 1; i < v->thumb->rgba->size(); i += 4) sum += (*v->thumb->rgba)[i];
  EXPECT_EQ(test::frameOfGrey(sum / double(v->thumb->rgba->size() / 4)), 0);
}

TEST(MediaImport, AClipOnAMediaNodeShowsTheFrameOfTheTime) {
  Fixture t;
  auto m = t.make();
  m->buildDefaultGraph();
  ASSERT_TRUE(m->importURL(t.clip("shot.mp4"), true));
  const Node* media = nullptr;
  for (const auto& n : m->_nodes)
    if (n.kind->id == "media") media = &n;
  ASSERT_TRUE(media && media->mediaID);
  EXPECT_EQ(*media->mediaID, m->_media.back().id);
  const Uuid node = media->id;
  settle(t, *m);
  EXPECT_EQ(m->_frameCount, test::kClipFrames) << "the time follows the clip";
  EXPECT_EQ(test::frameOfGrey(shownGrey(*m, node)), 0);
  for (int f : {23, 5, 39, 6, 0, 71}) {
    m->seekFrame(f);
    settle(t, *m);
    EXPECT_EQ(m->_currentFrame, std::min(f, test::kClipFrames - 1));
    EXPECT_EQ(test::frameOfGrey(shownGrey(*m, node)), std::min(f, test::kClipFrames - 1)) << "at frame " << f;
  }
  // A render walking the frames in order reads each one exactly, without the pump.
  for (int f = 10; f < 14; ++f) {
    m->loadVideoFrames(f);
    m->performRender(true);
    EXPECT_EQ(test::frameOfGrey(shownGrey(*m, node)), f);
  }
}

TEST(MediaImport, RefusedFilesSayWhyAndAddNothing) {
  Fixture t;
  auto m = t.make();
  const std::size_t before = m->_media.size();
  std::ofstream(t.dir.path / "empty.mov").close();
  EXPECT_FALSE(m->importURL(t.dir.path / "empty.mov"));
  EXPECT_EQ(m->_status, "Impossible de lire la vidéo empty.mov.");
  const fs::path sound = t.dir.path / "sound.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=duration=1 '" + sound.string() + "'").c_str()), 0);
  EXPECT_FALSE(m->importURL(sound));
  EXPECT_EQ(m->_status, "Impossible de lire la vidéo sound.mp4.");
  std::ofstream(t.dir.path / "broken.png") << "\x89PNG\r\n\x1a\n not really";
  EXPECT_FALSE(m->importURL(t.dir.path / "broken.png"));
  EXPECT_EQ(m->_status, "Impossible de lire broken.png.");
  EXPECT_FALSE(m->importURL(t.dir.path / "vanished.exr"));
  EXPECT_EQ(m->_status, "Impossible de lire vanished.exr.");
  // Too wide for the engine: refused before any texture is made.
  EXPECT_FALSE(m->addMedia(SourcePicture::fromFloats(20000, 1, std::vector<float>(80000, 0.5f)), "large.exr"));
  EXPECT_EQ(m->_status, "Image invalide : large.exr.");
  EXPECT_EQ(m->_media.size(), before);
  EXPECT_TRUE(m->videos.empty());
  // The project goes on working: a good file after the bad ones imports.
  EXPECT_TRUE(m->importURL(t.still("fine.tif")));
}

TEST(MediaImport, MissingMediaAreFoundAgainWhenTheirFilesReturn) {
  Fixture t;
  const fs::path a = t.still("a.png"), b = t.still("b.png"), c = t.clip("c.mp4");
  const fs::path project = t.dir.path / "p.tarvom";
  std::vector<Uuid> ids;
  {
    auto m = t.make();
    for (const auto& f : {a, b, c}) {
      ASSERT_TRUE(m->importURL(f)) << m->_status;
      ids.push_back(m->_media.back().id);
    }
    ASSERT_TRUE(m->write(project));
  }
  const fs::path away = t.dir.path / "away";
  fs::create_directories(away);
  for (const auto& f : {a, b, c}) fs::rename(f, away / f.filename());

  auto m = t.make();
  ASSERT_TRUE(m->load(project));
  EXPECT_EQ(m->missingMedia.size(), 3u);
  EXPECT_NE(m->_status.find("Médias introuvables"), std::string::npos);
  m->relinkMissingMedia();  // nothing back yet: nothing said
  EXPECT_EQ(m->missingMedia.size(), 3u);

  fs::rename(away / "c.mp4", c);
  m->relinkMissingMedia();
  EXPECT_EQ(m->_status, "1 média retrouvé.");
  ASSERT_TRUE(find(*m, ids[2]));
  EXPECT_TRUE(find(*m, ids[2])->isVideo) << "a clip comes back as a clip";
  EXPECT_TRUE(m->videos.count(ids[2]));

  fs::rename(away / "a.png", a);
  fs::rename(away / "b.png", b);
  m->relinkMissingMedia();
  EXPECT_EQ(m->_status, "2 médias retrouvés.");
  EXPECT_TRUE(m->missingMedia.empty());
  for (const auto& id : ids) EXPECT_TRUE(find(*m, id)) << "ids are kept";
  EXPECT_EQ(m->_media.size(), 3u);
}

TEST(MediaImport, TheDropFolderMakesOneWorldPerNewFile) {
  Fixture t;
  auto m = t.make();
  const fs::path inbox = m->inboxDir();
  const std::size_t worlds = m->_batches.size();
  m->startInbox();  // creates the folder, and scans again every 3 s
  ASSERT_TRUE(fs::is_directory(inbox));

  fs::copy_file(t.still("Plan 7.png"), inbox / "Plan 7.png");
  std::ofstream(inbox / "notes.txt") << "not media";
  t.scheduler->advance(3.1);
  ASSERT_EQ(m->_batches.size(), worlds + 1);
  EXPECT_EQ(m->_batches.back().name, "Plan 7");
  EXPECT_EQ(m->_status, "Nouveau monde créé : Plan 7");
  ASSERT_TRUE(m->_batches.back().mediaID);
  EXPECT_EQ(*m->_batches.back().mediaID, m->_media.back().id);
  ASSERT_EQ(m->_batches.back().nodes.size(), 2u);
  ASSERT_EQ(m->_batches.back().edges.size(), 1u);

  // The same name again this session is ignored, even rewritten.
  std::ofstream(inbox / "Plan 7.png", std::ios::app) << " ";
  t.scheduler->advance(3.1);
  EXPECT_EQ(m->_batches.size(), worlds + 1);

  // A list of paths from a file browser: consumed at once; known files are not imported twice.
  const fs::path clip = t.clip("rush.mp4");
  std::ofstream(inbox / "x.ombrikimport") << clip.string() << "\r\n" << (t.dir.path / "readme.md").string() << "\n";
  t.scheduler->advance(3.1);
  EXPECT_FALSE(fs::exists(inbox / "x.ombrikimport"));
  ASSERT_EQ(m->_batches.size(), worlds + 2);
  EXPECT_EQ(m->_batches.back().name, "rush");
  EXPECT_EQ(m->_status, "Nouveau monde : rush · double-clic pour y entrer.");
  EXPECT_TRUE(m->_media.back().isVideo);

  std::ofstream(inbox / "y.ombrikimport") << clip.string() << "\n";
  t.scheduler->advance(3.1);
  EXPECT_EQ(m->_status, "Finder : rien de nouveau · 1 déjà dans le projet");
  std::ofstream(inbox / "z.ombrikimport") << (t.dir.path / "readme.md").string() << "\n";
  t.scheduler->advance(3.1);
  EXPECT_EQ(m->_status, "Finder : aucun rush reconnu (vidéos .mov, .mp4, .mxf… ou images).");
  EXPECT_EQ(m->_batches.size(), worlds + 2);

  // Worlds made from files take free cells of the map, never the same one.
  EXPECT_NE(m->worldPosition(m->_batches[m->_batches.size() - 1]), m->worldPosition(m->_batches[m->_batches.size() - 2]));
}

TEST(MediaImport, OpeningAWorldKeepsOnlyItsOwnNodeTextures) {
  Fixture t;
  auto m = t.make();
  ASSERT_TRUE(m->importURL(t.still("a.png")));
  const Uuid first = *m->_currentBatchID;
  const Uuid second = m->makeWorld(m->_media.back().id, "B");
  const Uuid firstNode = m->_nodes.front().id;
  m->openBatch(second);
  const Uuid secondNode = m->_nodes.front().id;
  auto kept = m->engine->tex(secondNode, 0);
  auto dropped = m->engine->tex(firstNode, 0);
  auto work = m->engine->workTexture("scratch");
  m->openBatch(first);  // back: the second world's textures go, the first's are new
  EXPECT_NE(m->engine->tex(secondNode, 0), kept);
  m->openBatch(second);
  EXPECT_NE(m->engine->tex(firstNode, 0), dropped);
  EXPECT_EQ(m->engine->workTexture("scratch"), work) << "work textures belong to no world";
  // A world opened keeps its own: asking twice gives the same texture.
  EXPECT_EQ(m->engine->tex(secondNode, 0), m->engine->tex(secondNode, 0));
}
