#pragma once
// What the Aide menu tells: the keys, by where they work, and the program's folders. Keys are
// written with the catalogue's glyphs (⌘, ⇧), which the desktop spells its own way.
#include <filesystem>
#include <string>
#include <vector>

#include "platform/app_paths.h"

namespace ombrik {

struct HelpKey {
  const char* keys;  // one key sequence, or a gesture in words ("A + clic")
  const char* what;
};

struct HelpKeyGroup {
  const char* title;
  bool windowWide;  // the keys work wherever the focus is; else only in the part the title names
  std::vector<HelpKey> keys;
};

const std::vector<HelpKeyGroup>& helpKeyGroups();

struct HelpFolder {
  const char* label;
  std::filesystem::path path;
};

// The folders an artist may want to open: projects, renders, logs, models and the rest.
std::vector<HelpFolder> helpFolders(const AppPaths& paths);

}  // namespace ombrik
