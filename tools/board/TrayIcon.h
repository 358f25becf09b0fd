// The board's icon in the notification area, there for as long as the object
// lives, and added again when Explorer restarts (TaskbarCreated).
#pragma once

#include <windows.h>
#include <shellapi.h>

#include <string>

namespace quillon::board {

class TrayIcon {
 public:
  // Messages of the icon arrive at `owner` as `callbackMessage`, with the
  // event in LOWORD(lParam) (NOTIFYICON_VERSION_4).
  TrayIcon(HWND owner, UINT callbackMessage, HICON icon, const wchar_t* tip);
  ~TrayIcon();
  TrayIcon(const TrayIcon&) = delete;
  TrayIcon& operator=(const TrayIcon&) = delete;

  // Call for every message the owner gets: re-adds the icon after TaskbarCreated.
  void OnMessage(UINT message);
  // A notification beside the icon (a balloon), without a sound.
  void Notify(const std::wstring& title, const std::wstring& text);

 private:
  void Add();
  NOTIFYICONDATAW data_{};
  UINT taskbarCreated_;
  bool added_ = false;
};

}  // namespace quillon::board
