// A sound's loudness as EBU R128 (ITU-R BS.1770) measures it, with
// libebur128: integrated loudness, loudness range and true peak, over the
// whole file or the part of it that plays; and the gain that brings it to a
// target loudness without its true peak passing a ceiling.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace quillon::audio {

struct Loudness {
  std::optional<double> lufs;  // integrated; none for a sound shorter than 400 ms, or silent
  double lra = 0;              // loudness range, LU
  std::optional<double> truePeakDb;  // dBTP, the highest channel's; none when silent throughout
  double seconds = 0;          // of sound measured
};

// Measures the file (its part from `startMs` to `endMs`, 0: its end).
// `progress` hears the fraction read now and then, on the calling thread;
// `stop`, once set, ends the measuring early (as a failure). On failure
// returns false with the reason.
bool MeasureLoudness(const std::wstring& path, uint64_t startMs, uint64_t endMs, Loudness& result,
                     std::string& error, const std::function<void(double)>& progress = {},
                     const std::atomic<bool>* stop = nullptr);

struct LoudnessGain {
  enum class From {
    Loudness,        // brings it to the target
    PeakCeiling,     // the target's gain would lift the true peak past the ceiling: up to the ceiling only
    Peak,            // no integrated loudness: its true peak brought to the ceiling
    None,            // silent (no true peak, or one below -70 dBTP, the meter's own floor): left as it is
  } from = From::None;
  double db = 0;
};

// The gain for `loudness` to reach `targetLufs` with its true peak at or
// under `ceilingDbtp`.
LoudnessGain GainFor(const Loudness& loudness, double targetLufs, double ceilingDbtp = -1.0);

}  // namespace quillon::audio
