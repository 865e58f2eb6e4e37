// `ombrik render` run as a render farm would: a real project, the real binary, files on disk.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>
#include <QProcess>
#include <QProcessEnvironment>
#include <cmath>
#include <csignal>
#include <fstream>
#include <map>

#include "../engine/colour_reference.h"
#include "../media/test_clips.h"
#include "../platform/temp_dir.h"
#include "app/render_command.h"
#include "document/project_file.h"
#include "engine/half_float.h"
#include "groups/user_nodes.h"
#include "media/frame_reader.h"

namespace fs = std::filesystem;
using namespace ombrik;

namespace {

struct Result { int code; std::string err; };

QString q(const fs::path& p) { return QString::fromStdString(p.string()); }

// `env`: variables set for this run only (another support folder, the user's settings…).
Result render(const QStringList& args, const std::map<QString, fs::path>& env = {}) {
  QProcess p;
  QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
  for (const auto& [k, v] : env) e.insert(k, q(v));
  p.setProcessEnvironment(e);
  p.start(OMBRIK_BINARY, QStringList{"render"} + args);
  EXPECT_TRUE(p.waitForFinished(120000));
  return {p.exitCode(), p.readAllStandardError().toStdString()};
}

// A flat picture as a 16-bit TIFF, 8x4 unless told.
void writeSource(const fs::path& path, float r, float g, float b, int w = 8, int h = 4) {
  auto out = OIIO::ImageOutput::create("tiff");
  std::vector<float> px;
  for (int i = 0; i < w * h; ++i) px.insert(px.end(), {r, g, b, 1.0f});
  ASSERT_TRUE(out->open(path.string(), OIIO::ImageSpec(w, h, 4, OIIO::TypeDesc::UINT16)));
  out->write_image(OIIO::TypeDesc::FLOAT, px.data());
  out->close();
}

std::vector<float> readImage(const fs::path& path) {
  auto in = OIIO::ImageInput::open(path.string());
  if (!in) return {};
  std::vector<float> px(std::size_t(in->spec().width) * in->spec().height * in->spec().nchannels);
  in->read_image(0, 0, 0, in->spec().nchannels, OIIO::TypeDesc::FLOAT, px.data());
  return px;
}

// A world "Plan_01": the media file → `effects` in a chain → output.
Batch chainWorld(ProjectFile& f, const fs::path& media, std::vector<Node> effects) {
  const Uuid mediaID = Uuid::generate();
  f.media.push_back({mediaID, media.filename().string(), media.string()});
  Batch w;
  w.id = Uuid::generate();
  w.name = "Plan_01";
  Node source(*NodeKind::find("media"));
  source.mediaID = mediaID;
  w.nodes = {source};
  w.nodes.insert(w.nodes.end(), effects.begin(), effects.end());
  w.nodes.push_back(Node(*NodeKind::find("output")));
  for (std::size_t i = 1; i < w.nodes.size(); ++i) w.edges.push_back({Uuid::generate(), w.nodes[i - 1].id, w.nodes[i].id, 0, 0});
  return w;
}

fs::path writeProject(const fs::path& path, const ProjectFile& f) {
  std::ofstream(path) << *ProjectCodec::encode(f);
  return path;
}

// A project whose world "Plan_01" grades a flat plate with an exposure going from -1 at frame 1 to
// +1 at frame 3, beside a world "Autre" with nothing wired, and a timeline "Montage" showing
// Plan_01 from its frame 1 on: timeline frames 0 and 1 show the exposure at 0, then +1.
fs::path writeColourProject(const fs::path& dir) {
  writeSource(dir / "plate.tif", 0.4f, 0.3f, 0.2f);
  Node color(*NodeKind::find("color"));
  color.anim["exposure"] = {Keyframe{.f = 0, .v = -1}, Keyframe{.f = 2, .v = 1}};
  ProjectFile f;
  const Batch w = chainWorld(f, dir / "plate.tif", {color});
  Batch other = w;
  other.id = Uuid::generate();
  other.name = "Autre";
  other.nodes = {w.nodes.back()};
  other.edges.clear();
  f.batches = {other, w};
  Timeline cut{Uuid::generate(), "Montage", 25, 8, 4, {}, std::nullopt, std::nullopt, std::nullopt};
  cut.layers.push_back({Uuid::generate(), "P", LayerSource::batch(w.id), 0, 1, 2, true, 1, 0});
  f.timelines = {cut};
  return writeProject(dir / "film.tarvom", f);
}

std::array<float, 3> graded(int frame) { return test::colourAtDefaults({0.4f, 0.3f, 0.2f}, -1.0f + float(frame - 1)); }

}  // namespace

