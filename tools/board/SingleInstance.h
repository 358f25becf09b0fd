// One board per user session: a named mutex in the session's namespace, owned
// by the running board's main thread. A second start hands its command line to
// the running board's window with WM_COPYDATA, brings that window forward, and
// ends; when the running board is closing (its window gone, its process not
// yet), the second start waits for it to end and takes over.
#pragma once

#include "platform/UniqueResource.h"

#include <string>
#include <vector>

namespace quillon::board {

constexpr const wchar_t* kMainWindowClass = L"QuillonBoardWindow";
constexpr ULONG_PTR kCopyDataFiles = 0x51424631;  // WM_COPYDATA's dwData: files to add
constexpr ULONG_PTR kCopyDataPlay = 0x51424632;   // WM_COPYDATA's dwData: names of sounds to play

class SingleInstance {
 public:
  SingleInstance();
  // True when no other board runs in this session.
  bool First() const { return first_; }
  enum class Join { HandedOver, TookOver, Failed };
  // Gives the files to the running board and shows it, or (`play`) asks it to
  // play the sounds of these names. When the running board has no window and
  // ends within `waitMs`, this one becomes the first instead (TookOver). On
  // Failed, `why` says what went wrong.
  Join HandOverOrTakeOver(const std::vector<std::wstring>& texts, bool play, DWORD waitMs, std::wstring& why);

 private:
  UniqueHandle mutex_;
  bool first_ = false;
};

// The texts (files or names) of a WM_COPYDATA from a second start.
std::vector<std::wstring> TextsOfCopyData(const COPYDATASTRUCT& data);

}  // namespace quillon::board
