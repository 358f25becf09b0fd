// A key with optional modifiers, written as text the way Windows shows
// shortcuts: "V", "F13", "Ctrl+Shift+T", "Alt+Num5", "0x7C". Shared by
// push-to-talk and the board's hotkeys.
#pragma once

#include <windows.h>

#include <string>

namespace quillon::tools {

struct KeyChord {
  bool ctrl = false, alt = false, shift = false, win = false;
  UINT key = 0;  // the virtual-key code
  // The key's second place on the keyboard, which shares its virtual key:
  // the numeric keypad's Enter ("NumEnter") beside Enter.
  bool extended = false;

  // The modifiers as RegisterHotKey takes them (MOD_CONTROL...).
  UINT HotkeyModifiers() const;
  // "Ctrl+Shift+T".
  std::string Text() const;

  bool operator==(const KeyChord&) const = default;
};

// Reads `text` (case does not matter); on failure returns false and `error`
// names what was not understood.
bool ParseKeyChord(const std::string& text, KeyChord& chord, std::string& error);

}  // namespace quillon::tools