// Frame by frame along the curve, as a sequence and as movies, with the user's settings and data left
// as they were; the timeline's movie, whose layer starts at its world's frame 1.
TEST(RenderCli, AnimatedColourFollowsItsCurveInSequencesMoviesAndTimelines) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  const fs::path pattern = dir.path / "rendu" / "out_%05d.tif", home = dir.path / "home";
  for (const char* sub : {"config", "data"}) fs::create_directories(home / sub);
  const Result r = render({q(project), "--world", "Plan_01", "--frames", "1-3", "--out", q(pattern)},
                          {{"XDG_CONFIG_HOME", home / "config"}, {"OMBRIK_DATA", home / "data"}});
  ASSERT_EQ(r.code, 0) << r.err;
  for (int frame = 1; frame <= 3; ++frame) {
    const auto px = readImage(RenderCommand::fileFor(pattern.string(), frame - 1));  // files count from 0
    ASSERT_EQ(px.size(), 8u * 4 * 4) << frame;
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(px[(2 * 8 + 3) * 4 + c], graded(frame)[c], 2.5e-3) << "frame " << frame << " channel " << c;
    EXPECT_NEAR(px[3], 1.0f, 1e-4);
  }
  // The kernel cache may be filled, it is ours; the settings and data folders are the user's.
  EXPECT_TRUE(fs::is_empty(home / "config")) << "settings written by a headless render";
  EXPECT_TRUE(fs::is_empty(home / "data")) << "data folders made by a headless render";

  // Movies: each frame as bright as the curve says; the timeline's two frames are the curve's 2 and 3.
  const struct {
    const char* file;
    QStringList args;
    int frames, first;  // the frames of the movie; the frame of the curve its first shows
  } movies[] = {{"film.mov", {"--world", "Plan_01", "--frames", "1-3"}, 3, 1},
                {"film.mp4", {"--world", "Plan_01", "--frames", "1-3"}, 3, 1},
                {"hq.mov", {"--world", "Plan_01", "--frames", "1-3", "--codec", "prores422hq"}, 3, 1},
                {"tl.mov", {"--timeline", "Montage"}, 2, 2}};
  for (const auto& c : movies) {
    const fs::path movie = dir.path / c.file;
    const Result m = render(QStringList{q(project), "--out", q(movie)} + c.args);
    ASSERT_EQ(m.code, 0) << m.err;
    auto reader = FrameReader::open(movie);
    ASSERT_TRUE(reader) << c.file;
    EXPECT_EQ(reader->info().frames, c.frames) << c.file;
    for (int f = 0; f < c.frames; ++f) {
      const auto picture = reader->read(f);
      ASSERT_TRUE(picture) << c.file << " frame " << f;
      EXPECT_NEAR(halfToFloat((*picture->rgba)[(2 * picture->width + 3) * 4]), graded(c.first + f)[0], 0.02) << c.file << " frame " << f;
    }
  }
}

TEST(RenderCli, AClipRendersFrameByFrame) {
  TempDir dir;
  const fs::path clip = test::writeClip(dir.path / "rush.mov", "-c:v libx264 -g 8 -bf 2 -pix_fmt yuv420p");
  ASSERT_FALSE(clip.empty());
  ProjectFile f;
  f.batches = {chainWorld(f, clip, {})};
  const fs::path project = writeProject(dir.path / "rush.tarvom", f);
  // Frames 1.. of the command are the clip's frames 0..; a range in the middle, then a jump back.
  const fs::path pattern = dir.path / "out_%03d.png";
  for (const char* range : {"12-17", "2-3"}) {
    const Result r = render({q(project), "--frames", range, "--out", q(pattern)});
    ASSERT_EQ(r.code, 0) << r.err;
  }
  for (int frame : {2, 3, 12, 13, 14, 15, 16, 17}) {
    const auto px = readImage(RenderCommand::fileFor(pattern.string(), frame - 1));
    ASSERT_EQ(px.size(), std::size_t(test::kClipW) * test::kClipH * 4) << frame;
    double sum = 0;
    for (std::size_t i = 1; i < px.size(); i += 4) sum += px[i];
    EXPECT_EQ(test::frameOfGrey(sum / double(px.size() / 4) * 255.0), frame - 1) << "image " << frame;
  }
}

