// Times the real-time mixing per period against a plain memcpy of the period's
// bytes, driving the effect's chunk mixer directly, as the real-time routine
// does, without COM.
//
// A mixer has seven steady periods between two chunk boundaries. A figure is
// the steady periods of a few mixers side by side (lanes), timed in one go
// with the processor's time-stamp counter, so that one step of the clock is
// under 1% of it; where there is no such counter (ARM64) the performance
// counter serves. Few lanes, so that what a round passes through stays in the
// caches: with thirty lanes it spilled to memory, and the ratios followed the
// memory's speed of the moment. The memcpy copies the lanes' own chunks, taken
// from their queues as the mixer takes its chunk, so both find their source in
// the same place. The boundary period, which takes the next chunk and signals
// an event (a round trip to wineserver under Wine), is timed apart. Within
// each round memcpy and every mode are timed in turn, so that each has its
// share of the machine's quiet moments.
#include "effect/ChunkMixer.h"
#include "effect/Mixing.h"
#include "platform/UniqueResource.h"
#include "transfer/SharedLayout.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

using namespace quillon;

namespace {

constexpr int kRounds = 20000;
// Rounds run first and not counted: pages touched, caches and queues filled.
constexpr int kWarmUpRounds = 500;
constexpr uint32_t kSteadyPeriods = ChunkMixer::kPeriodsPerChunk - 1;
// Samples per steady figure, at least: four mixers' steady periods at 48 kHz
// stereo, one mixer's at 192 kHz 8 channels. The smallest step of the clock
// (10 ns here) is then under 1% of every figure, and the mixers' chunks and
// queue writes, which a cycle passes through, stay within the caches.
constexpr size_t kSamplesPerFigure = 25000;

// A reading of the finest clock at hand. The fences keep the timed work from
// moving across the reading.
uint64_t Ticks() {
#if defined(__x86_64__)
  _mm_lfence();
  const uint64_t ticks = __rdtsc();
  _mm_lfence();
  return ticks;
#else
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  return static_cast<uint64_t>(counter.QuadPart);
#endif
}

// The step the clock counts in, in ticks: a time-stamp counter may count on
// in steps of many ticks. Readings further apart than one step differ by a
// multiple of it, so the step is the greatest common divisor of the differences.
uint64_t ClockStep() {
  uint64_t step = 0;
  uint64_t previous = Ticks();
  for (int i = 0; i < 100000; ++i) {
    const uint64_t now = Ticks();
    step = std::gcd(step, now - previous);
    previous = now;
  }
  return std::max<uint64_t>(step, 1);
}

// The C runtime's memcpy, the one a Windows program calls (msvcrt.dll, loaded
// by this program). The toolchain links its own memcpy into what it builds: a
// byte-wise loop whose 16-byte moves all sit one byte off alignment, a slower
// and less steady yardstick than the system's.
using MemcpyFunction = void*(__cdecl*)(void*, const void*, size_t);

MemcpyFunction SystemMemcpy() {
  const HMODULE runtime = GetModuleHandleW(L"msvcrt.dll");
  return runtime == nullptr ? nullptr
                            : reinterpret_cast<MemcpyFunction>(GetProcAddress(runtime, "memcpy"));
}

// Nanoseconds per tick, from the ticks and the steady clock across a stretch.
class TickRate {
 public:
  TickRate() : ticks_(Ticks()), time_(std::chrono::steady_clock::now()) {}
  double NsPerTick() const {
    const double ns =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - time_).count();
    return ns / static_cast<double>(Ticks() - ticks_);
  }

 private:
  uint64_t ticks_;
  std::chrono::steady_clock::time_point time_;
};

struct Stats {
  double median;
  double p99;
};

