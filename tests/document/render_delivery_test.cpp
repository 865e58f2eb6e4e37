// Renders of worlds to files as the desktop runs them: movies and sequences never written over,
// cancelled renders, the queue with a failing world, the export of one frame, the Relais cache.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "editorial/render_naming.h"
#include "engine/source_picture.h"
#include "media/frame_reader.h"
#include "temp_model.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
struct Studio : test::ScriptedDesk {
  fs::path out = dir.path / "rendus";

  // A world of `frames` frames: a small picture wired to its output, rendered into `out`.
  Uuid world(const std::string& name, int frames = 4, bool wired = true) {
    const Uuid media = *m->addMedia(SampleImage::make(64, 36), name);
    const Uuid batch = m->makeWorld(media, name);
    m->openBatch(batch);
    m->_frameCount = frames;
    const Uuid out = *m->outputNode();
    if (!wired) std::erase_if(m->_edges, [&](const Edge& e) { return e.to == out; });
    m->setRenderFolder(out, this->out);
    m->saveCurrentBatch();
    return batch;
  }
  void finish() {
    auto busy = [&] {
      const auto& q = m->delivery.renderQueue;
      return m->rendering || renderqueue::count(q, RenderJob::State::waiting) || renderqueue::count(q, RenderJob::State::running);
    };
    for (int i = 0; i < 400 && busy(); ++i) clock->advance(0.1);
    clock->advance(0.1);
  }
  static int probeFrames(const fs::path& movie) {
    auto reader = FrameReader::open(movie);
    return reader ? reader->info().frames : -1;
  }
  std::vector<std::string> files() {
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::recursive_directory_iterator it(out, ec), end; !ec && it != end; it.increment(ec))
      names.push_back(fs::relative(it->path(), out).string());
    std::sort(names.begin(), names.end());
    return names;
  }
};
}  // namespace

TEST(RenderNaming, NamesNeverGoOverAnEarlierRender) {
  TempDir dir;
  EXPECT_EQ(renderBaseName("a/b"), "a-b");
  EXPECT_EQ(renderBaseName(""), "Graphe");
  EXPECT_EQ(versionedPath(dir.path, "X", ".mov"), dir.path / "X.mov");
  std::ofstream(dir.path / "X.mov") << "";
  EXPECT_EQ(versionedPath(dir.path, "X", ".mov"), dir.path / "X_v02.mov");
  fs::create_directories(dir.path / "X");
  fs::create_directories(dir.path / "X_v02");
  EXPECT_EQ(versionedPath(dir.path, "X", ""), dir.path / "X_v03");
  EXPECT_EQ(sequenceFrame(dir.path / "Plan_v02", 1, ".tif"), dir.path / "Plan_v02" / "Plan_v02.00001.tif");
  EXPECT_EQ(RenderFormat::fromIndex(7).movie, MovieCodec::prores4444);  // unknown reads as the first
}

TEST(RenderDelivery, MoviesAndSequencesOfAWorldAreVersionedAndComplete) {
  Studio s;
  ASSERT_TRUE(s.m->engine) << s.m->_status;
  s.world("a/b");
  const Uuid out = *s.m->outputNode();
  for (int i = 0; i < 2; ++i) {
    s.m->renderSequence(out);
    EXPECT_TRUE(s.m->rendering);
    s.finish();
  }
  EXPECT_EQ(s.m->delivery.lastRender, s.out / "a-b_v02.mov");
  EXPECT_EQ(s.probeFrames(s.out / "a-b.mov"), 4);
  EXPECT_EQ(s.probeFrames(s.out / "a-b_v02.mov"), 4);
  EXPECT_FALSE(s.m->delivery.renderProgress);
  // A TIFF sequence: a folder of its own, frames from .00000.
  s.m->setParams(out, {{"format", 1}});
  s.m->renderSequence(out);
  s.finish();
  EXPECT_EQ(s.files(), (std::vector<std::string>{"a-b", "a-b.mov", "a-b/a-b.00000.tif", "a-b/a-b.00001.tif",
                                                  "a-b/a-b.00002.tif", "a-b/a-b.00003.tif", "a-b_v02.mov"}));
}

TEST(RenderDelivery, CancelledMoviesLeaveNothingSequencesKeepTheirFrames) {
  Studio s;
  ASSERT_TRUE(s.m->engine) << s.m->_status;
  s.world("Plan", 20);
  const Uuid out = *s.m->outputNode();
  for (int format : {0, 2}) {
    s.m->setParams(out, {{"format", format}});
    s.clock->jobSeconds = 0.01;  // each frame takes a moment: the stop lands after three
    s.m->renderSequence(out);
    s.clock->postAfter(0.035, [&] { s.m->stopAllRenders(); });
    s.finish();
    s.clock->jobSeconds = 0;
    EXPECT_EQ(s.m->_status, format == 0 ? "Rendu interrompu : annulé · aucun film écrit"
                                        : "Rendu interrompu : annulé · 3 images gardées dans Plan/");
  }
  const auto names = s.files();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.front(), "Plan");  // the PNG folder; no movie, no hidden part of one
  EXPECT_TRUE(std::none_of(names.begin(), names.end(), [](const std::string& n) { return n.find(".mov") != std::string::npos || n.find(".part") != std::string::npos; }));
  EXPECT_GE(names.size(), 2u);
}

