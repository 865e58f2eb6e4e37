#pragma once
// Why the viewer has no picture, so that it can say so instead of leaving the artist to guess:
// nothing on screen, an empty project, a node with nothing wired in, a media node without its
// media or with a file that can't be read, no GPU, or a result still being computed.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "document/media_trouble.h"
#include "graph/edge.h"
#include "graph/node.h"
#include "graph/uuid.h"

namespace ombrik {

struct ViewerBlank {
  enum class Why {
    nothingShown,  // no node can be shown
    emptyProject,  // no media in the project yet: the way to import is what helps
    notConnected,  // the node `subject` has nothing on its main input
    noMedia,          // the media node `subject` has no media
    mediaMissing,     // the file `subject` isn't where the project says
    mediaUnreadable,  // the file `subject` can't be read, for the reason in `detail`
    noEngine,      // no GPU device: nothing can be computed (the status line says why)
    computing,     // a render is on its way
    noResult,      // the evaluation gave nothing for the node `subject`
  };
  Why why = Why::nothingShown;
  std::string subject;  // the node (as titled) or the file the reason is about
  std::string detail;   // what is wrong with an unreadable file, in the media reader's words

  // The headline as a catalogue key, with "%s" where the subject goes, and a second line of
  // advice (a catalogue key too, empty when the headline says all); `detail`, when there is one,
  // stands in for the advice.
  const char* headline() const;
  const char* advice() const;
  bool offersImport() const { return why == Why::emptyProject; }
  bool operator==(const ViewerBlank&) const = default;
};

// What stands in for the picture of `shown` (none: nothing can be shown). The main inputs are
// followed up from `shown` to the first node that makes pictures; a group, or a node with no
// inputs, makes its own. `projectHasMedia`: false turns a missing source into an invitation to
// import.
struct ViewerFacts {
  std::optional<Uuid> shown;
  bool projectHasMedia = false;
  bool hasEngine = true;
  bool renderPending = false;
};
ViewerBlank whyViewerBlank(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                           const std::map<Uuid, MediaTrouble>& troubles, const ViewerFacts& facts);

}  // namespace ombrik
