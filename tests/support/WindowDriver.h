// Acting on another process's windows as a person does, and reading them:
// keys through SendInput or through the X server (xdotool), both of which also
// fire global hotkeys; controls found by their class and text, a window's
// controls' texts, and a screenshot of it.
#pragma once

#include "common/KeyChord.h"
#include "platform/UniqueResource.h"
#include "player/PushToTalk.h"
#include "support/Poll.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <string>
#include <vector>

namespace quillon::test {

// A window of the test's own, destroyed with the object.
struct WindowTraits {
  using Type = HWND;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type w) { return w != nullptr; }
  static void Close(Type w) { DestroyWindow(w); }
};
using UniqueWindow = UniqueResource<WindowTraits>;

// Presses and releases `text` ("Ctrl+Alt+1") as a keyboard does: modifiers
// down, the key, then the modifiers up in reverse.
inline void PressKeys(const std::string& text) {
  tools::KeyChord chord;
  std::string error;
  ASSERT_TRUE(tools::ParseKeyChord(text, chord, error)) << error;
  player::HeldKeys keys;
  ASSERT_TRUE(keys.Press(chord)) << text;
}

// Runs xdotool with `arguments`. xdotool is a Linux program: Wine starts it
// as one, without a handle to wait on.
inline void RunXdotool(std::wstring arguments) {
  std::wstring line = L"xdotool " + arguments;
  STARTUPINFOW startup{sizeof(startup)};
  PROCESS_INFORMATION info{};
  ASSERT_TRUE(CreateProcessW(L"Z:\\usr\\bin\\xdotool", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &startup, &info))
      << "xdotool: " << GetLastError();
  const UniqueHandle process(info.hProcess), thread(info.hThread);
}

// xdotool's words that move the pointer to (x, y) of the screen.
// `mousemove --sync` waits until the pointer has moved, for ever when it is
// already there (as it is when an earlier run of the same test left it): the
// pointer goes one pixel below first, which is never where it was left.
inline std::wstring PointerTo(int x, int y) {
  return L"mousemove --sync " + std::to_wstring(x) + L" " + std::to_wstring(y + 1) + L" mousemove --sync " +
         std::to_wstring(x) + L" " + std::to_wstring(y);
}

// Presses `keys` (xdotool's names: "ctrl+alt+1") on the X server's keyboard,
// as the machine's keyboard would, with the pointer over `window`: with no
// window manager the X server gives the keys to the window under the pointer.
// The window's thread reads them when it handles its messages (PumpUntil).
inline void PressKeysOnX(HWND window, const std::string& keys) {
  RECT r{};
  ASSERT_TRUE(GetWindowRect(window, &r));
  RunXdotool(PointerTo((r.left + r.right) / 2, (r.top + r.bottom) / 2) + L" key " +
             std::wstring(keys.begin(), keys.end()));
}

// Clicks the left mouse button at (x, y) of the screen on the X server, as
// the machine's mouse would.
inline void ClickOnX(int x, int y) { RunXdotool(PointerTo(x, y) + L" click 1"); }

// Types `text` as characters, the way an input method does.
inline void TypeText(const std::wstring& text) {
  std::vector<INPUT> inputs;
  for (wchar_t c : text) {
    inputs.push_back({INPUT_KEYBOARD, {.ki = {0, static_cast<WORD>(c), KEYEVENTF_UNICODE, 0, 0}}});
    inputs.push_back({INPUT_KEYBOARD, {.ki = {0, static_cast<WORD>(c), KEYEVENTF_UNICODE | KEYEVENTF_KEYUP, 0, 0}}});
  }
  ASSERT_EQ(inputs.size(), SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)));
}

// The control that has the keyboard focus in `window`'s thread, or null.
inline HWND FocusOf(HWND window) {
  GUITHREADINFO info{sizeof(info)};
  return GetGUIThreadInfo(GetWindowThreadProcessId(window, nullptr), &info) ? info.hwndFocus : nullptr;
}

