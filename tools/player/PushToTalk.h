// Holds a push-to-talk key down through SendInput, as if the user held it, so
// that a voice program in push-to-talk mode transmits what plays. The keys go
// down modifiers first and come up in the reverse order; whatever was pressed
// is released when the holder goes away, on every path out.
#pragma once

#include "common/KeyChord.h"

#include <windows.h>

#include <vector>

namespace quillon::player {

class HeldKeys {
 public:
  HeldKeys() { down_.reserve(5); }
  HeldKeys(const HeldKeys&) = delete;
  HeldKeys& operator=(const HeldKeys&) = delete;
  ~HeldKeys() { Release(); }

  // Presses the chord's keys; false when Windows refused any (those pressed
  // are released again).
  bool Press(const tools::KeyChord& chord);
  void Release();
  bool Held() const { return !down_.empty(); }

 private:
  struct Key {
    UINT key;
    bool extended;
  };
  static bool Send(Key key, bool up);
  std::vector<Key> down_;  // in the order pressed
};

}  // namespace quillon::player
