#pragma once
// The one central object: it owns the open world, the list of worlds and the media.
// Views read it and call its operations; nothing in the document depends on a view.
// Operations are split into files by subject (app_model_*.cpp).
#include <optional>
#include <string>
#include <vector>

#include "document/node_layout.h"
#include "graph/batch.h"
#include "graph/edge.h"
#include "graph/media_item.h"
#include "graph/node.h"
#include "graph/uuid.h"

namespace ombrik {

class AppModel {
public:
  struct Options {
    bool installed = false;   // an installed program, not a development tree
    bool blankStart = false;  // OMBRIK_BLANK_START=1
  };
  static Options processOptions();

  AppModel() : AppModel(processOptions()) {}
  explicit AppModel(const Options& options);
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  // The open world. Its Batch in _batches lags behind these until saveCurrentBatch().
  std::vector<Node> _nodes;
  std::vector<Edge> _edges;
  NodeLayout layout;

  std::vector<Batch> _batches;
  std::vector<MediaItem> _media;
  std::optional<Uuid> _currentBatchID;
  std::string _status;
  int _currentFrame = 0;
  int _frameCount = 1;
  double _fps = 25;
  double _previewScale = 1;

  const Batch* currentBatch() const;
  // Writes the open world's nodes, edges and positions back into its Batch.
  void saveCurrentBatch();

private:
  void startBlankWorld(bool placeholder);
};

}  // namespace ombrik
