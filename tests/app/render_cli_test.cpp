// `ombrik render` run as a render farm would: a real project, the real binary, files on disk.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>
#include <QProcess>
#include <QProcessEnvironment>
#include <cmath>
#include <fstream>
#include <sys/stat.h>
#include <csignal>

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

struct Result {
  int code;
  std::string err;
};

// `support`: another support folder for the render (its library of user nodes).
Result render(const QStringList& args, const fs::path& support = {}) {
  QProcess p;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  if (!support.empty()) env.insert("OMBRIK_SUPPORT", QString::fromStdString(support.string()));
  p.setProcessEnvironment(env);
  p.start(OMBRIK_BINARY, QStringList{"render"} + args);
  EXPECT_TRUE(p.waitForFinished(120000));
  return {p.exitCode(), p.readAllStandardError().toStdString()};
}

// A flat 8x4 picture as a 16-bit TIFF.
void writeSource(const fs::path& path, float r, float g, float b) {
  auto out = OIIO::ImageOutput::create("tiff");
  OIIO::ImageSpec spec(8, 4, 4, OIIO::TypeDesc::UINT16);
  std::vector<float> px;
  for (int i = 0; i < 32; ++i) px.insert(px.end(), {r, g, b, 1.0f});
  ASSERT_TRUE(out->open(path.string(), spec));
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

}  // namespace

// A project whose world "Plan_01" grades a flat plate with an exposure going from -1 at frame 1 to
// +1 at frame 3, beside a world with nothing wired.
fs::path writeColourProject(const fs::path& dir) {
  const fs::path source = dir / "plate.tif";
  writeSource(source, 0.4f, 0.3f, 0.2f);

  ProjectFile f;
  const Uuid mediaID = Uuid::generate();
  f.media = {{mediaID, "plate.tif", source.string()}};
  Batch w;
  w.id = Uuid::generate();
  w.name = "Plan_01";
  Node media(*NodeKind::find("media")), color(*NodeKind::find("color")), out(*NodeKind::find("output"));
  media.mediaID = mediaID;
  Keyframe k0, k2;
  k0.f = 0, k0.v = -1;
  k2.f = 2, k2.v = 1;
  color.anim["exposure"] = {k0, k2};
  w.nodes = {media, color, out};
  w.edges = {{Uuid::generate(), media.id, color.id, 0, 0}, {Uuid::generate(), color.id, out.id, 0, 0}};
  Batch other = w;
  other.id = Uuid::generate();
  other.name = "Autre";
  other.nodes = {out};
  other.edges.clear();
  f.batches = {other, w};
  const fs::path project = dir / "film.tarvom";
  std::ofstream(project) << *ProjectCodec::encode(f);
  return project;
}

TEST(RenderCli, AnimatedColourFollowsItsCurveFrameByFrame) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  const fs::path pattern = dir.path / "rendu" / "out_%05d.tif";
  const Result r = render({QString::fromStdString(project.string()), "--world", "Plan_01", "--frames", "1-3", "--out",
                           QString::fromStdString(pattern.string())});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("image 2 (2/3)"), std::string::npos) << r.err;  // one progress line a frame
  for (int frame = 1; frame <= 3; ++frame) {
    const auto px = readImage(RenderCommand::fileFor(pattern.string(), frame - 1));  // files count from 0
    ASSERT_EQ(px.size(), 8u * 4 * 4) << frame;
    const float exposure = -1.0f + float(frame - 1);  // linear from -1 at frame 1 to +1 at frame 3
    const auto want = test::colourAtDefaults({0.4f, 0.3f, 0.2f}, exposure);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(px[(2 * 8 + 3) * 4 + c], want[c], 2.5e-3) << "frame " << frame << " channel " << c;
    EXPECT_NEAR(px[3], 1.0f, 1e-4);
  }
}

TEST(RenderCli, AClipRendersFrameByFrame) {
  TempDir dir;
  const fs::path clip = test::writeClip(dir.path / "rush.mov", "-c:v libx264 -g 8 -bf 2 -pix_fmt yuv420p");
  ASSERT_FALSE(clip.empty());
  ProjectFile f;
  const Uuid mediaID = Uuid::generate();
  f.media = {{mediaID, "rush.mov", clip.string()}};
  Batch w;
  w.id = Uuid::generate();
  w.name = "Plan_01";
  Node media(*NodeKind::find("media")), out(*NodeKind::find("output"));
  media.mediaID = mediaID;
  w.nodes = {media, out};
  w.edges = {{Uuid::generate(), media.id, out.id, 0, 0}};
  f.batches = {w};
  const fs::path project = dir.path / "rush.tarvom";
  std::ofstream(project) << *ProjectCodec::encode(f);

  // Frames 1.. of the command are the clip's frames 0..; a range in the middle, then a jump back.
  const fs::path pattern = dir.path / "out_%03d.png";
  for (const char* range : {"12-17", "2-3"}) {
    const Result r = render({QString::fromStdString(project.string()), "--frames", range, "--out",
                             QString::fromStdString(pattern.string())});
    ASSERT_EQ(r.code, 0) << r.err;
  }
  for (int frame : {2, 3, 12, 13, 14, 15, 16, 17}) {
    const auto px = readImage(RenderCommand::fileFor(pattern.string(), frame - 1));  // files count from 0
    ASSERT_EQ(px.size(), std::size_t(test::kClipW) * test::kClipH * 4) << frame;
    double sum = 0;
    for (std::size_t i = 1; i < px.size(); i += 4) sum += px[i];
    EXPECT_EQ(test::frameOfGrey(sum / double(px.size() / 4) * 255.0), frame - 1) << "image " << frame;
  }
}

