#include "shell/ai_panel.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "shell/ai_progress_row.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
QLabel* note(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setWordWrap(true);
  label->setStyleSheet("QLabel { color: #9a9aa2; }");
  return label;
}

void setLabel(QLabel* label, const QString& text) {
  if (label->text() != text) label->setText(text);
}

// " · confiance 87 %" in the running language, for a box that carries a confidence.
QString confidence(const std::vector<double>& box) {
  if (box.size() < 5) return {};
  return shown(" · confiance %.0f %%").replace("%.0f", QString::number(std::lround(box[4] * 100))).replace("%%", "%");
}

std::string boxesKey(const std::optional<ObjectBoxes>& boxes) {
  return boxes ? objectBoxesJson(*boxes) : std::string();
}
}  // namespace

AiTool aiToolOf(const Node* node) {
  if (!node || !node->kind) return AiTool::none;
  const std::string& kind = node->kind->id;
  if (kind == "bodymask" || kind == "hairmatte") return AiTool::matte;
  if (kind == "mask") return node->p("aimode") > 0.5 ? AiTool::matte : AiTool::none;
  if (kind == "magicmask") return AiTool::magic;
  if (kind == "objectmask") return AiTool::object;
  if (kind == "denoise") return AiTool::denoise;
  if (kind == "greenkeyai") return AiTool::greenkey;
  if (kind == "retime") return AiTool::retime;
  return AiTool::none;
}

AiPanel::AiPanel(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("aiSection");
  column_ = new QVBoxLayout(this);
  column_->setContentsMargins(0, 0, 0, 8);
  progress_ = new AiProgressRow(model_, "aiProgress", this);
  column_->addWidget(progress_);
  auto* line = new QFrame(this);
  line->setFrameShape(QFrame::HLine);
  line->setStyleSheet("QFrame { color: #3a3a40; }");
  column_->addWidget(line);
  hide();
}

QPushButton* AiPanel::button(const char* name, const char* text, std::function<void(const Uuid&)> run) {
  auto* b = new QPushButton(shown(text), body_);
  b->setObjectName(name);
  connect(b, &QPushButton::clicked, this, [this, run = std::move(run)] {
    if (node_ && model_.nodeByID(*node_)) run(*node_);
  });
  return b;
}

void AiPanel::build(AiTool tool) {
  delete body_;
  body_ = nullptr;
  points_ = nullptr;
  clear_ = nullptr;
  prompt_ = nullptr;
  found_ = nullptr;
  boxList_ = nullptr;
  flow_ = nullptr;
  shownPoints_.clear();
  shownFrame_ = -1;
  boxesRead_ = false;
  shownBoxes_.reset();
  flowParams_.clear();
  flowStatus_.reset();
  tool_ = tool;
  if (tool == AiTool::none) return;
  body_ = new QWidget(this);
  auto* column = new QVBoxLayout(body_);
  column->setContentsMargins(0, 0, 0, 0);
  if (const Node* n = node_ ? model_.nodeByID(*node_) : nullptr; n && n->kind->id != "mask" && !n->kind->hint.raw.empty())
    column->addWidget(note(linuxKeys(qs(n->kind->hint.value())), body_));
  auto pair = [&](QPushButton* a, QPushButton* b) {
    auto* row = new QHBoxLayout;
    row->addWidget(a, 1);
    row->addWidget(b, 1);
    column->addLayout(row);
  };
  switch (tool) {
    case AiTool::matte:
      pair(button("aiFrame", "Calculer cette image", [this](const Uuid& id) { model_.bodyFrame(id, false); }),
           button("aiVideo", "Calculer toute la vidéo", [this](const Uuid& id) { model_.bodyVideo(id); }));
      break;
    case AiTool::magic:
      addPoints();
      column->addWidget(button("aiPropagate", "Propager sur la vidéo", [this](const Uuid& id) { model_.magicPropagate(id); }));
      break;
    case AiTool::object:
      addObjectSearch();
      addPoints();
      column->addWidget(button("aiPropagate", "Propager sur la vidéo", [this](const Uuid& id) { model_.objectPropagate(id); }));
      break;
    case AiTool::denoise:
      pair(button("aiFrame", "Calculer cette image", [this](const Uuid& id) { model_.denoiseFrame(id); }),
           button("aiVideo", "Toute la vidéo", [this](const Uuid& id) { model_.denoiseVideo(id); }));
      break;
    case AiTool::greenkey:
      column->addWidget(button("aiDetect", "Détecter l'écran", [this](const Uuid& id) { model_.greenKeyDetect(id); }));
      pair(button("aiFrame", "Cette image", [this](const Uuid& id) { model_.greenAIFrame(id); }),
           button("aiVideo", "Tout le plan", [this](const Uuid& id) { model_.greenAIVideo(id); }));
      break;
    case AiTool::retime:
      flow_ = note(QString(), body_);
      flow_->setObjectName("aiFlowState");
      column->addWidget(flow_);
      column->addWidget(button("aiFlow", "Calculer le flux optique", [this](const Uuid& id) { model_.retimeCompute(id); }));
      break;
    case AiTool::none:
      break;
  }
  column_->insertWidget(column_->indexOf(progress_), body_);
}

