#include "board/SingleInstance.h"

namespace quillon::board {

SingleInstance::SingleInstance()
    : mutex_(CreateMutexW(nullptr, TRUE, L"Local\\QuillonBoard")), first_(mutex_ && GetLastError() != ERROR_ALREADY_EXISTS) {}

SingleInstance::Join SingleInstance::HandOverOrTakeOver(const std::vector<std::wstring>& texts, bool play,
                                                        DWORD waitMs, std::wstring& why) {
  HWND running = nullptr;
  // The running board may still be making its window, or be closing: its
  // window then appears, or its process ends and leaves the mutex.
  const ULONGLONG deadline = GetTickCount64() + waitMs;
  while ((running = FindWindowW(kMainWindowClass, nullptr)) == nullptr) {
    const DWORD waited = mutex_ ? WaitForSingleObject(mutex_.Get(), 100) : WAIT_FAILED;
    if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED) {
      first_ = true;
      return Join::TookOver;
    }
    if (waited == WAIT_FAILED) Sleep(100);
    if (GetTickCount64() > deadline) {
      why = L"Another Quillon Board runs in this session, but it shows no window and did not end within " +
            std::to_wstring(waitMs / 1000) + L" seconds. End it in the Task Manager, then start the board again.";
      return Join::Failed;
    }
  }
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
  if (!SendMessageTimeoutW(running, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data), SMTO_ABORTIFHUNG, 5000,
                           &result)) {
    why = L"The Quillon Board that runs in this session does not answer (it may be busy or hung), so it was not "
          L"given what this start asked for.";
    return Join::Failed;
  }
  return Join::HandedOver;
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