TEST(RenderCli, MoviesCarryEveryFrameOfTheRange) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  struct Case {
    const char* file;
    QStringList extra;
    const char* codec;
  };
  const Case cases[] = {{"film.mov", {}, "prores"}, {"film.mp4", {}, "h264"}, {"hq.mov", {"--codec", "prores422hq"}, "prores"}};
  for (const Case& c : cases) {
    const fs::path movie = dir.path / c.file;
    const Result r = render(QStringList{QString::fromStdString(project.string()), "--world", "Plan_01", "--frames", "1-3",
                                        "--out", QString::fromStdString(movie.string())} + c.extra);
    ASSERT_EQ(r.code, 0) << r.err;
    auto reader = FrameReader::open(movie);
    ASSERT_TRUE(reader) << c.file;
    EXPECT_EQ(reader->info().frames, 3) << c.file;
    // Each frame brighter than the last, as the exposure curve rises.
    double last = -1;
    for (int f = 0; f < 3; ++f) {
      const auto picture = reader->read(f);
      ASSERT_TRUE(picture) << c.file << " frame " << f;
      const double red = halfToFloat((*picture->rgba)[(2 * picture->width + 3) * 4]);
      const float want = test::colourAtDefaults({0.4f, 0.3f, 0.2f}, -1.0f + float(f))[0];
      EXPECT_NEAR(red, want, 0.02) << c.file << " frame " << f;
      EXPECT_GT(red, last);
      last = red;
    }
  }
  const Result bad = render({QString::fromStdString(project.string()), "--codec", "h264", "--out",
                             QString::fromStdString((dir.path / "x_%d.png").string())});
  EXPECT_NE(bad.code, 0);
  EXPECT_NE(bad.err.find("--codec ne vaut que pour un film"), std::string::npos) << bad.err;
}

