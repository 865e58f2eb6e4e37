#pragma once
// The render part of the inspector: for the output node, where and how the world is rendered and
// the button that starts or cancels it; for a Relais node, its cache of frames. Hidden for any
// other node.
#include <QWidget>
#include <filesystem>
#include <optional>
#include <string>

#include "graph/uuid.h"

class QLabel;
class QPushButton;

namespace ombrik {

class AppModel;
class PathLabel;
struct Node;

// Opens the folder a render went to in the desktop's file manager: a sequence's own folder, or
// the folder holding a movie.
void revealRender(const std::filesystem::path& output);

class RenderSection : public QWidget {
public:
  explicit RenderSection(AppModel& model, QWidget* parent = nullptr);
  void refresh(const Node* node);

private:
  QWidget* outputPart();
  QWidget* muxPart();
  void refreshOutput(const Node& node);
  void refreshMux(const Node& node);

  AppModel& model_;
  std::optional<Uuid> node_;
  QWidget* output_ = nullptr;
  PathLabel* folder_ = nullptr;
  QPushButton* render_ = nullptr;
  QPushButton* reveal_ = nullptr;
  QWidget* mux_ = nullptr;
  QLabel* cached_ = nullptr;
  QPushButton* cache_ = nullptr;
  QPushButton* clear_ = nullptr;
  // The cache is counted on disk: only again when a run moves on or ends, or the status changes.
  int cachedCount_ = -1;
  std::optional<double> countedProgress_;
  std::string countedStatus_;
};

}  // namespace ombrik
