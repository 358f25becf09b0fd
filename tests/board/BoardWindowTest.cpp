// quillon-board in a real window, driven as a person drives it: global
// hotkeys pressed through SendInput while the board has no focus, its dialogs
// filled in, and what reaches the microphone read from quillon-host's output.
// The board's file is made by each test, beside the test sounds.
#include "board/Board.h"
#include "board/BoardFile.h"
#include "board/BoardCommands.h"
#include "board/BoardResources.h"
#include "common/ToolSupport.h"
#include "support/AccessibleItems.h"
#include "support/BoardDriver.h"
#include "support/EndpointFixtures.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"
#include "support/WindowDriver.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <commctrl.h>
#include <dlgs.h>
#include <shellapi.h>
#include <shlobj.h>

#include <fstream>
#include <random>
#include <thread>

namespace quillon::test {
namespace {

// `out` from `at` on, less `sound` (as far as it goes).
audio::Sound Without(audio::Sound out, const audio::Sound& sound, size_t at) {
  for (size_t i = 0; i < sound.samples.size() && at * out.channels + i < out.samples.size(); ++i) {
    out.samples[at * out.channels + i] -= sound.samples[i];
  }
  return out;
}

// Two sounds by their hotkeys, pressed while another program's window has
// the focus, the second while the first plays, then the stop-everything
// hotkey: the microphone gets the first alone, then both as their sum, sample
// for sample, then nothing.
TEST(BoardWindow, HotkeysPlayWhileAnotherWindowHasTheFocusAndStopEverythingSilences) {
  const std::wstring longer = Sounds() + L"stopped.wav", shorter = Sounds() + L"stays.wav";
  const std::wstring file =
      MakeBoardFile(L"board-hotkeys", {{longer, "Ctrl+Alt+1"}, {shorter, "Ctrl+Alt+2"}}, "Ctrl+Alt+0");
  // The board first: the host's run (8 s of sound) starts only once the
  // window is up, however slowly the board started.
  BoardProcess board(file, L"board-hotkeys");
  ASSERT_TRUE(board.Open());
  MicHost host(L"board-hotkeys", 8);
  ASSERT_TRUE(host.Ready()) << host.Report();
  // A window of another program (this test's) has the focus, not the board.
  RECT shown{};
  GetWindowRect(board.Window(), &shown);
  UniqueWindow other(CreateWindowExW(0, L"STATIC", L"another program", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                     shown.right + 20, shown.top, 300, 200, nullptr, nullptr, nullptr, nullptr));
  SetForegroundWindow(other.Get());
  ASSERT_TRUE(PollUntil([&] { return GetForegroundWindow() == other.Get(); }));

  // The person's timing: the second sound 0.6 s into the first, everything
  // stopped 0.8 s later, well before either ends by itself. The first from the
  // machine's keyboard (the X server's), the others through SendInput.
  PressKeysOnX(other.Get(), "ctrl+alt+1");
  ASSERT_TRUE(PumpUntil([&] { return board.ShowsButton(L"stopped (playing)"); })) << Utf8(board.Status());
  Sleep(600);
  PressKeys("Ctrl+Alt+2");
  ASSERT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  EXPECT_TRUE(board.ShowsButton(L"stopped (playing)"));
  Sleep(800);
  Screenshot(board.Window(), Scratch(L"board-playing.bmp"));
  PressKeys("Ctrl+Alt+0");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stopped") && board.ShowsButton(L"stays"); }));
  EXPECT_EQ(0, board.Quit());
  ASSERT_EQ(0, host.process.Wait(60000)) << host.Report();

  const audio::Sound out = host.Output();
  const audio::Sound first = LoadSound(longer), second = LoadSound(shorter);
  const size_t firstAt = FirstSound(out);
  // Taking the first away leaves silence until the second begins...
  const audio::Sound rest = Without(out, first, firstAt);
  const size_t secondAt = FirstSound(rest, 1e-6f);
  ASSERT_GT(secondAt, firstAt);
  // ...and taking the second away too leaves silence until everything stopped.
  const size_t stoppedAt = FirstSound(Without(rest, second, secondAt), 1e-6f);
  ASSERT_GT(stoppedAt, secondAt + 48000 / 2) << "the sum was heard for less than half a second";
  EXPECT_LT(stoppedAt, secondAt + second.samples.size() / second.channels) << "the second sound ended by itself";
  for (size_t i = stoppedAt * out.channels; i < out.samples.size(); ++i) {
    ASSERT_EQ(0.0f, out.samples[i]) << "sound after stop everything, at frame " << i / out.channels;
  }
}

// A sound added through the "Add sounds" dialog, given a hotkey in the sound's
// editor, and played by a second start's --play and by its hotkey; the board
// file on disk then holds it.
TEST(BoardWindow, SoundAddedThroughTheDialogGetsAHotkeyAndPlaysByNameAndByIt) {
  const std::wstring file = MakeBoardFile(L"board-dialogs", {}, "Ctrl+Alt+0");
  MicHost host(L"board-dialogs", 12);
  BoardProcess board(file, L"board-dialogs");
  ASSERT_TRUE(board.Open());
  SetForegroundWindow(board.Window());
  PostMessageW(board.Window(), WM_COMMAND, board::kAddSounds, 0);
  HWND dialog = nullptr;
  ASSERT_TRUE(PollUntil([&] { return (dialog = FindWindowW(nullptr, L"Add sounds")) != nullptr; }));
  // The file name box of the common dialog (a combo box, or an edit in older
  // dialogs), then Open.
  const std::wstring sound = Sounds() + L"stays.wav";
  const int nameBox = GetDlgItem(dialog, cmb13) != nullptr ? cmb13 : edt1;
  ASSERT_TRUE(SetDlgItemTextW(dialog, nameBox, sound.c_str()));
  PostMessageW(dialog, WM_COMMAND, IDOK, 0);
  ASSERT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays"); })) << Utf8(board.Status());

  // The sound's editor (F2 on its focused button): a hotkey typed into its hotkey field.
  PostMessageW(board.Window(), WM_COMMAND, board::kEditSound, 0);
  HWND editor = nullptr, hotkey = nullptr;
  ASSERT_TRUE(PollUntil([&] {
    editor = FindWindowW(nullptr, L"Edit sound");
    return editor != nullptr && (hotkey = GetDlgItem(editor, IDC_SOUND_HOTKEY)) != nullptr && IsWindowVisible(editor);
  }));
  SendMessageW(hotkey, HKM_SETHOTKEY, MAKEWORD('7', HOTKEYF_CONTROL | HOTKEYF_ALT), 0);
  PostMessageW(editor, WM_COMMAND, IDOK, 0);
  ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));

  // On disk just after.
  const LoadedBoard saved =
      SavedBoard(file, [](const LoadedBoard& b) { return b.board.Pages()[0].sounds.size() == 1 && b.board.Pages()[0].sounds[0].hotkey; });
  ASSERT_EQ(LoadedBoard::State::Read, saved.state) << saved.problem;
  ASSERT_EQ(1u, saved.board.Pages()[0].sounds.size());
  const board::Sound& kept = saved.board.Pages()[0].sounds[0];
  wchar_t full[MAX_PATH];
  GetFullPathNameW(sound.c_str(), MAX_PATH, full, nullptr);
  EXPECT_EQ(Utf8(full), kept.file);
  ASSERT_TRUE(kept.hotkey);
  EXPECT_EQ("Ctrl+Alt+7", kept.hotkey->Text());

  ASSERT_TRUE(host.Ready()) << host.Report();
  // A second start plays it by name, then its hotkey does.
  EXPECT_EQ(0, ChildProcess(L"quillon-board.exe", L"--play STAYS").Wait(20000));
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays"); })) << Utf8(board.Status());
  PressKeys("Ctrl+Alt+7");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  EXPECT_EQ(0, board.Quit());
  ASSERT_EQ(0, host.process.Wait(60000)) << host.Report();
  const audio::Sound out = host.Output(), ref = LoadSound(sound);
  EXPECT_GT(Correlation(out, ref, FirstSound(out), 0), 0.9999);
}

