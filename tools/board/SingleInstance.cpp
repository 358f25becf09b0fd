#include "board/SingleInstance.h"

namespace quillon::board {

SingleInstance::SingleInstance()
    : mutex_(CreateMutexW(nullptr, FALSE, L"Local\\QuillonBoard")), first_(mutex_ && GetLastError() != ERROR_ALREADY_EXISTS) {}

bool SingleInstance::HandOver(const std::vector<std::wstring>& texts, bool play) {
  HWND running = nullptr;
  // The first board may still be making its window.
  for (int attempt = 0; attempt < 50 && running == nullptr; ++attempt) {
    running = FindWindowW(kMainWindowClass, nullptr);
    if (running == nullptr) Sleep(100);
  }
  if (running == nullptr) return false;
  // This process was started by the user and may give the focus away.
  DWORD process = 0;
  GetWindowThreadProcessId(running, &process);
  AllowSetForegroundWindow(process);
  // The texts, each ended by a null character.
  std::wstring joined;
  for (const std::wstring& text : texts) joined += text + L'\0';
  COPYDATASTRUCT data{play ? kCopyDataPlay : kCopyDataFiles, static_cast<DWORD>(joined.size() * sizeof(wchar_t)),
                      joined.data()};
  DWORD_PTR result = 0;
  SendMessageTimeoutW(running, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data), SMTO_ABORTIFHUNG, 5000, &result);
  return true;
}

std::vector<std::wstring> TextsOfCopyData(const COPYDATASTRUCT& data) {
  std::vector<std::wstring> files;
  if (data.lpData == nullptr) return files;
  const auto* text = static_cast<const wchar_t*>(data.lpData);
  const size_t length = data.cbData / sizeof(wchar_t);
  size_t start = 0;
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == L'\0') {
      if (i > start) files.emplace_back(text + start, i - start);
      start = i + 1;
    }
  }
  return files;
}

}  // namespace quillon::board
