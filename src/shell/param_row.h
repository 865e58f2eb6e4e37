#pragma once
// One parameter in the inspector: a slider with its number field, a check box or a menu,
// according to the parameter's kind, and the key control. Values go through the model's binding,
// so that animation and undo see every change. The label wraps and shares the row with the
// control, so that a row fits the panel at any width the window gives it.
#include <QWidget>
#include <optional>

#include "document/app_model.h"
#include "graph/param_spec.h"
#include "shell/slider_scale.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QMouseEvent;
class QResizeEvent;
class QSlider;

namespace ombrik {

class KeyControl;

class ParamRow : public QWidget {
public:
  ParamRow(AppModel& model, const Uuid& node, const ParamSpec& spec, QWidget* parent = nullptr);
  void refresh();  // shows the model's value and key state
  const ParamSpec& spec() const { return spec_; }
  // The number field's width: the panel gives all its rows the widest, so that they line up.
  int fieldWidthWanted() const;
  void alignField(int width);
  // A switch: a declared toggle, or a 0..1 range in whole steps.
  static bool isSwitch(const ParamSpec& spec);
  // A drag with Shift held moves the value this many times slower, as compositors' sliders do.
  static constexpr double kFineDrag = 0.1;
  static constexpr int kFieldWidth = 60;  // the number field's least width
  static constexpr int kSpacing = 5;

protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

private:
  void store(double value);
  void showValue(double value);
  bool dragSlider(QMouseEvent* move);  // true when the move was taken over for a fine drag
  void fitMenuLabel();

  AppModel& model_;
  AppModel::Binding binding_;
  ParamSpec spec_;
  SliderScale scale_;
  QSlider* slider_ = nullptr;
  QDoubleSpinBox* field_ = nullptr;
  QCheckBox* check_ = nullptr;
  QLabel* label_ = nullptr;
  int fieldWidth_ = kFieldWidth;
  QLabel* checkLabel_ = nullptr;  // a switch's text, wrapped so that long ones fit the panel
  QComboBox* menu_ = nullptr;
  KeyControl* keys_ = nullptr;
  // A drag once Shift has been used in it moves by the pointer's travel from where the handle
  // stands, so that pressing or releasing Shift never makes the handle jump under the pointer.
  std::optional<double> relativeTick_;
  double lastX_ = 0;
};

}  // namespace ombrik
