// The sound editor's waveform, as a person meets it: quillon-board on a
// board of one sound, the editor opened through its command, and the time
// from then to the waveform shown (the view's text turns to "Waveform, ...":
// its first look, for a long file) and to the file read through. Five times
// per file, each in a board started anew.
// Usage: quillon_bench_waveform FILE...
#include "board/Board.h"
#include "board/BoardCommands.h"
#include "board/BoardFile.h"
#include "board/BoardResources.h"
#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"

#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

using namespace quillon;

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kRounds = 5;

std::wstring Folder() {
  wchar_t path[MAX_PATH];
  const DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path, n);
  return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

std::wstring TextOf(HWND window) {
  wchar_t text[256] = {};
  GetWindowTextW(window, text, 256);
  return text;
}

double Ms(Clock::time_point from) { return std::chrono::duration<double, std::milli>(Clock::now() - from).count(); }

// Polls every millisecond until `done` or 120 s.
template <typename F>
bool Until(F done) {
  const Clock::time_point start = Clock::now();
  while (!done()) {
    if (Ms(start) > 120000) return false;
    Sleep(1);
  }
  return true;
}

struct Round {
  double shownMs = 0, readMs = 0;
};

bool Measure(const std::wstring& boardFile, Round& round) {
  std::wstring command = L"\"" + Folder() + L"quillon-board.exe\" --board \"" + boardFile + L"\"";
  STARTUPINFOW startup{sizeof(startup)};
  PROCESS_INFORMATION info{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) return false;
  CloseHandle(info.hThread);
  UniqueHandle process(info.hProcess);
  HWND board = nullptr, editor = nullptr, wave = nullptr;
  bool ok = Until([&] { return (board = FindWindowW(L"QuillonBoardWindow", nullptr)) != nullptr && IsWindowVisible(board); });
  Sleep(500);  // what the start left to do settles
  const Clock::time_point asked = Clock::now();
  PostMessageW(board, WM_COMMAND, board::kEditSound, 0);
  ok = ok && Until([&] {
    editor = FindWindowW(nullptr, L"Edit sound");
    return editor != nullptr && (wave = GetDlgItem(editor, IDC_SOUND_WAVE)) != nullptr;
  });
  ok = ok && Until([&] { return TextOf(wave).rfind(L"Waveform, ", 0) == 0; });
  round.shownMs = Ms(asked);
  ok = ok && Until([&] { return TextOf(wave).find(L"first look") == std::wstring::npos; });
  round.readMs = Ms(asked);
  if (editor) PostMessageW(editor, WM_COMMAND, IDCANCEL, 0);
  if (board) PostMessageW(board, WM_COMMAND, board::kExit, 0);
  if (WaitForSingleObject(process.Get(), 20000) != WAIT_OBJECT_0) TerminateProcess(process.Get(), 1);
  return ok;
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  std::printf("sound editor: from opening it to the waveform shown, and to the file read through (median of %d)\n",
              kRounds);
  for (int i = 1; i < argc; ++i) {
    board::Board one;
    one.AddSounds(0, {tools::Utf8(argv[i])});
    board::Settings settings;
    settings.keepInTray = false;
    settings.evenLoudness = false;  // nothing else reads the file meanwhile
    one.SetSettings(settings);
    const std::wstring boardFile = Folder() + L"bench-waveform.json";
    std::string error;
    if (!board::SaveBoard(one, boardFile, error)) {
      std::fprintf(stderr, "bench_waveform: %s\n", error.c_str());
      return 1;
    }
    std::vector<double> shown, read;
    for (int r = 0; r < kRounds; ++r) {
      Round round;
      if (!Measure(boardFile, round)) {
        std::fprintf(stderr, "bench_waveform: the editor did not show the waveform of %ls\n", argv[i]);
        return 1;
      }
      shown.push_back(round.shownMs);
      read.push_back(round.readMs);
    }
    std::sort(shown.begin(), shown.end());
    std::sort(read.begin(), read.end());
    const std::wstring path = argv[i];
    std::printf("  %-22ls shown %7.0f ms (%.0f to %.0f), read through %7.0f ms\n",
                path.substr(path.find_last_of(L"\\/") + 1).c_str(), shown[kRounds / 2], shown.front(), shown.back(),
                read[kRounds / 2]);
  }
  LocalFree(argv);
  return 0;
}
