#pragma once
// "Réglages de la timeline": name, size (with the usual presets, and a button that turns it on its
// side), frame rate, a fixed or automatic duration, and the background colour. Nothing changes
// until OK; the fields can be filled and applied from code, so tests never wait on the sheet.
#include <QColor>
#include <QDialog>
#include <functional>
#include <optional>

#include "graph/uuid.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace ombrik {

class AppModel;

class TimelineSettings : public QDialog {
public:
  TimelineSettings(AppModel& model, const Uuid& timeline, QWidget* parent = nullptr);

  QLineEdit* nameField() const { return name_; }
  QComboBox* presets() const { return presets_; }
  QSpinBox* widthField() const { return width_; }
  QSpinBox* heightField() const { return height_; }
  QDoubleSpinBox* fpsField() const { return fps_; }
  QCheckBox* automatic() const { return automatic_; }
  QSpinBox* framesField() const { return frames_; }
  QLabel* durationTimecode() const { return timecode_; }
  QColor background() const { return background_; }
  void setBackground(const QColor& c);
  void swapSize();
  // The fields written to the timeline (what OK does).
  void apply();
  // How the colour is chosen, given the present one; none: cancelled. A dialog unless set.
  std::function<std::optional<QColor>(const QColor& present)> askColor;

private:
  void sizeChanged();  // the preset that matches the size, or none
  void durationChanged();

  AppModel& model_;
  Uuid id_;
  QLineEdit* name_ = nullptr;
  QComboBox* presets_ = nullptr;
  QSpinBox* width_ = nullptr;
  QSpinBox* height_ = nullptr;
  QDoubleSpinBox* fps_ = nullptr;
  QCheckBox* automatic_ = nullptr;
  QSpinBox* frames_ = nullptr;
  QLabel* timecode_ = nullptr;
  QPushButton* colour_ = nullptr;
  QColor background_;
  bool backgroundChosen_ = false;  // an absent background stays absent unless one is chosen
  int layersEnd_ = 1;               // the automatic duration
};

}  // namespace ombrik
