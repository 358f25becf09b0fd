// Cost of the logger: a call below the threshold (ns per call), and written
// lines per second with one and with four writing threads.
#include "diag/Logger.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

using namespace quillon;
using Clock = std::chrono::steady_clock;

namespace {

double LinesPerSecond(int threads, int linesPerThread) {
  const auto start = Clock::now();
  std::vector<std::thread> writers;
  for (int t = 0; t < threads; ++t) {
    writers.emplace_back([=] {
      for (int i = 0; i < linesPerThread; ++i) QLOG(LOG_ERROR, L"Bench::Write", L"thread %d line %d", t, i);
    });
  }
  for (auto& w : writers) w.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return threads * linesPerThread / seconds;
}

}  // namespace

int main() {
  Logger& logger = Logger::Instance();
  const int32_t previous = logger.Level();

  logger.SetLevel(LOG_ERROR);
  constexpr int kCalls = 10'000'000;
  auto start = Clock::now();
  for (int i = 0; i < kCalls; ++i) QLOG(LOG_TRACE, L"Bench::Suppressed", L"never written %d", i);
  const double ns = std::chrono::duration<double, std::nano>(Clock::now() - start).count() / kCalls;
  std::printf("bench logger-suppressed ns_per_call=%.2f\n", ns);

  std::printf("bench logger-written-1-thread lines_per_second=%.0f\n", LinesPerSecond(1, 2000));
  std::printf("bench logger-written-4-threads lines_per_second=%.0f\n", LinesPerSecond(4, 500));
  DeleteFileW(logger.LogFilePath().Data());
  logger.SetLevel(previous);
  return 0;
}
