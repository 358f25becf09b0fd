// A window whose messages go to a C++ object: the static window procedure
// finds the object through GWLP_USERDATA, set from the creation parameter at
// WM_NCCREATE, and calls its HandleMessage. Each window of the board is one
// such class, in a file of its own.
#pragma once

#include <windows.h>

namespace quillon::board {

template <typename Derived>
class WindowClass {
 public:
  HWND Hwnd() const { return hwnd_; }

 protected:
  // Registers the class once per process.
  static void Register(const wchar_t* name, HICON icon = nullptr, HICON smallIcon = nullptr) {
    WNDCLASSEXW wc{sizeof(wc)};
    if (GetClassInfoExW(GetModuleHandleW(nullptr), name, &wc)) return;
    wc = {sizeof(wc)};
    wc.lpfnWndProc = &WindowClass::Procedure;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
    wc.hIcon = icon;
    wc.hIconSm = smallIcon;
    wc.lpszClassName = name;
    RegisterClassExW(&wc);
  }

  HWND hwnd_ = nullptr;

 private:
  static LRESULT CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<Derived*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (message == WM_NCCREATE) {
      self = static_cast<Derived*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
      self->hwnd_ = hwnd;
      SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    }
    if (self == nullptr) return DefWindowProcW(hwnd, message, wParam, lParam);
    const LRESULT result = self->HandleMessage(message, wParam, lParam);
    if (message == WM_NCDESTROY) {
      SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
      self->hwnd_ = nullptr;
    }
    return result;
  }
};

}  // namespace quillon::board
