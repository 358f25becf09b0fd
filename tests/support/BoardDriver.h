// The board's window driven from a test: its process and the parts of its
// window the tests read, its board files, and quillon-host as the engine of
// the microphone it plays into.
#pragma once

#include "board/Board.h"
#include "board/BoardCommands.h"
#include "board/BoardFile.h"
#include "common/ToolSupport.h"
#include "support/AccessibleItems.h"
#include "support/QuillonRun.h"
#include "support/SharedFiles.h"
#include "support/WindowDriver.h"

#include <gtest/gtest.h>

#include <functional>

namespace quillon::test {

using board::Board;
using board::LoadBoard;
using board::LoadedBoard;
using tools::Utf8;

inline const std::wstring kMic = L"{0.0.1.00000000}.{board-window-test-mic}";
// The message the board's notification-area icon sends it.
constexpr UINT kTrayCallback = WM_APP + 2;

inline tools::KeyChord Chord(const char* text) {
  tools::KeyChord chord;
  std::string error;
  EXPECT_TRUE(tools::ParseKeyChord(text, chord, error)) << error;
  return chord;
}

// A running board: its process, its main window and the parts of it the tests read.
class BoardProcess {
 public:
  BoardProcess(const std::wstring& boardFile, const std::wstring& name, const std::wstring& more = L"")
      : process_(L"quillon-board.exe", L"--board \"" + boardFile + L"\" " + more, Scratch(name + L"-board.txt")) {}

  // Waits for the main window and its sound buttons.
  bool Open() {
    return PollUntil([&] {
      window_ = FindTopWindow(process_.Handle(), L"QuillonBoardWindow");
      return window_ != nullptr && IsWindowVisible(window_);
    });
  }
  HWND Window() const { return window_; }
  HWND Grid() const {
    const std::vector<HWND> grids = Descendants(window_, L"QuillonSoundGrid");
    return grids.empty() ? nullptr : grids.front();
  }
  // The sound buttons as a screen reader reads them.
  std::vector<AccessibleItem> Items() const {
    const AccessibleClient client;
    return Grid() != nullptr ? AccessibleClient::Items(Grid()) : std::vector<AccessibleItem>{};
  }
  std::vector<std::wstring> Buttons() const {
    std::vector<std::wstring> names;
    for (const AccessibleItem& item : Items()) names.push_back(item.name);
    return names;
  }
  bool ShowsButton(const std::wstring& text) const {
    const auto buttons = Buttons();
    return std::find(buttons.begin(), buttons.end(), text) != buttons.end();
  }
  std::wstring Status() const {
    const auto bars = Descendants(window_, L"msctls_statusbar32");
    return bars.empty() ? L"" : TextOf(bars.front());
  }
  // Quits the board as its menu does.
  long Quit() {
    PostMessageW(window_, WM_COMMAND, board::kExit, 0);
    return process_.Wait(20000);
  }
  ChildProcess& Process() { return process_; }

 private:
  ChildProcess process_;
  HWND window_ = nullptr;
};

// A board file of these sounds (file, hotkey or null) on one page, playing into `mic`.
inline std::wstring MakeBoardFile(const std::wstring& name, const std::vector<std::pair<std::wstring, const char*>>& sounds,
                           const char* stopAll, const std::wstring& mic = kMic,
                           const std::function<void(board::Settings&)>& adjust = {}) {
  Board board;
  for (const auto& [file, hotkey] : sounds) {
    const uint32_t id = board.AddSounds(0, {Utf8(file)}).front();
    if (hotkey != nullptr) EXPECT_FALSE(board.SetHotkey(id, Chord(hotkey)));
  }
  board::Settings settings;
  settings.microphone = Utf8(mic);
  settings.stopAllHotkey = Chord(stopAll);
  settings.keepInTray = false;
  settings.evenLoudness = false;  // the sounds play as their files hold them
  if (adjust) adjust(settings);
  EXPECT_FALSE(board.SetSettings(settings));
  const std::wstring path = Scratch(name + L".json");
  std::string error;
  EXPECT_TRUE(board::SaveBoard(board, path, error)) << error;
  return path;
}

// quillon-host as the engine of `mic` for `seconds`, writing out-<name>.wav.
struct MicHost {
  MicHost(const std::wstring& name, int seconds, const std::wstring& mic = kMic)
      : name(name),
        mic(mic),
        process(L"quillon-host.exe",
                L"--endpoint " + mic + L" --seconds " + std::to_wstring(seconds) + L" --out \"" +
                    Scratch(name + L".wav") + L"\"",
                Scratch(name + L"-host.txt")) {}
  // Whether its effect registered.
  bool Ready() const { return PollUntil([this] { return SlotOf(mic) >= 0; }); }
  std::string Report() const { return ReadText(Scratch(name + L"-host.txt")); }
  audio::Sound Output() const { return LoadSound(Scratch(name + L".wav")); }
  std::wstring name, mic;
  ChildProcess process;
};

// The board file once `written` holds of it: the board writes its file on a
// thread of its own, just after the change. Waits up to 5 s, and returns the
// last one read either way (for the test's own checks to name what is wrong).
inline LoadedBoard SavedBoard(const std::wstring& file, const std::function<bool(const LoadedBoard&)>& written) {
  LoadedBoard loaded;
  PollUntil([&] {
    loaded = LoadBoard(file);
    return loaded.state == LoadedBoard::State::Read && written(loaded);
  }, 5000);
  return loaded;
}

// Opens one of the board's dialogs through its command, and waits for it.
inline HWND OpenDialog(HWND board, UINT command, const wchar_t* title) {
  PostMessageW(board, WM_COMMAND, command, 0);
  HWND dialog = nullptr;
  PollUntil([&] {
    dialog = FindWindowW(nullptr, title);
    return dialog != nullptr && IsWindowVisible(dialog);
  });
  return dialog;
}

}  // namespace quillon::test