// The clicks of the viewer: how many, on which frame, and the way back to none.
void AiPanel::addPoints() {
  auto* row = new QHBoxLayout;
  points_ = new QLabel(body_);
  points_->setObjectName("aiPoints");
  points_->setWordWrap(true);
  clear_ = button("aiClear", "Effacer", [this](const Uuid& id) { model_.magicClear(id); });
  row->addWidget(points_, 1);
  row->addWidget(clear_);
  static_cast<QVBoxLayout*>(body_->layout())->addLayout(row);
}

void AiPanel::addObjectSearch() {
  auto* column = static_cast<QVBoxLayout*>(body_->layout());
  auto* heading = new QLabel(shown("OBJET À TROUVER"), body_);
  heading->setStyleSheet("QLabel { font-size: 11px; font-weight: bold; color: #c8c8cc; padding-top: 4px; }");
  column->addWidget(heading);
  column->addWidget(note(shown("Français courant ou anglais. Plusieurs objets : séparez par des virgules."), body_));
  auto* row = new QHBoxLayout;
  prompt_ = new QLineEdit(body_);
  prompt_->setObjectName("aiPrompt");
  prompt_->setPlaceholderText(shown("ex. : lampadaire, voiture, bouteille"));
  // The text is the node's as it is typed, so that the search and a save both see it.
  connect(prompt_, &QLineEdit::textEdited, this, [this](const QString& text) {
    if (node_) model_.setPrompt(*node_, text.toStdString());
  });
  auto* find = button("aiFind", "Trouver", [this](const Uuid& id) { model_.objectFind(id); });
  connect(prompt_, &QLineEdit::returnPressed, find, &QPushButton::click);
  row->addWidget(prompt_, 1);
  row->addWidget(find);
  column->addLayout(row);
  found_ = note(QString(), body_);
  found_->setObjectName("aiFound");
  column->addWidget(found_);
  boxList_ = new QWidget(body_);
  boxList_->setObjectName("aiBoxes");
  auto* list = new QVBoxLayout(boxList_);
  list->setContentsMargins(0, 0, 0, 0);
  list->setSpacing(2);
  column->addWidget(boxList_);
}

void AiPanel::refresh(const Node* node) {
  const AiTool tool = aiToolOf(node);
  const std::optional<Uuid> id = node ? std::optional(node->id) : std::nullopt;
  if (id != node_ || tool != tool_) {
    node_ = id;
    build(tool);
  }
  const bool offered = tool != AiTool::none;
  if (isHidden() == offered) setVisible(offered);
  progress_->refresh(offered ? model_.aiProgress(node->id) : std::nullopt);
  if (!offered) return;
  if (points_) refreshPoints(*node);
  if (prompt_) {
    const QString text = qs(node->prompt);
    if (!prompt_->hasFocus() && prompt_->text() != text) prompt_->setText(text);
  }
  if (boxList_) refreshBoxes(*node);
  if (flow_) refreshRetime(*node);
}

