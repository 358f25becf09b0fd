// A modal dialog from the board's resources whose messages go to a C++
// object: the dialog procedure finds it through DWLP_USER, set from the
// parameter of WM_INITDIALOG.
#pragma once

#include "board/BoardResources.h"

#include <windows.h>

#include <string>

namespace quillon::board {

template <typename Derived>
class DialogClass {
 public:
  // Shows the dialog; true when it ended with OK.
  bool Run(HWND owner, int resource) {
    return DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(resource), owner, &DialogClass::Procedure,
                           reinterpret_cast<LPARAM>(this)) == IDOK;
  }

 protected:
  HWND hwnd_ = nullptr;

  std::wstring ItemText(int id) const {
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(GetDlgItem(hwnd_, id))) + 1, L'\0');
    text.resize(static_cast<size_t>(GetDlgItemTextW(hwnd_, id, text.data(), static_cast<int>(text.size()))));
    return text;
  }
  // Says why the dialog cannot close yet, under its fields, and focuses `id`.
  void Refuse(const std::wstring& why, int id) {
    SetDlgItemTextW(hwnd_, IDC_REFUSAL, why.c_str());
    SetFocus(GetDlgItem(hwnd_, id));
    MessageBeep(MB_ICONWARNING);
  }

 private:
  static INT_PTR CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<Derived*>(GetWindowLongPtrW(hwnd, DWLP_USER));
    if (message == WM_INITDIALOG) {
      self = reinterpret_cast<Derived*>(lParam);
      self->hwnd_ = hwnd;
      SetWindowLongPtrW(hwnd, DWLP_USER, lParam);
      return self->OnInit();
    }
    if (self == nullptr) return FALSE;
    if (message == WM_COMMAND) {
      const int id = LOWORD(wParam);
      if (id == IDOK) {
        if (self->OnOk()) EndDialog(hwnd, IDOK);
        return TRUE;
      }
      if (id == IDCANCEL) {
        EndDialog(hwnd, IDCANCEL);
        return TRUE;
      }
      return self->OnCommand(id, HIWORD(wParam));
    }
    return FALSE;
  }
};

}  // namespace quillon::board
