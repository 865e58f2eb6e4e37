// Files entering the project: stills and clips, refused files and what is said of them (also when
// an output gets no picture), media found again, the drop folder, and a clip's media node showing
// the frame the time asks for.
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "../media/test_clips.h"
#include "document/media_trouble.h"
#include "temp_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "groups/node_group.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

struct Fixture {
  TempDir dir;
  std::shared_ptr<ManualScheduler> scheduler = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> make(bool engine = true) {
    return std::make_unique<AppModel>(test::tempModelOptions(dir, scheduler, engine));
  }
  fs::path still(const std::string& name, int w = 40, int h = 20) { return test::writeStill(dir.path / name, w, h); }
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
  return test::meanChannel(m.engine->readPixels(it->second), 1) * 255.0;
}

// Lets the decoder finish the seeks in flight, the pump hand their frames over and the render run.
void settle(Fixture& t, AppModel& m) {
  test::settleSeeks(*t.scheduler, m);
  t.scheduler->advance(0.05);
}

}  // namespace

TEST(MediaImport, StillsAndClipsBecomeMediaItemsWithThumbnailsAndWorldsKeepTheirTextures) {
  Fixture t;
  auto m = t.make();
  ASSERT_TRUE(m->engine) << m->_status;
  const fs::path png = t.still("plate.png", 400, 200);
  ASSERT_TRUE(m->importURL(png));
  const MediaItem s = m->_media.back();
  EXPECT_EQ((std::array{s.width, s.height}), (std::array{400, 200}));
  EXPECT_FALSE(s.isVideo);
  ASSERT_TRUE(s.thumb && s.poster);
  EXPECT_TRUE(m->engine->hasSource(s.id));

  const fs::path mp4 = t.clip("shot.mp4");
  const Uuid given = Uuid::generate();
  ASSERT_TRUE(m->importURL(mp4, false, given));
  const MediaItem* v = find(*m, given);
  ASSERT_TRUE(v);
  EXPECT_TRUE(v->isVideo);
  EXPECT_EQ(v->frames, test::kClipFrames);
  ASSERT_TRUE(m->videos.count(given));
  // The clip's thumbnail is its first frame; thumbnails are 8-bit sRGB, like the clip's levels.
  ASSERT_TRUE(v->thumb);
  double sum = 0;
  for (std::size_t i = 1; i < v->thumb->rgba->size(); i += 4) sum += (*v->thumb->rgba)[i];
  EXPECT_EQ(test::frameOfGrey(sum / double(v->thumb->rgba->size() / 4)), 0);

  // Opening a world keeps only its own node textures; work textures belong to no world.
  const Uuid first = *m->_currentBatchID;
  const Uuid second = m->makeWorld(s.id, "B");
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
  EXPECT_EQ(m->engine->workTexture("scratch"), work);
  EXPECT_EQ(m->engine->tex(secondNode, 0), m->engine->tex(secondNode, 0)) << "a world opened keeps its own";
}

