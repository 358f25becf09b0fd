// A press storm: one long sound plays for 60 s while the player engine is
// asked for ten new sounds a second, cycling through a 30-minute MP3 without
// a length tag, a 200 MB WAV, a FLAC file, a 5.1 Opus file and a short WAV,
// into the real Quillon.dll in quillon-host at 10 ms periods. Each of the
// heavy files is stopped 0.3 s after its press, as the next press of a
// person would, and plays at -60 dB, under the steady levels of the long
// sound (0.1) and the short WAV (0.25), which the output tells apart.
//
// Reported: silent frames inside the long sound; press to first sample of
// the short WAV; press to the first mix that took each kind of file (opened
// and decoded ahead on its voice's own thread);
// the microphone thread's slowest block; the working set after 5 s and at
// the end, and its peak.
//
// Usage: quillon_bench_storm MP3 WAV FLAC OPUS
#include "bench/HostRun.h"
#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"
#include "player/PlayerEngine.h"

#include <windows.h>
#include <psapi.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

using namespace quillon;
using namespace quillon::bench;

namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{b3c40000-0000-4000-8000-00000000000c}";
constexpr int kSeconds = 60;
constexpr int kPressesPerSecond = 10;
constexpr double kHeldMs = 300;
constexpr float kQuiet = 0.001f;  // -60 dB

double MegaBytes(SIZE_T bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

PROCESS_MEMORY_COUNTERS Memory() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof(counters);
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
  return counters;
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  const UniqueLocalMemory arguments(reinterpret_cast<HLOCAL>(argv));
  if (argc != 5) {
    std::fprintf(stderr, "usage: quillon_bench_storm MP3 WAV FLAC OPUS\n");
    return 2;
  }
  const std::vector<std::wstring> heavy{argv[1], argv[2], argv[3], argv[4]};
  const char* kinds[] = {"30-min MP3, no length tag", "200 MB WAV", "FLAC", "5.1 Opus", "short WAV"};
  const std::wstring out = Folder() + L"bench-storm-out.wav", report = Folder() + L"bench-storm-host.txt";
  const std::wstring marker = Level(L"storm-marker", 0.25f, 0.03), bed = Level(L"storm-bed", 0.1f, kSeconds + 5);
  Host host(kEndpoint, kSeconds + 10, out, report);
  if (!host.Started()) return 1;
  auto client = std::make_unique<player::PlayerClient>();
  if (client->Connect(kEndpoint, 20000) != player::PlayerStatus::Ok) {
    std::fprintf(stderr, "bench_storm: no effect to play into\n");
    host.Kill();
    return 1;
  }

  std::mutex lock;
  std::map<int, int64_t> pressedUs;   // voice: when it was asked for
  std::map<int, int> kindOf;
  std::vector<std::vector<double>> readyMs(5);
  std::vector<int64_t> markerStarts;
  int failed = 0;
  PROCESS_MEMORY_COUNTERS early{}, late{};
  int64_t slowestUs = 0;
  {
    player::PlayerEngine engine(std::move(client), {}, [&](const player::EngineEvent& e) {
      std::lock_guard<std::mutex> hold(lock);
      if (e.event == player::VoiceEvent::Failed) ++failed;
      if (e.event != player::VoiceEvent::FileStarted) return;
      const auto pressed = pressedUs.find(e.voice);
      if (pressed == pressedUs.end()) return;
      readyMs[kindOf[e.voice]].push_back(static_cast<double>(tools::MonotonicMicroseconds() - pressed->second) / 1000);
    });
    engine.Start({{bed}});
    SleepMs(500);
    std::deque<std::pair<int64_t, int>> toStop;  // (when, voice)
    const int64_t begin = tools::MonotonicMicroseconds();
    const int presses = kSeconds * kPressesPerSecond;
    for (int i = 0; i < presses; ++i) {
      const int64_t due = begin + static_cast<int64_t>(i) * 1000000 / kPressesPerSecond;
      SleepMs(static_cast<double>(std::max<int64_t>(0, due - tools::MonotonicMicroseconds())) / 1000);
      while (!toStop.empty() && toStop.front().first <= tools::MonotonicMicroseconds()) {
        engine.Stop(toStop.front().second);
        toStop.pop_front();
      }
      const int kind = i % 5;
      const int64_t now = tools::MonotonicMicroseconds();
      std::lock_guard<std::mutex> hold(lock);
      if (kind == 4) {
        markerStarts.push_back(now);
        const int id = engine.Start({{marker}});
        pressedUs[id] = now;
        kindOf[id] = kind;
      } else {
        const int id = engine.Start({{heavy[kind]}, 1, kQuiet});
        pressedUs[id] = now;
        kindOf[id] = kind;
        toStop.emplace_back(now + static_cast<int64_t>(kHeldMs * 1000), id);
      }
      if (i == 5 * kPressesPerSecond) early = Memory();
    }
    for (const auto& [when, id] : toStop) engine.Stop(id);
    late = Memory();
    slowestUs = engine.SlowestMixMicroseconds();
    SleepMs(300);
    engine.StopAll();
  }
  host.Wait();

  HostOutput played;
  std::string error;
  if (!ReadHostOutput(out, report, played, error)) {
    std::fprintf(stderr, "bench_storm: the host's output cannot be read: %s\n", error.c_str());
    return 1;
  }
  const std::vector<double> latency = Latencies(markerStarts, RisingEdges(played, 0.2f));
  if (latency.size() != markerStarts.size()) {
    std::fprintf(stderr, "bench_storm: found %zu of %zu short sounds\n", latency.size(), markerStarts.size());
    return 1;
  }
  // Silent frames while the long sound played.
  const auto& samples = played.sound.samples;
  size_t bedFrom = SIZE_MAX, bedTo = 0, gaps = 0;
  for (size_t f = 0; f < samples.size() / 2; ++f) {
    if (samples[2 * f] >= 0.09f) bedFrom = std::min(bedFrom, f), bedTo = f;
  }
  for (size_t f = bedFrom; f < bedTo; ++f) gaps += samples[2 * f] == 0.0f ? 1 : 0;

  const Figures l = Summarise(latency);
  std::printf("press storm: %d s, %d presses a second, heavy files stopped after %.0f ms:\n", kSeconds,
              kPressesPerSecond, kHeldMs);
  std::printf("  silent frames inside the long sound: %zu of %zu\n", gaps, bedTo - bedFrom);
  std::printf("  press to first sample of the short WAV (%zu): median %.1f ms, p99 %.1f ms, worst %.1f ms "
              "(aim: 1 chunk + 2 periods, 100 ms)\n",
              latency.size(), l.median, l.p99, l.worst);
  for (int kind = 0; kind < 5; ++kind) {
    if (readyMs[kind].empty()) continue;
    const Figures r = Summarise(readyMs[kind]);
    std::printf("  press to first mixed, %-26s median %6.1f ms, p99 %6.1f ms, worst %6.1f ms\n", kinds[kind],
                r.median, r.p99, r.worst);
  }
  std::printf("  the microphone thread's slowest block (80 ms of sound): %.2f ms\n", static_cast<double>(slowestUs) / 1000);
  std::printf("  working set: %.1f MB after 5 s, %.1f MB at the end; peak %.1f MB\n", MegaBytes(early.WorkingSetSize),
              MegaBytes(late.WorkingSetSize), MegaBytes(late.PeakWorkingSetSize));
  if (failed > 0) std::printf("  voices that failed: %d\n", failed);
  return 0;
}
