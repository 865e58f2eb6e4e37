#pragma once
// Media of a project whose files couldn't be opened, and what is said of them: when the project
// opens, and when a world's output gives no picture because of them.
#include <map>
#include <string>
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"
#include "graph/uuid.h"
#include "media/media_files.h"

namespace ombrik {

// A media that couldn't be opened: its name and why, in the words shown after it ("fichier vide",
// "aucune image vidéo", or kNotFound).
struct MediaTrouble {
  std::string name;
  std::string why;
  bool operator==(const MediaTrouble&) const = default;
};

// "Médias introuvables : a.png · Médias illisibles : b.mov (fichier vide), c.png (dossier)";
// empty for an empty list.
std::string troubleSummary(const std::vector<MediaTrouble>& troubles);

// Why the node `output` gives no picture: the media upstream of it (through groups too) that
// couldn't be opened, with their reasons; "rien n'y est relié ?" when nothing upstream makes
// pictures; else the evaluation itself is blamed.
std::string whyNoPicture(const std::vector<Node>& nodes, const std::vector<Edge>& edges, const Uuid& output,
                         const std::map<Uuid, MediaTrouble>& troubles);

}  // namespace ombrik
