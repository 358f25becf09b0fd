// How fast a sound's loudness is measured (decoding and the EBU R128 meter,
// as the board's meter and `quillon loudness` do), in multiples of real
// time: each file alone on one core, then as many copies of it as the
// machine has cores, measured at once, counted together.
// Usage: quillon_bench_loudness FILE...
#include "audio/Loudness.h"
#include "common/ToolSupport.h"

#include <windows.h>
#include <shellapi.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using namespace quillon;

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argc < 2) {
    std::fprintf(stderr, "usage: quillon_bench_loudness FILE...\n");
    return 2;
  }
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  std::printf("loudness measurement, multiples of real time (%u cores)\n", cores);
  for (int i = 1; i < argc; ++i) {
    const std::wstring path = argv[i];
    audio::Loudness loudness;
    std::string error;
    Clock::time_point start = Clock::now();
    if (!audio::MeasureLoudness(path, 0, 0, loudness, error)) {
      std::fprintf(stderr, "%ls: %s\n", path.c_str(), error.c_str());
      return 1;
    }
    const double alone = SecondsSince(start);
    start = Clock::now();
    std::vector<std::thread> threads;
    std::vector<int> failed(cores, 0);
    for (unsigned t = 0; t < cores; ++t) {
      threads.emplace_back([&, t] {
        audio::Loudness l;
        std::string e;
        failed[t] = !audio::MeasureLoudness(path, 0, 0, l, e);
      });
    }
    for (std::thread& thread : threads) thread.join();
    const double together = SecondsSince(start);
    for (int f : failed) {
      if (f) return 1;
    }
    const std::wstring name = path.substr(path.find_last_of(L"\\/") + 1);
    std::printf("  %-22ls %7.1f s of sound, %6.1f LUFS: one core %6.2f s (%5.0fx), %u at once %6.2f s (%5.0fx)\n",
                name.c_str(), loudness.seconds, loudness.lufs.value_or(-999), alone, loudness.seconds / alone, cores,
                together, cores * loudness.seconds / together);
  }
  return 0;
}
