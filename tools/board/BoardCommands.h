// Every action of the board has one command id and one handler. The menu bar,
// the accelerators, the notification area's menu and the global hotkeys all
// send these ids through WM_COMMAND, so the paths cannot drift apart. (A
// sound is played by its id, which no command range bounds: from its button,
// its hotkey, or a second start's --play.) The table here says each command's text and key; the menus and the
// accelerator table are made from it.
#pragma once

#include <windows.h>

#include <cstdint>

namespace quillon::board {

enum Command : UINT {
  kAddSounds = 100,
  kAddPage,
  kRenamePage,
  kRemovePage,
  kSettings,
  kExit,
  kPlayFocused,
  kEditSound,
  kRemoveSound,
  kMoveLeft,
  kMoveRight,
  kStopAll,
  kAttach,
  kShowBoard,
  kNextPage,
  kPreviousPage,
  kEffect,
  kFix,
  kFind,
  kOpenBoard,
  kExportBoard,
};

// Which menu a command shows in.
enum class MenuOf { None, Board, Sound, Tray };

struct CommandInfo {
  UINT id;
  MenuOf menu;
  const wchar_t* label;  // with its mnemonic
  BYTE virt;             // accelerator flags (FVIRTKEY | FCONTROL...), 0: none
  WORD key;
  const wchar_t* keyText;  // the accelerator as the menu shows it
};

const CommandInfo* FindCommand(UINT id);
// The menu bar: Board, Sound.
HMENU MakeMenuBar();
// The notification area's menu (a popup).
HMENU MakeTrayMenu();
// The sound's context menu (a popup).
HMENU MakeSoundMenu();
HACCEL MakeAccelerators();

}  // namespace quillon::board