TEST(MediaImport, AClipOnAMediaNodeShowsTheFrameOfTheTime) {
  Fixture t;
  auto m = t.make();
  m->buildDefaultGraph();
  ASSERT_TRUE(m->importURL(t.clip("shot.mp4"), true));
  const Node* media = m->nodeByID(test::nodeOfKind(*m, "media"));
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

// Every kind of bad file, imported or met when a project opens, is named with what is wrong with it.
TEST(MediaImport, BadFilesSayWhichAndWhy) {
  Fixture t;
  const fs::path& d = t.dir.path;
  std::string noise(6000, '\0');
  std::mt19937 random(7);
  for (char& c : noise) c = char(random());
  std::ofstream(d / "vide.mov").close();
  std::ofstream(d / "bruit.png", std::ios::binary) << noise;
  std::ofstream(d / "bruit.mov", std::ios::binary) << noise;
  fs::create_directories(d / "dossier.mov");
  const fs::path cut = t.still("coupe.png", 300, 200);
  ASSERT_FALSE(cut.empty());
  fs::resize_file(cut, fs::file_size(cut) / 2);
  auto ffmpeg = [&](const std::string& args, const char* name) {
    return std::system(("ffmpeg -v error -y " + args + " '" + (d / name).string() + "'").c_str()) == 0;
  };
  ASSERT_TRUE(ffmpeg("-f lavfi -i sine=duration=1 -c:a pcm_s16le", "son.mov"));
  ASSERT_TRUE(ffmpeg("-f lavfi -i color=s=32x16:d=1,trim=end_frame=0", "sans_image.mov"));
  struct Case {
    const char* name;
    const char* why;  // none: the file isn't there
  };
  const Case cases[] = {{"absent.png", nullptr},
                        {"vide.mov", "fichier vide"},
                        {"coupe.png", "données tronquées ou corrompues"},
                        {"bruit.png", "pas une image ni un film"},
                        {"bruit.mov", "pas une image ni un film"},
                        {"dossier.mov", "dossier"},
                        {"son.mov", "aucune image vidéo"},
                        {"sans_image.mov", "aucune image vidéo"}};
  auto m = t.make();
  const std::size_t before = m->_media.size();
  std::string unreadable;
  for (const Case& c : cases) {
    EXPECT_FALSE(m->importURL(d / c.name));
    const std::string said = c.why ? std::string(c.name) + " (" + c.why + ")" : c.name;
    EXPECT_EQ(m->_status, (c.why ? "Média illisible : " : "Média introuvable : ") + said);
    if (c.why) unreadable += (unreadable.empty() ? "" : ", ") + said;
  }
  // Too wide for the engine: refused before any texture is made.
  EXPECT_FALSE(m->addMedia(SourcePicture::fromFloats(20000, 1, std::vector<float>(80000, 0.5f)), "large.exr"));
  EXPECT_EQ(m->_status, "Image invalide : large.exr.");
  EXPECT_EQ(m->_media.size(), before);
  EXPECT_TRUE(m->videos.empty());

  // A project naming them all opens, and says which are missing and which can't be read, and why.
  ProjectFile file = m->makeFile();
  for (const Case& c : cases) file.media.push_back({Uuid::generate(), c.name, (d / c.name).string()});
  std::ofstream(d / "p.tarvom") << *ProjectCodec::encode(file);
  auto opened = t.make();
  ASSERT_TRUE(opened->load(d / "p.tarvom"));
  EXPECT_EQ(opened->_status, "Médias introuvables : absent.png · Médias illisibles : " + unreadable);
  EXPECT_EQ(opened->missingMedia.size(), std::size(cases));
  // The project goes on working: a good file after the bad ones imports.
  EXPECT_TRUE(m->importURL(t.still("fine.tif")));
}

// An output without a picture names the media it reaches that couldn't be opened, through groups,
// before blaming the wiring.
TEST(MediaImport, AnOutputWithoutPictureNamesTheMediaItCouldNotRead) {
  const Uuid bad = Uuid::generate(), lost = Uuid::generate(), good = Uuid::generate();
  const std::map<Uuid, MediaTrouble> troubles = {{bad, {"plan.mov", "fichier vide"}}, {lost, {"fond.png", kNotFound}}};
  auto media = [](std::optional<Uuid> id) {
    Node n(NodeKind::media());
    n.mediaID = id;
    return n;
  };
  auto group = [](std::vector<Node> inside) {
    NodeGroup g;
    g.nodes = std::move(inside);
    g.inputs = {GroupInput{"Source", false, {}}};
    Node n(NodeKind::group("Groupe", g));
    n.group = g;
    return n;
  };
  auto wire = [](const Node& from, const Node& to, int port = 0) { return Edge{Uuid::generate(), from.id, to.id, port, 0}; };
  const Node out(NodeKind::output()), color(NodeKind::color()), mask(NodeKind::mask()), plan = media(bad),
      fond = media(lost), fine = media(good), unset = media(std::nullopt), look = group({Node(NodeKind::glow())}),
      holding = group({plan});
  struct Case { std::vector<Node> nodes; std::vector<Edge> edges; const char* says; };
  const Case cases[] = {
      {{color, out}, {wire(color, out)}, "rien n'y est relié ?"},
      {{plan, unset, out}, {wire(unset, out)}, "rien n'y est relié ?"},  // the bad media isn't upstream
      {{plan, look, out}, {wire(plan, look), wire(look, out)}, "plan.mov est illisible (fichier vide)"},
      {{holding, out}, {wire(holding, out)}, "plan.mov est illisible (fichier vide)"},
      {{fond, plan, mask, out},
       {wire(fond, mask), wire(plan, mask, 1), wire(mask, out)},
       "fond.png est introuvable, plan.mov est illisible (fichier vide)"},
      {{fine, color, out}, {wire(fine, color), wire(color, out)}, "le calcul n'a rien donné"},
  };
  for (const Case& c : cases) EXPECT_EQ(whyNoPicture(c.nodes, c.edges, out.id, troubles), c.says);
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
  m->relinkMissingMedia();  // nothing back yet: nothing said
  EXPECT_EQ(m->missingMedia.size(), 3u);

  fs::rename(away / "c.mp4", c);
  m->relinkMissingMedia();
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
