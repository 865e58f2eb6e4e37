#pragma once
// The keys of the timeline workspace, as commands. Modifiers are named as the desktop maps them:
// `command` is Ctrl, `option` Alt, `control` the Meta key.
namespace ombrik {

struct TimelineKeyPress {
  int key = 0;  // a Qt::Key
  bool shift = false, command = false, option = false, control = false;
};

enum class TimelineCommand {
  none,           // not a timeline key: the key goes on to whoever else wants it
  blade,
  duplicate,
  toggleEnabled,
  trimStart,
  trimEnd,
  remove,
  rippleRemove,
  moveUp,
  moveDown,
  previousEdit,
  nextEdit,
  selectAll,
  play,           // L: start if stopped
  stop,           // K: stop if playing
  stopAndStepBack,  // J
  home,
  end,
  stepForward,    // Shift+Right: by a second's frames
  stepBack,       // Shift+Left
};

TimelineCommand timelineCommand(const TimelineKeyPress& press);

}  // namespace ombrik