TEST(RenderCli, ClearMessagesAndNoFilesOnBadRequests) {
  TempDir dir;
  const std::string out = (dir.path / "x_%03d.png").string();
  Result r = render({(dir.path / "absent.tarvom").c_str(), "--out", QString::fromStdString(out)});
  EXPECT_NE(r.code, 0);
  EXPECT_NE(r.err.find("Projet illisible : absent.tarvom"), std::string::npos) << r.err;
  r = render({"p.tarvom", "--frames", "5-2", "--out", QString::fromStdString(out)});
  EXPECT_NE(r.code, 0);
  EXPECT_NE(r.err.find("--frames"), std::string::npos) << r.err;
  r = render({"p.tarvom", "--frames", "1-4", "--out", QString::fromStdString((dir.path / "fixe.png").string())});
  EXPECT_NE(r.code, 0);
  EXPECT_NE(r.err.find("%d"), std::string::npos) << r.err;
  r = render({"p.tarvom", "--out", QString::fromStdString((dir.path / "x.jpg2").string())});
  EXPECT_NE(r.err.find("format de sortie inconnu"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::is_empty(dir.path));
}

// An output that gives no picture says why, for sequences and movies alike: the media it can't
// read, not the wiring, unless nothing is wired.
TEST(RenderCli, AnOutputWithoutPictureSaysWhy) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  std::ofstream(dir.path / "plate.tif", std::ios::trunc).close();
  const std::string unreadable = "la Sortie ne donne pas d'image à l'image 1 : plate.tif est illisible (fichier vide)";
  struct Case {
    const char* world;
    const char* out;
    std::string says;
  };
  const Case cases[] = {{"Plan_01", "x_%05d.png", unreadable},
                        {"Plan_01", "film.mov", unreadable},
                        {"Autre", "film.mov", "la Sortie ne donne pas d'image à l'image 1 : rien n'y est relié ?"}};
  for (const Case& c : cases) {
    const Result r = render({QString::fromStdString(project.string()), "--world", c.world, "--out",
                             QString::fromStdString((dir.path / c.out).string())});
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Média illisible : plate.tif (fichier vide)"), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fs::exists(dir.path / "x_00000.png"));
  EXPECT_FALSE(fs::exists(dir.path / "film.mov"));
}

TEST(RenderCli, QuestionsAndHalfReadArgumentsNeedNoWindow) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  const QString p = QString::fromStdString(project.string());
  const QString png = QString::fromStdString((dir.path / "x_%05d.png").string());
  // Projects that aren't files a reader can finish: a pipe nobody writes to, an endless device, and a
  // file missing a required field, whose reason is kept.
  const fs::path pipe = dir.path / "tube.tarvom";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  std::ofstream(dir.path / "bad.tarvom") << R"({"version": 1})";
  struct Case {
    QStringList args;
    int code;
    const char* says;
  };
  const Case cases[] = {
      {{"--help"}, 0, "usage : ombrik render"},
      {{p, "--frames", "2147483647-2147483647", "--out", png}, 1, "au-delà de la dernière image du monde (100)"},
      {{p, "--frames", "1-101", "--out", png}, 1, "au-delà de la dernière image"},
      {{p, "--scale", "0.5abc", "--out", png}, 1, "--scale attend un nombre"},
      {{p, "--out", QString::fromStdString((dir.path / "a_%d_%d.png").string())}, 1, "un seul %d"},
      {{QString::fromStdString(pipe.string()), "--out", png}, 1, "tube.tarvom (ce n'est pas un fichier ordinaire)"},
      {{"/dev/zero", "--out", png}, 1, "zero (ce n'est pas un fichier ordinaire)"},
      {{QString::fromStdString((dir.path / "bad.tarvom").string()), "--out", png}, 1, "bad.tarvom (champ manquant : media)"},
  };
  for (const Case& c : cases) {
    const Result r = render(c.args);
    EXPECT_EQ(r.code, c.code) << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fs::exists(dir.path / "x_00000.png"));
  // The program's own questions, with no display to open a window on.
  for (const char* question : {"--help", "-h", "--version"}) {
    QProcess q;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("DISPLAY");
    env.remove("WAYLAND_DISPLAY");
    env.remove("QT_QPA_PLATFORM");
    q.setProcessEnvironment(env);
    q.start(OMBRIK_BINARY, {question});
    ASSERT_TRUE(q.waitForFinished(30000));
    EXPECT_EQ(q.exitCode(), 0) << question;
    EXPECT_NE(q.readAllStandardOutput().toStdString().find("ombrik"), std::string::npos) << question;
  }
}

TEST(RenderCli, AHeadlessRenderChangesNothingButItsOutput) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  const fs::path home = dir.path / "home";
  for (const char* sub : {"config", "data", "support"}) fs::create_directories(home / sub);
  QProcess p;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("XDG_CONFIG_HOME", QString::fromStdString((home / "config").string()));
  env.insert("OMBRIK_DATA", QString::fromStdString((home / "data").string()));
  env.insert("OMBRIK_SUPPORT", QString::fromStdString((home / "support").string()));
  p.setProcessEnvironment(env);
  p.start(OMBRIK_BINARY, {"render", QString::fromStdString(project.string()), "--world", "Plan_01", "--out",
                          QString::fromStdString((dir.path / "out_%05d.png").string())});
  ASSERT_TRUE(p.waitForFinished(120000));
  ASSERT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
  EXPECT_TRUE(fs::exists(dir.path / "out_00000.png"));
  // The user's settings and data are as they were; the kernel cache may be filled, it is ours.
  EXPECT_TRUE(fs::is_empty(home / "config")) << "settings written by a headless render";
  EXPECT_TRUE(fs::is_empty(home / "data")) << "data folders made by a headless render";
}