Stats Summarise(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {values[values.size() / 2], values[std::min(values.size() - 1, values.size() * 99 / 100)]};
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

// One mixer with its own queue, as one registered instance has, and where
// the memcpy takes its chunk from the same queue.
struct Lane {
  ReceivedSound sound;
  ChunkMixer mixer;
  std::unique_ptr<float[]> copied;
};

// Ticks per period of one figure: the steady periods and the boundary period.
struct Series {
  std::vector<double> steady, boundary;
};

// The steady periods are timed on mixers that signal nothing when they take a
// chunk: a steady period never makes a system call, and the round trip to
// wineserver that the event costs would leave the caches and predictors
// disturbed for the periods right after it, which no memcpy pays. The
// boundary period is timed on a mixer that signals its event, as the effect's
// does.
class Bench {
 public:
  Bench(const Shape& shape, MemcpyFunction memcpy)
      : samples_(shape.samples), memcpy_(memcpy), chunkTaken_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
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
    // The receiver copies each block out of the same shared slot, a player's
    // block at most: one block, accepted again and again.
    block_.resize(std::min<size_t>(TransferBlock::kMaxSamples, ChunkMixer::kPeriodsPerChunk * samples_));
    for (size_t i = 0; i < block_.size(); ++i) block_[i] = 0.002f * static_cast<float>(i % 499);
    for (size_t i = 0; i < lanes; ++i) {
      lanes_.push_back(std::make_unique<Lane>());
      lanes_.back()->copied.reset(new float[ChunkMixer::kPeriodsPerChunk * samples_]());
      Prepare(*lanes_.back(), nullptr);
    }
    Prepare(signalling_, chunkTaken_.Get());
  }
  ~Bench() {
    for (auto& lane : lanes_) lane->mixer.Free();
    signalling_.mixer.Free();
  }

  size_t Lanes() const { return lanes_.size(); }
  size_t PeriodsPerFigure() const { return periods_; }

  // A plain memcpy of each steady period's sound. Each lane's chunk is taken
  // from its queue as the mixer takes it, so the copy finds its source where
  // the mixing finds its own: at 192 kHz 8 channels a chunk outgrows the
  // processor's own cache, and a copy from a cache-hot period would pit that
  // cache against the larger shared one.
  double Memcpy() {
    const size_t chunk = ChunkMixer::kPeriodsPerChunk * samples_;
    for (auto& lane : lanes_) {
      Refill(*lane);
      lane->sound.queue.Pop(lane->copied.get(), chunk);
    }
    const uint64_t start = Ticks();
    for (auto& lane : lanes_) {
      for (uint32_t p = 1; p <= kSteadyPeriods; ++p) {
        memcpy_(out_, lane->copied.get() + p * samples_, samples_ * sizeof(float));
        asm volatile("" ::"r"(out_) : "memory");
      }
    }
    return PerPeriod(start, periods_);
  }

  // The periods of an instance without a slot: the microphone copied, nothing mixed.
  double Passthrough() {
    const uint64_t start = Ticks();
    for (size_t p = 0; p < periods_; ++p) {
      CopySamples(out_, in_, samples_);
      asm volatile("" ::"r"(out_) : "memory");
    }
    return PerPeriod(start, periods_);
  }

  // One chunk cycle of every steady lane: their boundary periods untimed, then
  // their steady periods timed together.
  void MixSteady(const Mode& mode, Series& series) {
    for (auto& lane : lanes_) {
      Refill(*lane);
      Period(*lane, mode);
    }
    const uint64_t start = Ticks();
    for (auto& lane : lanes_) {
      for (uint32_t p = 0; p < kSteadyPeriods; ++p) Period(*lane, mode);
    }
    series.steady.push_back(PerPeriod(start, periods_));
  }

  // One chunk cycle of the signalling mixer: its boundary period timed.
  void MixBoundary(const Mode& mode, Series& series) {
    Refill(signalling_);
    const uint64_t start = Ticks();
    Period(signalling_, mode);
    series.boundary.push_back(PerPeriod(start, 1));
    for (uint32_t p = 0; p < kSteadyPeriods; ++p) Period(signalling_, mode);
  }

 private:
  void Prepare(Lane& lane, HANDLE chunkTaken) {
    lane.mixer.Prepare(lane.sound, chunkTaken, samples_);
    lane.mixer.SizeChunk(samples_);
  }

  // Plays the receiver's part: keeps the queue at a chunk or more.
  void Refill(Lane& lane) {
    while (lane.sound.Accept(block_.data(), block_.size())) {
    }
  }

  void Period(Lane& lane, const Mode& mode) {
    if (lane.mixer.SizeChunk(samples_)) lane.mixer.Mix(out_, in_, samples_, mode.gain, mode.blockVoice);
    asm volatile("" ::"r"(out_) : "memory");
  }

  static double PerPeriod(uint64_t start, size_t periods) {
    return static_cast<double>(Ticks() - start) / static_cast<double>(periods);
  }

  size_t samples_;
  MemcpyFunction memcpy_;
  size_t periods_ = 0;  // steady periods per figure: seven per lane
  UniqueHandle chunkTaken_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  Lane signalling_;
  std::unique_ptr<float[]> buffers_;
  float* in_ = nullptr;
  float* out_ = nullptr;
  std::vector<float> block_;
};

