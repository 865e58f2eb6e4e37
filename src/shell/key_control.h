#pragma once
// The stopwatch beside an animatable control: animate or stop animating, and, once animated,
// previous key, add or remove a key at this frame, next key.
#include <QWidget>
#include <string>

#include "graph/uuid.h"

class QToolButton;

namespace ombrik {

class AppModel;

class KeyControl : public QWidget {
public:
  KeyControl(AppModel& model, const Uuid& node, std::string key, QWidget* parent = nullptr);
  void refresh();  // shows whether the parameter is animated and whether a key stands here

private:
  enum class State { still, animated, onKey };
  State state() const;
  void seekKey(int direction);

  AppModel& model_;
  Uuid node_;
  std::string key_;
  QToolButton* watch_ = nullptr;
  QToolButton* previous_ = nullptr;
  QToolButton* toggle_ = nullptr;
  QToolButton* next_ = nullptr;
  State shown_ = State::still;
  bool shownOnce_ = false;
};

}  // namespace ombrik
