// Runs the real `ombrik --selftest` in a clean environment and reads what it prints.
#include <gtest/gtest.h>

#include <QProcess>
#include <QProcessEnvironment>
#include <filesystem>
#include <fstream>

#include "../platform/temp_dir.h"

namespace fs = std::filesystem;

namespace {

std::string readAll(const fs::path& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

// `--selftest` of `binary` with its folders under `sandbox` (the support folder only when `support`);
// its exit code and report.
std::pair<int, std::string> selftest(const fs::path& binary, const fs::path& sandbox, bool support) {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  const std::pair<const char*, const char*> folders[] = {
      {"HOME", "home"}, {"XDG_CONFIG_HOME", "config"}, {"XDG_DATA_HOME", "xdg-data"}, {"OMBRIK_DATA", "data"}, {"OMBRIK_SUPPORT", "support"}};
  for (const auto& [var, sub] : folders) env.insert(var, QString::fromStdString((sandbox / sub).string()));
  env.remove("OMBRIK_BLANK_START");
  if (!support) env.remove("OMBRIK_SUPPORT");
  QProcess proc;
  proc.setProcessEnvironment(env);
  proc.start(QString::fromStdString(binary.string()), {"--selftest"});
  EXPECT_TRUE(proc.waitForFinished(30000));
  return {proc.exitCode(), proc.readAllStandardOutput().toStdString()};
}

// An installed layout: <prefix>/bin/ombrik beside <prefix>/share/ombrik/Tracker with the tree's worker scripts.
fs::path install(const fs::path& prefix) {
  const fs::path source = fs::path(__FILE__).parent_path().parent_path().parent_path() / "Tracker";
  const fs::path tracker = prefix / "share" / "ombrik" / "Tracker";
  fs::create_directories(prefix / "bin");
  fs::create_directories(tracker);
  fs::copy_file(OMBRIK_BINARY, prefix / "bin" / "ombrik");
  for (const auto& e : fs::directory_iterator(source))
    if (e.path().extension() == ".py") fs::copy_file(e.path(), tracker / e.path().filename());
  return prefix / "bin" / "ombrik";
}

}  // namespace

// The development tree, which speaks French and finds the tree's worker, the system's python3 with
// Debian's OpenCV and the models setup installed; an installed program whole, with French chosen in
// the settings over the installed default; the same with a script broken and no choice made: English
// throughout. The language is applied, and kept in the settings, before anything else runs.
TEST(SelfTestCli, ReportsTheLayoutItsChecksAndTheChosenLanguage) {
  TempDir root;
  const fs::path dev = root.path / "dev", fr = root.path / "fr", en = root.path / "en";
  fs::create_directories(fr / "config" / "Tarvane");
  std::ofstream(fr / "config" / "Tarvane" / "Ombrik.conf") << "[General]\nombrikLanguage=fr\n";
  const fs::path frBinary = install(fr / "prefix"), enBinary = install(en / "prefix");
  std::ofstream(en / "prefix" / "share" / "ombrik" / "Tracker" / "om_klt.py") << "def broken(:\n";
  const std::string installedFr = (fr / "prefix" / "share" / "ombrik").string(), installedEn = (en / "prefix" / "share" / "ombrik").string();
  const struct {
    fs::path sandbox, binary;
    bool fails;
    std::vector<std::string> lines, absent;
    std::string last, language;
  } cases[] = {
      {dev, OMBRIK_BINARY, false,
       {" · app distribuée : false\n", "\n  données    : " + (dev / "data").string() + "\n",
        // The support folder given takes the models and the logs: nothing is written in the tree.
        "\n  support    : " + (dev / "support").string() + "\n", "\n  modèles    : " + (dev / "support" / "Models").string() + "\n",
        "\n  journaux   : " + (dev / "support" / "Logs").string() + "\n",
        "\n  langue     : fr · « Masque de forme » → « Masque de forme »\n", "\n  GPU        : llvmpipe",
        "\nOK    GPU et noyaux de calcul\n", "\nOK    scripts IA (om_track, om_klt)\n",
        "\nINFO  Packs IA non installés (normal pour une app neuve)\n", "\n  python     : /usr/bin/python3\n", "\n  cv2 4.",
        "\nOK    Python avec OpenCV et numpy\n", "/Tracker/models/selfie.onnx\n",
        "\nINFO  Aucun tracker neuronal installé : le moteur Précis suit par flux optique dense"},
       {}, "\nInstallation correcte.\n", "fr"},
      {fr, frBinary, false,
       {" · app distribuée : true\n", "\n  ressources : " + installedFr + "\n",
        "\n  support    : " + (fr / "xdg-data" / "Ombrik").string() + "\n", "\n  langue     : fr · « Masque de forme » → « Masque de forme »\n",
        "\nOK    scripts IA (om_track, om_klt)\n", "\nOK    Python avec OpenCV et numpy\n"},
       {}, "\nInstallation correcte.\n", "fr"},
      {en, enBinary, true,
       {" · installed app: true\n", "\n  resources  : " + installedEn + "\n", "\n  language   : en · « Masque de forme » → « Shape Mask »\n",
        "\nFAIL  Python with OpenCV and numpy\n", "SyntaxError"},
       {"ÉCHEC", "Aucun"}, "\nInstallation incomplete.\n", "en"},
  };
  for (const auto& c : cases) {
    const auto [code, out] = selftest(c.binary, c.sandbox, c.sandbox == dev);
    SCOPED_TRACE(c.sandbox.filename().string() + "\n" + out);
    EXPECT_EQ(code != 0, c.fails);
    for (const std::string& line : c.lines) EXPECT_NE(out.find(line), std::string::npos) << "missing: " << line;
    EXPECT_TRUE(out.ends_with(c.last));
    EXPECT_TRUE(out.starts_with("Ombrik 0.1.0"));
    for (const std::string& french : c.absent) EXPECT_EQ(out.find(french), std::string::npos) << "French left: " << french;
    const std::string settings = readAll(c.sandbox / "config" / "Tarvane" / "Ombrik.conf");
    EXPECT_NE(settings.find("AppleLanguages=" + c.language), std::string::npos) << settings;
  }
}
