#include "platform/app_paths.h"

#include <cstdlib>
#include <system_error>


#ifndef OMBRIK_SOURCE_DIR
#define OMBRIK_SOURCE_DIR ""
#endif

namespace ombrik {

namespace fs = std::filesystem;

namespace {
std::optional<std::string> nonEmpty(const AppPaths::Inputs& in, const std::string& name) {
  if (!in.env) return std::nullopt;
  auto v = in.env(name);
  if (v && v->empty()) return std::nullopt;
  return v;
}

bool pathExists(const fs::path& p) {
  std::error_code ec;
  return fs::exists(p, ec);
}

fs::path executableDir() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::current_path() : self.parent_path();
}
}  // namespace

AppPaths AppPaths::resolve(const Inputs& in) {
  AppPaths p;
  p.home = in.home;
  const fs::path installedResources = (in.executableDir / ".." / "share" / "ombrik").lexically_normal();
  p.isBundled = pathExists(installedResources / "Tracker" / "om_track.py") ||
                pathExists(installedResources / "Tracker" / "om_track.pyc");
  const auto dataVar = nonEmpty(in, "OMBRIK_DATA");
  const auto supportVar = nonEmpty(in, "OMBRIK_SUPPORT");

  if (p.isBundled) {
    p.devRoot = p.home / "Tarvane Ombrik";
    p.resources = installedResources;
    if (dataVar) p.data = *dataVar;
    else if (pathExists(p.devRoot / "Projets")) p.data = p.devRoot;
    else p.data = p.home / "Videos" / "Ombrik";
    if (supportVar) p.support = *supportVar;
    else if (auto xdg = nonEmpty(in, "XDG_DATA_HOME")) p.support = fs::path(*xdg) / "Ombrik";
    else p.support = p.home / ".local" / "share" / "Ombrik";
    p.scripts = p.resources / "Tracker";
    p.models = p.support / "Models";
    p.logs = p.support / "Logs";
  } else {
    p.devRoot = in.sourceRoot;
    p.resources = p.devRoot;
    p.data = dataVar ? fs::path(*dataVar) : p.devRoot;
    p.support = supportVar ? fs::path(*supportVar) : p.devRoot;
    p.scripts = p.resources / "Tracker";
    // A support folder given to a development tree (tests, a sandbox) takes what grows at run
    // time, as an installed program's does: the tree gets nothing written into it. The worker
    // finds the models wherever this says, through OMBRIK_MODELS.
    p.models = supportVar ? p.support / "Models" : p.scripts / "models";
    p.logs = supportVar ? p.support / "Logs" : p.scripts;
  }
  p.python = p.support / "Python";
  return p;
}

AppPaths::Inputs AppPaths::processInputs() {
  Inputs in;
  const char* home = std::getenv("HOME");
  in.home = home && *home ? fs::path(home) : fs::path("/");
  in.executableDir = executableDir();
  in.sourceRoot = OMBRIK_SOURCE_DIR;
  in.env = [](const std::string& name) -> std::optional<std::string> {
    const char* v = std::getenv(name.c_str());
    if (!v) return std::nullopt;
    return std::string(v);
  };
  return in;
}

const AppPaths& AppPaths::shared() {
  static const AppPaths paths = resolve(processInputs());
  return paths;
}

void AppPaths::prepare() const {
  for (const auto& dir : {data, support, models, logs}) {
    std::error_code ec;
    fs::create_directories(dir, ec);
  }
}

AppPaths::Path AppPaths::script(const std::string& name) const {
  const Path plain = scripts / name;
  if (pathExists(plain)) return plain;
  return scripts / (name + ".pyc");
}

std::map<std::string, std::string> AppPaths::pythonEnvironment(AppLanguage lang) const {
  return {
      {"PYTHONNOUSERSITE", "1"},
      {"PYTHONUNBUFFERED", "1"},
      {"PYTHONPYCACHEPREFIX", (support / "PyCache").string()},
      {"OMBRIK_MODELS", models.string()},
      {"OMBRIK_LOGS", logs.string()},
      {"OMBRIK_LANG", lang.code()},
  };
}

}  // namespace ombrik