TEST(RenderDelivery, TheQueueRunsWorldsInOrderPastAFailingOne) {
  Studio s;
  ASSERT_TRUE(s.m->engine) << s.m->_status;
  const Uuid a = s.world("A"), b = s.world("B", 4, false), c = s.world("C");
  s.m->enqueueRender({a, b, c});
  s.m->enqueueRender({c});
  EXPECT_EQ(s.m->_status, "Déjà dans la file de rendu.");
  s.finish();
  const auto& q = s.m->delivery.renderQueue;
  ASSERT_EQ(q.size(), 3u);
  EXPECT_EQ(q[0].state, RenderJob::State::done);
  EXPECT_EQ(q[1].state, RenderJob::State::failed);
  EXPECT_EQ(q[1].message, "Reliez votre comp à l'entrée du node Sortie.");
  EXPECT_EQ(q[2].state, RenderJob::State::done);
  EXPECT_EQ(q[2].output, s.out / "C.mov");
  s.m->removeRenderJob(q[1].id);
  EXPECT_EQ(q.size(), 2u);
  s.m->clearFinishedRenders();
  EXPECT_TRUE(q.empty());
  s.m->enqueueRender({a});  // done once, it can go again
  EXPECT_EQ(q.size(), 1u);
  s.finish();
  EXPECT_EQ(s.probeFrames(s.out / "A_v02.mov"), 100);  // a world opened without a clip plays 100 frames
}

TEST(RenderDelivery, BadFoldersExportAndRelais) {
  Studio s;
  ASSERT_TRUE(s.m->engine) << s.m->_status;
  s.world("Plan", 3);
  const Uuid out = *s.m->outputNode();
  std::ofstream(s.dir.path / "fichier") << "x";
  s.m->setRenderFolder(out, s.dir.path / "fichier" / "dedans");
  s.m->renderSequence(out);
  EXPECT_FALSE(s.m->rendering);
  EXPECT_EQ(s.m->_status.rfind("Dossier de rendu inaccessible : ", 0), 0u) << s.m->_status;

  // Ctrl+E: the current frame where the panel says; cancelled, nothing.
  s.dialogs->panelAnswers = {s.dir.path / "image.png", std::nullopt};
  s.m->exportPanel();
  EXPECT_TRUE(fs::exists(s.dir.path / "image.png"));
  s.m->exportPanel();
  ASSERT_EQ(s.dialogs->savePanels.size(), 2u);

  // A Relais on the picture caches every frame, then forgets them.
  const Uuid mux = s.m->addNode(*NodeKind::find("mux"), {0, 0});
  s.m->muxCache(mux);
  EXPECT_EQ(s.m->_status, "Reliez une image au Relais.");
  const Uuid media = s.m->_edges.front().from;
  s.m->connect(media, mux, 0, 0);
  s.m->muxCache(mux);
  s.finish();
  EXPECT_EQ(s.m->muxCachedCount(mux), 3);
  EXPECT_TRUE(fs::exists(s.m->muxFolder(mux) / "00002.tif"));
  s.m->muxClear(mux);
  EXPECT_EQ(s.m->muxCachedCount(mux), 0);
}

TEST(RenderDelivery, AFullDiskStopsTheRenderAndLeavesOnlyWholeFiles) {
  Studio s;
  ASSERT_TRUE(s.m->engine) << s.m->_status;
  fs::create_directories(s.out);
  // A small disk of its own: needs the right to mount, as a CI machine running as root has.
  if (std::system(("mount -t tmpfs -o size=96k tmpfs '" + s.out.string() + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no tmpfs can be mounted here";
  struct Unmount {
    fs::path at;
    ~Unmount() { (void)std::system(("umount '" + at.string() + "'").c_str()); }
  } unmount{s.out};
  s.world("Plein", 400);
  const Uuid out = *s.m->outputNode();
  s.m->renderSequence(out);  // a movie: its writer fails, and nothing is left
  s.finish();
  EXPECT_EQ(s.m->_status.rfind("Rendu interrompu : Impossible d'écrire le film : ", 0), 0u) << s.m->_status;
  EXPECT_NE(s.m->_status.find("aucun film écrit"), std::string::npos) << s.m->_status;
  EXPECT_TRUE(s.files().empty());
  // A PNG sequence: the frame that didn't fit is refused, the ones before it stay whole.
  s.m->setParams(out, {{"format", 2}});
  s.m->renderSequence(out);
  s.finish();
  EXPECT_EQ(s.m->_status.rfind("Rendu interrompu : Écriture impossible : Plein.", 0), 0u) << s.m->_status;
  EXPECT_NE(s.m->_status.find("(le disque est plein)"), std::string::npos) << s.m->_status;
  int frames = 0;
  for (const auto& name : s.files()) {
    if (name == "Plein") continue;
    ++frames;
    const auto picture = SourcePicture::load(s.out / name);
    EXPECT_TRUE(picture && picture->width == 64) << name << " is not a whole picture";
  }
  EXPECT_GT(frames, 0);
}
