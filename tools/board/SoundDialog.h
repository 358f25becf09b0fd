// The sound's editor: its name, its hotkey, its volume, its colour, and the
// part of its file played, over the file's waveform. OK asks the board to
// make each change, and stays open with the board's reason when one is
// refused (a hotkey in use, an empty name, a volume out of range, an end
// before the start).
#pragma once

#include "board/Board.h"
#include "board/DialogClass.h"
#include "board/WaveformView.h"

namespace quillon::board {

class SoundDialog : public DialogClass<SoundDialog> {
 public:
  // `file` is the sound's file as a full path, for its waveform.
  SoundDialog(Board& board, uint32_t sound, std::wstring file) : board_(board), sound_(sound), file_(std::move(file)) {}
  bool Edit(HWND owner);

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int id, int code);

 private:
  Board& board_;
  uint32_t sound_;
  std::wstring file_;
  WaveformView wave_;
  bool syncing_ = false;  // the fields and the markers follow each other without echo
};

// Reads and writes a hotkey control (msctls_hotkey32) as a chord.
std::optional<tools::KeyChord> HotkeyOf(HWND control);
void ShowHotkey(HWND control, const std::optional<tools::KeyChord>& chord);

}  // namespace quillon::board
