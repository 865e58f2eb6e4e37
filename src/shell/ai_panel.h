#pragma once
// The AI part of the inspector, over the settings of the nodes whose pictures come from the
// worker: one frame or the whole shot for the mattes, the keyer and the denoiser; the points of
// Masque au clic; the search, the found objects and the propagation of Objet IA; the optical flow
// of Vitesse; and the running job's progress with its cancel. Hidden for any other node.
#include <QWidget>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ai/object_boxes.h"
#include "graph/keyframe.h"
#include "graph/mask_key.h"
#include "graph/uuid.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace ombrik {

class AppModel;
class AiProgressRow;
struct Node;

// What the panel offers a node: the tool its kind (or a shape mask with "Détourage IA") belongs to.
enum class AiTool { none, matte, magic, object, denoise, greenkey, retime };
AiTool aiToolOf(const Node* node);

class AiPanel : public QWidget {
public:
  explicit AiPanel(AppModel& model, QWidget* parent = nullptr);
  void refresh(const Node* node);
  AiProgressRow* progress() const { return progress_; }

private:
  void build(AiTool tool);
  QPushButton* button(const char* name, const char* text, std::function<void(const Uuid&)> run);
  void addPoints();
  void addObjectSearch();
  void refreshPoints(const Node& node);
  void refreshBoxes(const Node& node);
  void refreshRetime(const Node& node);

  AppModel& model_;
  std::optional<Uuid> node_;
  AiTool tool_ = AiTool::none;
  QWidget* body_ = nullptr;  // the tool's controls, remade when the node changes
  QVBoxLayout* column_ = nullptr;
  AiProgressRow* progress_ = nullptr;
  QLabel* points_ = nullptr;
  QPushButton* clear_ = nullptr;
  QLineEdit* prompt_ = nullptr;
  QLabel* found_ = nullptr;
  QWidget* boxList_ = nullptr;
  QLabel* flow_ = nullptr;
  // What is on screen, so that an unchanged node costs comparisons only. The boxes are read from
  // disk again only when a job moves on or ends, the status or the node's points change.
  std::vector<MagicPoint> shownPoints_;
  int shownFrame_ = -1;
  std::optional<ObjectBoxes> boxes_;
  bool boxesRead_ = false;
  std::optional<double> readProgress_;
  std::string readStatus_;
  std::optional<std::string> shownBoxes_;  // none: nothing listed yet
  std::map<std::string, double> flowParams_;
  std::map<std::string, std::vector<Keyframe>> flowAnim_;
  std::optional<std::string> flowStatus_;
};

}  // namespace ombrik
