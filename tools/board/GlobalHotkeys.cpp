#include "board/GlobalHotkeys.h"

#include "board/BoardCommands.h"
#include "common/ToolSupport.h"

namespace quillon::board {
namespace {

// Sounds' hotkeys take ids above the commands', up to the last a program may use.
constexpr int kFirstSoundHotkey = 0x1000;
constexpr int kLastHotkey = 0xBFFF;

}  // namespace

GlobalHotkeys::~GlobalHotkeys() {
  for (const auto& [target, key] : registered_) UnregisterHotKey(owner_, key.id);
}

int GlobalHotkeys::TakeId() {
  if (!freeIds_.empty()) {
    const int id = freeIds_.back();
    freeIds_.pop_back();
    return id;
  }
  if (nextId_ < kFirstSoundHotkey) nextId_ = kFirstSoundHotkey;
  return nextId_ <= kLastHotkey ? nextId_++ : -1;
}

void GlobalHotkeys::GiveBack(int id) {
  if (id >= kFirstSoundHotkey) freeIds_.push_back(id);
}

std::optional<HotkeyTarget> GlobalHotkeys::TargetOf(int id) const {
  const auto at = byId_.find(id);
  if (at == byId_.end()) return std::nullopt;
  return at->second;
}

void GlobalHotkeys::Sync(const Board& board, size_t shownPage) {
  std::map<HotkeyTarget, tools::KeyChord> wanted;
  for (size_t p = 0; p < board.Pages().size(); ++p) {
    const Page& page = board.Pages()[p];
    if (page.hotkeysOnlyWhenShown && p != shownPage) continue;
    for (const Sound& sound : page.sounds) {
      if (sound.hotkey) wanted[HotkeyTarget::Sound(sound.id)] = *sound.hotkey;
    }
  }
  const Settings& settings = board.GetSettings();
  if (settings.stopAllHotkey) wanted[HotkeyTarget::Command(kStopAll)] = *settings.stopAllHotkey;
  if (settings.nextPageHotkey) wanted[HotkeyTarget::Command(kNextPage)] = *settings.nextPageHotkey;
  if (settings.previousPageHotkey) wanted[HotkeyTarget::Command(kPreviousPage)] = *settings.previousPageHotkey;
  // Off first, so that a chord moved from one sound to another is free again.
  for (auto it = registered_.begin(); it != registered_.end();) {
    const auto want = wanted.find(it->first);
    if (want == wanted.end() || !(want->second == it->second.chord)) {
      UnregisterHotKey(owner_, it->second.id);
      byId_.erase(it->second.id);
      GiveBack(it->second.id);
      it = registered_.erase(it);
    } else {
      ++it;
    }
  }
  std::map<HotkeyTarget, std::string> conflicts;
  for (const auto& [target, chord] : wanted) {
    if (registered_.count(target)) continue;
    const int id = target.command != 0 ? static_cast<int>(target.command) : TakeId();
    if (id < 0) {
      conflicts[target] = "the board has more hotkeys than Windows lets one program register";
      continue;
    }
    if (RegisterHotKey(owner_, id, chord.HotkeyModifiers() | MOD_NOREPEAT, chord.key)) {
      registered_[target] = {id, chord};
      byId_[id] = target;
    } else {
      conflicts[target] = tools::SystemText(GetLastError());
      GiveBack(id);
    }
  }
  conflicts_ = std::move(conflicts);
}

}  // namespace quillon::board
