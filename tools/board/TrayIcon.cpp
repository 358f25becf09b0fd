#include "board/TrayIcon.h"

#include <shellapi.h>

#include <cwchar>
#include <iterator>

namespace quillon::board {

TrayIcon::TrayIcon(HWND owner, UINT callbackMessage, HICON icon, const wchar_t* tip)
    : taskbarCreated_(RegisterWindowMessageW(L"TaskbarCreated")) {
  data_.cbSize = sizeof(data_);
  data_.hWnd = owner;
  data_.uID = 1;
  data_.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP | NIF_SHOWTIP;
  data_.uCallbackMessage = callbackMessage;
  data_.hIcon = icon;
  wcsncpy(data_.szTip, tip, std::size(data_.szTip) - 1);
  Add();
}

TrayIcon::~TrayIcon() {
  if (added_) Shell_NotifyIconW(NIM_DELETE, &data_);
}

void TrayIcon::Add() {
  added_ = Shell_NotifyIconW(NIM_ADD, &data_);
  data_.uVersion = NOTIFYICON_VERSION_4;
  if (added_) Shell_NotifyIconW(NIM_SETVERSION, &data_);
}

void TrayIcon::OnMessage(UINT message) {
  if (message == taskbarCreated_) Add();
}

}  // namespace quillon::board