TEST(RenderCli, AnInterruptedRenderLeavesNoPartsAndTheNextCleansOld) {
  TempDir dir;
  // A 720p plate straight to the output: frames slow enough on the CPU driver to stop midway.
  const fs::path plate = dir.path / "plate.tif";
  {
    auto out = OIIO::ImageOutput::create("tiff");
    OIIO::ImageSpec spec(1280, 720, 4, OIIO::TypeDesc::UINT16);
    std::vector<float> px(std::size_t(1280) * 720 * 4, 0.5f);
    ASSERT_TRUE(out->open(plate.string(), spec));
    out->write_image(OIIO::TypeDesc::FLOAT, px.data());
    out->close();
  }
  ProjectFile f;
  const Uuid mediaID = Uuid::generate();
  f.media = {{mediaID, "plate.tif", plate.string()}};
  Batch w;
  w.id = Uuid::generate();
  w.name = "Plan";
  Node media(*NodeKind::find("media")), out(*NodeKind::find("output"));
  media.mediaID = mediaID;
  w.nodes = {media, out};
  w.edges = {{Uuid::generate(), media.id, out.id, 0, 0}};
  f.batches = {w};
  const fs::path project = dir.path / "long.tarvom";
  std::ofstream(project) << *ProjectCodec::encode(f);
  const fs::path folder = dir.path / "sortie";
  fs::create_directories(folder);
  std::ofstream(folder / ".old.mov.part-abc123") << "left by a killed render";
  std::ofstream(folder / ".part-old.00003.png") << "";

  QProcess p;
  p.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
  p.setReadChannel(QProcess::StandardError);  // the progress lines
  p.start(OMBRIK_BINARY, {"render", QString::fromStdString(project.string()), "--out",
                          QString::fromStdString((folder / "film.mov").string())});
  std::string err;
  while (err.find("image 2 (") == std::string::npos && p.waitForReadyRead(60000))
    err += p.readAllStandardError().toStdString();
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
  ProjectFile f;
  const Uuid mediaID = Uuid::generate();
  f.media = {{mediaID, "plate.tif", (dir.path / "plate.tif").string()}};
  Batch w;
  w.id = Uuid::generate();
  w.name = "Plan_01";
  Node media(*NodeKind::find("media")), fx(gain.kind()), out(*NodeKind::find("output"));
  media.mediaID = mediaID;
  fx.params["gain"] = 2;
  w.nodes = {media, fx, out};
  w.edges = {{Uuid::generate(), media.id, fx.id, 0, 0}, {Uuid::generate(), fx.id, out.id, 0, 0}};
  f.batches = {w};
  const fs::path project = dir.path / "maison.tarvom";
  std::ofstream(project) << *ProjectCodec::encode(f);

  const fs::path pattern = dir.path / "out_%05d.tif";
  const Result r = render({QString::fromStdString(project.string()), "--frames", "1-1", "--out",
                           QString::fromStdString(pattern.string())},
                          support);
  ASSERT_EQ(r.code, 0) << r.err;
  const auto px = readImage(RenderCommand::fileFor(pattern.string(), 0));
  ASSERT_EQ(px.size(), 8u * 4 * 4);
  const float plate[3] = {0.2f, 0.1f, 0.05f};
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(px[c], plate[c] * 2 + 0.1f, 2.5e-3) << "channel " << c;
}

TEST(RenderCli, ATimelineRendersItsLayersAtTheirOwnFrames) {
  TempDir dir;
  const fs::path project = writeColourProject(dir.path);
  std::ifstream in(project);
  auto f = ProjectCodec::decode(std::string(std::istreambuf_iterator<char>(in), {}));
  ASSERT_TRUE(f);
  // Plan_01 from its frame 1 on: timeline frames 0 and 1 show the exposure at 0, then +1.
  Timeline cut{Uuid::generate(), "Montage", 25, 8, 4, {}, std::nullopt, std::nullopt, std::nullopt};
  cut.layers.push_back({Uuid::generate(), "P", LayerSource::batch(f->batches[1].id), 0, 1, 2, true, 1, 0});
  f->timelines = {cut};
  std::ofstream(project) << *ProjectCodec::encode(*f);

  const fs::path pattern = dir.path / "tl_%d.png", movie = dir.path / "tl.mov";
  ASSERT_EQ(render({QString::fromStdString(project.string()), "--timeline", "Montage", "--out",
                    QString::fromStdString(pattern.string()), "--frames", "1-2"}).code, 0);
  for (int frame : {1, 2}) {
    const auto px = readImage(RenderCommand::fileFor(pattern.string(), frame - 1));
    ASSERT_EQ(px.size(), 8u * 4 * 4) << frame;
    const float want = test::colourAtDefaults({0.4f, 0.3f, 0.2f}, float(frame - 1))[0];
    EXPECT_NEAR(px[(2 * 8 + 3) * 4], want, 0.01) << "image " << frame;
  }
  const Result whole = render({QString::fromStdString(project.string()), "--timeline", "Montage", "--out",
                               QString::fromStdString(movie.string())});
  ASSERT_EQ(whole.code, 0) << whole.err;
  EXPECT_EQ(FrameReader::open(movie)->info().frames, 2);
  for (const QStringList& bad : {QStringList{"--timeline", "Nulle"}, QStringList{"--timeline", "Montage", "--frames", "1-3"},
                                 QStringList{"--timeline", "Montage", "--world", "Plan_01"}}) {
    const Result r = render(QStringList{QString::fromStdString(project.string()), "--out",
                                        QString::fromStdString((dir.path / "no.mov").string())} + bad);
    EXPECT_NE(r.code, 0) << bad.join(" ").toStdString();
    EXPECT_FALSE(fs::exists(dir.path / "no.mov"));
  }
}
