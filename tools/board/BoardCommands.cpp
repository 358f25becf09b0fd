#include "board/BoardCommands.h"

#include <iterator>
#include <string>
#include <vector>

namespace quillon::board {
namespace {

constexpr BYTE kCtrl = FVIRTKEY | FCONTROL;

// In menu order. A null label is a separator.
const CommandInfo kCommands[] = {
    {kAddSounds, MenuOf::Board, L"&Add sounds\u2026", kCtrl, 'O', L"Ctrl+O"},
    {kAddPage, MenuOf::Board, L"Add &page\u2026", kCtrl, 'T', L"Ctrl+T"},
    {kRenamePage, MenuOf::Board, L"Page setti&ngs\u2026", 0, 0, nullptr},
    {kRemovePage, MenuOf::Board, L"Remo&ve page", 0, 0, nullptr},
    {kFind, MenuOf::Board, L"Fin&d a sound", kCtrl, 'F', L"Ctrl+F"},
    {0, MenuOf::Board, nullptr, 0, 0, nullptr},
    {kOpenBoard, MenuOf::Board, L"Open a &board\u2026", 0, 0, nullptr},
    {kExportBoard, MenuOf::Board, L"Exp&ort the board\u2026", 0, 0, nullptr},
    {0, MenuOf::Board, nullptr, 0, 0, nullptr},
    {kAttach, MenuOf::Board, L"A&ttach Quillon to the microphone\u2026", 0, 0, nullptr},
    {kEffect, MenuOf::Board, L"Microphone &effect\u2026", 0, 0, nullptr},
    {kFix, MenuOf::Board, L"&Fix what keeps Quillon from running\u2026", 0, 0, nullptr},
    {kSettings, MenuOf::Board, L"&Settings\u2026", kCtrl, VK_OEM_COMMA, L"Ctrl+,"},
    {0, MenuOf::Board, nullptr, 0, 0, nullptr},
    {kExit, MenuOf::Board, L"E&xit", 0, 0, nullptr},
    {kPlayFocused, MenuOf::Sound, L"&Play", FVIRTKEY, VK_RETURN, L"Enter"},
    {kStopAll, MenuOf::Sound, L"&Stop everything", FVIRTKEY, VK_ESCAPE, L"Esc"},
    {0, MenuOf::Sound, nullptr, 0, 0, nullptr},
    {kEditSound, MenuOf::Sound, L"&Edit sound\u2026", FVIRTKEY, VK_F2, L"F2"},
    {kMoveLeft, MenuOf::Sound, L"Move &left", kCtrl, VK_LEFT, L"Ctrl+Left"},
    {kMoveRight, MenuOf::Sound, L"Move &right", kCtrl, VK_RIGHT, L"Ctrl+Right"},
    {kRemoveSound, MenuOf::Sound, L"Re&move sound", FVIRTKEY, VK_DELETE, L"Del"},
    {kShowBoard, MenuOf::Tray, L"&Show the board", 0, 0, nullptr},
    {kStopAll, MenuOf::Tray, L"S&top everything", 0, 0, nullptr},
    {0, MenuOf::Tray, nullptr, 0, 0, nullptr},
    {kExit, MenuOf::Tray, L"&Quit", 0, 0, nullptr},
    {kNextPage, MenuOf::None, nullptr, kCtrl, VK_TAB, nullptr},
    {kPreviousPage, MenuOf::None, nullptr, kCtrl | FSHIFT, VK_TAB, nullptr},
};

HMENU MakeMenu(MenuOf which) {
  HMENU menu = CreatePopupMenu();
  for (const CommandInfo& c : kCommands) {
    if (c.menu != which) continue;
    if (c.label == nullptr) {
      AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
      continue;
    }
    std::wstring text = c.label;
    if (c.keyText != nullptr) text += std::wstring(L"\t") + c.keyText;
    AppendMenuW(menu, MF_STRING, c.id, text.c_str());
  }
  return menu;
}

}  // namespace

const CommandInfo* FindCommand(UINT id) {
  for (const CommandInfo& c : kCommands) {
    if (c.id == id && c.label != nullptr) return &c;
  }
  return nullptr;
}

HMENU MakeMenuBar() {
  HMENU bar = CreateMenu();
  AppendMenuW(bar, MF_POPUP, reinterpret_cast<UINT_PTR>(MakeMenu(MenuOf::Board)), L"&Board");
  AppendMenuW(bar, MF_POPUP, reinterpret_cast<UINT_PTR>(MakeMenu(MenuOf::Sound)), L"&Sound");
  return bar;
}

HMENU MakeTrayMenu() { return MakeMenu(MenuOf::Tray); }
HMENU MakeSoundMenu() { return MakeMenu(MenuOf::Sound); }

HACCEL MakeAccelerators() {
  std::vector<ACCEL> table;
  for (const CommandInfo& c : kCommands) {
    if (c.virt != 0 && c.menu != MenuOf::Tray) table.push_back({c.virt, c.key, static_cast<WORD>(c.id)});
  }
  return CreateAcceleratorTableW(table.data(), static_cast<int>(table.size()));
}

}  // namespace quillon::board
