// The board's settings: how sounds play together, the stop-everything
// hotkey, hearing what you play, push-to-talk, and the notification area.
#pragma once

#include "board/Board.h"
#include "board/DialogClass.h"
#include "player/PlaybackDevices.h"

#include <vector>

namespace quillon::board {

class SettingsDialog : public DialogClass<SettingsDialog> {
 public:
  explicit SettingsDialog(Board& board) : board_(board) {}
  bool Edit(HWND owner);

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int id, int code);

 private:
  void EnableParts();
  Board& board_;
  std::vector<player::PlaybackDevice> devices_;
};

}  // namespace quillon::board
