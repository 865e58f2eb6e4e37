#include "shell/key_control.h"

#include <QHBoxLayout>
#include <QToolButton>

#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
constexpr int kButtonWidth = 16;  // four of them beside a slider in a narrow panel

QToolButton* glyphButton(QWidget* parent, const char* glyph, const char* name) {
  auto* b = new QToolButton(parent);
  b->setText(QString::fromUtf8(glyph));
  b->setObjectName(name);
  b->setAutoRaise(true);
  b->setFocusPolicy(Qt::NoFocus);
  b->setFixedSize(kButtonWidth, 18);
  return b;
}
}  // namespace

KeyControl::KeyControl(AppModel& model, const Uuid& node, std::string key, QWidget* parent)
    : QWidget(parent), model_(model), node_(node), key_(std::move(key)) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  watch_ = glyphButton(this, "◔", "stopwatch");
  previous_ = glyphButton(this, "‹", "previousKey");
  toggle_ = glyphButton(this, "◇", "toggleKey");
  next_ = glyphButton(this, "›", "nextKey");
  previous_->setToolTip(shown("Clé précédente"));
  next_->setToolTip(shown("Clé suivante"));
  for (QToolButton* b : {watch_, previous_, toggle_, next_}) row->addWidget(b);
  row->addStretch(1);
  // The room of all four, even while only the stopwatch shows: animating a setting doesn't move
  // its slider, and the controls of all rows line up.
  setFixedWidth(4 * kButtonWidth);
  connect(watch_, &QToolButton::clicked, this, [this] {
    model_.toggleAnim(node_, key_);
    refresh();
  });
  connect(toggle_, &QToolButton::clicked, this, [this] {
    model_.toggleKey(node_, key_);
    refresh();
  });
  connect(previous_, &QToolButton::clicked, this, [this] { seekKey(-1); });
  connect(next_, &QToolButton::clicked, this, [this] { seekKey(1); });
  refresh();
}

KeyControl::State KeyControl::state() const {
  const Node* n = model_.nodeByID(node_);
  if (!n) return State::still;
  auto it = n->anim.find(key_);
  if (it == n->anim.end()) return State::still;
  for (const auto& k : it->second)
    if (k.f == model_._currentFrame) return State::onKey;
  return State::animated;
}

void KeyControl::seekKey(int direction) {
  const Node* n = model_.nodeByID(node_);
  if (!n) return;
  auto it = n->anim.find(key_);
  if (it == n->anim.end()) return;
  std::optional<std::int64_t> target;
  for (const auto& k : it->second) {
    if (direction < 0 && k.f < model_._currentFrame && (!target || k.f > *target)) target = k.f;
    if (direction > 0 && k.f > model_._currentFrame && (!target || k.f < *target)) target = k.f;
  }
  if (target) model_.seekFrame(int(*target));
}

void KeyControl::refresh() {
  const State now = state();
  if (shownOnce_ && now == shown_) return;
  shownOnce_ = true;
  shown_ = now;
  const bool animated = now != State::still;
  watch_->setToolTip(shown(animated ? "Animé : cliquer pour couper l'animation (la valeur courante devient fixe)"
                                    : "Chronomètre : animer ce réglage avec des images clés"));
  watch_->setStyleSheet(animated ? "QToolButton { color: #f0b54a; }" : "QToolButton { color: #8a8a92; }");
  for (QToolButton* b : {previous_, toggle_, next_}) b->setVisible(animated);
  toggle_->setText(QString::fromUtf8(now == State::onKey ? "◆" : "◇"));
  toggle_->setStyleSheet("QToolButton { color: #f0b54a; }");
  toggle_->setToolTip(shown(now == State::onKey ? "Retirer la clé de cette image" : "Ajouter une clé à cette image"));
}

}  // namespace ombrik
