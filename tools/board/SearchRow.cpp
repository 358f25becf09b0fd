#include "board/SearchRow.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>

namespace quillon::board {

void SearchRow::Create(HWND parent) {
  const HINSTANCE instance = GetModuleHandleW(nullptr);
  const auto make = [&](DWORD exStyle, const wchar_t* type, const wchar_t* text, DWORD style, int id) {
    return CreateWindowExW(exStyle, type, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0, parent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), instance, nullptr);
  };
  label_ = make(0, WC_STATICW, L"Fin&d:", SS_CENTERIMAGE, 0);
  box_ = make(WS_EX_CLIENTEDGE, WC_EDITW, L"", WS_TABSTOP | ES_AUTOHSCROLL, kBoxId);
  allPages_ = make(0, WC_BUTTONW, L"All pa&ges", WS_TABSTOP | BS_AUTOCHECKBOX, kAllPagesId);
  SendMessageW(box_, EM_SETCUEBANNER, TRUE, reinterpret_cast<LPARAM>(L"A sound\u2019s name"));
  SetWindowSubclass(box_, &SearchRow::BoxProcedure, 0, 0);
}

// Enter and Esc are the box's own: the dialog manager would turn them into
// IDOK and IDCANCEL for the main window.
LRESULT CALLBACK SearchRow::BoxProcedure(HWND box, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR, DWORD_PTR) {
  switch (message) {
    case WM_GETDLGCODE:
      if (lParam != 0 && (wParam == VK_RETURN || wParam == VK_ESCAPE)) {
        return DefSubclassProc(box, message, wParam, lParam) | DLGC_WANTALLKEYS;
      }
      break;
    case WM_KEYDOWN:
      if (wParam == VK_RETURN || wParam == VK_ESCAPE) {
        const UINT code = wParam == VK_RETURN ? kEnter : kEscape;
        SendMessageW(GetParent(box), WM_COMMAND, MAKEWPARAM(kBoxId, code), reinterpret_cast<LPARAM>(box));
        return 0;
      }
      break;
    case WM_CHAR:
      if (wParam == L'\r' || wParam == 0x1B) return 0;  // no beep
      break;
    case WM_NCDESTROY: RemoveWindowSubclass(box, &SearchRow::BoxProcedure, 0); break;
    default: break;
  }
  return DefSubclassProc(box, message, wParam, lParam);
}

int SearchRow::Layout(const UiFont& font, int left, int top, int width) {
  const int gap = font.Scale(8);
  const int height = font.LineHeight() + font.Scale(10);
  const int labelWidth = font.CharWidth() * 12;
  const int checkWidth = font.CharWidth() * 12 + font.Scale(24);
  const int boxWidth = std::max(font.CharWidth() * 16, std::min(font.CharWidth() * 40, width - labelWidth - checkWidth - gap));
  MoveWindow(label_, left, top, labelWidth, height, TRUE);
  MoveWindow(box_, left + labelWidth, top, boxWidth, height, TRUE);
  MoveWindow(allPages_, left + labelWidth + boxWidth + gap, top, checkWidth, height, TRUE);
  return height;
}

std::wstring SearchRow::Text() const {
  std::wstring text(static_cast<size_t>(GetWindowTextLengthW(box_)) + 1, L'\0');
  text.resize(static_cast<size_t>(GetWindowTextW(box_, text.data(), static_cast<int>(text.size()))));
  return text;
}

bool SearchRow::AllPages() const { return Button_GetCheck(allPages_) == BST_CHECKED; }

void SearchRow::Clear() { SetWindowTextW(box_, L""); }

void SearchRow::Focus() {
  SetFocus(box_);
  Edit_SetSel(box_, 0, -1);
}

}  // namespace quillon::board
