#pragma once
// The row under the picture: frame stepping, play, the timecode and the time bar, where a click
// goes to a frame and the inspected node's keys are marked.
#include <QWidget>

class QLabel;
class QToolButton;

namespace ombrik {

enum class TransportGlyph;

class AppModel;
class FrameSlider;

class TransportBar : public QWidget {
public:
  explicit TransportBar(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // follows the model's time; touches the widgets only on a change
  void step(int delta);
  FrameSlider* timeBar() const { return slider_; }

private:
  QToolButton* button(TransportGlyph icon, const char* tip, const char* name);

  AppModel& model_;
  QToolButton* play_ = nullptr;
  QLabel* timecode_ = nullptr;
  FrameSlider* slider_ = nullptr;
  bool shownPlaying_ = false;
};

}  // namespace ombrik
