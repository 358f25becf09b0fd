// A second process for the logger's tests: it writes lines into the shared
// log, or holds the logger's mutex, as another audio process would.
//
//   quillon_log_helper write <tag> <count>        lines "<tag> line <i>" at ERROR
//   quillon_log_helper levels <tag>               one line per level 0..4: "<tag> level <n>"
//   quillon_log_helper hold <ready> <release>     owns the logger mutex until <release> is set
//   quillon_log_helper abandon <ready>            takes the logger mutex and exits owning it
#include "diag/Logger.h"

#include <windows.h>
#include <shellapi.h>

#include <cwchar>
#include <cstdlib>
#include <string>

using namespace quillon;

namespace {

HANDLE TakeLoggerMutex() {
  HANDLE mutex = CreateMutexW(nullptr, FALSE, L"Global\\QuillonLoggerMutex");
  WaitForSingleObject(mutex, 10000);
  return mutex;
}

void Signal(const wchar_t* name) {
  HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, name);
  SetEvent(event);
  CloseHandle(event);
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argc < 3) return 2;
  const std::wstring mode = argv[1];
  if (mode == L"write" && argc == 4) {
    const int count = _wtoi(argv[3]);
    for (int i = 0; i < count; ++i) QLOG(LOG_ERROR, L"LogHelper::Write", L"%s line %d", argv[2], i);
    return 0;
  }
  if (mode == L"levels") {
    for (int level = LOG_TRACE; level <= LOG_ERROR; ++level) {
      QLOG(level, L"LogHelper::Levels", L"%s level %d", argv[2], level);
    }
    return 0;
  }
  if (mode == L"hold" && argc == 4) {
    HANDLE mutex = TakeLoggerMutex();
    Signal(argv[2]);
    HANDLE release = OpenEventW(SYNCHRONIZE, FALSE, argv[3]);
    WaitForSingleObject(release, 30000);
    CloseHandle(release);
    ReleaseMutex(mutex);
    CloseHandle(mutex);
    return 0;
  }
  if (mode == L"abandon") {
    TakeLoggerMutex();
    Signal(argv[2]);
    ExitProcess(0);  // the mutex is left owned: the next waiter sees it abandoned
  }
  return 2;
}
