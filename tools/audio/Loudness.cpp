#include "audio/Loudness.h"

#include "audio/SoundSource.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace quillon::audio {
namespace {

struct StateCloser {
  void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};

}  // namespace

bool MeasureLoudness(const std::wstring& path, uint64_t startMs, uint64_t endMs, Loudness& result,
                     std::string& error, const std::function<void(double)>& progress,
                     const std::atomic<bool>* stop) {
  SoundSource source;
  if (!source.Open(path, error)) return false;
  const uint32_t rate = source.File().Rate(), channels = source.File().Channels();
  // Measured as the file holds it: its own rate and channels, nothing resampled.
  if (!source.Convert(rate, channels, 1.0f, error)) return false;
  if ((startMs != 0 || endMs != 0) && !source.Trim(startMs, endMs, error)) return false;
  std::unique_ptr<ebur128_state, StateCloser> state(
      ebur128_init(channels, rate, EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK));
  if (!state) {
    error = "the loudness meter cannot take " + std::to_string(channels) + " channels at " + std::to_string(rate) + " Hz";
    return false;
  }
  const double expected = std::max(1.0, source.Seconds() * rate);
  std::vector<float> block(static_cast<size_t>(rate / 10) * channels);  // 100 ms
  uint64_t frames = 0;
  for (size_t got; (got = source.Read(block.data(), block.size() / channels)) > 0;) {
    if (stop && stop->load(std::memory_order_relaxed)) {
      error = "stopped";
      return false;
    }
    if (ebur128_add_frames_float(state.get(), block.data(), got) != EBUR128_SUCCESS) {
      error = "the loudness meter refused the sound";
      return false;
    }
    frames += got;
    if (progress && frames % (static_cast<uint64_t>(rate) * 10) < got) progress(std::min(1.0, frames / expected));
  }
  if (source.Failed()) {
    error = source.Error();
    return false;
  }
  result = Loudness{};
  result.seconds = static_cast<double>(frames) / rate;
  double lufs = 0, lra = 0;
  if (ebur128_loudness_global(state.get(), &lufs) == EBUR128_SUCCESS && std::isfinite(lufs)) result.lufs = lufs;
  if (ebur128_loudness_range(state.get(), &lra) == EBUR128_SUCCESS && std::isfinite(lra)) result.lra = lra;
  double peak = 0;
  for (uint32_t c = 0; c < channels; ++c) {
    double channelPeak = 0;
    if (ebur128_true_peak(state.get(), c, &channelPeak) == EBUR128_SUCCESS) peak = std::max(peak, channelPeak);
  }
  if (peak > 0) result.truePeakDb = 20.0 * std::log10(peak);
  return true;
}

LoudnessGain GainFor(const Loudness& loudness, double targetLufs, double ceilingDbtp) {
  // Below the meter's absolute gate (-70) a sound is silence, dither or hiss: never lifted.
  constexpr double kSilenceDbtp = -70.0;
  if (!loudness.truePeakDb || (!loudness.lufs && *loudness.truePeakDb < kSilenceDbtp)) {
    return {LoudnessGain::From::None, 0};
  }
  const double room = ceilingDbtp - *loudness.truePeakDb;
  if (!loudness.lufs) return {LoudnessGain::From::Peak, room};
  const double wanted = targetLufs - *loudness.lufs;
  if (wanted > room) return {LoudnessGain::From::PeakCeiling, room};
  return {LoudnessGain::From::Loudness, wanted};
}

}  // namespace quillon::audio
