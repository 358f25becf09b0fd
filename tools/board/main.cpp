// quillon-board: the soundboard window. One board runs per user session; a
// second start hands its files to it and ends.
//   quillon-board [--board FILE] [SOUND-FILE-OR-FOLDER...]
//   quillon-board --play NAME...   plays sounds of the running board by name
#include "board/BoardFile.h"
#include "board/ControlKeys.h"
#include "board/MainWindow.h"
#include "board/SingleInstance.h"
#include "common/ComApartment.h"
#include "common/ToolSupport.h"

#include <windows.h>
#include <commctrl.h>
#include <shellapi.h>

#include <string>
#include <vector>

namespace {

using namespace quillon;

struct Arguments {
  std::wstring board;
  std::vector<std::wstring> files;  // full paths: a running board has another working folder
  std::vector<std::wstring> play;   // names of sounds to play
  std::wstring error;
};

Arguments ReadArguments() {
  Arguments args;
  int count = 0;
  LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; i < count; ++i) {
    const std::wstring word = words[i];
    if (word == L"--board") {
      if (i + 1 >= count) {
        args.error = L"--board needs the board file's path.";
        break;
      }
      args.board = tools::FullPath(words[++i]);
    } else if (word == L"--play") {
      if (i + 1 >= count) {
        args.error = L"--play needs the name of a sound.";
        break;
      }
      args.play.push_back(words[++i]);
    } else if (word.rfind(L"--", 0) == 0) {
      args.error = L"Unknown option " + word +
                   L". Use: quillon-board [--board FILE] [SOUND-FILE-OR-FOLDER...] or quillon-board --play NAME...";
      break;
    } else {
      args.files.push_back(tools::FullPath(word));
    }
  }
  LocalFree(words);
  return args;
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int show) {
  const Arguments args = ReadArguments();
  if (!args.error.empty()) {
    MessageBoxW(nullptr, args.error.c_str(), L"Quillon Board", MB_OK | MB_ICONERROR);
    return 2;
  }
  board::SingleInstance instance;
  if (!instance.First()) {
    std::wstring why;
    const bool play = !args.play.empty();
    switch (instance.HandOverOrTakeOver(play ? args.play : args.files, play, 15000, why)) {
      case board::SingleInstance::Join::HandedOver: return 0;
      case board::SingleInstance::Join::Failed:
        MessageBoxW(nullptr, why.c_str(), L"Quillon Board", MB_OK | MB_ICONERROR);
        return 1;
      case board::SingleInstance::Join::TookOver: break;  // the other board ended: this one is the board now
    }
  }
  if (!args.play.empty()) {
    MessageBoxW(nullptr, L"--play asks a running board to play a sound, and no board runs.", L"Quillon Board",
                MB_OK | MB_ICONERROR);
    return 1;
  }

  tools::ComApartment com(COINIT_APARTMENTTHREADED);
  const INITCOMMONCONTROLSEX controls{sizeof(controls),
                                      ICC_STANDARD_CLASSES | ICC_TAB_CLASSES | ICC_BAR_CLASSES | ICC_HOTKEY_CLASS |
                                          ICC_UPDOWN_CLASS};
  InitCommonControlsEx(&controls);

  const std::wstring path = args.board.empty() ? board::DefaultBoardPath() : args.board;
  board::MainWindow window(board::LoadBoard(path), path);
  if (!window.Create(show)) return 1;
  if (!args.files.empty()) window.AddFiles(args.files);

  MSG msg{};
  while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
    const HWND main = window.Hwnd();
    if (main && window.Accelerators() && !board::KeyBelongsToControl(msg) &&
        TranslateAcceleratorW(main, window.Accelerators(), &msg)) {
      continue;
    }
    if (main && IsDialogMessageW(main, &msg)) continue;
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  return static_cast<int>(msg.wParam);
}
