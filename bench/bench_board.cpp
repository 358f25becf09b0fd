// The board as a person uses it, measured.
// With 200, 2 000 and 10 000 sounds on a page:
// - start-up: from starting the program to its window showing, and to the
//   grid holding every sound with the buttons in view drawn;
// - memory and objects then: working set, windows, and the USER and GDI
//   objects Windows counts (Wine counts none);
// - idle: the CPU time the board takes in 10 s with nothing playing;
// - search as you type: each key of "sound 1234" typed into the Find box,
//   from the text's change to the grid shown again and drawn.
// With 200 sounds, playing into the real Quillon.dll in quillon-host at
// 10 ms periods:
// - hotkey latency: from the hotkey press (SendInput, as a keyboard does) to
//   the sound's first sample in the host's output, 30 times with nothing else
//   playing and 30 times while another sound plays.
// The sounds are steady levels, as in bench_latency.
#include "bench/HostRun.h"
#include "board/Board.h"
#include "board/BoardCommands.h"
#include "board/BoardFile.h"
#include "common/ToolSupport.h"
#include "player/PlayerClient.h"
#include "player/PushToTalk.h"

#include "platform/ComPtr.h"

#include <windows.h>
#include <oleacc.h>
#include <psapi.h>

#include <algorithm>

#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

using namespace quillon;
using namespace quillon::bench;

namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{b3c40000-0000-4000-8000-00000000000b}";
constexpr int kSounds = 200;
constexpr int kRounds = 30;
constexpr double kIdleSeconds = 10;

tools::KeyChord Chord(const char* text) {
  tools::KeyChord chord;
  std::string error;
  tools::ParseKeyChord(text, chord, error);
  return chord;
}

// A hotkey pressed and released, as a keyboard does.
void Press(const tools::KeyChord& chord) { player::HeldKeys().Press(chord); }

