// The sound's editor: its name, its hotkey, its volume, its colour, and the
// part of its file played, over the file's waveform; its measured loudness
// and what evening it out does; and Preview, to hear it as edited. OK asks the board to
// make each change, and stays open with the board's reason when one is
// refused (a hotkey in use, an empty name, a volume out of range, an end
// before the start).
#pragma once

#include "board/Board.h"
#include "board/DialogClass.h"
#include "board/WaveformView.h"

#include <functional>

namespace quillon::board {

class SoundDialog : public DialogClass<SoundDialog> {
 public:
  // `file` is the sound's file as a full path, for its waveform; `preview`
  // plays the sound as the fields have it.
  SoundDialog(Board& board, uint32_t sound, std::wstring file, std::function<void(Sound)> preview)
      : board_(board), sound_(sound), file_(std::move(file)), preview_(std::move(preview)) {}
  bool Edit(HWND owner);

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int id, int code);

 private:
  Board& board_;
  uint32_t sound_;
  // The sound's volume and part as typed; false (refused, with the field) when one is not a number.
  bool ReadFields(double& volume, uint64_t& startMs, uint64_t& endMs);

  std::wstring file_;
  std::function<void(Sound)> preview_;
  WaveformView wave_;
  bool syncing_ = false;  // the fields and the markers follow each other without echo
};

// Reads and writes a hotkey control (msctls_hotkey32) as a chord.
std::optional<tools::KeyChord> HotkeyOf(HWND control);
void ShowHotkey(HWND control, const std::optional<tools::KeyChord>& chord);

}  // namespace quillon::board
