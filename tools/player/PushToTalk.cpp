#include "player/PushToTalk.h"

namespace quillon::player {

namespace {

// Keys whose scan code comes after the 0xE0 prefix: a game that reads scan
// codes (or tells right Ctrl from left) sees them only with the extended flag.
bool Extended(UINT key) {
  switch (key) {
    case VK_RCONTROL: case VK_RMENU: case VK_LWIN: case VK_RWIN: case VK_APPS:
    case VK_INSERT: case VK_DELETE: case VK_HOME: case VK_END: case VK_PRIOR: case VK_NEXT:
    case VK_LEFT: case VK_RIGHT: case VK_UP: case VK_DOWN:
    case VK_DIVIDE: case VK_NUMLOCK: case VK_SNAPSHOT:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool HeldKeys::Send(Key key, bool up) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = static_cast<WORD>(key.key);
  // The scan code without its prefix: the flag stands for the prefix.
  input.ki.wScan = static_cast<WORD>(MapVirtualKeyW(key.key, MAPVK_VK_TO_VSC) & 0xFF);
  input.ki.dwFlags = (up ? KEYEVENTF_KEYUP : 0) | (key.extended ? KEYEVENTF_EXTENDEDKEY : 0);
  return SendInput(1, &input, sizeof(input)) == 1;
}

bool HeldKeys::Press(const tools::KeyChord& chord) {
  Release();
  const Key keys[] = {{chord.ctrl ? VK_CONTROL : 0u, false},
                      {chord.alt ? VK_MENU : 0u, false},
                      {chord.shift ? VK_SHIFT : 0u, false},
                      {chord.win ? VK_LWIN : 0u, true},
                      {chord.key, chord.extended || Extended(chord.key)}};
  for (const Key& key : keys) {
    if (key.key == 0) continue;
    if (!Send(key, false)) {
      Release();
      return false;
    }
    down_.push_back(key);
  }
  return true;
}

void HeldKeys::Release() {
  for (auto key = down_.rbegin(); key != down_.rend(); ++key) Send(*key, true);
  down_.clear();
}

}  // namespace quillon::player
