// The board as a person uses it, measured: quillon-board with 200 sounds,
// playing into the real Quillon.dll in quillon-host at 10 ms periods.
// - start-up: from starting the program to its window showing all 200 buttons;
// - memory: the board's working set and private bytes then;
// - idle: the CPU time the board takes in 10 s with nothing playing;
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

#include <windows.h>
#include <psapi.h>

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

// The board's sound buttons, once its window shows.
int Buttons(HWND window) {
  int count = 0;
  EnumChildWindows(
      window,
      [](HWND child, LPARAM p) -> BOOL {
        wchar_t name[32] = {};
        GetClassNameW(child, name, 32);
        if (_wcsicmp(name, L"Button") == 0 && GetDlgCtrlID(child) > 0x1000) ++*reinterpret_cast<int*>(p);
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&count));
  return count;
}

double CpuMs(HANDLE process) {
  FILETIME created, exited, kernel, user;
  GetProcessTimes(process, &created, &exited, &kernel, &user);
  const auto ms = [](FILETIME t) { return (static_cast<double>(t.dwHighDateTime) * 4294967296.0 + t.dwLowDateTime) / 1e4; };
  return ms(kernel) + ms(user);
}

}  // namespace

int main() {
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
  std::wstring command = L"\"" + Folder() + L"quillon-board.exe\" --board \"" + boardFile + L"\"";
  STARTUPINFOW startup{sizeof(startup)};
  PROCESS_INFORMATION info{};
  const auto started = std::chrono::steady_clock::now();
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
    std::fprintf(stderr, "bench_board: cannot start quillon-board (error %lu)\n", GetLastError());
    host.Kill();
    return 1;
  }
  CloseHandle(info.hThread);
  const UniqueHandle boardProcess(info.hProcess);
  HWND window = nullptr;
  while ((window = FindWindowW(L"QuillonBoardWindow", nullptr)) == nullptr || !IsWindowVisible(window) ||
         Buttons(window) < kSounds) {
    if (std::chrono::steady_clock::now() - started > std::chrono::seconds(60)) {
      std::fprintf(stderr, "bench_board: the board did not show its %d sounds in 60 s\n", kSounds);
      host.Kill();
      return 1;
    }
    SleepMs(1);
  }
  const double startMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
  SleepMs(500);  // whatever the start left to do settles
  PROCESS_MEMORY_COUNTERS_EX memory{sizeof(memory)};
  GetProcessMemoryInfo(boardProcess.Get(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory), sizeof(memory));
  const double cpuBefore = CpuMs(boardProcess.Get());
  SleepMs(kIdleSeconds * 1000);
  const double idleCpuMs = CpuMs(boardProcess.Get()) - cpuBefore;

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
  const double playingCpuMs = CpuMs(boardProcess.Get()) - cpuBefore - idleCpuMs;
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
  std::printf("quillon-board with %d sounds:\n", kSounds);
  std::printf("  start-up to all buttons shown: %.0f ms\n", startMs);
  std::printf("  memory then: working set %.1f MB, peak %.1f MB\n", memory.WorkingSetSize / 1048576.0,
              memory.PeakWorkingSetSize / 1048576.0);
  std::printf("  idle: %.1f ms of CPU in %.0f s (%.3f%%); while playing 61 sounds: %.1f ms\n", idleCpuMs,
              kIdleSeconds, idleCpuMs / (kIdleSeconds * 10), playingCpuMs);
  std::printf("  hotkey to output, %d presses each: nothing else playing median %.1f ms, worst %.1f ms; "
              "while another plays median %.1f ms, worst %.1f ms\n",
              kRounds, a.median, a.worst, b.median, b.worst);
  return 0;
}
