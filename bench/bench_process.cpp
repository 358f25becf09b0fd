// Times the real-time mixing per period against a plain memcpy of the period's
// bytes, driving the effect's chunk mixer directly, as the real-time routine
// does, without COM.
//
// The clock under Wine ticks every 100 ns, about what a 48 kHz stereo period
// takes, so every figure is timed over enough periods that one tick is well
// under 1% of it. A mixer has only seven steady periods between two chunk
// boundaries, so the bench runs several mixers side by side (lanes), each just
// past its boundary, and times their steady periods in one go. The boundary
// period, which signals an event (a round trip to wineserver under Wine), is
// timed apart, for all lanes in one go. Within each round memcpy and every mode
// are timed in turn, so that a slow moment of the machine hits all of them.
#include "effect/ChunkMixer.h"
#include "platform/UniqueResource.h"
#include "transfer/SharedLayout.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace quillon;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kRounds = 2000;
// Samples moved per steady figure: at any speed below 20 samples a
// nanosecond, that takes over 10 us, a hundred ticks of Wine's clock.
constexpr size_t kSamplesPerFigure = 200000;
constexpr uint32_t kSteadyPeriods = ChunkMixer::kPeriodsPerChunk - 1;

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
  float gain;
  bool blockVoice;
};

struct Shape {
  const char* name;
  size_t samples;  // per period
};

// One mixer with its own queue, as one registered instance has.
struct Lane {
  ReceivedSound sound;
  ChunkMixer mixer;
};

// Per-period times of one figure: the steady periods and the boundary period.
struct Series {
  std::vector<double> steady, boundary;
};

class Bench {
 public:
  explicit Bench(const Shape& shape)
      : samples_(shape.samples), chunkTaken_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    const size_t lanes = (kSamplesPerFigure + kSteadyPeriods * samples_ - 1) / (kSteadyPeriods * samples_);
    periods_ = lanes * kSteadyPeriods;
    in_.resize(samples_);
    out_.assign(samples_, 0.0f);
    for (size_t i = 0; i < samples_; ++i) in_[i] = 0.001f * static_cast<float>(i % 997);
    block_.resize(TransferBlock::kMaxSamples);
    for (size_t i = 0; i < block_.size(); ++i) block_[i] = 0.002f * static_cast<float>(i % 499);
    for (size_t i = 0; i < lanes; ++i) {
      lanes_.push_back(std::make_unique<Lane>());
      Lane& lane = *lanes_.back();
      lane.mixer.Prepare(lane.sound, chunkTaken_.Get(), samples_);
      lane.mixer.SizeChunk(samples_);
    }
  }
  ~Bench() {
    for (auto& lane : lanes_) lane->mixer.Free();
  }

  size_t Lanes() const { return lanes_.size(); }
  size_t PeriodsPerFigure() const { return periods_; }

  // memcpy of as many periods as a steady figure holds.
  double Memcpy() {
    const auto start = Clock::now();
    for (size_t p = 0; p < periods_; ++p) {
      std::memcpy(out_.data(), in_.data(), samples_ * sizeof(float));
      asm volatile("" ::"r"(out_.data()) : "memory");
    }
    return Elapsed(start) / static_cast<double>(periods_);
  }

  // The period of an instance without a slot: copied, nothing mixed.
  double Passthrough() {
    const auto start = Clock::now();
    for (size_t p = 0; p < periods_; ++p) {
      CopySamples(out_.data(), in_.data(), samples_);
      asm volatile("" ::"r"(out_.data()) : "memory");
    }
    return Elapsed(start) / static_cast<double>(periods_);
  }

  // One chunk cycle of every lane: the boundary periods, then the steady ones.
  void Mix(const Mode& mode, Series& series) {
    // Play the receiver's part: keep each queue at a chunk or more, outside the timing.
    for (auto& lane : lanes_) {
      while (lane->sound.Accept(block_.data(), block_.size())) {
      }
    }
    auto start = Clock::now();
    for (auto& lane : lanes_) Period(*lane, mode);
    series.boundary.push_back(Elapsed(start) / static_cast<double>(lanes_.size()));
    start = Clock::now();
    for (auto& lane : lanes_) {
      for (uint32_t p = 0; p < kSteadyPeriods; ++p) Period(*lane, mode);
    }
    series.steady.push_back(Elapsed(start) / static_cast<double>(periods_));
  }

 private:
  void Period(Lane& lane, const Mode& mode) {
    lane.mixer.Mix(out_.data(), in_.data(), samples_, mode.gain, mode.blockVoice);
    asm volatile("" ::"r"(out_.data()) : "memory");
  }

  size_t samples_;
  size_t periods_ = 0;  // steady periods per figure: seven per lane
  UniqueHandle chunkTaken_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  std::vector<float> in_, out_, block_;
};

void Print(const std::string& name, const Stats& s, double memcpyNs) {
  std::printf("bench %s ns_per_period=%.1f p99_ns=%.1f ratio_to_memcpy=%.3f\n", name.c_str(), s.median, s.p99,
              s.median / memcpyNs);
}

double ClockTickNs() {
  LARGE_INTEGER frequency{};
  QueryPerformanceFrequency(&frequency);
  return 1e9 / static_cast<double>(frequency.QuadPart);
}

}  // namespace

int main() {
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
  const Shape shapes[] = {{"48k2", 2 * 480}, {"192k8", 8 * 1920}};
  const Mode modes[] = {{"mix-gain1", 1.0f, false}, {"mix-gain2", 2.0f, false}, {"block-voice", 1.0f, true}};
  constexpr size_t kModes = std::size(modes);
  const double tick = ClockTickNs();
  for (const Shape& shape : shapes) {
    Bench bench(shape);
    std::vector<double> copy, pass;
    Series series[kModes];
    for (int round = 0; round < kRounds; ++round) {
      copy.push_back(bench.Memcpy());
      pass.push_back(bench.Passthrough());
      for (size_t m = 0; m < kModes; ++m) bench.Mix(modes[m], series[m]);
    }
    const Stats memcpyStats = Summarise(copy);
    const double figureNs = memcpyStats.median * static_cast<double>(bench.PeriodsPerFigure());
    std::printf("bench %s lanes=%zu periods_per_figure=%zu clock_tick_ns=%.1f memcpy_figure_ticks=%.0f\n", shape.name,
                bench.Lanes(), bench.PeriodsPerFigure(), tick, figureNs / tick);
    Print(std::string("memcpy-") + shape.name, memcpyStats, memcpyStats.median);
    Print(std::string("passthrough-") + shape.name, Summarise(pass), memcpyStats.median);
    for (size_t m = 0; m < kModes; ++m) {
      const std::string name = std::string(modes[m].name) + "-" + shape.name;
      Print(name, Summarise(series[m].steady), memcpyStats.median);
      Print(name + "-boundary", Summarise(series[m].boundary), memcpyStats.median);
    }
  }
  return 0;
}
