// The sound's editor: its name, its hotkey and its volume. OK asks the board
// to make each change, and stays open with the board's reason when one is
// refused (a hotkey in use, an empty name, a volume out of range).
#pragma once

#include "board/Board.h"
#include "board/DialogClass.h"

namespace quillon::board {

class SoundDialog : public DialogClass<SoundDialog> {
 public:
  SoundDialog(Board& board, uint32_t sound) : board_(board), sound_(sound) {}
  bool Edit(HWND owner);

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int id, int code);

 private:
  Board& board_;
  uint32_t sound_;
};

// Reads and writes a hotkey control (msctls_hotkey32) as a chord.
std::optional<tools::KeyChord> HotkeyOf(HWND control);
void ShowHotkey(HWND control, const std::optional<tools::KeyChord>& chord);

}  // namespace quillon::board
