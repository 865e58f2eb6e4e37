// Runs the real `ombrik --selftest` in a clean environment and reads what it prints.
#include <gtest/gtest.h>

#include <QProcess>
#include <QProcessEnvironment>
#include <filesystem>
#include <fstream>

#include "../platform/temp_dir.h"

namespace fs = std::filesystem;

namespace {

struct CliRun {
  int exitCode = -1;
  std::string out;
};

CliRun selftest(const fs::path& binary, const TempDir& sandbox, const std::string& extraEnv = {}) {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("HOME", QString::fromStdString((sandbox.path / "home").string()));
  env.insert("XDG_CONFIG_HOME", QString::fromStdString((sandbox.path / "config").string()));
  env.insert("XDG_DATA_HOME", QString::fromStdString((sandbox.path / "xdg-data").string()));
  env.insert("OMBRIK_DATA", QString::fromStdString((sandbox.path / "data").string()));
  env.insert("OMBRIK_SUPPORT", QString::fromStdString((sandbox.path / "support").string()));
  env.remove("OMBRIK_BLANK_START");
  if (!extraEnv.empty()) env.remove(QString::fromStdString(extraEnv));
  QProcess proc;
  proc.setProcessEnvironment(env);
  proc.start(QString::fromStdString(binary.string()), {"--selftest"});
  EXPECT_TRUE(proc.waitForFinished(30000));
  return {proc.exitCode(), proc.readAllStandardOutput().toStdString()};
}

void writeSettings(const TempDir& sandbox, const std::string& text) {
  fs::create_directories(sandbox.path / "config" / "Tarvane");
  std::ofstream(sandbox.path / "config" / "Tarvane" / "Ombrik.conf") << text;
}

std::string settings(const TempDir& sandbox) {
  std::ifstream in(sandbox.path / "config" / "Tarvane" / "Ombrik.conf");
  return {std::istreambuf_iterator<char>(in), {}};
}

bool has(const std::string& out, const std::string& line) { return out.find(line) != std::string::npos; }
bool endsWith(const std::string& out, const std::string& tail) {
  return out.size() >= tail.size() && out.compare(out.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

TEST(SelfTestCli, DevelopmentTreeSpeaksFrenchAndFindsTheWorker) {
  TempDir sandbox;
  const CliRun r = selftest(OMBRIK_BINARY, sandbox);
  EXPECT_EQ(r.exitCode, 0) << r.out;
  EXPECT_TRUE(r.out.rfind("Ombrik 0.1.0", 0) == 0) << r.out;
  EXPECT_TRUE(has(r.out, " · app distribuée : false\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  données    : " + (sandbox.path / "data").string() + "\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  support    : " + (sandbox.path / "support").string() + "\n")) << r.out;
  // The support folder given takes the models and the logs: nothing is written in the tree.
  EXPECT_TRUE(has(r.out, "\n  modèles    : " + (sandbox.path / "support" / "Models").string() + "\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  journaux   : " + (sandbox.path / "support" / "Logs").string() + "\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  langue     : fr · « Masque de forme » → « Masque de forme »\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  GPU        : llvmpipe")) << r.out;  // tests run on the CPU driver
  EXPECT_TRUE(has(r.out, "\nOK    GPU et noyaux de calcul\n")) << r.out;
  // The tree's worker scripts, on the system's python3 with Debian's OpenCV (no engine pack).
  EXPECT_TRUE(has(r.out, "\nOK    scripts IA (om_track, om_klt)\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\nINFO  Packs IA non installés (normal pour une app neuve)\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  python     : /usr/bin/python3\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  cv2 4.")) << r.out;
  EXPECT_TRUE(has(r.out, "\nOK    Python avec OpenCV et numpy\n")) << r.out;
  // The neural models setup installed beside the tree's worker.
  EXPECT_TRUE(has(r.out, "/Tracker/models/selfie.onnx\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  modèle     : ")) << r.out;
  EXPECT_TRUE(has(r.out, "\nINFO  Aucun tracker neuronal installé : le moteur Précis suit par flux optique dense")) << r.out;
  EXPECT_TRUE(endsWith(r.out, "\nInstallation correcte.\n")) << r.out;
  // The language was applied before anything else ran.
  EXPECT_TRUE(has(settings(sandbox), "AppleLanguages=fr")) << settings(sandbox);
}

TEST(SelfTestCli, ChosenEnglishIsUsedThroughout) {
  TempDir sandbox;
  writeSettings(sandbox, "[General]\nombrikLanguage=en\n");
  const CliRun r = selftest(OMBRIK_BINARY, sandbox);
  EXPECT_EQ(r.exitCode, 0) << r.out;
  EXPECT_TRUE(has(r.out, " · installed app: false\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\n  language   : en · « Masque de forme » → « Shape Mask »\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\nOK    AI scripts (om_track, om_klt)\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\nINFO  AI packs not installed (normal for a new app)\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\nOK    Python with OpenCV and numpy\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\nINFO  No neural tracker installed: the Precise engine tracks by dense optical flow")) << r.out;
  EXPECT_TRUE(has(r.out, "\nInstallation complete.\n")) << r.out;
  EXPECT_FALSE(has(r.out, "ÉCHEC")) << r.out;
  EXPECT_FALSE(has(r.out, "Aucun")) << r.out;
  EXPECT_TRUE(has(settings(sandbox), "AppleLanguages=en")) << settings(sandbox);
}

TEST(SelfTestCli, InstalledProgramChecksItsOwnScripts) {
  // An installed layout: <prefix>/bin/ombrik beside <prefix>/share/ombrik/Tracker with the worker's
  // scripts, whole or with one of them broken.
  const fs::path source = fs::path(__FILE__).parent_path().parent_path().parent_path() / "Tracker";
  for (const bool broken : {false, true}) {
    TempDir sandbox;
    const fs::path prefix = sandbox.path / "prefix";
    fs::create_directories(prefix / "bin");
    fs::copy_file(OMBRIK_BINARY, prefix / "bin" / "ombrik");
    const fs::path tracker = prefix / "share" / "ombrik" / "Tracker";
    fs::create_directories(tracker);
    for (const auto& e : fs::directory_iterator(source))
      if (e.path().extension() == ".py") fs::copy_file(e.path(), tracker / e.path().filename());
    if (broken) std::ofstream(tracker / "om_klt.py") << "def broken(:\n";

    const CliRun r = selftest(prefix / "bin" / "ombrik", sandbox, "OMBRIK_SUPPORT");
    EXPECT_TRUE(has(r.out, " · installed app: true\n")) << r.out;  // installed and no choice: English
    EXPECT_TRUE(has(r.out, "\n  resources  : " + (prefix / "share" / "ombrik").string() + "\n")) << r.out;
    EXPECT_TRUE(has(r.out, "\n  support    : " + (sandbox.path / "xdg-data" / "Ombrik").string() + "\n")) << r.out;
    EXPECT_TRUE(has(r.out, "\nOK    GPU and compute kernels\n")) << r.out;
    EXPECT_TRUE(has(r.out, "\nOK    AI scripts (om_track, om_klt)\n")) << r.out;
    if (broken) {
      EXPECT_NE(r.exitCode, 0) << r.out;
      EXPECT_TRUE(has(r.out, "SyntaxError")) << r.out;
      EXPECT_TRUE(has(r.out, "\nFAIL  Python with OpenCV and numpy\n")) << r.out;
      EXPECT_TRUE(endsWith(r.out, "\nInstallation incomplete.\n")) << r.out;
    } else {
      EXPECT_EQ(r.exitCode, 0) << r.out;
      EXPECT_TRUE(has(r.out, "\nOK    Python with OpenCV and numpy\n")) << r.out;
      EXPECT_TRUE(endsWith(r.out, "\nInstallation complete.\n")) << r.out;
    }
  }
}
