#include "shell/track_buttons.h"

#include <QActionGroup>
#include <QHBoxLayout>
#include <QMenu>
#include <QProgressBar>
#include <QToolButton>

#include "document/app_model.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
// No neural point tracker can be installed here: the precise engine says what it really is.
constexpr const char* kEngineTip =
    "Rapide : Lucas–Kanade pyramidal sur les détails du masque, contrôle aller-retour · Précis : flux optique dense "
    "(OpenCV DIS) à la résolution choisie. Aucun tracker neuronal n'est installé.";
}  // namespace

TrackButtons::TrackButtons(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("trackButtons");
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(3);
  auto button = [&](const char* name, const char* text, const char* tip, auto action) {
    auto* b = new QToolButton(this);
    b->setObjectName(name);
    b->setText(shown(text));
    b->setToolTip(shown(tip));
    b->setFocusPolicy(Qt::NoFocus);
    row->addWidget(b);
    connect(b, &QToolButton::clicked, this, [this, action] {
      if (const auto node = model_.rotoNode()) action(*node);
      refresh();
    });
    return b;
  };
  back_ = button("trackBack", "◀ Tracker", "Tracker vers l'arrière depuis cette image",
                 [this](const Uuid& id) { model_.trackMask(id, false); });
  both_ = button("trackBoth", "◀ ▶", "Tracker vers l'avant puis vers l'arrière depuis cette image",
                 [this](const Uuid& id) { model_.trackMaskBoth(id); });
  forward_ = button("trackForward", "Tracker ▶", "Tracker vers l'avant depuis cette image",
                    [this](const Uuid& id) { model_.trackMask(id, true); });
  stop_ = button("trackStop", "Arrêter", "Arrêter le tracking (Échap) : ce qui est suivi reste",
                 [this](const Uuid&) { model_.stopTracking(); });

  engine_ = new QToolButton(this);
  engine_->setObjectName("trackEngine");
  engine_->setToolTip(shown(kEngineTip));
  engine_->setPopupMode(QToolButton::InstantPopup);
  engine_->setFocusPolicy(Qt::NoFocus);
  auto* menu = new QMenu(engine_);
  auto choice = [&](QActionGroup* group, const QString& text, bool checked, auto pick) {
    QAction* a = menu->addAction(text);
    a->setCheckable(true);
    a->setChecked(checked);
    group->addAction(a);
    connect(a, &QAction::triggered, this, [this, pick] {
      pick();
      refresh();
    });
  };
  auto* engines = new QActionGroup(menu);
  for (TrackEngine e : {TrackEngine::fast, TrackEngine::precise})
    choice(engines, shown(trackEngineName(e)), model_.tracking.engine == e, [this, e] { model_.setTrackEngine(e); });
  menu->addSeparator();
  auto* modes = new QActionGroup(menu);
  for (TrackMode m : {TrackMode::planar, TrackMode::point})
    choice(modes, shown(m == TrackMode::planar ? "Mode Planar (rotation, échelle, perspective)" : "Mode Position (déplacement seul)"),
           model_.tracking.mode == m, [this, m] { model_.tracking.mode = m; });
  menu->addSeparator();
  auto* counts = new QActionGroup(menu);
  for (int n : {25, 50, 100, 200, 400})
    choice(counts, shown("%d points de suivi").replace("%d", QString::number(n)), model_.tracking.pointCount == n,
           [this, n] { model_.tracking.pointCount = n; });
  menu->addSeparator();
  auto* sizes = new QActionGroup(menu);
  for (int side : {512, 1920})
    choice(sizes, shown("Précis : travail en %d px").replace("%d", QString::number(side)), model_.tracking.resolution == side,
           [this, side] { model_.tracking.resolution = side; });
  engine_->setMenu(menu);
  row->addWidget(engine_);

  // Pins before a track, corrections after one.
  keys_ = new QToolButton(this);
  keys_->setObjectName("trackKeys");
  keys_->setText(shown("Clés"));
  keys_->setToolTip(shown("Clés de référence avant le track, corrections à la main après"));
  keys_->setPopupMode(QToolButton::InstantPopup);
  keys_->setFocusPolicy(Qt::NoFocus);
  auto* keys = new QMenu(keys_);
  auto onNode = [&](const char* name, const char* text, auto action) {
    QAction* a = keys->addAction(shown(text));
    a->setObjectName(name);
    connect(a, &QAction::triggered, this, [this, action] {
      if (const auto node = model_.rotoNode()) action(*node);
      refresh();
    });
    return a;
  };
  onNode("pinHere", "Poser une clé ici", [this](const Uuid& id) { model_.pinHere(id); });
  onNode("trackWithPins", "Tracker entre les clés", [this](const Uuid& id) { model_.trackWithPins(id); });
  onNode("removePin", "Retirer la clé de cette image", [this](const Uuid& id) { model_.removePin(id, model_._currentFrame); });
  onNode("clearPins", "Effacer les clés", [this](const Uuid& id) { model_.clearPins(id); });
  keys->addSeparator();
  onNode("resumeTrack", "Reprendre le track ici", [this](const Uuid& id) { model_.trackMask(id, true); });
  onNode("offsetZero", "Offset à zéro ici", [this](const Uuid& id) { model_.offsetZeroHere(id); });
  onNode("clearTrack", "Effacer le track", [this](const Uuid& id) { model_.clearTrack(id); });
  keys->addSeparator();
  correct_ = keys->addAction(shown("Corriger en déplaçant le masque (clés d'offset)"));
  correct_->setObjectName("trackCorrect");
  correct_->setCheckable(true);
  connect(correct_, &QAction::toggled, this, [this](bool on) { model_.setTrackCorrect(on); });
  keys_->setMenu(keys);
  row->addWidget(keys_);

  progress_ = new QProgressBar(this);
  progress_->setObjectName("trackProgress");
  progress_->setRange(0, 1000);
  progress_->setTextVisible(false);
  progress_->setFixedWidth(90);
  progress_->setFixedHeight(8);
  row->addWidget(progress_);
  refresh();
}

void TrackButtons::refresh() {
  const bool running = model_._trackingProgress.has_value();
  for (QToolButton* b : {back_, both_, forward_}) b->setEnabled(!running);
  stop_->setEnabled(running);
  engine_->setEnabled(!running);
  keys_->setEnabled(!running);
  if (correct_->isChecked() != model_.tracking.correct) correct_->setChecked(model_.tracking.correct);
  const QString label = shown(trackEngineName(model_.tracking.engine)) + " · " + shown(trackModeName(model_.tracking.mode));
  if (engine_->text() != label) engine_->setText(label);
  progress_->setVisible(running);
  if (running) progress_->setValue(int(*model_._trackingProgress * 1000));
}

}  // namespace ombrik