// Without the mouse: the focus starts on a sound, Tab and Shift+Tab go
// through the microphone list, the search, the pages and the sounds in the
// order they are laid out; Enter plays the focused sound; the menu's keys open the sound's
// editor and add a page, which is saved.
TEST(BoardWindow, EveryActionIsReachedFromTheKeyboard) {
  const std::wstring file =
      MakeBoardFile(L"board-keys", {{Sounds() + L"stays.wav", "Ctrl+Alt+3"}, {Sounds() + L"stopped.wav", "Ctrl+Alt+4"}},
                    "Ctrl+Alt+0");
  MicHost host(L"board-keys", 12);
  ASSERT_TRUE(host.Ready()) << host.Report();
  BoardProcess board(file, L"board-keys");
  ASSERT_TRUE(board.Open());
  SetForegroundWindow(board.Window());
  ASSERT_TRUE(PollUntil([&] { return GetForegroundWindow() == board.Window(); }));

  // The focus starts on the first sound; Shift+Tab goes back through the
  // page tabs and the effect's button to the microphone list, and Tab forward
  // again, in layout order; the arrows go from sound to sound.
  const auto focused = [&] {
    const HWND now = FocusOf(board.Window());
    if (now != nullptr && now == board.Grid()) {
      const AccessibleClient client;
      const ComPtr<IAccessible> grid = AccessibleClient::Of(now);
      const long index = grid ? AccessibleClient::Focused(*grid.Get()) : -1;
      const auto item = index >= 0 ? AccessibleClient::Item(*grid.Get(), index) : std::nullopt;
      return L"Sound " + (item ? item->name : L"?");
    }
    return ClassOf(now) == L"Button" ? L"Button " + TextOf(now) : ClassOf(now);
  };
  ASSERT_TRUE(PollUntil([&] { return focused() == L"Sound stays"; }, 5000)) << Utf8(focused());
  const auto step = [&](const char* keys) {
    const std::wstring before = focused();
    PressKeys(keys);
    EXPECT_TRUE(PollUntil([&] { return focused() != before; }, 5000)) << keys;
    return focused();
  };
  std::vector<std::wstring> order;
  for (const char* keys : {"Shift+Tab", "Shift+Tab", "Shift+Tab", "Shift+Tab", "Shift+Tab", "Tab", "Tab", "Tab", "Tab",
                           "Tab", "Right", "Left"}) {
    order.push_back(step(keys));
  }
  EXPECT_EQ((std::vector<std::wstring>{L"SysTabControl32", L"Button All pa&ges", L"Edit", L"Button &Effect\u2026",
                                       L"ComboBox", L"Button &Effect\u2026", L"Edit", L"Button All pa&ges",
                                       L"SysTabControl32", L"Sound stays", L"Sound stopped", L"Sound stays"}),
            order);

  // A label's mnemonic goes to the control after it; a button's presses it.
  PressKeys("Alt+M");
  EXPECT_TRUE(PollUntil([&] { return ClassOf(FocusOf(board.Window())) == L"ComboBox"; }, 5000));
  // Enter and Esc are the open list's: each closes it (as an accelerator,
  // Enter played the last focused sound and Esc stopped everything).
  const HWND list = FocusOf(board.Window());
  for (const char* key : {"Enter", "Esc"}) {
    PressKeys("Alt+Down");
    ASSERT_TRUE(PollUntil([&] { return SendMessageW(list, CB_GETDROPPEDSTATE, 0, 0) != 0; }, 5000)) << key;
    PressKeys(key);
    EXPECT_TRUE(PollUntil([&] { return SendMessageW(list, CB_GETDROPPEDSTATE, 0, 0) == 0; }, 5000))
        << key << " did not reach the open list";
  }
  EXPECT_NE(L"Stopped everything.", board.Status());
  PressKeys("Alt+E");
  EXPECT_TRUE(PollUntil([] { return FindWindowW(nullptr, L"Microphone effect") != nullptr; }));
  PressKeys("Esc");
  EXPECT_TRUE(PollUntil([] { return FindWindowW(nullptr, L"Microphone effect") == nullptr; }));
  for (int i = 0; i < 4; ++i) PressKeys("Tab");
  PressKeys("Right");
  EXPECT_TRUE(PollUntil([&] { return focused() == L"Sound stopped"; }, 5000)) << Utf8(focused());

  // Enter plays the focused sound.
  PressKeys("Enter");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stopped (playing)"); })) << Utf8(board.Status());
  EXPECT_TRUE(board.ShowsButton(L"stays"));
  // F2 opens its editor; Esc closes it.
  PressKeys("F2");
  EXPECT_TRUE(PollUntil([] { return FindWindowW(nullptr, L"Edit sound") != nullptr; }));
  PressKeys("Esc");
  EXPECT_TRUE(PollUntil([] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));
  // Ctrl+T asks for a new page's name.
  PressKeys("Ctrl+T");
  ASSERT_TRUE(PollUntil([] { return FindWindowW(nullptr, L"Add page") != nullptr; }));
  TypeText(L"Memes");
  PressKeys("Enter");
  ASSERT_TRUE(PollUntil([] { return FindWindowW(nullptr, L"Add page") == nullptr; }));
  const LoadedBoard saved = SavedBoard(file, [](const LoadedBoard& b) { return b.board.Pages().size() == 2; });
  ASSERT_EQ(2u, saved.board.Pages().size());
  EXPECT_EQ("Memes", saved.board.Pages()[1].name);
  EXPECT_EQ(0, board.Quit());
}

// Closing the window keeps the board in the notification area, where its
// hotkeys still play; its icon's menu stops everything, shows the board and
// quits; starting it again shows the same board.
TEST(BoardWindow, ClosedToTheTrayItsHotkeysAndMenuWorkAndASecondStartShowsIt) {
  const std::wstring file = MakeBoardFile(L"board-tray", {{Sounds() + L"stays.wav", "Ctrl+Alt+6"}}, "Ctrl+Alt+0");
  {
    LoadedBoard loaded = LoadBoard(file);
    board::Settings settings = loaded.board.GetSettings();
    settings.keepInTray = true;
    ASSERT_FALSE(loaded.board.SetSettings(settings));
    std::string error;
    ASSERT_TRUE(board::SaveBoard(loaded.board, file, error)) << error;
  }
  BoardProcess board(file, L"board-tray");
  ASSERT_TRUE(board.Open());
  MicHost host(L"board-tray", 8);
  ASSERT_TRUE(host.Ready()) << host.Report();
  PostMessageW(board.Window(), WM_CLOSE, 0, 0);
  ASSERT_TRUE(PollUntil([&] { return !IsWindowVisible(board.Window()); }));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(board.Process().Handle(), 0)) << "the board ended";
  PressKeys("Ctrl+Alt+6");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  // Connected, it shows as playing into the microphone, as quillon play does.
  const std::string listed = RunQuillon(L"list").text;
  EXPECT_NE(std::string::npos, listed.find("  yes  ")) << listed;
  // The icon's menu, as the notification area opens it: each item by its key.
  const auto menuShown = [&] {
    const HWND menu = FindTopWindow(board.Process().Handle(), L"#32768");
    return menu != nullptr && IsWindowVisible(menu);
  };
  // A right click on the icon sends WM_RBUTTONUP, then WM_CONTEXTMENU: one menu.
  const auto fromTrayMenu = [&](const char* key) {
    PostMessageW(board.Window(), kTrayCallback, 0, MAKELPARAM(WM_RBUTTONUP, 1));
    PostMessageW(board.Window(), kTrayCallback, 0, MAKELPARAM(WM_CONTEXTMENU, 1));
    EXPECT_TRUE(PollUntil(menuShown)) << key;
    PressKeys(key);
    EXPECT_TRUE(PollUntil([&] { return !menuShown(); })) << key;
  };
  fromTrayMenu("T");  // Stop everything
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays"); })) << Utf8(board.Status());
  EXPECT_EQ(L"Stopped everything.", board.Status());
  EXPECT_FALSE(IsWindowVisible(board.Window()));
  EXPECT_EQ(0, ChildProcess(L"quillon-board.exe", L"").Wait(20000));
  EXPECT_TRUE(PollUntil([&] { return IsWindowVisible(board.Window()); }));
  PostMessageW(board.Window(), WM_CLOSE, 0, 0);
  ASSERT_TRUE(PollUntil([&] { return !IsWindowVisible(board.Window()); }));
  // The release of the right button alone opens no menu: the WM_CONTEXTMENU
  // after it does (handling both opened it twice). The NIN_SELECT posted
  // behind it shows the board once the release has been handled.
  PostMessageW(board.Window(), kTrayCallback, 0, MAKELPARAM(WM_RBUTTONUP, 1));
  PostMessageW(board.Window(), kTrayCallback, 0, MAKELPARAM(NIN_SELECT, 1));
  ASSERT_TRUE(PollUntil([&] { return IsWindowVisible(board.Window()); }));
  EXPECT_FALSE(menuShown()) << "the right button's release opened the menu";
  if (menuShown()) PressKeys("Esc");
  PostMessageW(board.Window(), WM_CLOSE, 0, 0);
  ASSERT_TRUE(PollUntil([&] { return !IsWindowVisible(board.Window()); }));
  fromTrayMenu("S");  // Show the board
  EXPECT_TRUE(PollUntil([&] { return IsWindowVisible(board.Window()); }));
  fromTrayMenu("Q");  // Quit
  EXPECT_EQ(0, board.Process().Wait(20000));
}

