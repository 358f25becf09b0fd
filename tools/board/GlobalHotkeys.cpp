#include "board/GlobalHotkeys.h"

#include "board/BoardCommands.h"
#include "common/ToolSupport.h"

namespace quillon::board {

GlobalHotkeys::~GlobalHotkeys() {
  for (const auto& [id, chord] : registered_) UnregisterHotKey(owner_, static_cast<int>(id));
}

void GlobalHotkeys::Sync(const Board& board) {
  std::map<UINT, tools::KeyChord> wanted;
  for (const Page& page : board.Pages()) {
    for (const Sound& sound : page.sounds) {
      if (sound.hotkey) wanted[PlayCommandOf(sound.id)] = *sound.hotkey;
    }
  }
  if (board.GetSettings().stopAllHotkey) wanted[kStopAll] = *board.GetSettings().stopAllHotkey;
  // Off first, so that a chord moved from one sound to another is free again.
  for (auto it = registered_.begin(); it != registered_.end();) {
    const auto want = wanted.find(it->first);
    if (want == wanted.end() || !(want->second == it->second)) {
      UnregisterHotKey(owner_, static_cast<int>(it->first));
      it = registered_.erase(it);
    } else {
      ++it;
    }
  }
  std::map<UINT, std::string> conflicts;
  for (const auto& [id, chord] : wanted) {
    if (registered_.count(id)) continue;
    if (RegisterHotKey(owner_, static_cast<int>(id), chord.HotkeyModifiers() | MOD_NOREPEAT, chord.key)) {
      registered_[id] = chord;
    } else {
      conflicts[id] = tools::SystemText(GetLastError());
    }
  }
  conflicts_ = std::move(conflicts);
}

}  // namespace quillon::board