void AiPanel::refreshPoints(const Node& node) {
  if (node.magicPoints == shownPoints_ && node.magicFrame == shownFrame_ && !points_->text().isEmpty()) return;
  shownPoints_ = node.magicPoints;
  shownFrame_ = node.magicFrame;
  const auto positive = std::count_if(node.magicPoints.begin(), node.magicPoints.end(), [](const MagicPoint& p) { return p.positive; });
  const auto negative = qsizetype(node.magicPoints.size()) - positive;
  if (node.magicPoints.empty())
    setLabel(points_, shown("Aucun point : cliquez sur le sujet dans le viewer."));
  else
    setLabel(points_, shown("%1 point(s) sur l'image %2 : %3 + · %4 −")
                          .arg(node.magicPoints.size())
                          .arg(node.magicFrame + 1)
                          .arg(positive)
                          .arg(negative));
}

void AiPanel::refreshBoxes(const Node& node) {
  if (!boxesRead_ || readProgress_ != model_._magicProgress || readStatus_ != model_._status) {
    boxes_ = model_.objectBoxes(node.id);
    boxesRead_ = true;
    readProgress_ = model_._magicProgress;
    readStatus_ = model_._status;
  }
  const std::string key = boxesKey(boxes_);
  if (shownBoxes_ == key) return;
  shownBoxes_ = key;
  auto* list = static_cast<QVBoxLayout*>(boxList_->layout());
  while (QLayoutItem* item = list->takeAt(0)) {
    delete item->widget();
    delete item;
  }
  const std::size_t count = boxes_ ? boxes_->boxes.size() : 0;
  found_->setVisible(boxes_.has_value());
  if (boxes_)
    setLabel(found_, QString::number(count) + shown(" objet(s) trouvé(s) sur l'image ") +
                         QString::number(boxes_->frame + 1) + shown(". ⌘ + clic dans un cadre ou ✕ : le retirer."));
  for (std::size_t i = 0; i < count; ++i) {
    auto* row = new QWidget(boxList_);
    auto* line = new QHBoxLayout(row);
    line->setContentsMargins(0, 0, 0, 0);
    auto* name = new QLabel(shown("Objet %1").arg(i + 1) + confidence(boxes_->boxes[i]), row);
    name->setObjectName(QString("aiBox%1").arg(i));
    auto* remove = new QToolButton(row);
    remove->setObjectName(QString("aiRemoveBox%1").arg(i));
    remove->setText(QStringLiteral("✕"));
    remove->setToolTip(shown("Supprimer cet objet de la sélection"));
    connect(remove, &QToolButton::clicked, this, [this, i] {
      if (node_) model_.objectRemoveBox(*node_, int(i));
      boxesRead_ = false;  // the file was rewritten
    });
    line->addWidget(name, 1);
    line->addWidget(remove);
    list->addWidget(row);
  }
}

void AiPanel::refreshRetime(const Node& node) {
  // Only the method "Flux optique" reads the computed movie.
  const double method = node.p("method");
  const bool flow = method > 0.5 && method < 1.5;
  if (flowParams_ == node.params && flowAnim_ == node.anim && flowStatus_ == model_._status) return;
  flowParams_ = node.params;
  flowAnim_ = node.anim;
  flowStatus_ = model_._status;
  flow_->setVisible(flow);
  if (flow)
    setLabel(flow_, shown(model_.retimeFlowReady(node) ? "Flux optique calculé pour ces réglages."
                                                       : "Flux optique à calculer pour ces réglages."));
}

}  // namespace ombrik