// The effect's gain and block voice: shown beside the microphone, changed in
// their dialog, and written by quillon.exe run as Administrator; a gain out of
// range is refused in the dialog and changes nothing.
TEST(BoardWindow, EffectSettingsAreShownAndChangedAsAdministrator) {
  ScopedRegistryValue gain(HKEY_LOCAL_MACHINE, GainKey(kMic), kMicGainValue);
  ScopedRegistryValue block(HKEY_LOCAL_MACHINE, kSettingsKey, kBlockVoiceValue);
  block.Delete();
  ASSERT_TRUE(gain.SetDword(3));
  const std::wstring file = MakeBoardFile(L"board-effect", {}, "Ctrl+Alt+0");
  MicHost host(L"board-effect", 20);
  ASSERT_TRUE(host.Ready()) << host.Report();
  BoardProcess board(file, L"board-effect");
  ASSERT_TRUE(board.Open());
  EXPECT_TRUE(HasText(board.Window(), L"Static", L"Gain 3 dB"));

  PostMessageW(board.Window(), WM_COMMAND, board::kEffect, 0);
  HWND dialog = nullptr;
  ASSERT_TRUE(PollUntil([&] {
    dialog = FindWindowW(nullptr, L"Microphone effect");
    return dialog != nullptr && IsWindowVisible(dialog);
  }));
  EXPECT_EQ(kMic, TextOf(GetDlgItem(dialog, IDC_EFFECT_MIC)));
  EXPECT_EQ(L"3", TextOf(GetDlgItem(dialog, IDC_EFFECT_GAIN)));
  EXPECT_EQ(BST_UNCHECKED, SendDlgItemMessageW(dialog, IDC_EFFECT_BLOCK, BM_GETCHECK, 0, 0));
  SetDlgItemTextW(dialog, IDC_EFFECT_GAIN, L"31");
  PostMessageW(dialog, WM_COMMAND, IDOK, 0);
  EXPECT_TRUE(PollUntil([&] { return TextOf(GetDlgItem(dialog, IDC_REFUSAL)).find(L"0 to 30") != std::wstring::npos; }));
  EXPECT_TRUE(IsWindow(dialog));

  SetDlgItemTextW(dialog, IDC_EFFECT_GAIN, L"12");
  SendDlgItemMessageW(dialog, IDC_EFFECT_BLOCK, BM_SETCHECK, BST_CHECKED, 0);
  PostMessageW(dialog, WM_COMMAND, IDOK, 0);
  ASSERT_TRUE(PollUntil([&] { return !IsWindow(dialog); }));
  const std::wstring done = kMic + L": Gain 12 dB; your voice is muted while a sound plays.";
  EXPECT_TRUE(PollUntil([&] { return board.Status() == done; }, 20000)) << Utf8(board.Status());
  EXPECT_EQ(12u, RegDword(GainKey(kMic), kMicGainValue));
  EXPECT_EQ(1u, RegDword(kSettingsKey, kBlockVoiceValue));
  EXPECT_TRUE(HasText(board.Window(), L"Static", L"Gain 12 dB; your voice is muted while a sound plays"));
  EXPECT_EQ(0, board.Quit());
  DeleteKeys({GainKey(kMic)});
}

// A move to a screen of another DPI: the window takes the suggested place and
// its controls grow with the font.
TEST(BoardWindow, FollowsAChangeOfDpi) {
  const std::wstring file = MakeBoardFile(L"board-dpi", {{Sounds() + L"stays.wav", "Ctrl+Alt+8"}}, "Ctrl+Alt+0");
  BoardProcess board(file, L"board-dpi");
  ASSERT_TRUE(board.Open());
  // The first sound's button and the page tabs.
  const auto heightOf = [](HWND control) {
    RECT r{};
    GetWindowRect(control, &r);
    return r.bottom - r.top;
  };
  const auto buttonHeight = [&] {
    const auto items = board.Items();
    return items.empty() ? 0L : items.front().place.bottom - items.front().place.top;
  };
  const auto tabsHeight = [&] { return heightOf(Descendants(board.Window(), L"SysTabControl32").front()); };
  const long button = buttonHeight(), tabs = tabsHeight();
  ASSERT_GT(button, 0);
  RECT suggested{};
  GetWindowRect(board.Window(), &suggested);
  suggested.right = suggested.left + (suggested.right - suggested.left) * 3 / 2;
  suggested.bottom = suggested.top + (suggested.bottom - suggested.top) * 3 / 2;
  // The message carries a pointer: the rectangle is written into the board's memory.
  void* remote = VirtualAllocEx(board.Process().Handle(), nullptr, sizeof(suggested), MEM_COMMIT, PAGE_READWRITE);
  ASSERT_NE(nullptr, remote);
  ASSERT_TRUE(WriteProcessMemory(board.Process().Handle(), remote, &suggested, sizeof(suggested), nullptr));
  SendMessageW(board.Window(), WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(remote));
  VirtualFreeEx(board.Process().Handle(), remote, 0, MEM_RELEASE);
  RECT now{};
  GetWindowRect(board.Window(), &now);
  EXPECT_EQ(suggested.right - suggested.left, now.right - now.left);
  EXPECT_EQ(suggested.bottom - suggested.top, now.bottom - now.top);
  EXPECT_GE(buttonHeight(), button * 13 / 10) << button;
  EXPECT_GE(tabsHeight(), tabs * 13 / 10) << tabs;
  Screenshot(board.Window(), Scratch(L"board-144dpi.bmp"));
  EXPECT_EQ(0, board.Quit());
}

// A damaged board file is kept aside and the board says so; a sound whose
// file is gone stays on the board, marked, and plays nothing.
TEST(BoardWindow, DamagedFileIsKeptAsideAndMissingSoundsAreMarked) {
  const std::wstring damaged = Scratch(L"board-damaged.json");
  DeleteFileW(damaged.c_str());
  {
    std::ofstream(damaged, std::ios::binary) << "{\"pages\": [ {\"name\": \"Mine\", ";
  }
  {
    BoardProcess board(damaged, L"board-damaged");
    ASSERT_TRUE(board.Open());
    EXPECT_TRUE(PollUntil([&] { return board.Status().find(L"the board starts empty") != std::wstring::npos; }))
        << Utf8(board.Status());
    EXPECT_TRUE(board.Buttons().empty());
    EXPECT_EQ(0, board.Quit());
  }
  // The damaged file is beside the new one, as it was.
  WIN32_FIND_DATAW found;
  HANDLE find = FindFirstFileW((damaged + L".damaged-*").c_str(), &found);
  ASSERT_NE(INVALID_HANDLE_VALUE, find);
  FindClose(find);
  const std::wstring keptAs = damaged.substr(0, damaged.find_last_of(L'\\') + 1) + found.cFileName;
  EXPECT_EQ("{\"pages\": [ {\"name\": \"Mine\", ", ReadText(keptAs));
  DeleteFileW(keptAs.c_str());

  const std::wstring gone = Scratch(L"board-gone.wav");
  DeleteFileW(gone.c_str());
  const std::wstring file = MakeBoardFile(L"board-missing", {{gone, "Ctrl+Alt+5"}}, "Ctrl+Alt+0");
  BoardProcess board(file, L"board-missing");
  ASSERT_TRUE(board.Open());
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"out-board-gone (file missing)"); }));
  PressKeys("Ctrl+Alt+5");
  EXPECT_TRUE(PollUntil([&] { return board.Status().find(L"its file is missing") != std::wstring::npos; }))
      << Utf8(board.Status());
  // The file comes back while another window is active; when the board is
  // activated again it looks again, and the mark goes.
  UniqueWindow other(CreateWindowExW(0, L"STATIC", L"another program", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200,
                                     100, nullptr, nullptr, nullptr, nullptr));
  SetForegroundWindow(other.Get());
  ASSERT_TRUE(PollUntil([&] { return GetForegroundWindow() == other.Get(); }));
  ASSERT_TRUE(CopyFileW((Sounds() + L"stays.wav").c_str(), gone.c_str(), FALSE));
  SetForegroundWindow(board.Window());
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"out-board-gone"); })) << Utf8(board.Buttons().front());
  EXPECT_EQ(0, board.Quit());
  EXPECT_EQ(LoadedBoard::State::Read, LoadBoard(file).state);
  DeleteFileW(gone.c_str());
}

// A board file with mistakes the board can show (a hotkey twice, a page name
// twice) is loaded, not set aside: the status bar names the first mistake and
// the sound that lost its hotkey is marked (the next save writes it put right).
TEST(BoardWindow, AFileWithMistakesIsLoadedAndTheMistakesMarked) {
  const std::wstring file = Scratch(L"board-mistakes.json");
  const std::string a = Utf8(Sounds() + L"stays.wav"), b = Utf8(Sounds() + L"stopped.wav");
  nlohmann::json text = {
      {"pages",
       {{{"name", "Mine"}, {"sounds", {{{"file", a}, {"hotkey", "Ctrl+Alt+7"}}, {{"file", b}, {"hotkey", "Ctrl+Alt+7"}}}}},
        {{"name", "mine"}}}},
      {"settings", {{"microphone", Utf8(kMic)}, {"keepInTray", false}}}};
  std::ofstream(file.c_str(), std::ios::binary) << text.dump(2);
  BoardProcess board(file, L"board-mistakes");
  ASSERT_TRUE(board.Open());
  EXPECT_TRUE(PollUntil([&] {
    return board.Status().rfind(
               L"The board file had 2 mistakes, put right and marked: \u201Cstopped\u201D: hotkey taken off.", 0) == 0;
  })) << Utf8(board.Status());
  EXPECT_TRUE(board.ShowsButton(L"stays"));
  EXPECT_TRUE(board.ShowsButton(L"stopped (hotkey taken off)"));
  Screenshot(board.Window(), Scratch(L"board-mistakes.bmp"));
  EXPECT_EQ(0, board.Quit());
  // Saved (with the sounds' loudness) as put right: the same sounds, the
  // first keeps the hotkey, the second has none, and nothing is left to put right.
  const LoadedBoard saved = LoadBoard(file);
  ASSERT_EQ(LoadedBoard::State::Read, saved.state);
  EXPECT_TRUE(saved.mistakes.empty());
  const auto& sounds = saved.board.Pages()[0].sounds;
  ASSERT_EQ(2u, sounds.size());
  EXPECT_EQ(a, sounds[0].file);
  EXPECT_EQ(Chord("Ctrl+Alt+7"), sounds[0].hotkey);
  EXPECT_EQ(b, sounds[1].file);
  EXPECT_FALSE(sounds[1].hotkey);
}

