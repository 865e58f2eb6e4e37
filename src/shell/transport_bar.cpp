#include "shell/transport_bar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QShortcut>
#include <QSignalBlocker>
#include <QToolButton>

#include "document/app_model.h"
#include "shell/frame_slider.h"
#include "shell/shown_text.h"
#include "shell/transport_icons.h"

namespace ombrik {

TransportBar::TransportBar(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("transportBar");
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(6, 2, 6, 2);
  row->setSpacing(2);

  QToolButton* first = button(TransportGlyph::first, "Première image", "firstFrame");
  QToolButton* previous = button(TransportGlyph::previous, "Image précédente (←)", "previousFrame");
  play_ = button(TransportGlyph::play, "Lecture / pause (Espace)", "play");
  QToolButton* next = button(TransportGlyph::next, "Image suivante (→)", "nextFrame");
  QToolButton* last = button(TransportGlyph::last, "Dernière image", "lastFrame");
  for (QToolButton* b : {first, previous, play_, next, last}) row->addWidget(b);

  timecode_ = new QLabel(this);
  timecode_->setObjectName("timecode");
  timecode_->setStyleSheet("QLabel { font-family: monospace; padding: 0 8px; }");
  row->addWidget(timecode_);

  slider_ = new FrameSlider(this);
  slider_->setObjectName("frameSlider");
  slider_->setFocusPolicy(Qt::NoFocus);  // the arrow keys step frames for the whole window
  row->addWidget(slider_, 1);

  connect(first, &QToolButton::clicked, this, [this] { model_.seekFrame(0); });
  connect(previous, &QToolButton::clicked, this, [this] { step(-1); });
  connect(play_, &QToolButton::clicked, this, [this] { model_.togglePlay(); });
  connect(next, &QToolButton::clicked, this, [this] { step(1); });
  connect(last, &QToolButton::clicked, this, [this] { model_.seekFrame(model_._frameCount - 1); });
  connect(slider_, &QSlider::valueChanged, this, [this](int n) { model_.seekFrame(n); });

  auto key = [this](Qt::Key k, auto action) {
    auto* s = new QShortcut(QKeySequence(k), this);
    s->setContext(Qt::WindowShortcut);
    connect(s, &QShortcut::activated, this, action);
  };
  key(Qt::Key_Left, [this] { step(-1); });
  key(Qt::Key_Right, [this] { step(1); });
  key(Qt::Key_Space, [this] { model_.togglePlay(); });
  refresh();
}

QToolButton* TransportBar::button(TransportGlyph icon, const char* tip, const char* name) {
  auto* b = new QToolButton(this);
  b->setIcon(transportIcon(icon));
  b->setToolTip(shown(tip));
  b->setObjectName(name);
  b->setAutoRaise(true);
  b->setFocusPolicy(Qt::NoFocus);
  return b;
}

void TransportBar::step(int delta) { model_.seekFrame(model_._currentFrame + delta); }

void TransportBar::refresh() {
  const QString tc = qs(model_.timecode());
  if (timecode_->text() != tc) timecode_->setText(tc);
  const int top = std::max(0, model_._frameCount - 1);
  if (slider_->maximum() != top || slider_->value() != model_._currentFrame) {
    const QSignalBlocker quiet(slider_);  // showing the time is no request to seek
    slider_->setRange(0, top);
    slider_->setValue(model_._currentFrame);
  }
  slider_->setKeys(model_.keyedFrames());
  if (shownPlaying_ != model_._isPlaying) {
    shownPlaying_ = model_._isPlaying;
    play_->setIcon(transportIcon(shownPlaying_ ? TransportGlyph::pause : TransportGlyph::play));
  }
}

}  // namespace ombrik
