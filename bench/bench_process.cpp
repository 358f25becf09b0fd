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
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace quillon;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kRounds = 5000;
// Rounds run first and not counted: pages touched, caches and queues filled.
constexpr int kWarmUpRounds = 200;
// Samples moved per steady figure: at any speed below 20 samples a
// nanosecond, that takes over 10 us, a hundred ticks of Wine's clock.
constexpr size_t kSamplesPerFigure = 200000;
constexpr uint32_t kSteadyPeriods = ChunkMixer::kPeriodsPerChunk - 1;
// The plain copies are faster than any mixing: they are timed over this many
// times the periods, so that their figures are as long as the mixing ones.
constexpr size_t kCopyRepeats = 2;

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
    // The microphone and output periods at the same places relative to a page
    // in every run: how far apart they lie changes the speed of a copy (a
    // store whose address matches a load's in the low 12 bits stalls it).
    const size_t page = 4096 / sizeof(float);
    const size_t stride = (samples_ + page - 1) / page * page + page;
    buffers_.reset(new float[2 * stride + page]());
    float* base = buffers_.get() + (page - reinterpret_cast<uintptr_t>(buffers_.get()) % 4096 / sizeof(float)) % page;
    in_ = base;
    out_ = base + stride + page / 2;
    for (size_t i = 0; i < samples_; ++i) in_[i] = 0.001f * static_cast<float>(i % 997);
    // One chunk a round for each lane: every round finds the caches alike.
    block_.resize(ChunkMixer::kPeriodsPerChunk * samples_);
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

  // A plain memcpy of each period.
  double Memcpy() {
    const auto start = Clock::now();
    for (size_t p = 0; p < kCopyRepeats * periods_; ++p) {
      std::memcpy(out_, in_, samples_ * sizeof(float));
      asm volatile("" ::"r"(out_) : "memory");
    }
    return Elapsed(start) / static_cast<double>(kCopyRepeats * periods_);
  }

  // The period of an instance without a slot: copied, nothing mixed.
  double Passthrough() {
    const auto start = Clock::now();
    for (size_t p = 0; p < kCopyRepeats * periods_; ++p) {
      CopySamples(out_, in_, samples_);
      asm volatile("" ::"r"(out_) : "memory");
    }
    return Elapsed(start) / static_cast<double>(kCopyRepeats * periods_);
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
    if (lane.mixer.SizeChunk(samples_)) lane.mixer.Mix(out_, in_, samples_, mode.gain, mode.blockVoice);
    asm volatile("" ::"r"(out_) : "memory");
  }

  size_t samples_;
  size_t periods_ = 0;  // steady periods per figure: seven per lane
  UniqueHandle chunkTaken_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  std::unique_ptr<float[]> buffers_;
  float* in_ = nullptr;
  float* out_ = nullptr;
  std::vector<float> block_;
};

// The figures' median and 99th percentile, and their ratio to the memcpy of
// the same round (the median of those ratios), so that a slow moment of the
// machine, which lengthens both, leaves the ratio as it is.
void Print(const std::string& name, const std::vector<double>& ns, const std::vector<double>& memcpyNs) {
  std::vector<double> ratios(ns.size());
  for (size_t i = 0; i < ns.size(); ++i) ratios[i] = ns[i] / memcpyNs[i];
  const Stats s = Summarise(ns);
  std::printf("bench %s ns_per_period=%.1f p99_ns=%.1f ratio_to_memcpy=%.3f\n", name.c_str(), s.median, s.p99,
              Summarise(ratios).median);
}

double ClockTickNs() {
  LARGE_INTEGER frequency{};
  QueryPerformanceFrequency(&frequency);
  return 1e9 / static_cast<double>(frequency.QuadPart);
}

}  // namespace

int main() {
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
  SetThreadAffinityMask(GetCurrentThread(), 1);
  const Shape shapes[] = {{"48k2", 2 * 480}, {"192k8", 8 * 1920}};
  const Mode modes[] = {{"mix-gain1", 1.0f, false}, {"mix-gain2", 2.0f, false}, {"block-voice", 1.0f, true}};
  constexpr size_t kModes = std::size(modes);
  const double tick = ClockTickNs();
  for (const Shape& shape : shapes) {
    Bench bench(shape);
    std::vector<double> copy, pass;
    Series series[kModes];
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
      if (round == kWarmUpRounds) {
        copy.clear();
        pass.clear();
        for (Series& s : series) s = Series{};
      }
      copy.push_back(bench.Memcpy());
      pass.push_back(bench.Passthrough());
      for (size_t m = 0; m < kModes; ++m) bench.Mix(modes[m], series[m]);
    }
    // The shortest figure in clock ticks: the passthrough or the memcpy one.
    const double shortestNs = std::min(Summarise(copy).median, Summarise(pass).median) *
                              static_cast<double>(kCopyRepeats * bench.PeriodsPerFigure());
    std::printf("bench %s lanes=%zu steady_periods_per_figure=%zu clock_tick_ns=%.1f shortest_figure_ticks=%.0f\n",
                shape.name, bench.Lanes(), bench.PeriodsPerFigure(), tick, shortestNs / tick);
    Print(std::string("memcpy-") + shape.name, copy, copy);
    Print(std::string("passthrough-") + shape.name, pass, copy);
    for (size_t m = 0; m < kModes; ++m) {
      const std::string name = std::string(modes[m].name) + "-" + shape.name;
      Print(name, series[m].steady, copy);
      Print(name + "-boundary", series[m].boundary, copy);
    }
  }
  return 0;
}
