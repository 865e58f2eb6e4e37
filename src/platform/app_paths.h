#pragma once
// Every folder of the program, computed once per run.
//
// Installed (the resources beside the binary hold Tracker/om_track.py):
//   resources = <prefix>/share/ombrik, support = $OMBRIK_SUPPORT or $XDG_DATA_HOME/Ombrik,
//   data = $OMBRIK_DATA, else devRoot if devRoot/Projets exists, else ~/Videos/Ombrik.
// Development tree: resources, data and support are the repository root, models are in
//   Tracker/models and logs in Tracker. $OMBRIK_DATA moves data; $OMBRIK_SUPPORT moves support
//   with models (support/Models) and logs (support/Logs), as installed, so that a test or a
//   sandbox writes nothing into the tree. Whatever installs models (scripts/setup) follows the
//   same rule; the worker is told where they are by OMBRIK_MODELS.
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/app_language.h"

namespace ombrik {

struct AppPaths {
  using Path = std::filesystem::path;

  bool isBundled = false;  // an installed program, as opposed to a development tree
  Path home;
  Path devRoot;
  Path resources;
  Path data;
  Path support;
  Path scripts;
  Path models;
  Path logs;
  Path python;

  struct Inputs {
    Path home;
    Path executableDir;
    Path sourceRoot;  // the repository this binary was built from
    std::function<std::optional<std::string>(const std::string&)> env;
  };
  static AppPaths resolve(const Inputs& in);
  static Inputs processInputs();  // the real environment of this process
  static const AppPaths& shared();

  // Creates data, support, models and logs with their parents; errors are ignored.
  void prepare() const;
  // scripts/name if it exists, else scripts/name + ".pyc".
  Path script(const std::string& name) const;
  // Variables added to the environment of every Python worker.
  std::map<std::string, std::string> pythonEnvironment(AppLanguage lang) const;
  Path projectsDir() const { return data / "Projets"; }
};

}  // namespace ombrik
