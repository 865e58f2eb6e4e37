#include "shell/group_settings.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
const Node* innerOf(const NodeGroup& g, const Uuid& id) {
  for (const Node& n : g.nodes)
    if (n.id == id) return &n;
  return nullptr;
}

QString settingLabel(const Node* inner, const std::string& key) {
  const ParamSpec* spec = inner ? inner->kind->param(key) : nullptr;
  return spec ? qs(spec->label.value()) : qs(key);
}
}  // namespace

GroupSettings::GroupSettings(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("groupSettings");
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 6, 0, 6);
  column->setSpacing(4);

  auto* nameRow = new QHBoxLayout;
  nameRow->addWidget(new QLabel(shown("Nom du groupe"), this));
  name_ = new QLineEdit(this);
  name_->setObjectName("groupName");
  nameRow->addWidget(name_, 1);
  column->addLayout(nameRow);
  connect(name_, &QLineEdit::editingFinished, this, [this] {
    if (id_) model_.renameGroup(*id_, name_->text().toStdString());
  });

  auto* heading = new QLabel(shown("Réglages montrés"), this);
  heading->setStyleSheet("QLabel { font-weight: bold; }");
  column->addWidget(heading);
  empty_ = new QLabel(shown("Aucun réglage montré : ajoutez celui d'un node du groupe."), this);
  empty_->setWordWrap(true);
  empty_->setStyleSheet("QLabel { color: #9a9aa2; }");
  column->addWidget(empty_);
  rows_ = new QWidget(this);
  rowsLayout_ = new QVBoxLayout(rows_);
  rowsLayout_->setContentsMargins(0, 0, 0, 0);
  rowsLayout_->setSpacing(2);
  column->addWidget(rows_);

  auto* buttons = new QHBoxLayout;
  auto* add = new QToolButton(this);
  add->setObjectName("addGroupControl");
  add->setText(shown("Ajouter un réglage…"));
  connect(add, &QToolButton::clicked, this, [this, add] {
    if (auto menu = addMenu()) menu->exec(add->mapToGlobal(QPoint(0, add->height())));
  });
  auto* open = new QPushButton(shown("Ouvrir le groupe"), this);
  open->setObjectName("openGroup");
  connect(open, &QPushButton::clicked, this, [this] {
    if (id_) model_.expandGroup(*id_, false);
  });
  auto* dissolve = new QPushButton(shown("Défaire le groupe"), this);
  dissolve->setObjectName("dissolveGroup");
  connect(dissolve, &QPushButton::clicked, this, [this] {
    if (id_) model_.expandGroup(*id_, true);
  });
  // The add button stays under the list it adds to; what ends the group comes after.
  auto* adding = new QHBoxLayout;
  adding->addWidget(add);
  adding->addStretch(1);
  column->addLayout(adding);
  buttons->addWidget(open);
  buttons->addWidget(dissolve);
  buttons->addStretch(1);
  column->addSpacing(4);
  column->addLayout(buttons);
  hide();
}

void GroupSettings::refresh(const Node* node) {
  const bool group = node && node->group;
  if (isHidden() == group) setVisible(group);
  if (!group) {
    id_.reset();
    return;
  }
  const bool other = id_ != node->id;
  id_ = node->id;
  const QString name = qs(node->kind->title.raw);
  if (!name_->hasFocus() && name_->text() != name) name_->setText(name);
  if (other || node->group->controls != shownControls_) rebuildControls(*node->group);
}

void GroupSettings::rebuildControls(const NodeGroup& group) {
  shownControls_ = group.controls;
  while (QLayoutItem* item = rowsLayout_->takeAt(0)) {
    // Later: the row's own remove button may be the one whose click got here.
    item->widget()->hide();
    item->widget()->deleteLater();
    delete item;
  }
  empty_->setVisible(group.controls.empty());
  for (std::size_t i = 0; i < group.controls.size(); ++i) {
    const GroupControl& c = group.controls[i];
    const Node* inner = innerOf(group, c.node);
    auto* row = new QWidget(rows_);
    auto* line = new QHBoxLayout(row);
    line->setContentsMargins(0, 0, 0, 0);
    auto* text = new QLabel(row);
    // What the user reads on the group, then where it comes from.
    text->setText(QStringLiteral("<b>%1</b> <span style='color:#9a9aa2'>· %2 › %3</span>")
                      .arg(qs(c.label).toHtmlEscaped(), qs(inner ? inner->title() : std::string("?")).toHtmlEscaped(),
                           settingLabel(inner, c.key).toHtmlEscaped()));
    text->setWordWrap(true);
    auto* remove = new QToolButton(row);
    remove->setObjectName(QStringLiteral("removeGroupControl:%1").arg(i));
    remove->setText(shown("Retirer"));
    connect(remove, &QToolButton::clicked, this, [this, i] {
      std::vector<GroupControl> next = shownControls_;
      if (i < next.size()) next.erase(next.begin() + std::ptrdiff_t(i));
      setControls(std::move(next));
    });
    line->addWidget(text, 1);
    line->addWidget(remove);
    rowsLayout_->addWidget(row);
  }
}

std::unique_ptr<QMenu> GroupSettings::addMenu() {
  const Node* node = id_ ? model_.nodeByID(*id_) : nullptr;
  if (!node || !node->group) return nullptr;
  auto menu = std::make_unique<QMenu>(this);
  menu->setObjectName("addGroupControlMenu");
  for (const Node& inner : node->group->nodes) {
    if (inner.kind->params.empty()) continue;
    QMenu* sub = menu->addMenu(menuText(inner.title()));
    sub->setObjectName(QString::fromStdString("inner:" + inner.id.toString()));
    for (const ParamSpec& spec : inner.kind->params) {
      QAction* a = sub->addAction(menuText(spec.label.value()));
      a->setObjectName(QString::fromStdString(spec.key));
      const GroupControl control{inner.id, spec.key, spec.label.value()};
      const bool shownAlready = std::any_of(shownControls_.begin(), shownControls_.end(), [&](const GroupControl& c) {
        return c.node == control.node && c.key == control.key;
      });
      a->setEnabled(!shownAlready);
      connect(a, &QAction::triggered, this, [this, control, title = inner.title()] {
        std::vector<GroupControl> next = shownControls_;
        GroupControl added = control;
        // Two settings of one name (two blurs' sizes) are told apart by their node.
        if (std::any_of(next.begin(), next.end(), [&](const GroupControl& c) { return c.label == added.label; }))
          added.label += " (" + title + ")";
        next.push_back(added);
        setControls(std::move(next));
      });
    }
  }
  return menu;
}

void GroupSettings::setControls(std::vector<GroupControl> controls) {
  if (!id_) return;
  model_.setGroupControls(*id_, controls);
  if (const Node* n = model_.nodeByID(*id_)) refresh(n);
}

}  // namespace ombrik
