// The board's hotkeys, registered with the system on the main window so that
// they work while another program has the focus. Each sound's hotkey has the
// id of the command that plays it; the stop-everything hotkey the id of that
// command. After an edit, Sync registers what changed. A hotkey another
// program holds is kept as a conflict, for the button and the status bar.
#pragma once

#include "board/Board.h"

#include <windows.h>

#include <map>

namespace quillon::board {

class GlobalHotkeys {
 public:
  explicit GlobalHotkeys(HWND owner) : owner_(owner) {}
  ~GlobalHotkeys();
  GlobalHotkeys(const GlobalHotkeys&) = delete;
  GlobalHotkeys& operator=(const GlobalHotkeys&) = delete;

  void Sync(const Board& board);
  // The command ids whose hotkey another program holds, with the system's words.
  const std::map<UINT, std::string>& Conflicts() const { return conflicts_; }

 private:
  HWND owner_;
  std::map<UINT, tools::KeyChord> registered_;  // by command id
  std::map<UINT, std::string> conflicts_;
};

}  // namespace quillon::board
