#include "shell/frame_slider.h"

#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionSlider>
#include <cmath>

namespace ombrik {

namespace {
const QColor kKeyTick(240, 181, 74);  // the amber of the inspector's key buttons
}

FrameSlider::FrameSlider(QWidget* parent) : QSlider(Qt::Horizontal, parent) {}

void FrameSlider::setKeys(const std::set<int>& frames) {
  if (frames == keys_) return;
  keys_ = frames;
  update();
}

// The handle's middle travels the groove less the handle's own length.
double FrameSlider::xOf(int frame) const {
  QStyleOptionSlider opt;
  initStyleOption(&opt);
  const QRect groove = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderGroove, this);
  const QRect handle = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderHandle, this);
  const int span = groove.width() - handle.width();
  return groove.x() + handle.width() / 2.0 +
         QStyle::sliderPositionFromValue(minimum(), maximum(), frame, span, opt.upsideDown);
}

int FrameSlider::frameAt(double x) const {
  QStyleOptionSlider opt;
  initStyleOption(&opt);
  const QRect groove = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderGroove, this);
  const QRect handle = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderHandle, this);
  const int span = groove.width() - handle.width();
  const int at = int(std::lround(x - groove.x() - handle.width() / 2.0));
  return QStyle::sliderValueFromPosition(minimum(), maximum(), at, span, opt.upsideDown);
}

void FrameSlider::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) {
    QStyleOptionSlider opt;
    initStyleOption(&opt);
    const QRect handle = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderHandle, this);
    // The handle comes under the pointer, so that the same press goes on as a drag from there.
    if (!handle.contains(event->position().toPoint())) setValue(frameAt(event->position().x()));
  }
  QSlider::mousePressEvent(event);
}

void FrameSlider::paintEvent(QPaintEvent* event) {
  QSlider::paintEvent(event);
  if (keys_.empty()) return;
  QPainter p(this);
  p.setPen(QPen(kKeyTick, 2));
  // Above and below the groove, where the handle doesn't hide them.
  const int h = height();
  for (int f : keys_) {
    if (f < minimum() || f > maximum()) continue;
    const double x = std::round(xOf(f));
    p.drawLine(QPointF(x, 0), QPointF(x, 4));
    p.drawLine(QPointF(x, h - 5), QPointF(x, h - 1));
  }
}

}  // namespace ombrik