// Requests that can't be met, outputs that give no picture, and the program's own questions, need no
// window and leave no files.
TEST(RenderCli, BadRequestsAndQuestionsAnswerClearlyWithoutAWindow) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  const QString p = q(project), png = q(dir.path / "x_%05d.png");
  // Projects that aren't files a reader can finish: an endless device, and a file missing a required
  // field, whose reason is kept.
  std::ofstream(dir.path / "bad.tarvom") << R"({"version": 1})";
  const struct { QStringList args; int code; const char* says; } cases[] = {
      {{"--help"}, 0, "usage : ombrik render"},
      {{q(dir.path / "absent.tarvom"), "--out", png}, 1, "Projet illisible : absent.tarvom"},
      {{p, "--frames", "5-2", "--out", png}, 1, "--frames"},
      {{p, "--frames", "1-4", "--out", q(dir.path / "fixe.png")}, 1, "%d"},
      {{p, "--out", q(dir.path / "x.jpg2")}, 1, "format de sortie inconnu"},
      {{p, "--codec", "h264", "--out", png}, 1, "--codec ne vaut que pour un film"},
      {{p, "--frames", "2147483647-2147483647", "--out", png}, 1, "au-delà de la dernière image du monde (100)"},
      {{p, "--frames", "1-101", "--out", png}, 1, "au-delà de la dernière image"},
      {{p, "--scale", "0.5abc", "--out", png}, 1, "--scale attend un nombre"},
      {{p, "--out", q(dir.path / "a_%d_%d.png")}, 1, "un seul %d"},
      {{"/dev/zero", "--out", png}, 1, "zero (ce n'est pas un fichier ordinaire)"},
      {{q(dir.path / "bad.tarvom"), "--out", png}, 1, "bad.tarvom (champ manquant : media)"},
      {{p, "--timeline", "Nulle", "--out", png}, 1, "aucune timeline « Nulle »"},
      {{p, "--timeline", "Montage", "--frames", "1-3", "--out", png}, 1, "au-delà de la dernière image de la timeline (2)"},
      {{p, "--timeline", "Montage", "--world", "Plan_01", "--out", png}, 1, "--world et --timeline ne vont pas ensemble"},
  };
  const auto before = std::distance(fs::directory_iterator(dir.path), fs::directory_iterator());
  for (const auto& c : cases) {
    const Result r = render(c.args);
    EXPECT_EQ(r.code, c.code) << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
  }
  // An unreadable plate, and a world whose output has nothing wired, for sequences and movies alike.
  std::ofstream(dir.path / "plate.tif", std::ios::trunc).close();
  const struct { const char* world; const char* out; const char* says; } empty[] = {
      {"Plan_01", "x_%05d.png", "la Sortie ne donne pas d'image à l'image 1 : plate.tif est illisible (fichier vide)"},
      {"Autre", "film.mov", "la Sortie ne donne pas d'image à l'image 1 : rien n'y est relié ?"}};
  for (const auto& c : empty) {
    const Result r = render({p, "--world", c.world, "--out", q(dir.path / c.out)});
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Média illisible : plate.tif (fichier vide)"), std::string::npos) << r.err;
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path), fs::directory_iterator()), before) << "no file written";
  for (const char* question : {"--help", "-h", "--version"}) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* v : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) env.remove(v);
    process.setProcessEnvironment(env);
    process.start(OMBRIK_BINARY, {question});
    ASSERT_TRUE(process.waitForFinished(30000));
    EXPECT_EQ(process.exitCode(), 0) << question;
    EXPECT_NE(process.readAllStandardOutput().toStdString().find("ombrik"), std::string::npos) << question;
  }
}

