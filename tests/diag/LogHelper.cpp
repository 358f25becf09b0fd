// A second process for the logger's tests: it writes lines into the shared
// log as another audio process would, at the level its start read.
//
//   quillon_log_helper write <tag> <count>        lines "<tag> line <i>" at ERROR
//   quillon_log_helper levels <tag>               one line per level 0..4: "<tag> level <n>"
#include "diag/Logger.h"

#include <windows.h>
#include <shellapi.h>

#include <cstdlib>
#include <string>

using namespace quillon;

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
  return 2;
}
