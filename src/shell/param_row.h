#pragma once
// One parameter in the inspector: a slider with its number field, a check box or a menu,
// according to the parameter's kind, and the key control. Values go through the model's binding,
// so that animation and undo see every change.
#include <QWidget>

#include "document/app_model.h"
#include "graph/param_spec.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QSlider;

namespace ombrik {

class KeyControl;

class ParamRow : public QWidget {
public:
  ParamRow(AppModel& model, const Uuid& node, const ParamSpec& spec, QWidget* parent = nullptr);
  void refresh();  // shows the model's value and key state
  const ParamSpec& spec() const { return spec_; }
  // A switch: a declared toggle, or a 0..1 range in whole steps.
  static bool isSwitch(const ParamSpec& spec);

protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  void store(double value);
  void show(double value);

  AppModel& model_;
  AppModel::Binding binding_;
  ParamSpec spec_;
  QSlider* slider_ = nullptr;
  QDoubleSpinBox* field_ = nullptr;
  QCheckBox* check_ = nullptr;
  QLabel* checkLabel_ = nullptr;  // a switch's text, wrapped so that long ones fit the panel
  QComboBox* menu_ = nullptr;
  KeyControl* keys_ = nullptr;
};

}  // namespace ombrik
