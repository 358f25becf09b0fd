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

void TrayIcon::Notify(const std::wstring& title, const std::wstring& text) {
  if (!added_) return;
  NOTIFYICONDATAW note = data_;
  note.uFlags = NIF_INFO;
  note.dwInfoFlags = NIIF_INFO | NIIF_NOSOUND;
  wcsncpy(note.szInfoTitle, title.c_str(), std::size(note.szInfoTitle) - 1);
  wcsncpy(note.szInfo, text.c_str(), std::size(note.szInfo) - 1);
  Shell_NotifyIconW(NIM_MODIFY, &note);
}

}  // namespace quillon::board
