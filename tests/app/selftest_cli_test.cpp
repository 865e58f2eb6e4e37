// Runs the real `ombrik --selftest` in a clean environment and reads what it prints.
#include <gtest/gtest.h>

#include <QProcess>
#include <QProcessEnvironment>
#include <filesystem>
#include <fstream>

#include "../platform/temp_dir.h"

namespace fs = std::filesystem;

namespace {

struct CliRun { int exitCode = -1; std::string out; };

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

std::string settings(const TempDir& sandbox) {
  std::ifstream in(sandbox.path / "config" / "Tarvane" / "Ombrik.conf");
  return {std::istreambuf_iterator<char>(in), {}};
}

bool has(const std::string& out, const std::string& line) { return out.find(line) != std::string::npos; }
// Every line is in the report, and the report ends with `last`.
void expectReport(const CliRun& r, const std::vector<std::string>& lines, const std::string& last) {
  for (const std::string& line : lines) EXPECT_TRUE(has(r.out, line)) << "missing: " << line << "\n" << r.out;
  EXPECT_TRUE(r.out.size() >= last.size() && r.out.compare(r.out.size() - last.size(), last.size(), last) == 0) << r.out;
}

}  // namespace

TEST(SelfTestCli, DevelopmentTreeSpeaksFrenchAndFindsTheWorker) {
  TempDir sandbox;
  const CliRun r = selftest(OMBRIK_BINARY, sandbox);
  EXPECT_EQ(r.exitCode, 0) << r.out;
  EXPECT_TRUE(r.out.rfind("Ombrik 0.1.0", 0) == 0) << r.out;
  const fs::path support = sandbox.path / "support";
  expectReport(r,
               {" · app distribuée : false\n", "\n  données    : " + (sandbox.path / "data").string() + "\n",
                "\n  support    : " + support.string() + "\n",
                // The support folder given takes the models and the logs: nothing is written in the tree.
                "\n  modèles    : " + (support / "Models").string() + "\n", "\n  journaux   : " + (support / "Logs").string() + "\n",
                "\n  langue     : fr · « Masque de forme » → « Masque de forme »\n",
                "\n  GPU        : llvmpipe",  // tests run on the CPU driver
                "\nOK    GPU et noyaux de calcul\n",
                // The tree's worker scripts, on the system's python3 with Debian's OpenCV (no engine pack).
                "\nOK    scripts IA (om_track, om_klt)\n", "\nINFO  Packs IA non installés (normal pour une app neuve)\n",
                "\n  python     : /usr/bin/python3\n", "\n  cv2 4.", "\nOK    Python avec OpenCV et numpy\n",
                // The neural models setup installed beside the tree's worker.
                "/Tracker/models/selfie.onnx\n", "\n  modèle     : ",
                "\nINFO  Aucun tracker neuronal installé : le moteur Précis suit par flux optique dense"},
               "\nInstallation correcte.\n");
  // The language was applied before anything else ran.
  EXPECT_TRUE(has(settings(sandbox), "AppleLanguages=fr")) << settings(sandbox);
}

// An installed layout: <prefix>/bin/ombrik beside <prefix>/share/ombrik/Tracker with the worker's
// scripts. Whole, with French chosen in the settings over the installed default; then with a script
// broken and no choice made: English throughout.
TEST(SelfTestCli, InstalledProgramChecksItsOwnScriptsInTheChosenLanguage) {
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
    if (broken) {
      std::ofstream(tracker / "om_klt.py") << "def broken(:\n";
    } else {
      fs::create_directories(sandbox.path / "config" / "Tarvane");
      std::ofstream(sandbox.path / "config" / "Tarvane" / "Ombrik.conf") << "[General]\nombrikLanguage=fr\n";
    }

    const CliRun r = selftest(prefix / "bin" / "ombrik", sandbox, "OMBRIK_SUPPORT");
    EXPECT_EQ(r.exitCode != 0, broken) << r.out;
    const std::string resources = (prefix / "share" / "ombrik").string(), support = (sandbox.path / "xdg-data" / "Ombrik").string();
    if (!broken) {
      expectReport(r,
                   {" · app distribuée : true\n", "\n  ressources : " + resources + "\n", "\n  support    : " + support + "\n",
                    "\n  langue     : fr · « Masque de forme » → « Masque de forme »\n", "\nOK    GPU et noyaux de calcul\n",
                    "\nOK    scripts IA (om_track, om_klt)\n", "\nOK    Python avec OpenCV et numpy\n"},
                   "\nInstallation correcte.\n");
      EXPECT_TRUE(has(settings(sandbox), "AppleLanguages=fr")) << settings(sandbox);
      continue;
    }
    expectReport(r,
                 {" · installed app: true\n", "\n  resources  : " + resources + "\n", "\n  support    : " + support + "\n",
                  "\n  language   : en · « Masque de forme » → « Shape Mask »\n", "\nOK    GPU and compute kernels\n",
                  "\nOK    AI scripts (om_track, om_klt)\n", "\nINFO  AI packs not installed (normal for a new app)\n",
                  "\nINFO  No neural tracker installed: the Precise engine tracks by dense optical flow",
                  "\nFAIL  Python with OpenCV and numpy\n", "SyntaxError"},
                 "\nInstallation incomplete.\n");
    EXPECT_FALSE(has(r.out, "ÉCHEC")) << "French left in the English report\n" << r.out;
    EXPECT_FALSE(has(r.out, "Aucun")) << "French left in the English report\n" << r.out;
    EXPECT_TRUE(has(settings(sandbox), "AppleLanguages=en")) << settings(sandbox);
  }
}
