#include "document/viewer_blank.h"

#include <unordered_map>
#include <unordered_set>

namespace ombrik {

const char* ViewerBlank::headline() const {
  switch (why) {
    case Why::nothingShown: return "Sélectionnez un node dans le graphe.";
    case Why::emptyProject: return "Glissez une vidéo ici pour commencer";
    case Why::notConnected: return "« %s » n'est pas branché";
    case Why::noMedia: return "« %s » n'a pas de média";
    case Why::mediaMissing: return "Média introuvable : %s";
    case Why::mediaUnreadable: return "Média illisible : %s";
    case Why::noEngine: return "Aucun GPU utilisable : rien ne peut être calculé";
    case Why::computing: return "Calcul de « %s »…";
    case Why::noResult: return "« %s » ne donne pas d'image ici";
  }
  return "";
}

const char* ViewerBlank::advice() const {
  switch (why) {
    case Why::emptyProject: return "Chaque rush devient un monde, avec son propre graphe de nodes.";
    case Why::notConnected: return "Reliez son entrée à une image (un rush ou un autre node) pour voir un résultat.";
    case Why::noMedia: return "Importez un rush : Fichier › Importer des médias… (⌘I)";
    case Why::mediaMissing: return "Remettez le fichier à sa place : il revient dès que vous revenez dans Ombrik.";
    case Why::noEngine: return "La barre d'état en dit la raison.";
    case Why::noResult: return "Son calcul n'a rien produit : vérifiez ses réglages et ses entrées.";
    default: return "";
  }
}

namespace {
// The first thing wrong on the way up the main inputs from `shown`, if any.
std::optional<ViewerBlank> brokenSource(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                        const std::map<Uuid, MediaTrouble>& troubles, const Uuid& shown) {
  using Why = ViewerBlank::Why;
  std::unordered_map<Uuid, const Node*> byID;
  for (const Node& n : nodes) byID.emplace(n.id, &n);
  std::unordered_map<Uuid, Uuid> mainFeed;
  for (const Edge& e : edges)
    if (e.port == 0) mainFeed.emplace(e.to, e.from);
  std::unordered_set<Uuid> seen;
  for (Uuid at = shown; seen.insert(at).second;) {  // a cycle ends the walk: it is no missing wire
    const auto found = byID.find(at);
    if (found == byID.end()) return std::nullopt;
    const Node& n = *found->second;
    if (n.kind->id == "media") {
      if (!n.mediaID) return ViewerBlank{Why::noMedia, n.title(), {}};
      const auto t = troubles.find(*n.mediaID);
      if (t == troubles.end()) return std::nullopt;
      if (t->second.why == kNotFound) return ViewerBlank{Why::mediaMissing, t->second.name, {}};
      return ViewerBlank{Why::mediaUnreadable, t->second.name, t->second.why};
    }
    // A group and a kind without inputs make their own pictures.
    if (n.kind->id == "group" || n.kind->inputs.empty()) return std::nullopt;
    const auto feed = mainFeed.find(at);
    if (feed == mainFeed.end()) return ViewerBlank{Why::notConnected, n.title(), {}};
    at = feed->second;
  }
  return std::nullopt;
}
}  // namespace

ViewerBlank whyViewerBlank(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                           const std::map<Uuid, MediaTrouble>& troubles, const ViewerFacts& facts) {
  using Why = ViewerBlank::Why;
  const Node* shown = nullptr;
  for (const Node& n : nodes)
    if (facts.shown && n.id == *facts.shown) shown = &n;
  std::optional<ViewerBlank> source;
  if (shown) source = brokenSource(nodes, edges, troubles, shown->id);
  const bool lacksSource = !shown || (source && (source->why == Why::notConnected || source->why == Why::noMedia));
  // Before any media, what is missing is always the same: a rush to start from.
  if (lacksSource && !facts.projectHasMedia) return {Why::emptyProject, {}, {}};
  if (!shown) return {Why::nothingShown, {}, {}};
  if (source) return *source;
  if (!facts.hasEngine) return {Why::noEngine, {}, {}};
  return {facts.renderPending ? Why::computing : Why::noResult, shown->title(), {}};
}

}  // namespace ombrik
