#include "shell/param_row.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <cmath>

#include "shell/key_control.h"
#include "shell/shown_text.h"
#include "shell/slider_scale.h"

namespace ombrik {

bool ParamRow::isSwitch(const ParamSpec& spec) {
  return !spec.isMenu() && (spec.isToggle || (spec.min == 0 && spec.max == 1 && spec.step == 1));
}

ParamRow::ParamRow(AppModel& model, const Uuid& node, const ParamSpec& spec, QWidget* parent)
    : QWidget(parent), model_(model), binding_(model.binding(node, spec.key)), spec_(spec) {
  setObjectName(qs("param:" + spec.key));
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 1, 0, 1);
  row->setSpacing(6);
  auto* label = new QLabel(qs(spec.label.value()), this);
  label->setMinimumWidth(110);
  label->setWordWrap(true);

  if (spec.isMenu()) {
    menu_ = new QComboBox(this);
    for (const auto& option : spec.options.value()) menu_->addItem(qs(option));
    // A long choice is cut in the closed menu rather than widening the whole panel.
    menu_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    menu_->setMinimumContentsLength(8);
    row->addWidget(label);
    row->addWidget(menu_, 1);
    connect(menu_, &QComboBox::currentIndexChanged, this, [this](int i) { store(i); });
  } else if (isSwitch(spec)) {
    // The box and its text apart: a check box's own text never wraps and would widen the panel.
    check_ = new QCheckBox(this);
    check_->setAccessibleName(label->text());
    checkLabel_ = label;
    checkLabel_->setMinimumWidth(0);
    checkLabel_->installEventFilter(this);
    row->addWidget(check_);
    row->addWidget(checkLabel_, 1);
    connect(check_, &QCheckBox::toggled, this, [this](bool on) { store(on ? 1 : 0); });
  } else {
    const SliderScale scale = SliderScale::of(spec.min, spec.max, spec.step);
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(0, scale.ticks);
    slider_->setPageStep(std::max(1, scale.ticks / 10));
    slider_->setMinimumWidth(32);  // never squeezed to a dot when the key buttons appear
    field_ = new QDoubleSpinBox(this);
    field_->setRange(spec.min, spec.max);
    field_->setSingleStep(spec.step > 0 ? spec.step : 0.01);
    field_->setDecimals(decimalsFor(spec.step));
    field_->setSuffix(qs(spec.unit));
    field_->setKeyboardTracking(false);  // a number is stored once typed, not at every digit
    field_->setMinimumWidth(84);
    row->addWidget(label);
    row->addWidget(slider_, 1);
    row->addWidget(field_);
    // One drag, one undo step, whatever its pauses.
    connect(slider_, &QSlider::sliderPressed, this, [this] { model_.beginGesture(); });
    connect(slider_, &QSlider::sliderReleased, this, [this] { model_.endGesture(); });
    connect(slider_, &QSlider::valueChanged, this, [this, scale](int t) {
      const double v = scale.value(t);
      const QSignalBlocker quiet(field_);
      field_->setValue(v);
      store(v);
    });
    connect(field_, &QDoubleSpinBox::valueChanged, this, [this, scale](double v) {
      const QSignalBlocker quiet(slider_);
      slider_->setValue(scale.tick(v));
      store(v);
    });
  }
  keys_ = new KeyControl(model, node, spec.key, this);
  row->addWidget(keys_);
  refresh();
}

bool ParamRow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == checkLabel_ && event->type() == QEvent::MouseButtonRelease) {
    check_->click();  // the text toggles the switch, as a check box's own text does
    return true;
  }
  return QWidget::eventFilter(watched, event);
}

void ParamRow::store(double value) {
  binding_.set(value);
  keys_->refresh();
}

void ParamRow::show(double value) {
  if (menu_) {
    const QSignalBlocker quiet(menu_);
    menu_->setCurrentIndex(int(std::lround(value)));
  } else if (check_) {
    const QSignalBlocker quiet(check_);
    check_->setChecked(value > 0.5);
  } else {
    const QSignalBlocker quietSlider(slider_), quietField(field_);
    field_->setValue(value);
    slider_->setValue(SliderScale::of(spec_.min, spec_.max, spec_.step).tick(value));
  }
}

void ParamRow::refresh() {
  show(binding_.get());
  keys_->refresh();
}

}  // namespace ombrik
