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
#include "audio/SoundFile.h"
#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"
#include "player/PlayerEngine.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace quillon;

namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{b3c40000-0000-4000-8000-00000000000a}";
constexpr uint32_t kRate = 48000;
constexpr double kPeriodMs = 10;
constexpr int kRounds = 50;

std::wstring Folder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

std::wstring Level(const std::wstring& name, float level, double seconds) {
  const std::wstring path = Folder() + L"bench-latency-" + name + L".wav";
  audio::Sound sound{kRate, 2, std::vector<float>(static_cast<size_t>(seconds * kRate) * 2, level)};
  std::string error;
  if (!audio::WriteSound(path, sound, error)) std::fprintf(stderr, "bench_latency: %s\n", error.c_str());
  return path;
}

void SleepMs(double ms) { std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(ms)); }

struct Figures {
  double median, worst;
};

Figures Summarise(std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  return {ms[ms.size() / 2], ms.back()};
}

}  // namespace

int main() {
  const std::wstring out = Folder() + L"bench-latency-out.wav", report = Folder() + L"bench-latency-host.txt";
  const std::wstring marker = Level(L"marker", 0.25f, 0.03), bed = Level(L"bed", 0.1f, 30);
  std::wstring command = L"\"" + Folder() + L"quillon-host.exe\" --endpoint " + std::wstring(kEndpoint) +
                         L" --seconds 45 --period-ms 10 --out \"" + out + L"\"";
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  UniqueHandle output(CreateFileW(report.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = output.Get();
  PROCESS_INFORMATION host{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &host)) {
    std::fprintf(stderr, "bench_latency: cannot start quillon-host (error %lu)\n", GetLastError());
    return 1;
  }
  output.Reset();
  CloseHandle(host.hThread);
  const UniqueHandle hostProcess(host.hProcess);

  auto client = std::make_unique<player::PlayerClient>();
  if (client->Connect(kEndpoint, 20000) != player::PlayerStatus::Ok) {
    std::fprintf(stderr, "bench_latency: no effect to play into\n");
    TerminateProcess(hostProcess.Get(), 1);
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
  WaitForSingleObject(hostProcess.Get(), 120000);

  // Frame times from the host's first period with sound.
  std::ifstream in(report);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t period = text.find("first period with received sound: "), qpc = text.find("qpc_us=");
  audio::Sound played;
  std::string error;
  if (period == std::string::npos || qpc == std::string::npos || !audio::ReadSound(out, played, error)) {
    std::fprintf(stderr, "bench_latency: the host's output cannot be read: %s%s\n", error.c_str(), text.c_str());
    return 1;
  }
  const long long firstPeriod = std::stoll(text.substr(period + 34)), firstUs = std::stoll(text.substr(qpc + 7));
  const double framesPerPeriod = kRate * kPeriodMs / 1000;
  auto frameUs = [&](size_t frame) {
    return static_cast<double>(firstUs) + (static_cast<double>(frame) / framesPerPeriod - firstPeriod) * kPeriodMs * 1000;
  };
  // Rising edges of the marker: the level goes up by it.
  std::vector<double> edges;
  float before = 0;
  for (size_t f = 0; f < played.samples.size() / 2; ++f) {
    const float now = played.samples[2 * f];
    if (now - before > 0.2f) edges.push_back(frameUs(f));
    before = now;
  }
  auto latencies = [&](const std::vector<int64_t>& starts) {
    std::vector<double> ms;
    for (int64_t start : starts) {
      const auto edge = std::lower_bound(edges.begin(), edges.end(), static_cast<double>(start));
      if (edge != edges.end()) ms.push_back((*edge - static_cast<double>(start)) / 1000);
    }
    return ms;
  };
  const std::vector<double> idle = latencies(idleStarts), busy = latencies(busyStarts);
  if (idle.size() != kRounds || busy.size() != kRounds) {
    std::fprintf(stderr, "bench_latency: found %zu and %zu of %d markers\n", idle.size(), busy.size(), kRounds);
    return 1;
  }
  // Silent frames while the long sound played: blocks written too late.
  size_t bedFrom = SIZE_MAX, bedTo = 0, gaps = 0;
  for (size_t f = 0; f < played.samples.size() / 2; ++f) {
    const float v = played.samples[2 * f];
    if (v == 0.1f || v == 0.35f) bedFrom = std::min(bedFrom, f), bedTo = f;
  }
  for (size_t f = bedFrom; f < bedTo; ++f) gaps += played.samples[2 * f] == 0.0f ? 1 : 0;
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
