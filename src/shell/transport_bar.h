#pragma once
// The row under the picture: frame stepping, play, the timecode and a frame slider.
#include <QWidget>

class QLabel;
class QSlider;
class QToolButton;

namespace ombrik {

enum class TransportGlyph;

class AppModel;

class TransportBar : public QWidget {
public:
  explicit TransportBar(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // follows the model's time; touches the widgets only on a change
  void step(int delta);

private:
  QToolButton* button(TransportGlyph icon, const char* tip, const char* name);

  AppModel& model_;
  QToolButton* play_ = nullptr;
  QLabel* timecode_ = nullptr;
  QSlider* slider_ = nullptr;
  bool shownPlaying_ = false;
};

}  // namespace ombrik
