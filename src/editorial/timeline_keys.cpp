#include "editorial/timeline_keys.h"

#include <QtCore/qnamespace.h>

namespace ombrik {

TimelineCommand timelineCommand(const TimelineKeyPress& k) {
  const bool plain = !k.shift && !k.command && !k.option && !k.control;
  using C = TimelineCommand;
  switch (k.key) {
    case Qt::Key_B:
      return k.option ? C::none : C::blade;
    case Qt::Key_D:
      if (k.command) return k.shift ? C::blade : C::duplicate;
      return plain ? C::toggleEnabled : C::none;
    case Qt::Key_BracketLeft:
      return k.command ? C::none : C::trimStart;
    case Qt::Key_BracketRight:
      return k.command ? C::none : C::trimEnd;
    case Qt::Key_Backspace:
    case Qt::Key_Delete:
      return k.shift ? C::rippleRemove : C::remove;
    case Qt::Key_Up:
      if (k.option) return C::moveUp;
      return plain ? C::previousEdit : C::none;
    case Qt::Key_Down:
      if (k.option) return C::moveDown;
      return plain ? C::nextEdit : C::none;
    case Qt::Key_A:
      return k.command ? C::selectAll : C::none;
    case Qt::Key_L:
      return plain ? C::play : C::none;
    case Qt::Key_K:
      return plain ? C::stop : C::none;
    case Qt::Key_J:
      return plain ? C::stopAndStepBack : C::none;
    case Qt::Key_Home:
      return C::home;
    case Qt::Key_End:
      return C::end;
    case Qt::Key_Right:
      return k.shift ? C::stepForward : C::none;
    case Qt::Key_Left:
      return k.shift ? C::stepBack : C::none;
    default:
      return C::none;
  }
}

}  // namespace ombrik
