// Keys that belong to the control that has the focus: Enter, Esc, Delete, F2
// and the moving keys in a combo box (open or not), an edit or a list are that
// control's, not the board's accelerators (Enter would play a sound into the
// call instead of choosing from an open list, and Esc stop everything instead
// of closing it).
#pragma once

#include <windows.h>

namespace quillon::board {

// True when `msg` is a key press the focused control uses itself.
bool KeyBelongsToControl(const MSG& msg);

}  // namespace quillon::board
