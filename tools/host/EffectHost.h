// Drives one Quillon effect like the audio engine: create, initialise for an
// endpoint, lock to float32, process period by period on a thread of its own.
#pragma once

#include "common/ToolSupport.h"
#include "audio/SoundFile.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace quillon::tools {

struct HostOptions {
  std::wstring dllPath;  // empty: Quillon.dll beside the program
  bool useCom = false;   // create through CoCreateInstance (the class must be registered)
  std::wstring endpoint = L"{0.0.1.00000000}.{5e1f2a3b-4c5d-4e6f-8a9b-0c1d2e3f4a5b}";
  double periodMs = 10.0;
  double speed = 1.0;    // multiple of real time; 0 = as fast as possible
  double tailMs = 0.0;   // extra silent periods after the input ends
  HANDLE interrupt = nullptr;  // when set, processing stops after the current period
};

struct HostReport {
  int periods = 0;
  bool interrupted = false;
  int periodsWithSound = 0;   // periods whose output differs from their input
  int firstSoundPeriod = -1;
  int64_t firstSoundQpcUs = -1;  // monotonic time of that period, comparable across processes
  double medianUs = 0, p99Us = 0, maxUs = 0;
};

// Frames in one processing period of `periodMs` at `rate`; 0 when the period
// is shorter than a frame.
uint32_t FramesPerPeriod(uint32_t rate, double periodMs);

// Creates, initialises, locks and runs the effect over `input`, then unlocks
// and releases it, on every path after the lock (an interrupt included).
bool RunEffect(const HostOptions& options, const audio::Sound& input, std::vector<float>& output, HostReport& report,
               std::string& error);

}  // namespace quillon::tools
