#include "document/help_topics.h"

namespace ombrik {

const std::vector<HelpKeyGroup>& helpKeyGroups() {
  static const std::vector<HelpKeyGroup> groups = {
      {"Partout dans la fenêtre",
       true,
       {
           {"⌘N", "Nouveau projet"},
           {"⌘O", "Ouvrir un projet…"},
           {"⌘S", "Enregistrer"},
           {"⇧⌘S", "Enregistrer sous…"},
           {"⌘I", "Importer des médias…"},
           {"⌘E", "Exporter l'image…"},
           {"⌘Z", "Annuler la modification"},
           {"⇧⌘Z", "Rétablir"},
           {"⌘C", "Copier les nodes sélectionnés"},
           {"⌘V", "Coller les nodes"},
           {"⌘A", "Tout sélectionner"},
           {"⌘0", "Ajuster l'image à la fenêtre"},
           {"⌘1", "100 % — pixels réels"},
           {"⇧⌘G", "Éditeur de courbes"},
           {"F1", "Canal source (même touche : retour)"},
           {"F2", "Canal fond"},
           {"F3", "Canal masque / alpha"},
           {"F4", "Résultat (deux fois : vue verrouillée)"},
           {"Esc", "Sortir de la vue plein cadre ou du canal"},
           {"\\", "Comparer au rush natif"},
           {"Left", "Image précédente"},
           {"Right", "Image suivante"},
           {"Space", "Lecture / pause"},
       }},
      {"Dans le graphe",
       false,
       {
           {"Tab", "Ajouter un node"},
           {"D", "Bypass des nodes sélectionnés"},
           {"F", "Cadrer la sélection, ou tout le graphe"},
           {"Suppr", "Supprimer les nodes sélectionnés"},
           {"Espace + glisser", "Déplacer la vue du graphe"},
           {"⌘ + molette", "Zoomer dans le graphe"},
       }},
      {"Dans le viewer, sur un masque",
       false,
       {
           {"A + clic", "Ajouter un point sur le contour"},
           {"Suppr", "Supprimer les points sélectionnés"},
           {"Entrée", "Fermer la forme"},
           {"I", "Cacher ou montrer les guides (deux fois : un masque seul)"},
       }},
  };
  return groups;
}

std::vector<HelpFolder> helpFolders(const AppPaths& paths) {
  return {
      {"Projets", paths.projectsDir()},
      {"Données (caches, rendus, dossier de dépôt)", paths.data},
      {"Journaux", paths.logs},
      {"Modèles IA", paths.models},
      {"Support (Python, noyaux compilés)", paths.support},
      {"Scripts du worker", paths.scripts},
  };
}

}  // namespace ombrik
