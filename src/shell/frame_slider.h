#pragma once
// The time bar's slider: a click anywhere on it goes to that frame (a plain slider would step by a
// page), and the frames that hold keys are marked on it.
#include <QSlider>
#include <set>

namespace ombrik {

class FrameSlider : public QSlider {
public:
  explicit FrameSlider(QWidget* parent = nullptr);
  void setKeys(const std::set<int>& frames);
  const std::set<int>& keys() const { return keys_; }
  int frameAt(double x) const;  // the frame under a point of the widget
  double xOf(int frame) const;  // the middle of the handle standing at a frame

protected:
  void mousePressEvent(QMouseEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

private:
  std::set<int> keys_;
};

}  // namespace ombrik
