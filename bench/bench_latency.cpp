// How soon a sound that the player engine starts reaches the microphone: the
// real Quillon.dll runs in quillon-host at 10 ms periods, the engine plays
// into it from this process, and the time from the call that starts a short
// marker to the marker's first sample in the host's output is measured 50
// times with nothing else playing, and 50 times while a long sound plays.
//
// The sounds are steady levels, so the output tells them apart: the long
// sound alone is 0.1, with the marker 0.35, the marker alone 0.25. The host
// reports the monotonic time of its first period with sound, and runs at
// real-time pace, so every output frame has a time.
#include "bench/HostRun.h"
#include "common/ToolSupport.h"
#include "player/PlayerEngine.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

using namespace quillon;
using namespace quillon::bench;

namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{b3c40000-0000-4000-8000-00000000000a}";
constexpr int kRounds = 50;

}  // namespace

int main() {
  const std::wstring out = Folder() + L"bench-latency-out.wav", report = Folder() + L"bench-latency-host.txt";
  const std::wstring marker = Level(L"latency-marker", 0.25f, 0.03), bed = Level(L"latency-bed", 0.1f, 30);
  Host host(kEndpoint, 45, out, report);
  if (!host.Started()) return 1;

  auto client = std::make_unique<player::PlayerClient>();
  if (client->Connect(kEndpoint, 20000) != player::PlayerStatus::Ok) {
    std::fprintf(stderr, "bench_latency: no effect to play into\n");
    host.Kill();
    return 1;
  }
  std::vector<int64_t> idleStarts, busyStarts;
  std::mt19937 random(7);
  std::uniform_real_distribution<double> jitter(0, 3 * kPeriodMs);
  {
    player::PlayerEngine engine(std::move(client), {}, [](const player::EngineEvent&) {});
    // (a) Nothing plays: the marker starts after the last one has died away.
    for (int i = 0; i < kRounds; ++i) {
      engine.WaitIdle(nullptr);
      SleepMs(200 + jitter(random));
      idleStarts.push_back(tools::MonotonicMicroseconds());
      engine.Start({{marker}});
    }
    engine.WaitIdle(nullptr);
    SleepMs(200);
    // (b) A long sound plays; markers start at times unrelated to its chunks.
    engine.Start({{bed}});
    SleepMs(300);
    for (int i = 0; i < kRounds; ++i) {
      SleepMs(250 + jitter(random) * 10);
      busyStarts.push_back(tools::MonotonicMicroseconds());
      engine.Start({{marker}});
    }
    SleepMs(300);
    engine.StopAll();
  }
  host.Wait();

  HostOutput played;
  std::string error;
  if (!ReadHostOutput(out, report, played, error)) {
    std::fprintf(stderr, "bench_latency: the host's output cannot be read: %s\n", error.c_str());
    return 1;
  }
  // Rising edges of the marker: the level goes up by it.
  const std::vector<double> edges = RisingEdges(played, 0.2f);
  const std::vector<double> idle = Latencies(idleStarts, edges), busy = Latencies(busyStarts, edges);
  if (idle.size() != kRounds || busy.size() != kRounds) {
    std::fprintf(stderr, "bench_latency: found %zu and %zu of %d markers\n", idle.size(), busy.size(), kRounds);
    return 1;
  }
  // Silent frames while the long sound played: blocks written too late.
  const auto& samples = played.sound.samples;
  size_t bedFrom = SIZE_MAX, bedTo = 0, gaps = 0;
  for (size_t f = 0; f < samples.size() / 2; ++f) {
    const float v = samples[2 * f];
    if (v == 0.1f || v == 0.35f) bedFrom = std::min(bedFrom, f), bedTo = f;
  }
  for (size_t f = bedFrom; f < bedTo; ++f) gaps += samples[2 * f] == 0.0f ? 1 : 0;
  const Figures a = Summarise(idle), b = Summarise(busy);
  std::printf("start-to-output latency, 10 ms periods, chunk 80 ms, %d starts each:\n", kRounds);
  std::printf("  nothing else playing:    median %6.1f ms, worst %6.1f ms  (aim: 2 periods, 20 ms)\n", a.median,
              a.worst);
  std::printf("  while another plays:     median %6.1f ms, worst %6.1f ms  (aim: 1 chunk + 2 periods, 100 ms; "
              "bound: 2 chunks + 2 periods, 180 ms)\n",
              b.median, b.worst);
  std::printf("  silent frames while the long sound played: %zu of %zu\n", gaps, bedTo - bedFrom);
  return 0;
}