inline std::wstring ClassOf(HWND window) {
  wchar_t name[128] = {};
  GetClassNameW(window, name, 128);
  return name;
}

inline std::wstring TextOf(HWND window) {
  wchar_t text[512] = {};
  SendMessageTimeoutW(window, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text), SMTO_ABORTIFHUNG, 5000,
                      nullptr);
  return text;
}

// The top-level window of `process` with this class, or null.
inline HWND FindTopWindow(HANDLE process, const wchar_t* className) {
  struct Search {
    DWORD pid;
    const wchar_t* className;
    HWND found;
  } search{GetProcessId(process), className, nullptr};
  EnumWindows(
      [](HWND hwnd, LPARAM p) -> BOOL {
        auto* s = reinterpret_cast<Search*>(p);
        DWORD pid = 0;
        GetWindowThreadProcessId(hwnd, &pid);
        wchar_t name[128] = {};
        GetClassNameW(hwnd, name, 128);
        if (pid == s->pid && wcscmp(name, s->className) == 0) s->found = hwnd;
        return s->found == nullptr;
      },
      reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// Every descendant of `parent` with this class, in their order.
inline std::vector<HWND> Descendants(HWND parent, const wchar_t* className) {
  struct Search {
    const wchar_t* className;
    std::vector<HWND> found;
  } search{className, {}};
  EnumChildWindows(
      parent,
      [](HWND hwnd, LPARAM p) -> BOOL {
        auto* s = reinterpret_cast<Search*>(p);
        wchar_t name[128] = {};
        GetClassNameW(hwnd, name, 128);
        if (_wcsicmp(name, s->className) == 0) s->found.push_back(hwnd);
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// The texts of the descendants of `parent` with this class.
inline std::vector<std::wstring> TextsOf(HWND parent, const wchar_t* className) {
  std::vector<std::wstring> texts;
  for (HWND child : Descendants(parent, className)) texts.push_back(TextOf(child));
  return texts;
}

// Whether a descendant of `parent` of this class has exactly this text.
inline bool HasText(HWND parent, const wchar_t* className, const std::wstring& text) {
  for (const std::wstring& t : TextsOf(parent, className)) {
    if (t == text) return true;
  }
  return false;
}

// The window as it is on the screen, as a 24-bit BMP file, once it has
// painted what it has to paint.
inline bool Screenshot(HWND window, const std::wstring& path) {
  RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_FRAME | RDW_ALLCHILDREN | RDW_UPDATENOW);
  RECT r{};
  GetWindowRect(window, &r);
  const int w = r.right - r.left, h = r.bottom - r.top;
  if (w <= 0 || h <= 0) return false;
  HDC screen = GetDC(nullptr);
  HDC memory = CreateCompatibleDC(screen);
  BITMAPINFO info{{sizeof(BITMAPINFOHEADER), w, h, 1, 24, BI_RGB}};
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  HGDIOBJ old = SelectObject(memory, bitmap);
  const bool copied = BitBlt(memory, 0, 0, w, h, screen, r.left, r.top, SRCCOPY);
  GdiFlush();
  const DWORD rowBytes = (static_cast<DWORD>(w) * 3 + 3) & ~3u;
  const DWORD imageBytes = rowBytes * static_cast<DWORD>(h);
  BITMAPFILEHEADER file{0x4D42, static_cast<DWORD>(sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER) + imageBytes),
                        0, 0, sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER)};
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(&file), sizeof(file));
  out.write(reinterpret_cast<const char*>(&info.bmiHeader), sizeof(BITMAPINFOHEADER));
  out.write(static_cast<const char*>(bits), imageBytes);
  SelectObject(memory, old);
  DeleteObject(bitmap);
  DeleteDC(memory);
  ReleaseDC(nullptr, screen);
  return copied && out.good();
}

}  // namespace quillon::test