// How many pixels of a 24-bit BMP (as Screenshot writes it) are this 0xRRGGBB.
size_t PixelsOf(const std::wstring& bmp, uint32_t rgb) {
  const std::string bytes = ReadText(bmp);
  if (bytes.size() < 54) return 0;
  const int32_t width = *reinterpret_cast<const int32_t*>(bytes.data() + 18);
  const size_t row = (static_cast<size_t>(width) * 3 + 3) & ~size_t{3};
  size_t count = 0;
  for (size_t at = 54; at + row <= bytes.size(); at += row) {
    for (size_t x = 0; x < static_cast<size_t>(width); ++x) {
      const auto* p = reinterpret_cast<const unsigned char*>(bytes.data() + at + x * 3);
      count += (static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[0]) == rgb;
    }
  }
  return count;
}

// Sends the board a command that opens a dialog and waits for the dialog, by its title.

// The width of the first sound's button, in pixels.
int FirstButtonWidth(const BoardProcess& board) {
  const auto items = board.Items();
  return items.empty() ? 0 : static_cast<int>(items.front().place.right - items.front().place.left);
}

// A colour chosen in the sound's editor and large buttons chosen in the
// settings are saved; after the board starts again the button is drawn in the
// colour, at the large size, and the other sound keeps the theme's button.
TEST(BoardWindow, AColourAndTheButtonSizeAreSavedAndDrawn) {
  const std::wstring file = MakeBoardFile(
      L"board-colour", {{Sounds() + L"stays.wav", "Ctrl+Alt+3"}, {Sounds() + L"stopped.wav", "Ctrl+Alt+4"}},
      "Ctrl+Alt+0");
  constexpr uint32_t kTeal = 0x00897B;
  int large = 0;
  {
    BoardProcess board(file, L"board-colour");
    ASSERT_TRUE(board.Open());
    const HWND editor = OpenDialog(board.Window(), board::kEditSound, L"Edit sound");
    ASSERT_NE(nullptr, editor);
    const HWND colors = GetDlgItem(editor, IDC_SOUND_COLOR);
    ASSERT_EQ(13, SendMessageW(colors, CB_GETCOUNT, 0, 0)) << "none and twelve colours";
    EXPECT_EQ(0, SendMessageW(colors, CB_GETCURSEL, 0, 0));
    SendMessageW(colors, CB_SETCURSEL, 6, 0);  // Teal
    PostMessageW(editor, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));

    const int medium = FirstButtonWidth(board);
    ASSERT_GT(medium, 0);
    const HWND settings = OpenDialog(board.Window(), board::kSettings, L"Settings");
    ASSERT_NE(nullptr, settings);
    const HWND sizes = GetDlgItem(settings, IDC_SET_BUTTON_SIZE);
    EXPECT_EQ(1, SendMessageW(sizes, CB_GETCURSEL, 0, 0)) << "medium at first";
    SendMessageW(sizes, CB_SETCURSEL, 2, 0);
    // Even loudness, off in this board, turned on at a target of its own.
    EXPECT_EQ(BST_UNCHECKED, IsDlgButtonChecked(settings, IDC_SET_EVEN));
    EXPECT_FALSE(IsWindowEnabled(GetDlgItem(settings, IDC_SET_EVEN_TARGET)));
    SendMessageW(GetDlgItem(settings, IDC_SET_EVEN), BM_CLICK, 0, 0);
    EXPECT_TRUE(IsWindowEnabled(GetDlgItem(settings, IDC_SET_EVEN_TARGET)));
    SetDlgItemTextW(settings, IDC_SET_EVEN_TARGET, L"-20");
    Screenshot(settings, Scratch(L"board-settings.bmp"));
    PostMessageW(settings, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Settings") == nullptr; }));
    EXPECT_TRUE(PollUntil([&] { return FirstButtonWidth(board) >= medium * 13 / 10; }))
        << FirstButtonWidth(board) << " px, medium " << medium;
    large = FirstButtonWidth(board);
    EXPECT_EQ(0, board.Quit());
  }
  const LoadedBoard saved = LoadBoard(file);
  ASSERT_TRUE(saved.board.Pages()[0].sounds[0].color);
  EXPECT_EQ(kTeal, *saved.board.Pages()[0].sounds[0].color);
  EXPECT_FALSE(saved.board.Pages()[0].sounds[1].color);
  EXPECT_EQ(board::ButtonSize::Large, saved.board.GetSettings().buttonSize);
  EXPECT_TRUE(saved.board.GetSettings().evenLoudness);
  EXPECT_EQ(-20.0, saved.board.GetSettings().loudnessTargetLufs);

  BoardProcess board(file, L"board-colour");
  ASSERT_TRUE(board.Open());
  const std::wstring shot = Scratch(L"board-colour.bmp");
  ASSERT_TRUE(PollUntil([&] { return Screenshot(board.Window(), shot) && PixelsOf(shot, kTeal) > 1000; }))
      << PixelsOf(shot, kTeal) << " teal pixels";
  EXPECT_EQ(large, FirstButtonWidth(board));
  EXPECT_EQ(0, board.Quit());
}

// The board killed at random moments while it saves: the file is always a
// whole board, the last one saved or the one before.
TEST(BoardWindow, KilledWhileSavingLeavesAWholeBoard) {
  const std::wstring file = MakeBoardFile(L"board-killed", {}, "Ctrl+Alt+0");
  std::mt19937 random(20261125);
  std::vector<std::wstring> many;
  for (int i = 0; i < 100; ++i) many.push_back(L"\"" + Sounds() + L"stays.wav\"");
  std::wstring arguments;
  for (const std::wstring& m : many) arguments += m + L" ";
  size_t before = 0;
  for (int round = 0; round < 12; ++round) {
    {
      BoardProcess board(file, L"board-killed", arguments);
      // Killed somewhere between its start and well after its save.
      Sleep(std::uniform_int_distribution<DWORD>(0, 1500)(random));
      TerminateProcess(board.Process().Handle(), 9);
      board.Process().Wait(10000);
    }
    const LoadedBoard loaded = LoadBoard(file);
    ASSERT_EQ(LoadedBoard::State::Read, loaded.state) << "round " << round << ": " << loaded.problem;
    const size_t sounds = loaded.board.Pages()[0].sounds.size();
    EXPECT_TRUE(sounds == before || sounds == before + many.size()) << "round " << round << ": " << sounds;
    before = sounds;
  }
}

// A sound's button plays it when clicked with the mouse, and when a screen
// reader does its default action.
TEST(BoardWindow, AClickAndAScreenReadersPressPlayASound) {
  const std::wstring file = MakeBoardFile(
      L"board-click", {{Sounds() + L"stays.wav", "Ctrl+Alt+3"}, {Sounds() + L"stopped.wav", "Ctrl+Alt+4"}},
      "Ctrl+Alt+0");
  BoardProcess board(file, L"board-click");
  ASSERT_TRUE(board.Open());
  MicHost host(L"board-click", 8);
  ASSERT_TRUE(host.Ready()) << host.Report();
  SetForegroundWindow(board.Window());
  const auto items = board.Items();
  ASSERT_EQ(2u, items.size());
  const RECT second = items[1].place;
  ClickOnX((second.left + second.right) / 2, (second.top + second.bottom) / 2);
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stopped (playing)"); })) << Utf8(board.Status());
  EXPECT_TRUE(board.ShowsButton(L"stays")) << "the click played another sound too";
  const AccessibleClient client;
  const ComPtr<IAccessible> grid = AccessibleClient::Of(board.Grid());
  ASSERT_TRUE(grid);
  EXPECT_TRUE(AccessibleClient::DoDefaultAction(*grid.Get(), 0));
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  EXPECT_EQ(0, board.Quit());
}

