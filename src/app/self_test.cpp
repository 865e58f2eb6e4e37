#include "app/self_test.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "engine/engine.h"
#include "platform/app_paths.h"
#include "platform/string_catalogue.h"
#include "platform/version.h"
#include "tracking/tap_server.h"

namespace ombrik {

namespace {

std::string processorBrand() {
  std::ifstream cpuinfo("/proc/cpuinfo");
  std::string line;
  while (std::getline(cpuinfo, line))
    if (line.rfind("model name", 0) == 0)
      if (auto colon = line.find(':'); colon != std::string::npos) return line.substr(line.find_first_not_of(' ', colon + 1));
  return {};
}

// The worker's scripts: the server and the fast tracker.
constexpr const char* kWorkerScripts[] = {"om_track.py", "om_klt.py"};

// What the worker imports: OpenCV and numpy, then its own modules.
constexpr const char* kImportProbe =
    "import cv2, numpy\n"
    "import om_track, om_klt, om_flow\n"
    "print('  cv2 ' + cv2.__version__ + ', numpy ' + numpy.__version__, flush=True)\n"
    "import om_models\n"
    "for name in (om_models.SELFIE, om_models.FACES):\n"
    "    try:\n"
    "        print('MODEL', name, om_models.path(name), flush=True)\n"
    "    except Exception:\n"
    "        print('MODEL', name, '-', flush=True)\n";

}  // namespace

int SelfTest::run(std::ostream& out) {
  const AppPaths& paths = AppPaths::shared();
  const AppLanguage lang = interfaceLanguage();
  int failures = 0;
  auto line = [&](const std::string& text) { out << text << std::endl; };  // flushed per line
  auto check = [&](bool ok, const std::string& label) {
    line((ok ? tr("OK    ") : tr("ÉCHEC ")) + tr(label));
    if (!ok) ++failures;
  };

  std::string header = std::string("Ombrik ") + ombrikVersion();
  if (const auto cpu = processorBrand(); !cpu.empty()) header += " (" + cpu + ")";
  line(header + tr(" · app distribuée : ") + (paths.isBundled ? "true" : "false"));
  line(tr("  ressources : ") + paths.resources.string());
  line(tr("  données    : ") + paths.data.string());
  line(tr("  support    : ") + paths.support.string());
  line(tr("  modèles    : ") + paths.models.string());
  line(tr("  journaux   : ") + paths.logs.string());
  line(tr("  langue     : ") + lang.code() + " · « Masque de forme » → « " + tr("Masque de forme") + " »");

  // The GPU (or the CPU driver) and every kernel compiled, as an evaluation would need them.
  std::string gpuError;
  auto engine = Engine::create(&gpuError);
  line(tr("  GPU        : ") + (engine ? engine->deviceDescription() : gpuError));
  check(engine != nullptr, "GPU et noyaux de calcul");
  engine.reset();

  bool scriptsThere = true;
  for (const char* name : kWorkerScripts) scriptsThere = scriptsThere && std::filesystem::exists(paths.script(name));
  check(scriptsThere, "scripts IA (om_track, om_klt)");

  // Without an engine pack the worker runs on the system's python3 with Debian's OpenCV.
  if (!std::filesystem::exists(paths.python / "bin" / "python3"))
    line(tr("INFO  Packs IA non installés (normal pour une app neuve)"));
  const auto python = workerPython(paths);
  if (!python) {
    check(false, "python3 introuvable");
  } else {
    line(tr("  python     : ") + python->string());
    QProcess proc;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const auto& [k, v] : paths.pythonEnvironment(lang)) env.insert(QString::fromStdString(k), QString::fromStdString(v));
    env.insert("PYTHONPATH", QString::fromStdString(paths.scripts.string()));
    proc.setProcessEnvironment(env);
    proc.setProcessChannelMode(QProcess::MergedChannels);
    proc.setWorkingDirectory(QString::fromStdString(paths.scripts.string()));
    proc.start(QString::fromStdString(python->string()), {"-c", kImportProbe});
    if (!proc.waitForStarted()) {
      line(tr("ÉCHEC ") + tr("lancement de Python"));
      ++failures;
    } else {
      proc.waitForFinished(120000);
      // The neural models, each found or missing: the AI tools that need a missing one say so.
      for (const QString& l : QString::fromUtf8(proc.readAll()).split('\n', Qt::SkipEmptyParts)) {
        if (!l.startsWith("MODEL ")) {
          line(l.toStdString());
          continue;
        }
        const QString name = l.section(' ', 1, 1), where = l.section(' ', 2);
        line(where == "-" ? tr("INFO  modèle absent (scripts/setup l'installe) : ") + name.toStdString()
                          : tr("  modèle     : ") + where.toStdString());
      }
      check(proc.exitStatus() == QProcess::NormalExit && proc.exitCode() == 0, "Python avec OpenCV et numpy");
    }
  }
  line(tr("INFO  Aucun tracker neuronal installé : le moteur Précis suit par flux optique dense (OpenCV DIS), "
          "le moteur Rapide par Lucas-Kanade"));

  line(failures == 0 ? tr("Installation correcte.") : tr("Installation incomplète."));
  return failures == 0 ? 0 : 1;
}

int SelfTest::run() { return run(std::cout); }

}  // namespace ombrik