// A child window of the board by its class, or null.
HWND ChildOf(HWND window, const wchar_t* className) {
  struct Search {
    const wchar_t* name;
    HWND found;
  } search{className, nullptr};
  EnumChildWindows(
      window,
      [](HWND child, LPARAM p) -> BOOL {
        auto* s = reinterpret_cast<Search*>(p);
        wchar_t name[64] = {};
        GetClassNameW(child, name, 64);
        if (_wcsicmp(name, s->name) != 0) return TRUE;
        s->found = child;
        return FALSE;
      },
      reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// The sounds the grid holds, as a screen reader counts them.
long Sounds(HWND grid) {
  ComPtr<IAccessible> object;
  long count = -1;
  if (SUCCEEDED(AccessibleObjectFromWindow(grid, static_cast<DWORD>(OBJID_CLIENT), IID_IAccessible,
                                           object.PutVoid()))) {
    object->get_accChildCount(&count);
  }
  return count;
}

double CpuMs(HANDLE process) {
  FILETIME created, exited, kernel, user;
  GetProcessTimes(process, &created, &exited, &kernel, &user);
  const auto ms = [](FILETIME t) { return (static_cast<double>(t.dwHighDateTime) * 4294967296.0 + t.dwLowDateTime) / 1e4; };
  return ms(kernel) + ms(user);
}

struct Started {
  UniqueHandle process;
  HWND window = nullptr, grid = nullptr;
  double shownMs = 0, drawnMs = 0;
};

// Starts quillon-board on `boardFile` and waits for its window and for the
// grid to hold `sounds` sounds, drawn.
bool StartBoard(const std::wstring& boardFile, long sounds, Started& board) {
  std::wstring command = L"\"" + Folder() + L"quillon-board.exe\" --board \"" + boardFile + L"\"";
  STARTUPINFOW startup{sizeof(startup)};
  PROCESS_INFORMATION info{};
  const auto started = std::chrono::steady_clock::now();
  const auto since = [&] { return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count(); };
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
    std::fprintf(stderr, "bench_board: cannot start quillon-board (error %lu)\n", GetLastError());
    return false;
  }
  CloseHandle(info.hThread);
  board.process = UniqueHandle(info.hProcess);
  while ((board.window = FindWindowW(L"QuillonBoardWindow", nullptr)) == nullptr || !IsWindowVisible(board.window)) {
    if (since() > 60000) return false;
    SleepMs(1);
  }
  board.shownMs = since();
  while ((board.grid = ChildOf(board.window, L"QuillonSoundGrid")) == nullptr || Sounds(board.grid) != sounds) {
    if (since() > 120000) return false;
    SleepMs(1);
  }
  UpdateWindow(board.grid);  // the buttons in view, painted before it returns
  board.drawnMs = since();
  return true;
}

// One board of `count` sounds: start-up, memory and objects, idle CPU, and search as you type.
bool MeasureSize(int count) {
  board::Board many;
  std::vector<std::string> files(static_cast<size_t>(count), tools::Utf8(Level(L"board-marker", 0.25f, 0.03)));
  const std::vector<uint32_t> ids = many.AddSounds(0, files);
  for (size_t i = 0; i < ids.size(); ++i) many.RenameSound(ids[i], "sound " + std::to_string(i));
  board::Settings settings;
  settings.microphone = tools::Utf8(kEndpoint);
  settings.keepInTray = false;
  many.SetSettings(settings);
  const std::wstring boardFile = Folder() + L"bench-board-" + std::to_wstring(count) + L".json";
  std::string error;
  if (!board::SaveBoard(many, boardFile, error)) {
    std::fprintf(stderr, "bench_board: %s\n", error.c_str());
    return false;
  }
  Started board;
  if (!StartBoard(boardFile, count, board)) {
    std::fprintf(stderr, "bench_board: the board of %d sounds did not show them\n", count);
    return false;
  }
  SleepMs(500);  // whatever the start left to do settles
  PROCESS_MEMORY_COUNTERS_EX memory{sizeof(memory)};
  GetProcessMemoryInfo(board.process.Get(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory), sizeof(memory));
  int windows = 0;
  EnumChildWindows(board.window, [](HWND, LPARAM p) -> BOOL { return ++*reinterpret_cast<int*>(p), TRUE; },
                   reinterpret_cast<LPARAM>(&windows));
  const DWORD user = GetGuiResources(board.process.Get(), GR_USEROBJECTS);
  const DWORD gdi = GetGuiResources(board.process.Get(), GR_GDIOBJECTS);
  const double cpuBefore = CpuMs(board.process.Get());
  SleepMs(kIdleSeconds * 1000);
  const double idleCpuMs = CpuMs(board.process.Get()) - cpuBefore;
  // Each key of a name typed into the Find box: the box's text changes, the
  // grid is filled again, and it is drawn.
  const HWND box = ChildOf(board.window, L"Edit");
  const std::wstring typed = L"sound 1234";
  std::vector<double> perKey;
  for (size_t n = 1; box != nullptr && n <= typed.size(); ++n) {
    const std::wstring text = typed.substr(0, n);
    const auto before = std::chrono::steady_clock::now();
    SendMessageW(box, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
    UpdateWindow(board.grid);
    perKey.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - before).count());
  }
  const long found = Sounds(board.grid);
  PostMessageW(board.window, WM_COMMAND, board::kExit, 0);
  WaitForSingleObject(board.process.Get(), 20000);
  std::sort(perKey.begin(), perKey.end());
  std::printf("quillon-board with %d sounds:\n", count);
  std::printf("  start-up: window shown %.0f ms, all sounds in the grid and drawn %.0f ms\n", board.shownMs,
              board.drawnMs);
  std::printf("  then: working set %.1f MB (peak %.1f MB), %d windows, USER objects %lu, GDI objects %lu%s\n",
              memory.WorkingSetSize / 1048576.0, memory.PeakWorkingSetSize / 1048576.0, windows, user, gdi,
              user == 0 && gdi == 0 ? " (Wine counts none)" : "");
  std::printf("  idle: %.1f ms of CPU in %.0f s (%.3f%%)\n", idleCpuMs, kIdleSeconds, idleCpuMs / (kIdleSeconds * 10));
  if (!perKey.empty()) {
    std::printf("  search as you type (%zu keys of \"%ls\", %ld found at the end): median %.1f ms, worst %.1f ms\n",
                perKey.size(), typed.c_str(), found, perKey[perKey.size() / 2], perKey.back());
  }
  return true;
}

}  // namespace

