// Times the real-time mixing per period against a plain memcpy of the period's
// bytes, driving the effect's chunk mixer directly, as the real-time routine
// does, without COM. Steady periods are timed in runs of seven (the periods
// between two chunk boundaries) because the clock under Wine ticks in 100 ns
// steps; the boundary period, which signals an event (a round trip to
// wineserver under Wine), is timed on its own and reported apart.
#include "effect/ChunkMixer.h"
#include "platform/UniqueResource.h"
#include "transfer/SharedLayout.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace quillon;
using Clock = std::chrono::steady_clock;

namespace {

struct Stats {
  double median;
  double p99;
};

Stats Summarise(std::vector<double> ns) {
  std::sort(ns.begin(), ns.end());
  return {ns[ns.size() / 2], ns[std::min(ns.size() - 1, ns.size() * 99 / 100)]};
}

double Elapsed(Clock::time_point from) {
  return std::chrono::duration<double, std::nano>(Clock::now() - from).count();
}

struct Mode {
  const char* name;
  bool registered;  // false: the period is copied, as for an instance without a slot
  float gain;
  bool blockVoice;
};

struct Shape {
  const char* name;
  size_t samples;  // per period
};

constexpr int kCycles = 3000;  // chunk cycles of eight periods each

class Bench {
 public:
  explicit Bench(const Shape& shape) : samples_(shape.samples) {
    in_.assign(samples_, 0.0f);
    out_.assign(samples_, 0.0f);
    mic_.resize(samples_);
    for (size_t i = 0; i < samples_; ++i) mic_[i] = 0.001f * static_cast<float>(i % 997);
    block_.resize(TransferBlock::kMaxSamples);
    for (size_t i = 0; i < block_.size(); ++i) block_[i] = 0.002f * static_cast<float>(i % 499);
  }

  Stats Memcpy() {
    std::vector<double> times;
    for (int c = 0; c < kCycles; ++c) {
      auto start = Clock::now();
      for (int p = 0; p < 7; ++p) {
        std::memcpy(out_.data(), in_.data(), samples_ * sizeof(float));
        asm volatile("" ::"r"(out_.data()) : "memory");
      }
      times.push_back(Elapsed(start) / 7);
    }
    return Summarise(times);
  }

  // Returns {steady, boundary}.
  std::pair<Stats, Stats> Run(const Mode& mode) {
    ReceivedSound sound;
    UniqueHandle chunkTaken(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ChunkMixer mixer;
    mixer.Prepare(sound, chunkTaken.Get(), samples_);
    auto period = [&] {
      if (mode.registered && mixer.SizeChunk(samples_)) {
        mixer.Mix(out_.data(), in_.data(), samples_, mode.gain, mode.blockVoice);
      } else {
        CopySamples(out_.data(), in_.data(), samples_);
      }
      asm volatile("" ::"r"(out_.data()) : "memory");
    };
    period();  // sizes the chunk

    std::vector<double> steady, boundary;
    for (int c = 0; c < kCycles; ++c) {
      // Play the receiver's part: keep the queue at a chunk or more, outside the timing.
      while (sound.Accept(block_.data(), block_.size())) {
      }
      std::memcpy(in_.data(), mic_.data(), samples_ * sizeof(float));
      auto start = Clock::now();
      period();
      boundary.push_back(Elapsed(start));
      start = Clock::now();
      for (int p = 0; p < 7; ++p) period();
      steady.push_back(Elapsed(start) / 7);
    }
    mixer.Free();
    return {Summarise(steady), Summarise(boundary)};
  }

 private:
  size_t samples_;
  std::vector<float> in_, out_, mic_, block_;
};

void Print(const std::string& name, const Stats& s, double memcpyNs) {
  std::printf("bench %s ns_per_period=%.0f p99_ns=%.0f ratio_to_memcpy=%.2f\n", name.c_str(), s.median, s.p99,
              s.median / memcpyNs);
}

}  // namespace

int main() {
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
  const Shape shapes[] = {{"48k2", 2 * 480}, {"192k8", 8 * 1920}};
  const Mode modes[] = {{"passthrough", false, 1.0f, false},
                        {"mix-gain1", true, 1.0f, false},
                        {"mix-gain2", true, 2.0f, false},
                        {"block-voice", true, 1.0f, true}};
  for (const Shape& shape : shapes) {
    Bench bench(shape);
    Stats copy = bench.Memcpy();
    Print(std::string("memcpy-") + shape.name, copy, copy.median);
    for (const Mode& mode : modes) {
      auto [steady, boundary] = bench.Run(mode);
      Print(std::string(mode.name) + "-" + shape.name, steady, copy.median);
      if (mode.registered) Print(std::string(mode.name) + "-" + shape.name + "-boundary", boundary, copy.median);
    }
  }
  return 0;
}
