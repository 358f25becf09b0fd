// Times APOProcess per period against a plain memcpy of the period's bytes.
// Steady periods are timed in runs of seven (the periods between two chunk
// boundaries) because the clock under Wine ticks in 100 ns steps; the boundary
// period, which signals an event (a round trip to wineserver under Wine), is
// timed on its own and reported apart.
#include "com/RegistrationProperties.h"
#include "effect/QuillonAggregate.h"
#include "platform/AudioMediaType.h"
#include "support/QuillonTestAccess.h"

#include <windows.h>

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
  bool registered;
  float gain;
  bool blockVoice;
};

struct Shape {
  const char* name;
  UINT32 channels;
  UINT32 frames;
  float rate;
};

constexpr int kCycles = 3000;  // chunk cycles of eight periods each

class Bench {
 public:
  explicit Bench(const Shape& shape) : shape_(shape), samples_(shape.channels * shape.frames) {
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
    IAudioProcessingObject* apo = nullptr;
    QuillonAggregate::Create(nullptr, IID_IAudioProcessingObject, reinterpret_cast<void**>(&apo));
    IAudioProcessingObjectRT* rt = nullptr;
    IAudioProcessingObjectConfiguration* config = nullptr;
    apo->QueryInterface(IID_IAudioProcessingObjectRT, reinterpret_cast<void**>(&rt));
    apo->QueryInterface(IID_IAudioProcessingObjectConfiguration, reinterpret_cast<void**>(&config));

    IAudioMediaType* format = nullptr;
    CreateAudioMediaType(MakeFloatFormat(shape_.channels, shape_.rate), &format);
    APO_CONNECTION_DESCRIPTOR inDesc{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(in_.data()),
                                     shape_.frames, format, APO_CONNECTION_DESCRIPTOR_SIGNATURE};
    APO_CONNECTION_DESCRIPTOR outDesc{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(out_.data()),
                                      shape_.frames, format, APO_CONNECTION_DESCRIPTOR_SIGNATURE};
    APO_CONNECTION_DESCRIPTOR* inDescs[] = {&inDesc};
    APO_CONNECTION_DESCRIPTOR* outDescs[] = {&outDesc};
    config->LockForProcess(1, inDescs, 1, outDescs);

    Quillon* effect = QuillonTestAccess::From(apo);
    // The lock registered the instance; pass-through is an instance the register refused.
    if (!mode.registered) QuillonTestAccess::SetInstanceIndex(effect, -1);
    QuillonTestAccess::StopConfigListener(effect);
    QuillonTestAccess::SetMicGain(effect, mode.gain);
    QuillonTestAccess::SetBlockVoice(effect, mode.blockVoice);

    APO_CONNECTION_PROPERTY inProp{reinterpret_cast<UINT_PTR>(in_.data()), shape_.frames, BUFFER_VALID,
                                   APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY outProp{reinterpret_cast<UINT_PTR>(out_.data()), 0, BUFFER_VALID,
                                    APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins[] = {&inProp};
    APO_CONNECTION_PROPERTY* outs[] = {&outProp};
      rt->APOProcess(1, ins, 1, outs);  // sizes the chunk

    std::vector<double> steady, boundary;
    for (int c = 0; c < kCycles; ++c) {
      // Play the receiver's part: keep the queue at a chunk or more, outside the timing.
      while (effect->AcceptReceivedBlock(block_.data(), block_.size())) {
      }
      std::memcpy(in_.data(), mic_.data(), samples_ * sizeof(float));
      auto start = Clock::now();
      rt->APOProcess(1, ins, 1, outs);
      boundary.push_back(Elapsed(start));
      // The input is not refilled between steady periods, so the run is timed as one.
      start = Clock::now();
      for (int p = 0; p < 7; ++p) rt->APOProcess(1, ins, 1, outs);
      steady.push_back(Elapsed(start) / 7);
    }
    config->UnlockForProcess();
    format->Release();
    config->Release();
    rt->Release();
    apo->Release();
    return {Summarise(steady), Summarise(boundary)};
  }

 private:
  Shape shape_;
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
  const Shape shapes[] = {{"48k2", 2, 480, 48000.0f}, {"192k8", 8, 1920, 192000.0f}};
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