int main() {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  for (const int count : {200, 2000, 10000}) {
    if (!MeasureSize(count)) return 1;
  }
  const std::wstring out = Folder() + L"bench-board-out.wav", report = Folder() + L"bench-board-host.txt";
  const std::wstring marker = Level(L"board-marker", 0.25f, 0.03), bed = Level(L"board-bed", 0.1f, 30);
  const tools::KeyChord markerKey = Chord("Ctrl+Alt+F9"), bedKey = Chord("Ctrl+Alt+F10");
  // The board: the marker and the bed with hotkeys, and 198 more sounds.
  board::Board sounds;
  const uint32_t markerId = sounds.AddSounds(0, {tools::Utf8(marker)}).front();
  const uint32_t bedId = sounds.AddSounds(0, {tools::Utf8(bed)}).front();
  sounds.SetHotkey(markerId, markerKey);
  sounds.SetHotkey(bedId, bedKey);
  sounds.AddSounds(0, std::vector<std::string>(kSounds - 2, tools::Utf8(marker)));
  board::Settings settings;
  settings.microphone = tools::Utf8(kEndpoint);
  settings.keepInTray = false;
  sounds.SetSettings(settings);
  const std::wstring boardFile = Folder() + L"bench-board.json";
  std::string error;
  if (!board::SaveBoard(sounds, boardFile, error)) {
    std::fprintf(stderr, "bench_board: %s\n", error.c_str());
    return 1;
  }

  Host host(kEndpoint, 75, out, report);
  if (!host.Started()) return 1;
  {
    player::PlayerClient probe;  // waits until the effect runs
    if (probe.Connect(kEndpoint, 20000) != player::PlayerStatus::Ok) {
      std::fprintf(stderr, "bench_board: no effect to play into\n");
      host.Kill();
      return 1;
    }
  }
  Started board;
  if (!StartBoard(boardFile, kSounds, board)) {
    std::fprintf(stderr, "bench_board: the board did not show its %d sounds\n", kSounds);
    host.Kill();
    return 1;
  }
  const HWND window = board.window;
  const UniqueHandle& boardProcess = board.process;
  SleepMs(500);  // whatever the start left to do settles
  const double cpuBefore = CpuMs(boardProcess.Get());

  // One press first, not counted: the board connects to the effect on its first sound.
  Press(markerKey);
  SleepMs(500);
  std::vector<int64_t> idleStarts, busyStarts;
  std::mt19937 random(11);
  std::uniform_real_distribution<double> jitter(0, 30);
  for (int i = 0; i < kRounds; ++i) {
    SleepMs(250 + jitter(random));
    idleStarts.push_back(tools::MonotonicMicroseconds());
    Press(markerKey);
  }
  SleepMs(300);
  Press(bedKey);
  SleepMs(300);
  for (int i = 0; i < kRounds; ++i) {
    SleepMs(250 + jitter(random) * 10);
    busyStarts.push_back(tools::MonotonicMicroseconds());
    Press(markerKey);
  }
  SleepMs(300);
  // The CPU of the playing part, for comparison with the idle figure.
  const double playingCpuMs = CpuMs(boardProcess.Get()) - cpuBefore;
  PostMessageW(window, WM_COMMAND, board::kExit, 0);
  WaitForSingleObject(boardProcess.Get(), 20000);
  host.Wait();

  HostOutput played;
  if (!ReadHostOutput(out, report, played, error)) {
    std::fprintf(stderr, "bench_board: the host's output cannot be read: %s\n", error.c_str());
    return 1;
  }
  const std::vector<double> edges = RisingEdges(played, 0.2f);
  const std::vector<double> idle = Latencies(idleStarts, edges), busy = Latencies(busyStarts, edges);
  if (idle.size() != kRounds || busy.size() != kRounds) {
    std::fprintf(stderr, "bench_board: found %zu and %zu of %d markers\n", idle.size(), busy.size(), kRounds);
    return 1;
  }
  const Figures a = Summarise(idle), b = Summarise(busy);
  std::printf("quillon-board with %d sounds, playing into quillon-host:\n", kSounds);
  std::printf("  CPU while playing 61 sounds: %.1f ms\n", playingCpuMs);
  std::printf("  hotkey to output, %d presses each: nothing else playing median %.1f ms, worst %.1f ms; "
              "while another plays median %.1f ms, worst %.1f ms\n",
              kRounds, a.median, a.worst, b.median, b.worst);
  return 0;
}