// Ctrl+F, then typing, filters the page's sounds by name (letter case
// aside); with All pages the other pages' sounds are found too; Enter plays
// the first found into the microphone; Esc ends the search and gives the
// focus back to the sounds.
TEST(BoardWindow, SearchFiltersByNameAndEnterPlaysTheFirstFound) {
  const std::wstring file = Scratch(L"board-search.json");
  {
    Board two;
    two.AddSounds(0, {Utf8(Sounds() + L"stays.wav"), Utf8(Sounds() + L"stopped.wav")});
    ASSERT_FALSE(two.AddPage("More"));
    const uint32_t again = two.AddSounds(1, {Utf8(Sounds() + L"stays.wav")}).front();
    ASSERT_FALSE(two.RenameSound(again, "Stays again"));
    board::Settings settings;
    settings.microphone = Utf8(kMic);
    settings.keepInTray = false;
    ASSERT_FALSE(two.SetSettings(settings));
    std::string error;
    ASSERT_TRUE(board::SaveBoard(two, file, error)) << error;
  }
  MicHost host(L"board-search", 10);
  ASSERT_TRUE(host.Ready()) << host.Report();
  BoardProcess board(file, L"board-search");
  ASSERT_TRUE(board.Open());
  SetForegroundWindow(board.Window());
  ASSERT_TRUE(PollUntil([&] { return GetForegroundWindow() == board.Window(); }));
  ASSERT_TRUE(PollUntil([&] { return FocusOf(board.Window()) == board.Grid(); }, 5000));

  PressKeys("Ctrl+F");
  ASSERT_TRUE(PollUntil([&] { return ClassOf(FocusOf(board.Window())) == L"Edit"; }, 5000));
  TypeText(L"STO");
  EXPECT_TRUE(PollUntil([&] { return board.Buttons() == std::vector<std::wstring>{L"stopped"}; }, 5000));
  PressKeys("Ctrl+A");
  TypeText(L"stay");
  EXPECT_TRUE(PollUntil([&] { return board.Buttons() == std::vector<std::wstring>{L"stays"}; }, 5000));
  // All pages (its mnemonic), then back to the box (the label's).
  PressKeys("Alt+G");
  EXPECT_TRUE(
      PollUntil([&] { return board.Buttons() == std::vector<std::wstring>{L"stays", L"Stays again"}; }, 5000));
  PressKeys("Alt+D");
  ASSERT_TRUE(PollUntil([&] { return ClassOf(FocusOf(board.Window())) == L"Edit"; }, 5000));
  EXPECT_EQ(L"2 sounds found for \u201Cstay\u201D on all pages. Enter plays the first; Esc ends the search.",
            board.Status());
  Screenshot(board.Window(), Scratch(L"board-search.bmp"));
  PressKeys("Enter");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  PressKeys("Esc");
  EXPECT_TRUE(PollUntil([&] { return FocusOf(board.Window()) == board.Grid(); }, 5000));
  EXPECT_TRUE(PollUntil([&] {
    const auto buttons = board.Buttons();
    return buttons.size() == 2 && buttons[1] == L"stopped";
  }, 5000));
  EXPECT_EQ(0, board.Quit());
}

// The dialog (a message box or the progress) titled "Adding sounds" whose
// text holds `words`, or null.
HWND AddingDialog(const wchar_t* words) {
  HWND found = nullptr;
  for (HWND dialog = FindWindowW(L"#32770", L"Adding sounds"); dialog != nullptr && found == nullptr;
       dialog = FindWindowExW(nullptr, dialog, L"#32770", L"Adding sounds")) {
    for (HWND child : Descendants(dialog, L"Static")) {
      if (TextOf(child).find(words) != std::wstring::npos) found = dialog;
    }
    if (found == nullptr && !Descendants(dialog, L"msctls_progress32").empty() && std::wstring(words) == L"progress") {
      found = dialog;
    }
  }
  return found;
}

// Adding 900 files at once, whose names come to more than 64 K characters
// (the old dialog's buffer, past which nothing was added): every one is added.
TEST(BoardWindow, ALargeSelectionOfFilesIsAddedWhole) {
  const std::wstring folder = Scratch(L"board-many-files");
  CreateDirectoryW(folder.c_str(), nullptr);
  std::wstring names;
  size_t nameChars = 0;
  constexpr int kFiles = 900;
  for (int i = 0; i < kFiles; ++i) {
    wchar_t name[160];
    swprintf(name, 160, L"a sound with a long name that a download site gave it, number %04d of many, kept as it came.wav", i);
    ASSERT_TRUE(CopyFileW((Sounds() + L"stays.wav").c_str(), (folder + L"\\" + name).c_str(), FALSE));
    names += L"\"" + folder + L"\\" + name + L"\" ";
    nameChars += wcslen(name) + 1;
  }
  ASSERT_GT(nameChars, 64u * 1024u);
  const std::wstring file = MakeBoardFile(L"board-large-selection", {}, "Ctrl+Alt+0");
  BoardProcess board(file, L"board-large-selection");
  ASSERT_TRUE(board.Open());
  PostMessageW(board.Window(), WM_COMMAND, board::kAddSounds, 0);
  HWND dialog = nullptr;
  ASSERT_TRUE(PollUntil([&] { return (dialog = FindWindowW(nullptr, L"Add sounds")) != nullptr; }));
  const int nameBox = GetDlgItem(dialog, cmb13) != nullptr ? cmb13 : edt1;
  ASSERT_TRUE(SetDlgItemTextW(dialog, nameBox, names.c_str()));
  PostMessageW(dialog, WM_COMMAND, IDOK, 0);
  // More than 500: the board asks first.
  HWND ask = nullptr;
  ASSERT_TRUE(PollUntil([&] { return (ask = AddingDialog(L"Add the 900 files found in")) != nullptr; }))
      << Utf8(board.Status());
  PostMessageW(ask, WM_COMMAND, IDYES, 0);
  EXPECT_TRUE(PollUntil([&] { return LoadBoard(file).board.Pages()[0].sounds.size() == kFiles; }))
      << LoadBoard(file).board.Pages()[0].sounds.size() << " added; " << Utf8(board.Status());
  EXPECT_EQ(0, board.Quit());
  for (int i = 0; i < kFiles; ++i) {
    wchar_t name[160];
    swprintf(name, 160, L"a sound with a long name that a download site gave it, number %04d of many, kept as it came.wav", i);
    DeleteFileW((folder + L"\\" + name).c_str());
  }
  RemoveDirectoryW(folder.c_str());
}

