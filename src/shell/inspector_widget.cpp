#include "shell/inspector_widget.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QTabBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "document/app_model.h"
#include "shell/ai_panel.h"
#include "shell/group_settings.h"
#include "shell/param_row.h"
#include "shell/render_section.h"
#include "shell/shown_text.h"

namespace ombrik {

InspectorWidget::InspectorWidget(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("inspector");
  setMinimumWidth(300);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(10, 10, 10, 10);
  title_ = new QLabel(this);
  title_->setObjectName("inspectorTitle");
  title_->setStyleSheet("QLabel { font-size: 15px; font-weight: bold; }");
  title_->setWordWrap(true);  // the empty panel's sentence is longer than the panel is wide
  title_->setMinimumWidth(0);
  lock_ = new QToolButton(this);
  lock_->setObjectName("inspectorLock");
  lock_->setText(shown("Verrouillé"));
  lock_->setToolTip(shown("Réglages verrouillés sur ce node : cliquez pour les libérer."));
  lock_->setStyleSheet("QToolButton { color: #f09646; font-weight: bold; }");
  connect(lock_, &QToolButton::clicked, this, [this] {
    if (model_.inspectorLock) model_.toggleInspectorLock(*model_.inspectorLock);
    refresh();
  });
  bypass_ = new QCheckBox(shown("Bypass"), this);
  bypass_->setObjectName("inspectorBypass");
  connect(bypass_, &QCheckBox::clicked, this, [this](bool on) {
    if (node_) model_.setBypass(*node_, on);
  });
  auto* header = new QHBoxLayout;
  header->addWidget(title_, 1);
  header->addWidget(lock_);
  header->addWidget(bypass_);
  info_ = new QLabel(this);
  info_->setWordWrap(true);
  info_->setStyleSheet("QLabel { color: #9a9aa2; }");
  column->addLayout(header);
  column->addWidget(info_);
  group_ = new GroupSettings(model_, this);
  column->addWidget(group_);

  // The masks of a mask node: one tab each, a new one, and deleting the active one.
  maskBar_ = new QWidget(this);
  auto* masks = new QHBoxLayout(maskBar_);
  masks->setContentsMargins(0, 4, 0, 0);
  masks->setSpacing(4);
  maskTabs_ = new QTabBar(maskBar_);
  maskTabs_->setObjectName("maskTabs");
  maskTabs_->setExpanding(false);
  maskTabs_->setUsesScrollButtons(true);
  maskTabs_->setDrawBase(false);
  auto* add = new QToolButton(maskBar_);
  add->setObjectName("newMask");
  add->setText("+");
  add->setToolTip(shown("Nouveau masque"));
  auto* remove = new QToolButton(maskBar_);
  remove->setObjectName("deleteMask");
  remove->setText(shown("Supprimer"));
  remove->setToolTip(shown("Supprimer le masque en cours"));
  masks->addWidget(maskTabs_, 1);
  masks->addWidget(add);
  masks->addWidget(remove);
  column->addWidget(maskBar_);
  maskBar_->hide();
  connect(maskTabs_, &QTabBar::currentChanged, this, [this](int i) {
    if (node_ && i >= 0) model_.selectMask(*node_, i);
    refresh();
  });
  connect(add, &QToolButton::clicked, this, [this] {
    if (node_) model_.newMask(*node_);
    refresh();
  });
  connect(remove, &QToolButton::clicked, this, [this] {
    if (const Node* n = node_ ? model_.nodeByID(*node_) : nullptr)
      model_.deleteMask(n->id, n->masks.empty() ? 0 : n->maskIndex);
    refresh();
  });

  auto* scroll = new QScrollArea(this);
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  rows_ = new QWidget(scroll);
  rowsLayout_ = new QVBoxLayout(rows_);
  rowsLayout_->setContentsMargins(0, 6, 0, 0);
  ai_ = new AiPanel(model_, rows_);
  rowsLayout_->addWidget(ai_);
  render_ = new RenderSection(model_, rows_);
  rowsLayout_->addWidget(render_);
  rowsLayout_->addStretch(1);
  scroll->setWidget(rows_);
  column->addWidget(scroll, 1);
  rebuild();
  refreshHeader(nullptr);
}

std::optional<Uuid> InspectorWidget::target() const {
  if (model_.inspectorLock && model_.nodeByID(*model_.inspectorLock)) return model_.inspectorLock;
  if (model_.inspectedID && model_.nodeByID(*model_.inspectedID)) return model_.inspectedID;
  if (model_._selected && model_.nodeByID(*model_._selected)) return model_._selected;
  return std::nullopt;
}

ParamRow* InspectorWidget::row(const std::string& key) const {
  for (ParamRow* r : rowList_)
    if (r->spec().key == key) return r;
  return nullptr;
}

void InspectorWidget::rebuild() {
  for (ParamRow* r : rowList_) delete r;
  rowList_.clear();
  shownParams_.clear();
  shownAnim_.clear();
  shownFrame_ = -1;
  const Node* n = node_ ? model_.nodeByID(*node_) : nullptr;
  kind_ = n ? n->kind->id : std::string();
  kindShown_ = n ? n->kind : KindRef();
  if (!n) {
    title_->setText(shown("Sélectionnez un node pour voir ses réglages."));
    info_->clear();
    return;
  }
  title_->setText(qs(n->title()));
  info_->setText(linuxKeys(qs(n->kind->info.value())));
  const Uuid id = n->id;
  const std::vector<ParamSpec> specs = n->kind->params;  // rows keep their own copy
  for (const auto& spec : specs) {
    auto* r = new ParamRow(model_, id, spec, rows_);
    rowsLayout_->insertWidget(rowsLayout_->indexOf(render_), r);
    rowList_.push_back(r);
  }
  int field = 0;
  for (ParamRow* r : rowList_) field = std::max(field, r->fieldWidthWanted());
  for (ParamRow* r : rowList_) r->alignField(field);
}

void InspectorWidget::refresh() {
  const std::optional<Uuid> now = target();
  const Node* n = now ? model_.nodeByID(*now) : nullptr;
  if (now != node_ || (n && (n->kind->id != kind_ || !kindShown_ || &*n->kind != &*kindShown_))) {
    node_ = now;
    rebuild();
  }
  refreshHeader(n);
  refreshMaskTabs(n);
  group_->refresh(n);
  render_->refresh(n);
  ai_->refresh(n);
  if (!n) return;
  if (n->params == shownParams_ && n->anim == shownAnim_ && model_._currentFrame == shownFrame_) return;
  shownParams_ = n->params;
  shownAnim_ = n->anim;
  shownFrame_ = model_._currentFrame;
  for (ParamRow* r : rowList_) r->refresh();
}

void InspectorWidget::refreshHeader(const Node* n) {
  lock_->setVisible(n && model_.inspectorLock == n->id);
  bypass_->setVisible(n != nullptr);
  if (n && bypass_->isChecked() != n->bypass) {
    const QSignalBlocker quiet(bypass_);
    bypass_->setChecked(n->bypass);
  }
}

void InspectorWidget::refreshMaskTabs(const Node* n) {
  const bool masked = n && n->kind->id == "mask";
  if (maskBar_->isHidden() == masked) maskBar_->setVisible(masked);
  if (!masked) return;
  const int count = int(n->allMasks().size());
  const int active = n->masks.empty() ? 0 : std::clamp(n->maskIndex, 0, count - 1);
  if (maskTabs_->count() == count && maskTabs_->currentIndex() == active) return;
  const QSignalBlocker quiet(maskTabs_);
  while (maskTabs_->count() > count) maskTabs_->removeTab(maskTabs_->count() - 1);
  while (maskTabs_->count() < count) {
    const int i = maskTabs_->count();
    maskTabs_->addTab(shown("Mask %1").arg(i + 1, 2, 10, QChar('0')));
  }
  maskTabs_->setCurrentIndex(active);
  // Tabs added while the panel is hidden don't tell the layout, which would keep them zero high.
  maskTabs_->updateGeometry();
}

}  // namespace ombrik
