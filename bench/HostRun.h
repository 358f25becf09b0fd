// What the latency benches share: steady-level sounds that the output tells
// apart, quillon-host running the real Quillon.dll at 10 ms periods and
// real-time pace, and the times at which a marker's level rose in its output.
#pragma once

#include "audio/SoundFile.h"
#include "platform/UniqueResource.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace quillon::bench {

constexpr uint32_t kRate = 48000;
constexpr double kPeriodMs = 10;

// The folder of this program, with a trailing backslash.
std::wstring Folder();
// A stereo file of `seconds` at a constant `level`, named bench-<name>.wav.
std::wstring Level(const std::wstring& name, float level, double seconds);
void SleepMs(double ms);

struct Figures {
  double median, worst, p99;
};
Figures Summarise(std::vector<double> ms);

// quillon-host for `endpoint`, `seconds` long, writing `out`; its report
// goes to `report`.
class Host {
 public:
  Host(const wchar_t* endpoint, int seconds, const std::wstring& out, const std::wstring& report);
  bool Started() const { return static_cast<bool>(process_); }
  void Wait() { WaitForSingleObject(process_.Get(), 120000); }
  void Kill() { TerminateProcess(process_.Get(), 1); }

 private:
  UniqueHandle process_;
};

// The host's output with a time for each frame (from its first period with sound).
struct HostOutput {
  audio::Sound sound;
  double firstUs = 0;
  long long firstPeriod = 0;
  double FrameUs(size_t frame) const;
};
bool ReadHostOutput(const std::wstring& out, const std::wstring& report, HostOutput& output, std::string& error);

// The times of the frames where the left channel rose by more than `step`.
std::vector<double> RisingEdges(const HostOutput& output, float step);
// For each start, the time to the first edge after it, in ms.
std::vector<double> Latencies(const std::vector<int64_t>& startsUs, const std::vector<double>& edgesUs);

}  // namespace quillon::bench
