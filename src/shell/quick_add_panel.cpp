#include "shell/quick_add_panel.h"

#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QVBoxLayout>

#include "document/app_model.h"
#include "document/quick_add.h"
#include "shell/shown_text.h"

namespace ombrik {

QuickAddPanel::QuickAddPanel(AppModel& model, QWidget* parent) : QFrame(parent, Qt::Popup), model_(model) {
  setObjectName("quickAdd");
  setFrameShape(QFrame::StyledPanel);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(6, 6, 6, 6);
  column->setSpacing(4);
  field_ = new QLineEdit(this);
  field_->setPlaceholderText(shown("Rechercher un effet, un masque ou un modèle IA…"));
  list_ = new QListWidget(this);
  list_->setFocusPolicy(Qt::NoFocus);  // the keys stay in the field; ↑↓ move the choice
  footer_ = new QLabel(this);
  footer_->setStyleSheet("QLabel { color: #9a9aa2; font-size: 11px; }");
  column->addWidget(field_);
  column->addWidget(list_, 1);
  column->addWidget(footer_);
  resize(340, 380);
  field_->installEventFilter(this);
  connect(field_, &QLineEdit::textChanged, this, [this] { search(); });
  connect(list_, &QListWidget::itemActivated, this, [this] { choose(); });
}

void QuickAddPanel::open(QPoint globalPos) {
  model_._quickAddVisible = true;
  footer_->setText(shown(model_.quickAddLink ? "↩ ajouter au bout du lien · ↑↓ choisir · Échap fermer"
                                             : "↩ ajouter après le node sélectionné · ↑↓ choisir · Échap fermer"));
  field_->clear();
  search();
  move(globalPos);
  show();
  field_->setFocus();
}

void QuickAddPanel::search() {
  results_ = quickAddResults(field_->text().toStdString(), model_._recentKinds, model_.userNodes.kinds());
  list_->clear();
  for (const KindRef& k : results_) {
    auto* item = new QListWidgetItem(qs(k->title.value()) + "   ·  " + qs(k->category.value()), list_);
    item->setToolTip(linuxKeys(qs(k->info.value())));
  }
  if (results_.empty()) {
    auto* none = new QListWidgetItem(shown("Aucun effet ni modèle ne correspond."), list_);
    none->setFlags(Qt::NoItemFlags);
    return;
  }
  list_->setCurrentRow(0);
}

void QuickAddPanel::choose() {
  const int row = list_->currentRow();
  if (row < 0 || row >= int(results_.size())) return;
  const KindRef kind = results_[std::size_t(row)];
  choosing_ = true;  // the link to a wire's end serves this choice
  hide();
  choosing_ = false;
  model_.quickAdd(kind);
  model_.quickAddLink.reset();  // used up
  if (onAdded && model_._selected) onAdded(*model_._selected);  // the node added is the one selected
}

bool QuickAddPanel::eventFilter(QObject* watched, QEvent* event) {
  if (watched != field_ || event->type() != QEvent::KeyPress) return QFrame::eventFilter(watched, event);
  auto* key = static_cast<QKeyEvent*>(event);
  const int rows = int(results_.size());
  switch (key->key()) {
    case Qt::Key_Down:
    case Qt::Key_Up:
      if (rows > 0) list_->setCurrentRow((list_->currentRow() + (key->key() == Qt::Key_Down ? 1 : rows - 1)) % rows);
      return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
      choose();
      return true;
    case Qt::Key_Escape:
      hide();
      return true;
    default:
      return false;
  }
}

void QuickAddPanel::hideEvent(QHideEvent* event) {
  QFrame::hideEvent(event);
  model_._quickAddVisible = false;
  if (!choosing_) model_.quickAddLink.reset();  // closed without a choice: the link is forgotten
}

}  // namespace ombrik