// The visible notification-area balloon's text (Windows and Wine show it as a tooltip), or "".
std::wstring BalloonText() {
  std::wstring text;
  EnumWindows(
      [](HWND window, LPARAM p) -> BOOL {
        if (IsWindowVisible(window) && ClassOf(window) == L"tooltips_class32") {
          *reinterpret_cast<std::wstring*>(p) += TextOf(window);
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&text));
  return text;
}

// Two pages whose hotkeys work only while shown use the same key: it plays
// the shown page's sound, also while another program has the focus; the
// next-page hotkey (Ctrl+Alt+PageDown, pressed there too) shows the other
// page, and the same key then plays its sound. Closed to the notification
// area, the previous-page hotkey switches back and a balloon names the page.
TEST(BoardWindow, PagesWithTheirOwnHotkeysShareAKeyAndThePageHotkeysSwitchThem) {
  const std::wstring file = Scratch(L"board-page-keys.json");
  {
    Board two;
    ASSERT_FALSE(two.RenamePage(0, "A"));
    ASSERT_FALSE(two.AddPage("B"));
    ASSERT_FALSE(two.SetHotkeysOnlyWhenShown(0, true));
    ASSERT_FALSE(two.SetHotkeysOnlyWhenShown(1, true));
    const uint32_t a = two.AddSounds(0, {Utf8(Sounds() + L"stays.wav")}).front();
    const uint32_t b = two.AddSounds(1, {Utf8(Sounds() + L"stopped.wav")}).front();
    ASSERT_FALSE(two.SetHotkey(a, Chord("Ctrl+Alt+1")));
    ASSERT_FALSE(two.SetHotkey(b, Chord("Ctrl+Alt+1")));
    board::Settings settings;
    settings.microphone = Utf8(kMic);
    settings.keepInTray = true;
    ASSERT_FALSE(two.SetSettings(settings));
    std::string error;
    ASSERT_TRUE(board::SaveBoard(two, file, error)) << error;
  }
  BoardProcess board(file, L"board-page-keys");
  ASSERT_TRUE(board.Open());
  MicHost host(L"board-page-keys", 12);
  ASSERT_TRUE(host.Ready()) << host.Report();
  UniqueWindow other(CreateWindowExW(0, L"STATIC", L"another program", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200,
                                     100, nullptr, nullptr, nullptr, nullptr));
  SetForegroundWindow(other.Get());
  ASSERT_TRUE(PollUntil([&] { return GetForegroundWindow() == other.Get(); }));

  PressKeys("Ctrl+Alt+1");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  PressKeys("Ctrl+Alt+PageDown");
  EXPECT_TRUE(PollUntil([&] { return board.Buttons() == std::vector<std::wstring>{L"stopped"}; }))
      << Utf8(board.Status());
  EXPECT_EQ(other.Get(), GetForegroundWindow()) << "the page hotkey took the focus";
  PressKeys("Ctrl+Alt+1");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stopped (playing)"); })) << Utf8(board.Status());

  PostMessageW(board.Window(), WM_CLOSE, 0, 0);
  ASSERT_TRUE(PollUntil([&] { return !IsWindowVisible(board.Window()); }));
  PressKeys("Ctrl+Alt+PageUp");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays"); })) << Utf8(board.Status());
  EXPECT_TRUE(PollUntil([] { return BalloonText().find(L"Page \u201CA\u201D") != std::wstring::npos; }, 5000))
      << Utf8(BalloonText());
  std::printf("[ balloon  ] %s\n", Utf8(BalloonText()).c_str());
  EXPECT_EQ(0, board.Quit());
}

// Export writes a folder holding board.json with relative paths and a copy
// of every sound (two files of one name made unique; a missing file listed);
// moved elsewhere and opened there, through Open a board…, every sound plays.
TEST(BoardWindow, AnExportedBoardMovedElsewhereOpensAndEverySoundPlays) {
  const std::wstring other = Scratch(L"board-export-other");
  CreateDirectoryW(other.c_str(), nullptr);
  ASSERT_TRUE(CopyFileW((Sounds() + L"stays.wav").c_str(), (other + L"\\stays.wav").c_str(), FALSE));
  const std::wstring gone = Scratch(L"board-export-gone.wav");
  DeleteFileW(gone.c_str());
  const std::wstring file = MakeBoardFile(L"board-export", {{Sounds() + L"stays.wav", "Ctrl+Alt+1"},
                                                            {Sounds() + L"stopped.wav", "Ctrl+Alt+2"},
                                                            {other + L"\\stays.wav", "Ctrl+Alt+3"},
                                                            {gone, "Ctrl+Alt+4"}},
                                          "Ctrl+Alt+0");
  // As the file dialog gives them back: full paths.
  const std::wstring to = tools::FullPath(Scratch(L"board-export-to")),
                     moved = tools::FullPath(Scratch(L"board-export-moved"));
  for (const std::wstring& folder : {to, moved}) {
    for (const wchar_t* name : {L"\\sounds\\stays.wav", L"\\sounds\\stays (2).wav", L"\\sounds\\stopped.wav",
                                L"\\board.json"}) {
      DeleteFileW((folder + name).c_str());
    }
    RemoveDirectoryW((folder + L"\\sounds").c_str());
    RemoveDirectoryW(folder.c_str());
  }
  ASSERT_TRUE(CreateDirectoryW(to.c_str(), nullptr));
  {
    BoardProcess board(file, L"board-export");
    ASSERT_TRUE(board.Open());
    const HWND dialog = OpenDialog(board.Window(), board::kExportBoard, L"Export the board to a folder");
    ASSERT_NE(nullptr, dialog);
    ASSERT_TRUE(SetDlgItemTextW(dialog, edt1, to.c_str()));
    PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    EXPECT_TRUE(PollUntil([&] { return board.Status().rfind(L"Exported", 0) == 0; })) << Utf8(board.Status());
    EXPECT_EQ(L"Exported the board and 3 sound files to " + to + L"\\board.json. Not in it, their files missing: "
                  L"out-board-export-gone (" + gone + L").",
              board.Status());
    EXPECT_EQ(0, board.Quit());
  }
  const LoadedBoard exported = LoadBoard(to + L"\\board.json");
  ASSERT_EQ(LoadedBoard::State::Read, exported.state) << exported.problem;
  std::vector<std::string> files;
  for (const board::Sound& sound : exported.board.Pages()[0].sounds) files.push_back(sound.file);
  EXPECT_EQ((std::vector<std::string>{"sounds\\stays.wav", "sounds\\stopped.wav", "sounds\\stays (2).wav", Utf8(gone)}),
            files);
  EXPECT_EQ("", exported.board.GetSettings().microphone) << "this PC's microphone went with the board";

  // Elsewhere, opened through the dialog in a board started on another file.
  ASSERT_TRUE(MoveFileW(to.c_str(), moved.c_str()));
  MicHost host(L"board-export", 12);
  ASSERT_TRUE(host.Ready()) << host.Report();
  BoardProcess board(MakeBoardFile(L"board-export-start", {}, "Ctrl+Alt+0"), L"board-export-opened");
  ASSERT_TRUE(board.Open());
  const HWND dialog = OpenDialog(board.Window(), board::kOpenBoard, L"Open a board");
  ASSERT_NE(nullptr, dialog);
  ASSERT_TRUE(SetDlgItemTextW(dialog, edt1, (moved + L"\\board.json").c_str()));
  PostMessageW(dialog, WM_COMMAND, IDOK, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Status() == L"Opened the board in " + moved + L"\\board.json."; }))
      << Utf8(board.Status());
  // The exported board chooses its microphone again: the host's is the one that runs.
  const AccessibleClient client;
  const ComPtr<IAccessible> grid = AccessibleClient::Of(board.Grid());
  ASSERT_TRUE(grid);
  ASSERT_TRUE(PollUntil([&] { return AccessibleClient::Count(*grid.Get()) == 4; }));
  for (long i = 0; i < 3; ++i) {
    const std::wstring name = AccessibleClient::Item(*grid.Get(), i)->name;
    EXPECT_TRUE(AccessibleClient::DoDefaultAction(*grid.Get(), i));
    EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(name + L" (playing)"); })) << Utf8(name) << ": "
                                                                                    << Utf8(board.Status());
  }
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"out-board-export-gone (file missing)"); }));
  EXPECT_EQ(0, board.Quit());
}

// A folder for adding: `sounds` links to stays.wav, one text file and one
// ".wav" that holds text; made once, kept between runs.
std::wstring SoundFolderOf(const std::wstring& name, int sounds) {
  const std::wstring folder = Scratch(name);
  const std::wstring done = folder + L"\\made-" + std::to_wstring(sounds) + L".txt";
  if (GetFileAttributesW(done.c_str()) != INVALID_FILE_ATTRIBUTES) return folder;
  CreateDirectoryW(folder.c_str(), nullptr);
  for (int i = 0; i < sounds; ++i) {
    const std::wstring link = folder + L"\\sound " + std::to_wstring(100000 + i) + L".wav";
    if (GetFileAttributesW(link.c_str()) == INVALID_FILE_ATTRIBUTES) {
      EXPECT_TRUE(CreateHardLinkW(link.c_str(), (Sounds() + L"stays.wav").c_str(), nullptr)) << GetLastError();
    }
  }
  std::ofstream(folder + L"\\zz not a sound.wav", std::ios::binary) << "this is text, not sound";
  std::ofstream(done, std::ios::binary) << "notes";
  return folder;
}

// Files handed to the board (as a second start hands them over) are looked
// at on a thread of its own: more than 500 ask first, and No adds nothing;
// Yes shows the progress, whose Cancel adds nothing either; a folder of 150
// adds its sounds and says what it skipped and why.
TEST(BoardWindow, AFolderOfTenThousandFilesAsksFirstAndCanBeCancelled) {
  const std::wstring many = SoundFolderOf(L"board-scan-many", 10000), some = SoundFolderOf(L"board-scan-some", 150);
  BoardProcess board(MakeBoardFile(L"board-scan", {}, "Ctrl+Alt+0"), L"board-scan");
  ASSERT_TRUE(board.Open());
  const auto hand = [&](const std::wstring& folder) {
    EXPECT_EQ(0, ChildProcess(L"quillon-board.exe", L"\"" + folder + L"\"").Wait(30000));
  };

  hand(many);
  HWND ask = nullptr;
  ASSERT_TRUE(PollUntil([&] { return (ask = AddingDialog(L"Add the 10002 files found in")) != nullptr; }, 60000));
  PostMessageW(ask, WM_COMMAND, IDNO, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Status() == L"Adding sounds was cancelled; none was added."; }))
      << Utf8(board.Status());

  hand(many);
  ASSERT_TRUE(PollUntil([&] { return (ask = AddingDialog(L"Add the 10002 files found in")) != nullptr; }, 60000));
  PostMessageW(ask, WM_COMMAND, IDYES, 0);
  HWND progress = nullptr;
  ASSERT_TRUE(PollUntil([&] { return (progress = AddingDialog(L"progress")) != nullptr; }, 30000));
  Screenshot(progress, Scratch(L"board-scan-progress.bmp"));
  PostMessageW(progress, WM_COMMAND, IDCANCEL, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Status() == L"Adding sounds was cancelled; none was added."; }))
      << Utf8(board.Status());
  EXPECT_TRUE(board.Buttons().empty());

  hand(some);
  EXPECT_TRUE(PollUntil([&] { return board.Status().rfind(L"Added", 0) == 0; }, 60000)) << Utf8(board.Status());
  const std::wstring someFull = tools::FullPath(some);
  EXPECT_EQ(L"Added 150 sounds. Skipped 2: 1 not sound files, 1 that do not open as sound (the first, " + someFull +
                L"\\zz not a sound.wav: ",
            board.Status().substr(0, board.Status().find(L".wav: ") + 6));
  const AccessibleClient client;
  const ComPtr<IAccessible> grid = AccessibleClient::Of(board.Grid());
  ASSERT_TRUE(grid);
  EXPECT_EQ(150, AccessibleClient::Count(*grid.Get()));
  EXPECT_EQ(0, board.Quit());
}

