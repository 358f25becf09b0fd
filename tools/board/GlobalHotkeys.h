// The board's hotkeys, registered with the system on the main window so that
// they work while another program has the focus: those of pages whose
// hotkeys always work, those of the page shown, and the board's own (stop
// everything, next and previous page). A hotkey either runs one of the
// board's commands, registered under the command's id,
// or plays a sound, registered under an id handed out from the range Windows
// leaves to programs and taken back when the hotkey goes: a board's sound ids
// grow without end, the hotkey ids never run out. After an edit, Sync
// registers what changed. A hotkey another program holds is kept as a
// conflict, for the button and the status bar.
#pragma once

#include "board/Board.h"

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::board {

// What a hotkey does: runs `command`, or (command 0) plays `sound`.
struct HotkeyTarget {
  UINT command = 0;
  uint32_t sound = 0;
  static HotkeyTarget Command(UINT id) { return {id, 0}; }
  static HotkeyTarget Sound(uint32_t id) { return {0, id}; }
  bool operator<(const HotkeyTarget& o) const { return command != o.command ? command < o.command : sound < o.sound; }
};

class GlobalHotkeys {
 public:
  explicit GlobalHotkeys(HWND owner) : owner_(owner) {}
  ~GlobalHotkeys();
  GlobalHotkeys(const GlobalHotkeys&) = delete;
  GlobalHotkeys& operator=(const GlobalHotkeys&) = delete;

  void Sync(const Board& board, size_t shownPage);
  // What the hotkey of this id (WM_HOTKEY's) does, or nothing.
  std::optional<HotkeyTarget> TargetOf(int id) const;
  // The hotkeys another program holds, with the system's words.
  const std::map<HotkeyTarget, std::string>& Conflicts() const { return conflicts_; }

 private:
  struct Registered {
    int id;
    tools::KeyChord chord;
  };
  int TakeId();
  void GiveBack(int id);

  HWND owner_;
  std::map<HotkeyTarget, Registered> registered_;
  std::map<int, HotkeyTarget> byId_;
  std::vector<int> freeIds_;
  int nextId_ = 0;  // the next never-used id for a sound's hotkey (0: none used yet)
  std::map<HotkeyTarget, std::string> conflicts_;
};

}  // namespace quillon::board
