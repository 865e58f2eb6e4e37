#include "shell/roto_tool_bar.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <QLabel>
#include <QToolButton>

#include "document/app_model.h"
#include "shell/shown_text.h"
#include "shell/track_buttons.h"

namespace ombrik {

namespace {
constexpr std::array<RotoTool, 4> kTools = {RotoTool::moveImage, RotoTool::select, RotoTool::bezier, RotoTool::ellipse};

const char* nameOf(RotoTool tool) {
  switch (tool) {
    case RotoTool::moveImage: return "rotoTool:move";
    case RotoTool::select: return "rotoTool:select";
    case RotoTool::bezier: return "rotoTool:bezier";
    case RotoTool::ellipse: return "rotoTool:ellipse";
  }
  return "";
}

const char* tip(RotoTool tool) {
  switch (tool) {
    case RotoTool::moveImage: return "Déplacer l'image : glissez pour faire défiler le viewer";
    case RotoTool::select: return "Sélection : cliquez un point, ⇧ + glisser pour en prendre plusieurs";
    case RotoTool::bezier:
      return "Bézier : cliquez pour poser des points, tirez pour les courber, cliquez le premier point pour fermer · "
             "⌥ + clic : supprimer un point";
    case RotoTool::ellipse: return "Ellipse : tirez dans l'image pour dessiner un masque ovale";
  }
  return "";
}
}  // namespace

RotoToolBar::RotoToolBar(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("rotoToolBar");
  // The tool in use stands out in the accent blue.
  setStyleSheet(
      "QToolButton { padding: 2px 8px; border: 1px solid #3a3a42; border-radius: 3px; background: #2a2a30; }"
      "QToolButton:hover { border-color: #6a6a76; }"
      "QToolButton:checked { background: #3c6ebe; border-color: #5f8fdc; color: #ffffff; }");
  auto* rows = new QVBoxLayout(this);
  rows->setContentsMargins(6, 3, 6, 3);
  rows->setSpacing(3);
  auto* row = new QHBoxLayout;
  rows->addLayout(row);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(3);
  auto* group = new QButtonGroup(this);
  for (std::size_t i = 0; i < kTools.size(); ++i) {
    const RotoTool tool = kTools[i];
    auto* b = tools_[i] = new QToolButton(this);
    b->setObjectName(nameOf(tool));
    b->setText(shown(rotoToolName(tool)));
    b->setToolTip(shown(tip(tool)));
    b->setCheckable(true);
    b->setFocusPolicy(Qt::NoFocus);  // the viewer keeps the keys of the tools
    group->addButton(b);
    row->addWidget(b);
    connect(b, &QToolButton::clicked, this, [this, tool] {
      model_.setRotoTool(tool);
      refresh();
    });
  }
  row->addSpacing(10);
  clear_ = new QToolButton(this);
  clear_->setObjectName("rotoClearShape");
  clear_->setText(shown("Effacer la forme"));
  clear_->setToolTip(shown("Efface la forme du masque en cours pour la redessiner"));
  clear_->setFocusPolicy(Qt::NoFocus);
  row->addWidget(clear_);
  connect(clear_, &QToolButton::clicked, this, [this] {
    if (const auto node = model_.rotoNode()) model_.shapeClear(*node);
    refresh();
  });
  hint_ = new QLabel(this);
  hint_->setObjectName("rotoHint");
  hint_->setWordWrap(true);
  hint_->setStyleSheet("QLabel { color: #9a9aa2; padding-left: 8px; font-size: 11px; }");
  row->addWidget(hint_, 1);
  // Tracking on a row of its own: the viewer keeps its width however narrow the window.
  auto* trackRow = new QHBoxLayout;
  rows->addLayout(trackRow);
  track_ = new TrackButtons(model_, this);
  trackRow->addWidget(track_);
  trackRow->addStretch(1);
  hide();
}

void RotoToolBar::refresh() {
  const auto node = model_.rotoNode();
  const Node* n = node ? model_.nodeByID(*node) : nullptr;
  if (isHidden() == (n != nullptr)) setVisible(n != nullptr);
  if (!n) return;
  track_->refresh();
  for (std::size_t i = 0; i < kTools.size(); ++i) {
    const bool on = kTools[i] == model_.roto.rotoTool;
    if (tools_[i]->isChecked() != on) tools_[i]->setChecked(on);
  }
  const QString hint = linuxKeys(qs(n->kind->hint.value()));
  if (hint_->text() != hint) hint_->setText(hint);
}

}  // namespace ombrik