// A board file dropped on the window: the board asks whether to open it,
// and Yes opens it in place of the board shown. (The drop's files are
// written into the board's memory, as the shell hands a drop over.)
TEST(BoardWindow, ADroppedBoardFileIsOfferedAndOpened) {
  const std::wstring other = MakeBoardFile(L"board-dropped", {{Sounds() + L"stopped.wav", "Ctrl+Alt+2"}}, "Ctrl+Alt+0");
  BoardProcess board(MakeBoardFile(L"board-drop-target", {{Sounds() + L"stays.wav", "Ctrl+Alt+1"}}, "Ctrl+Alt+0"),
                     L"board-drop-target");
  ASSERT_TRUE(board.Open());
  ASSERT_TRUE(PollUntil([&] { return board.Buttons() == std::vector<std::wstring>{L"stays"}; }));
  // DROPFILES, then the names (wide), each ended by a null, and one more null.
  std::vector<char> drop(sizeof(DROPFILES) + (other.size() + 2) * sizeof(wchar_t), 0);
  auto* header = reinterpret_cast<DROPFILES*>(drop.data());
  header->pFiles = sizeof(DROPFILES);
  header->fWide = TRUE;
  std::memcpy(drop.data() + sizeof(DROPFILES), other.c_str(), other.size() * sizeof(wchar_t));
  void* remote = VirtualAllocEx(board.Process().Handle(), nullptr, drop.size(), MEM_COMMIT, PAGE_READWRITE);
  ASSERT_NE(nullptr, remote);
  ASSERT_TRUE(WriteProcessMemory(board.Process().Handle(), remote, drop.data(), drop.size(), nullptr));
  PostMessageW(board.Window(), WM_DROPFILES, reinterpret_cast<WPARAM>(remote), 0);
  HWND ask = nullptr;
  ASSERT_TRUE(PollUntil([&] { return (ask = FindWindowW(L"#32770", L"Open board")) != nullptr; }));
  PostMessageW(ask, WM_COMMAND, IDYES, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Buttons() == std::vector<std::wstring>{L"stopped"}; }))
      << Utf8(board.Status());
  EXPECT_EQ(0u, board.Status().rfind(L"Opened the board in " + other + L".", 0)) << Utf8(board.Status());
  EXPECT_EQ(0, board.Quit());
}

// The sound's editor shows its waveform; the keys move its markers (Home or
// End chooses one, the arrows move it by 10 ms, with Shift by 100 ms) and the
// Start and End fields follow; numbers typed there move the markers. The
// part is saved, and the hotkey then plays only it: 500 to 1200 ms of a
// sweep, as long as sox's cut.
TEST(BoardWindow, ATrimSetInTheEditorPlaysOnlyThatPart) {
  const std::wstring file = MakeBoardFile(L"board-trim", {{Sounds() + L"trim-source.wav", "Ctrl+Alt+5"}}, "Ctrl+Alt+0");
  BoardProcess board(file, L"board-trim");
  ASSERT_TRUE(board.Open());
  const HWND editor = OpenDialog(board.Window(), board::kEditSound, L"Edit sound");
  ASSERT_NE(nullptr, editor);
  const HWND wave = GetDlgItem(editor, IDC_SOUND_WAVE);
  ASSERT_NE(nullptr, wave);
  EXPECT_TRUE(PollUntil([&] { return TextOf(wave).rfind(L"Waveform, 2.0 s", 0) == 0; }, 10000)) << Utf8(TextOf(wave));
  SetForegroundWindow(editor);
  SendMessageW(editor, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(wave), TRUE);
  ASSERT_TRUE(PollUntil([&] { return FocusOf(editor) == wave; }, 5000));
  const auto field = [&](int id) {
    wchar_t text[32] = {};
    GetDlgItemTextW(editor, id, text, 32);
    return std::wstring(text);
  };
  PressKeys("Home");
  for (int i = 0; i < 3; ++i) PressKeys("Right");
  PressKeys("Shift+Right");
  EXPECT_TRUE(PollUntil([&] { return field(IDC_SOUND_START) == L"130"; }, 5000)) << Utf8(field(IDC_SOUND_START));
  PressKeys("End");
  PressKeys("Shift+Left");
  PressKeys("Shift+Left");
  EXPECT_TRUE(PollUntil([&] { return field(IDC_SOUND_END) == L"1800"; }, 5000)) << Utf8(field(IDC_SOUND_END));
  EXPECT_EQ(L"Waveform, 2.0 s; plays 0.130 s to 1.800 s", TextOf(wave));
  // Typed numbers move the markers.
  SetDlgItemTextW(editor, IDC_SOUND_START, L"500");
  SetDlgItemTextW(editor, IDC_SOUND_END, L"1200");
  EXPECT_EQ(L"Waveform, 2.0 s; plays 0.500 s to 1.200 s", TextOf(wave));
  Screenshot(editor, Scratch(L"board-trim-editor.bmp"));
  PostMessageW(editor, WM_COMMAND, IDOK, 0);
  ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));
  const LoadedBoard saved =
      SavedBoard(file, [](const LoadedBoard& b) { return b.board.Pages()[0].sounds.at(0).startMs != 0; });
  ASSERT_EQ(1u, saved.board.Pages()[0].sounds.size());
  EXPECT_EQ(500u, saved.board.Pages()[0].sounds[0].startMs);
  EXPECT_EQ(1200u, saved.board.Pages()[0].sounds[0].endMs);

  MicHost host(L"board-trim", 4);
  ASSERT_TRUE(host.Ready()) << host.Report();
  PressKeys("Ctrl+Alt+5");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"trim-source (playing)"); })) << Utf8(board.Status());
  ASSERT_EQ(0, host.process.Wait(20000)) << host.Report();
  EXPECT_EQ(0, board.Quit());
  const audio::Sound out = host.Output(), ref = LoadSound(Sounds() + L"trim-ref.wav");
  const size_t span = LastSound(out, 1e-4f) - FirstSound(out, 1e-4f), refSpan = ref.samples.size() / ref.channels;
  EXPECT_NEAR(static_cast<double>(refSpan), static_cast<double>(span), kPeriodFrames) << span << " frames played";
}

// The windows a process has: its top-level ones and all their descendants.
size_t WindowsOf(DWORD process) {
  struct Count {
    DWORD process;
    size_t windows;
  } count{process, 0};
  EnumWindows(
      [](HWND top, LPARAM p) -> BOOL {
        auto* c = reinterpret_cast<Count*>(p);
        DWORD owner = 0;
        GetWindowThreadProcessId(top, &owner);
        if (owner != c->process) return TRUE;
        ++c->windows;
        EnumChildWindows(top, [](HWND, LPARAM q) -> BOOL { return ++*reinterpret_cast<size_t*>(q), TRUE; },
                         reinterpret_cast<LPARAM>(&c->windows));
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&count));
  return count.windows;
}

// A page of 10 000 sounds: the window opens with a handful of windows (the
// grid draws its buttons; a window per button made 10 000), a screen reader
// sees all of them, and the keyboard reaches the last, which is then in view.
// Windows are what a sound could cost in USER objects; Wine counts no USER
// objects (GetGuiResources says 0), so the windows are counted.
TEST(BoardWindow, TenThousandSoundsOpenWithFewWindowsAndTheKeyboardReachesTheLast) {
  constexpr size_t kSounds = 10000;
  const std::wstring file = Scratch(L"board-many.json");
  {
    Board many;
    const std::vector<uint32_t> ids = many.AddSounds(0, std::vector<std::string>(kSounds, Utf8(Sounds() + L"stays.wav")));
    ASSERT_EQ(kSounds, ids.size());
    ASSERT_FALSE(many.RenameSound(ids.back(), "the last one"));
    board::Settings settings;
    settings.microphone = Utf8(kMic);
    settings.keepInTray = false;
    ASSERT_FALSE(many.SetSettings(settings));
    std::string error;
    ASSERT_TRUE(board::SaveBoard(many, file, error)) << error;
  }
  BoardProcess board(file, L"board-many");
  ASSERT_TRUE(board.Open());
  const AccessibleClient client;
  ComPtr<IAccessible> grid;
  ASSERT_TRUE(PollUntil([&] { return board.Grid() != nullptr && (grid = AccessibleClient::Of(board.Grid())); }));
  EXPECT_EQ(static_cast<long>(kSounds), AccessibleClient::Count(*grid.Get()));
  const size_t windows = WindowsOf(GetProcessId(board.Process().Handle()));
  const DWORD userObjects = GetGuiResources(board.Process().Handle(), GR_USEROBJECTS);
  std::printf("[ objects  ] %zu windows, %lu USER objects as the system counts them\n", windows, userObjects);
  EXPECT_LT(windows, 100u);

  SetForegroundWindow(board.Window());
  ASSERT_TRUE(PollUntil([&] { return GetForegroundWindow() == board.Window(); }));
  ASSERT_TRUE(PollUntil([&] { return FocusOf(board.Window()) == board.Grid(); }, 5000));
  PressKeys("End");
  ASSERT_TRUE(PollUntil([&] { return AccessibleClient::Focused(*grid.Get()) == static_cast<long>(kSounds) - 1; }, 5000))
      << AccessibleClient::Focused(*grid.Get());
  const auto last = AccessibleClient::Item(*grid.Get(), static_cast<long>(kSounds) - 1);
  ASSERT_TRUE(last);
  EXPECT_EQ(L"the last one", last->name);
  EXPECT_EQ(0, last->state & STATE_SYSTEM_OFFSCREEN) << "the last sound is out of view";
  RECT shown{};
  GetWindowRect(board.Grid(), &shown);
  EXPECT_TRUE(last->place.top >= shown.top && last->place.bottom <= shown.bottom);
  // Home goes back to the first, Page Down moves on by a screenful.
  PressKeys("Home");
  EXPECT_TRUE(PollUntil([&] { return AccessibleClient::Focused(*grid.Get()) == 0; }, 5000));
  PressKeys("PageDown");
  EXPECT_TRUE(PollUntil([&] { return AccessibleClient::Focused(*grid.Get()) > 0; }, 5000));
  EXPECT_EQ(0, board.Quit());
}

