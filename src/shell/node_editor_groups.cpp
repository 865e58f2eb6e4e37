// Groups in the editor: the frames of open groups (with the chip that closes each) and the
// entries of a node's menu that open, dissolve or make a group.
#include <QFontMetricsF>
#include <QMenu>
#include <algorithm>

#include "document/app_model.h"
#include "groups/group_fold.h"
#include "shell/node_editor.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
constexpr double kChipHeight = 20;
constexpr double kChipInset = 6;  // from the frame's top right corner

const OpenGroup* openGroup(const AppModel& model, const Uuid& id) {
  const auto it = std::find_if(model._openGroups.begin(), model._openGroups.end(),
                               [&](const OpenGroup& g) { return g.id == id; });
  return it == model._openGroups.end() ? nullptr : &*it;
}

bool isMediaOrOutput(const Node* n) { return n && (n->kind->id == "media" || n->kind->id == "output"); }
}  // namespace

QRectF NodeEditor::groupFrame(const Uuid& id) const {
  const OpenGroup* g = openGroup(model_, id);
  if (!g) return {};
  // The very box the group closes over, so that what is seen inside is what it takes in.
  const auto box = openGroupFrame(GraphSnapshot{model_._nodes, {}, model_.layout.positions()}, *g);
  if (!box) return {};
  return QRectF(toView({box->minX, box->minY}), toView({box->maxX, box->maxY}));
}

QRectF NodeEditor::closeChip(const Uuid& id) const {
  const QRectF frame = groupFrame(id);
  if (frame.isEmpty()) return {};
  QFont f = font();
  f.setBold(true);
  f.setPixelSize(12);
  const double w = QFontMetricsF(f).horizontalAdvance(shown("Refermer")) + 16;
  return QRectF(frame.right() - kChipInset - w, frame.top() + kChipInset, w, kChipHeight);
}

std::vector<GroupFrameShown> NodeEditor::groupFramesShown() const {
  std::vector<GroupFrameShown> out;
  for (const OpenGroup& g : model_._openGroups)
    if (const QRectF frame = groupFrame(g.id); !frame.isEmpty())
      out.push_back({frame, closeChip(g.id), qs(g.name), shown("Refermer")});
  return out;
}

bool NodeEditor::pressCloseChip(QPointF at) {
  for (const OpenGroup& g : model_._openGroups)
    if (closeChip(g.id).contains(at)) {
      model_.closeGroup(g.id);
      refresh();
      return true;
    }
  return false;
}

void NodeEditor::addGroupEntries(QMenu& menu, const Uuid& id, const std::set<Uuid>& selection) {
  const Node* node = model_.nodeByID(id);
  if (!node) return;
  menu.addSeparator();
  if (node->group) {
    QAction* open = menu.addAction(shown("Ouvrir le groupe"));
    open->setObjectName("openGroup");
    connect(open, &QAction::triggered, this, [this, id] { model_.expandGroup(id, false); });
    QAction* dissolve = menu.addAction(shown("Défaire le groupe"));
    dissolve->setObjectName("dissolveGroup");
    connect(dissolve, &QAction::triggered, this, [this, id] { model_.expandGroup(id, true); });
    QAction* save = menu.addAction(shown("Enregistrer le groupe dans Mes nodes"));
    save->setObjectName("saveGroupToLibrary");
    connect(save, &QAction::triggered, this, [this, id] { model_.saveGroupToLibrary(id); });
  }
  for (const OpenGroup& g : model_._openGroups)
    if (std::count(g.members.begin(), g.members.end(), id)) {
      QAction* close = menu.addAction(shown("Refermer le groupe"));
      close->setObjectName("closeGroup");
      connect(close, &QAction::triggered, this, [this, gid = g.id] { model_.closeGroup(gid); });
      break;
    }
  // The menu's node and the selection it belongs to; media and output always stay outside.
  const bool groupable = std::any_of(selection.begin(), selection.end(),
                                     [&](const Uuid& s) { return !isMediaOrOutput(model_.nodeByID(s)); });
  QAction* merge = menu.addAction(shown("Grouper la sélection"));
  merge->setObjectName("mergeSelection");
  merge->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_G));
  merge->setEnabled(groupable);
  connect(merge, &QAction::triggered, this, [this, id] {
    // A node right-clicked outside the selection is grouped alone, as the other entries take it.
    if (!model_.isSelected(id)) model_.select(id);
    model_.mergeSelection("Groupe");
  });
}

}  // namespace ombrik
