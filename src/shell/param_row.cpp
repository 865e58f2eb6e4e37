#include "shell/param_row.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QResizeEvent>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <algorithm>
#include <cmath>

#include "shell/key_control.h"
#include "shell/shown_text.h"

namespace ombrik {

bool ParamRow::isSwitch(const ParamSpec& spec) {
  return !spec.isMenu() && (spec.isToggle || (spec.min == 0 && spec.max == 1 && spec.step == 1));
}

ParamRow::ParamRow(AppModel& model, const Uuid& node, const ParamSpec& spec, QWidget* parent)
    : QWidget(parent),
      model_(model),
      binding_(model.binding(node, spec.key)),
      spec_(spec),
      scale_(SliderScale::of(spec.min, spec.max, spec.step, spec.unit)) {
  setObjectName(qs("param:" + spec.key));
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 1, 0, 1);
  row->setSpacing(kSpacing);
  auto* label = label_ = new QLabel(qs(spec.label.value()), this);
  label->setWordWrap(true);
  // The label takes half of what the row leaves to it and its control, not its text's length:
  // a long one wraps instead of pushing the value field and the key buttons out of the panel,
  // and the controls of all rows line up. It never goes below its longest word, which would be cut.
  QSizePolicy share(QSizePolicy::Ignored, QSizePolicy::Preferred);
  share.setHeightForWidth(true);
  label->setSizePolicy(share);
  label->setMinimumWidth(std::min(label->minimumSizeHint().width(), 140));

  if (spec.isMenu()) {
    menu_ = new QComboBox(this);
    for (const auto& option : spec.options.value()) menu_->addItem(qs(option));
    // A long choice is cut in the closed menu rather than widening the whole panel; the list and
    // the tooltip show it whole.
    menu_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    menu_->setMinimumContentsLength(8);
    row->addWidget(label, 1);
    row->addWidget(menu_, 1);
    connect(menu_, &QComboBox::currentIndexChanged, this, [this](int i) {
      menu_->setToolTip(menu_->itemText(i));
      store(i);
    });
  } else if (isSwitch(spec)) {
    // The box and its text apart: a check box's own text never wraps and would widen the panel.
    check_ = new QCheckBox(this);
    check_->setAccessibleName(label->text());
    checkLabel_ = label;
    checkLabel_->installEventFilter(this);
    row->addWidget(check_);
    row->addWidget(checkLabel_, 1);
    connect(check_, &QCheckBox::toggled, this, [this](bool on) { store(on ? 1 : 0); });
  } else {
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(0, scale_.ticks);
    slider_->setPageStep(std::max(1, scale_.ticks / 10));
    slider_->setMinimumWidth(40);  // never squeezed to a dot when the key buttons appear
    slider_->installEventFilter(this);
    field_ = new QDoubleSpinBox(this);
    field_->setRange(spec.min, spec.max);
    field_->setSingleStep(spec.step > 0 ? spec.step : 0.01);
    field_->setDecimals(decimalsFor(spec.step));
    field_->setSuffix(qs(spec.unit));
    field_->setKeyboardTracking(false);  // a number is stored once typed, not at every digit
    // A plain number field, as compositors have: the arrow keys and the wheel still step it, and
    // the room of the arrows goes to the slider.
    field_->setButtonSymbols(QAbstractSpinBox::NoButtons);
    field_->setAlignment(Qt::AlignRight);
    field_->setMinimumWidth(kFieldWidth);
    row->addWidget(label, 1);
    row->addWidget(slider_, 1);
    row->addWidget(field_);
    // One drag, one undo step, whatever its pauses.
    connect(slider_, &QSlider::sliderPressed, this, [this] {
      relativeTick_.reset();
      model_.beginGesture();
    });
    connect(slider_, &QSlider::sliderReleased, this, [this] { model_.endGesture(); });
    connect(slider_, &QSlider::valueChanged, this, [this](int t) {
      const double v = scale_.value(t);
      const QSignalBlocker quiet(field_);
      field_->setValue(v);
      store(v);
    });
    connect(field_, &QDoubleSpinBox::valueChanged, this, [this](double v) {
      const QSignalBlocker quiet(slider_);
      slider_->setValue(scale_.tick(v));
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
  if (watched == slider_ && event->type() == QEvent::MouseButtonPress)
    lastX_ = static_cast<QMouseEvent*>(event)->position().x();
  if (watched == slider_ && event->type() == QEvent::MouseMove)
    return dragSlider(static_cast<QMouseEvent*>(event));
  return QWidget::eventFilter(watched, event);
}

bool ParamRow::dragSlider(QMouseEvent* move) {
  const double x = move->position().x();
  const double dx = x - lastX_;
  lastX_ = x;
  const bool fine = move->modifiers() & Qt::ShiftModifier;
  if (!slider_->isSliderDown() || (!fine && !relativeTick_)) return false;  // the slider's own drag
  if (!relativeTick_) relativeTick_ = slider_->sliderPosition();
  // Ticks per pixel of the groove the handle travels, as the style lays it out.
  QStyleOptionSlider option;
  option.initFrom(slider_);
  option.orientation = Qt::Horizontal;
  const int handle = slider_->style()->pixelMetric(QStyle::PM_SliderLength, &option, slider_);
  const double perPixel = double(scale_.ticks) / std::max(1, slider_->width() - handle);
  relativeTick_ = std::clamp(*relativeTick_ + dx * perPixel * (fine ? kFineDrag : 1.0), 0.0, double(scale_.ticks));
  slider_->setSliderPosition(int(std::lround(*relativeTick_)));
  return true;
}

int ParamRow::fieldWidthWanted() const { return field_ ? std::max(kFieldWidth, field_->sizeHint().width()) : 0; }

void ParamRow::alignField(int width) {
  fieldWidth_ = std::max(kFieldWidth, width);
  if (field_) field_->setMinimumWidth(fieldWidth_);
  fitMenuLabel();
}

void ParamRow::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  fitMenuLabel();
}

void ParamRow::fitMenuLabel() {
  if (!menu_) return;
  // A menu starts where the sliders of the rows around it start, and takes their field's room too.
  const int share = (contentsRect().width() - keys_->width() - fieldWidth_ - 3 * kSpacing) / 2;
  const int most = std::max(label_->minimumWidth(), share);
  if (label_->maximumWidth() != most) label_->setMaximumWidth(most);
}

void ParamRow::store(double value) {
  binding_.set(value);
  keys_->refresh();
}

void ParamRow::showValue(double value) {
  if (menu_) {
    const QSignalBlocker quiet(menu_);
    menu_->setCurrentIndex(int(std::lround(value)));
    menu_->setToolTip(menu_->currentText());
  } else if (check_) {
    const QSignalBlocker quiet(check_);
    check_->setChecked(value > 0.5);
  } else {
    const QSignalBlocker quietSlider(slider_), quietField(field_);
    field_->setValue(value);
    slider_->setValue(scale_.tick(value));
  }
}

void ParamRow::refresh() {
  showValue(binding_.get());
  keys_->refresh();
}

}  // namespace ombrik
