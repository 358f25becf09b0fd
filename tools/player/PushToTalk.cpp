#include "player/PushToTalk.h"

namespace quillon::player {

bool HeldKeys::Send(UINT key, bool up) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = static_cast<WORD>(key);
  input.ki.wScan = static_cast<WORD>(MapVirtualKeyW(key, MAPVK_VK_TO_VSC));
  input.ki.dwFlags = up ? KEYEVENTF_KEYUP : 0;
  return SendInput(1, &input, sizeof(input)) == 1;
}

bool HeldKeys::Press(const tools::KeyChord& chord) {
  Release();
  const UINT keys[] = {chord.ctrl ? VK_CONTROL : 0u, chord.alt ? VK_MENU : 0u, chord.shift ? VK_SHIFT : 0u,
                       chord.win ? VK_LWIN : 0u, chord.key};
  for (UINT key : keys) {
    if (key == 0) continue;
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