TEST(RenderCli, AnInterruptedRenderLeavesNoPartsAndTheNextCleansOld) {
  TempDir dir;
  // A 720p plate straight to the output: frames slow enough on the CPU driver to stop midway.
  writeSource(dir.path / "plate.tif", 0.5f, 0.5f, 0.5f, 1280, 720);
  ProjectFile f;
  f.batches = {chainWorld(f, dir.path / "plate.tif", {})};
  const fs::path project = writeProject(dir.path / "long.tarvom", f);
  const fs::path folder = dir.path / "sortie";
  fs::create_directories(folder);
  std::ofstream(folder / ".old.mov.part-abc123") << "left by a killed render";
  std::ofstream(folder / ".part-old.00003.png") << "";

  QProcess p;
  p.setReadChannel(QProcess::StandardError);  // the progress lines
  p.start(OMBRIK_BINARY, {"render", q(project), "--out", q(folder / "film.mov")});
  std::string err;
  while (err.find("image 2 (") == std::string::npos && p.waitForReadyRead(60000)) err += p.readAllStandardError().toStdString();
  ASSERT_NE(err.find("image 2 ("), std::string::npos) << err;
  EXPECT_FALSE(fs::exists(folder / ".old.mov.part-abc123")) << "the start cleans what a killed render left";
  EXPECT_FALSE(fs::exists(folder / ".part-old.00003.png"));
  ::kill(pid_t(p.processId()), SIGINT);
  ASSERT_TRUE(p.waitForFinished(60000));
  err += p.readAllStandardError().toStdString();
  EXPECT_EQ(p.exitCode(), 1) << err;
  EXPECT_NE(err.find("interrompu"), std::string::npos) << err;
  EXPECT_TRUE(fs::is_empty(folder)) << "no movie and no hidden part of one";
}

TEST(RenderCli, FileNamesFromThePattern) {
  EXPECT_EQ(RenderCommand::fileFor("out_%05d.exr", 7), "out_00007.exr");
  EXPECT_EQ(RenderCommand::fileFor("a/%d.png", 12), "a/12.png");
  EXPECT_EQ(RenderCommand::fileFor("f%04d_%d.tif", 5), "f0005_%d.tif");  // the first field only
  EXPECT_EQ(RenderCommand::fileFor("f%3d_%02d.tif", 5), "f%3d_05.tif");   // printf would pad %3d with blanks
  EXPECT_EQ(RenderCommand::fileFor("still.png", 5), "still.png");
}

TEST(RenderCli, ACodeNodeOfTheUsersLibraryRendersInANewProcess) {
  TempDir dir;
  // The render's own support folder, sharing the compiled kernels so that it starts warm.
  const fs::path support = dir.path / "support";
  fs::create_directories(support);
  if (const char* shared = std::getenv("OMBRIK_SUPPORT"))
    fs::create_directory_symlink(fs::absolute(fs::path(shared) / "ShaderCache"), support / "ShaderCache");
  UserNodeDef gain;
  gain.id = "user.gaincli1";
  gain.name = "Gain maison";
  gain.params = {{"gain", "Gain", 0, 4, 3, {}, {}, {}, {}}};
  gain.code = "o.rgb = s.rgb * gain + vec3(0.1);";
  UserNodes(support / "Nodes").register_(gain, {}, true);  // written by this process, never compiled here

  // The project names the node's kind only: its definition comes from the library alone.
  writeSource(dir.path / "plate.tif", 0.2f, 0.1f, 0.05f);
  Node fx(gain.kind());
  fx.params["gain"] = 2;
  ProjectFile f;
  f.batches = {chainWorld(f, dir.path / "plate.tif", {fx})};
  const fs::path project = writeProject(dir.path / "maison.tarvom", f);
  const fs::path pattern = dir.path / "out_%05d.tif";
  const Result r = render({q(project), "--frames", "1-1", "--out", q(pattern)}, {{"OMBRIK_SUPPORT", support}});
  ASSERT_EQ(r.code, 0) << r.err;
  const auto px = readImage(RenderCommand::fileFor(pattern.string(), 0));
  ASSERT_EQ(px.size(), 8u * 4 * 4);
  const float plate[3] = {0.2f, 0.1f, 0.05f};
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(px[c], plate[c] * 2 + 0.1f, 2.5e-3) << "channel " << c;
}