// A microphone Quillon is attached to, that nothing records from now, with
// its audio enhancements turned off: the status bar says so and offers Fix…,
// which runs quillon check --fix as Administrator; the enhancements are on
// again and the board says Quillon is ready.
class BoardWindowCheck : public EndpointTest {
 protected:
  static bool FixShown(HWND window) {
    for (HWND button : Descendants(window, L"Button")) {
      if (TextOf(button) == L"F&ix\u2026") return IsWindowVisible(button) != FALSE;
    }
    return false;
  }
};

TEST_F(BoardWindowCheck, ShowsWhatKeepsQuillonFromRunningAndFixesIt) {
  const std::wstring guid = kFixtureGuids[2];
  const std::wstring effects = kCapture + guid + L"\\FxProperties";
  const wchar_t* const effectsOff = L"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5";
  Seed("no-effects");
  ASSERT_EQ(0, RunQuillon(L"attach \"plain mic\" --no-restart").exit);
  ASSERT_EQ(0, RunReg(L"add \"HKLM\\" + effects + L"\" /v \"" + effectsOff + L"\" /t REG_DWORD /d 1 /f"));
  BoardProcess board(MakeBoardFile(L"board-fix", {}, "Ctrl+Alt+0", guid), L"board-fix");
  ASSERT_TRUE(board.Open());
  const std::wstring problem =
      L"Quillon does not run on Plain Mic: audio enhancements are turned off. Fix\u2026 fixes it as Administrator.";
  EXPECT_TRUE(PollUntil([&] { return board.Status() == problem; }, 20000)) << Utf8(board.Status());
  EXPECT_TRUE(FixShown(board.Window()));
  Screenshot(board.Window(), Scratch(L"board-fix.bmp"));

  PostMessageW(board.Window(), WM_COMMAND, board::kFix, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Status() == L"Quillon is ready on Plain Mic."; }, 30000))
      << Utf8(board.Status());
  EXPECT_FALSE(RegHas(effects, effectsOff));
  EXPECT_FALSE(FixShown(board.Window()));
  EXPECT_EQ(0, board.Quit());
}

// With no microphone saved and two running, the board shows the first and
// plays into it, and saves that choice (a press used to fail with "name one").
TEST(BoardWindow, AnEmptyChoiceIsTheMicrophoneShownAndIsSaved) {
  const std::wstring other = L"{0.0.1.00000000}.{board-window-other-mic}";
  MicHost first(L"board-choice", 20), second(L"board-choice-other", 20, other);
  ASSERT_TRUE(first.Ready()) << first.Report();
  ASSERT_TRUE(second.Ready()) << second.Report();
  const std::wstring file = MakeBoardFile(L"board-choice", {{Sounds() + L"stays.wav", "Ctrl+Alt+5"}}, "Ctrl+Alt+0", L"");
  BoardProcess board(file, L"board-choice");
  ASSERT_TRUE(board.Open());
  const std::wstring shown = SlotOf(kMic) < SlotOf(other) ? kMic : other;
  EXPECT_TRUE(PollUntil([&] { return LoadBoard(file).board.GetSettings().microphone == Utf8(shown); }, 10000))
      << "saved: " << LoadBoard(file).board.GetSettings().microphone;
  PressKeys("Ctrl+Alt+5");
  EXPECT_TRUE(PollUntil([&] { return board.ShowsButton(L"stays (playing)"); })) << Utf8(board.Status());
  EXPECT_EQ(0, board.Quit());
}

// Another program holds the board file: the failed save stays in the status
// bar whatever comes after it, closing asks first (and No keeps the board),
// and a file held for a moment only is saved once it is let go.
TEST(BoardWindow, AFailedSaveStaysShownAndClosingAsksFirst) {
  const std::wstring file = MakeBoardFile(L"board-save",
                                         {{Sounds() + L"stays.wav", "Ctrl+Alt+3"},
                                          {Sounds() + L"stopped.wav", "Ctrl+Alt+4"},
                                          {Sounds() + L"loud-a.wav", "Ctrl+Alt+9"}},
                                         "Ctrl+Alt+0");
  BoardProcess board(file, L"board-save");
  ASSERT_TRUE(board.Open());
  UniqueHandle held(CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(static_cast<bool>(held));

  PostMessageW(board.Window(), WM_COMMAND, board::kMoveRight, 0);
  const std::wstring failed = L"The board was not saved: cannot replace ";
  // The window answers while the save tries again for about a second: it is
  // written on a thread of its own, so its failure is not known yet.
  DWORD_PTR ignored = 0;
  ASSERT_TRUE(SendMessageTimeoutW(board.Window(), WM_NULL, 0, 0, SMTO_ABORTIFHUNG, 5000, &ignored));
  EXPECT_NE(0u, board.Status().rfind(failed, 0)) << "the window waited for the save";
  ASSERT_TRUE(PollUntil([&] { return board.Status().rfind(failed, 0) == 0; })) << Utf8(board.Status());
  const std::wstring problem = board.Status();
  PostMessageW(board.Window(), WM_COMMAND, board::kStopAll, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Status() == problem + L" Stopped everything."; })) << Utf8(board.Status());

  PostMessageW(board.Window(), WM_CLOSE, 0, 0);
  HWND question = nullptr;
  ASSERT_TRUE(PollUntil([&] {
    question = FindTopWindow(board.Process().Handle(), L"#32770");
    return question != nullptr && IsWindowVisible(question);
  }));
  EXPECT_TRUE(HasText(question, L"Static", problem.substr(0, problem.find(L" Stopped")) +
                                               L"\n\nClose anyway? The changes since the last save are lost."))
      << Utf8(TextsOf(question, L"Static").back());
  PostMessageW(question, WM_COMMAND, IDNO, 0);
  ASSERT_TRUE(PollUntil([&] { return !IsWindow(question); }));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(board.Process().Handle(), 0)) << "No closed the board";

  // Held for a moment only, as an antivirus holds a file: the save waits it out.
  std::thread letGo([&] {
    Sleep(300);
    held.Reset();
  });
  PostMessageW(board.Window(), WM_COMMAND, board::kMoveRight, 0);
  EXPECT_TRUE(PollUntil([&] { return board.Status().rfind(L"The board is saved.", 0) == 0; }))
      << Utf8(board.Status());
  letGo.join();
  // Both moves of the first sound are in the file.
  const LoadedBoard saved = LoadBoard(file);
  std::vector<std::string> order;
  for (const auto& sound : saved.board.Pages()[0].sounds) order.push_back(sound.name);
  EXPECT_EQ((std::vector<std::string>{"stopped", "loud-a", "stays"}), order);
  EXPECT_EQ(0, board.Quit());
}

// A start while another board is closing (its mutex still held, its window
// gone) waits for it to end and becomes the board; it used to give up
// silently after 5 s. The closing board is this test, for 1.5 s.
TEST(BoardWindow, AStartWhileTheBoardIsClosingTakesOver) {
  const std::wstring file = MakeBoardFile(L"board-takeover", {{Sounds() + L"stays.wav", "Ctrl+Alt+3"}}, "Ctrl+Alt+0");
  UniqueHandle closing(CreateMutexW(nullptr, TRUE, L"Local\\QuillonBoard"));
  ASSERT_TRUE(static_cast<bool>(closing));
  ASSERT_NE(ERROR_ALREADY_EXISTS, GetLastError()) << "a board runs already";
  BoardProcess board(file, L"board-takeover");
  Sleep(1500);
  ReleaseMutex(closing.Get());
  closing.Reset();
  ASSERT_TRUE(board.Open()) << "exit code " << board.Process().Wait(0);
  EXPECT_TRUE(board.ShowsButton(L"stays"));
  EXPECT_EQ(0, board.Quit());
}

}  // namespace
}  // namespace quillon::test
