#include "board/ControlKeys.h"

#include <cwchar>
#include <initializer_list>

namespace quillon::board {

namespace {

bool TakesKeys(HWND window) {
  wchar_t name[32] = {};
  if (window == nullptr || GetClassNameW(window, name, 32) == 0) return false;
  for (const wchar_t* own : {L"ComboBox", L"ComboLBox", L"Edit", L"ListBox", L"SysListView32"}) {
    if (_wcsicmp(name, own) == 0) return true;
  }
  return false;
}

}  // namespace

bool KeyBelongsToControl(const MSG& msg) {
  if (msg.message != WM_KEYDOWN && msg.message != WM_SYSKEYDOWN) return false;
  switch (msg.wParam) {
    case VK_RETURN:
    case VK_ESCAPE:
    case VK_DELETE:
    case VK_BACK:
    case VK_F2:
    case VK_F4:
    case VK_LEFT:
    case VK_RIGHT:
    case VK_UP:
    case VK_DOWN:
    case VK_HOME:
    case VK_END:
    case VK_PRIOR:
    case VK_NEXT: return TakesKeys(msg.hwnd);
    default: return false;
  }
}

}  // namespace quillon::board