// The figure's median and 99th percentile in nanoseconds, and its ratio to
// the memcpy: the fastest round of the one against the fastest round of the
// other. On a shared machine the slow moments are not alike for both: a busy
// neighbour on the same core slowed the memcpy by half and more, the mixing by
// a quarter at most, and a median ratio moved with how busy the neighbour was.
// The fastest rounds are the ones nothing disturbed.
void Print(const std::string& name, const std::vector<double>& ticks, const std::vector<double>& memcpyTicks,
           double nsPerTick) {
  const Stats s = Summarise(ticks);
  const double ratio = *std::min_element(ticks.begin(), ticks.end()) /
                       *std::min_element(memcpyTicks.begin(), memcpyTicks.end());
  std::printf("bench %s ns_per_period=%.1f p99_ns=%.1f ratio_to_memcpy=%.3f\n", name.c_str(), s.median * nsPerTick,
              s.p99 * nsPerTick, ratio);
}

}  // namespace

int main() {
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
  SetThreadAffinityMask(GetCurrentThread(), 1);
  const Shape shapes[] = {{"48k2", 2 * 480}, {"192k8", 8 * 1920}};
  const Mode modes[] = {{"mix-gain1", 1.0f, false}, {"mix-gain2", 2.0f, false}, {"block-voice", 1.0f, true}};
  constexpr size_t kModes = std::size(modes);
  const MemcpyFunction memcpy = SystemMemcpy();
  if (memcpy == nullptr) {
    std::fprintf(stderr, "bench: msvcrt.dll's memcpy was not found (error %lu)\n", GetLastError());
    return 1;
  }
  const uint64_t step = ClockStep();
  for (const Shape& shape : shapes) {
    Bench bench(shape, memcpy);
    std::vector<double> copy, pass;
    Series series[kModes];
    const TickRate rate;
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
      if (round == kWarmUpRounds) {
        copy.clear();
        pass.clear();
        for (Series& s : series) s = Series{};
      }
      // The boundaries first: what their system calls disturb settles before
      // the memcpy, which the steady figures are paired with.
      for (size_t m = 0; m < kModes; ++m) bench.MixBoundary(modes[m], series[m]);
      copy.push_back(bench.Memcpy());
      pass.push_back(bench.Passthrough());
      for (size_t m = 0; m < kModes; ++m) bench.MixSteady(modes[m], series[m]);
    }
    const double nsPerTick = rate.NsPerTick();
    // The shortest figure in the clock's steps: the passthrough or the memcpy one.
    const double shortest = std::min(Summarise(copy).median, Summarise(pass).median) *
                            static_cast<double>(bench.PeriodsPerFigure());
    std::printf("bench %s lanes=%zu steady_periods_per_figure=%zu clock_step_ns=%.1f shortest_figure_steps=%.0f\n",
                shape.name, bench.Lanes(), bench.PeriodsPerFigure(), static_cast<double>(step) * nsPerTick,
                shortest / static_cast<double>(step));
    Print(std::string("memcpy-") + shape.name, copy, copy, nsPerTick);
    Print(std::string("passthrough-") + shape.name, pass, copy, nsPerTick);
    for (size_t m = 0; m < kModes; ++m) {
      const std::string name = std::string(modes[m].name) + "-" + shape.name;
      Print(name, series[m].steady, copy, nsPerTick);
      Print(name + "-boundary", series[m].boundary, copy, nsPerTick);
    }
  }
  return 0;
}
