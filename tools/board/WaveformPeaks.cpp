#include "board/WaveformPeaks.h"

#include "audio/SoundFile.h"

#include <algorithm>
#include <chrono>

namespace quillon::board {
namespace {

constexpr size_t kLookFrames = 2048;  // looked at in each stretch for the first look

}  // namespace

WaveformPeaks::WaveformPeaks(std::wstring path, size_t stretches, std::function<void()> news)
    : news_(std::move(news)), thread_([this, path = std::move(path), stretches] { Run(path, stretches); }) {}

WaveformPeaks::~WaveformPeaks() {
  stop_ = true;
  thread_.join();
}

WaveformPeaks::Outline WaveformPeaks::Take() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return outline_;
}

bool WaveformPeaks::FirstLook(const std::wstring& path, size_t stretches, uint64_t expected, uint32_t channels) {
  audio::SoundFile file;
  std::string error;
  if (!file.OpenRead(path, error)) return false;
  std::vector<float> samples(kLookFrames * channels);
  std::vector<float> low(stretches, 0.0f), high(stretches, 0.0f);
  for (size_t s = 0; s < stretches; ++s) {
    if (stop_) return false;
    if (!file.Seek(static_cast<int64_t>(s * expected / stretches))) return false;
    const size_t got = file.Read(samples.data(), kLookFrames);
    for (size_t i = 0; i < got * channels; ++i) {
      low[s] = std::min(low[s], samples[i]);
      high[s] = std::max(high[s], samples[i]);
    }
  }
  const std::lock_guard<std::mutex> hold(lock_);
  outline_.low = std::move(low);
  outline_.high = std::move(high);
  outline_.firstLook = true;
  return true;
}

void WaveformPeaks::Run(const std::wstring& path, size_t stretches) {
  using Clock = std::chrono::steady_clock;
  audio::SoundFile file;
  std::string error;
  if (!file.OpenRead(path, error)) {
    {
      const std::lock_guard<std::mutex> hold(lock_);
      outline_.error = error;
      outline_.done = true;
    }
    news_();
    return;
  }
  const uint32_t channels = file.Channels();
  const double rate = file.Rate();
  const uint64_t expected = static_cast<uint64_t>(std::max<int64_t>(file.Frames(), 1));
  {
    const std::lock_guard<std::mutex> hold(lock_);
    outline_.low.assign(stretches, 0.0f);
    outline_.high.assign(stretches, 0.0f);
    outline_.seconds = static_cast<double>(expected) / rate;
  }
  // Worth a first look: more than a minute of sound, and stretches longer than the pieces looked at.
  if (stretches > 0 && expected > static_cast<uint64_t>(rate * 60) && expected / stretches > kLookFrames * 4 &&
      FirstLook(path, stretches, expected, channels)) {
    news_();
  }
  // Each block's stretches are worked out apart, then put in under the lock.
  constexpr size_t kBlock = 16384;
  std::vector<float> samples(kBlock * channels);
  uint64_t at = 0;
  Clock::time_point told = Clock::now();
  while (!stop_) {
    const size_t got = file.Read(samples.data(), kBlock);
    if (got == 0) break;
    {
      const std::lock_guard<std::mutex> hold(lock_);
      for (size_t f = 0; f < got; ++f) {
        // (A sound longer than its header said puts the rest into the last stretch.)
        const size_t s = static_cast<size_t>(std::min<uint64_t>((at + f) * stretches / expected, stretches - 1));
        for (uint32_t c = 0; c < channels; ++c) {
          const float v = samples[f * channels + c];
          outline_.low[s] = std::min(outline_.low[s], v);
          outline_.high[s] = std::max(outline_.high[s], v);
        }
      }
      at += got;
      outline_.fraction = std::min(1.0, static_cast<double>(at) / static_cast<double>(expected));
    }
    if (Clock::now() - told >= std::chrono::milliseconds(100)) {
      told = Clock::now();
      news_();
    }
  }
  if (stop_) return;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    outline_.seconds = static_cast<double>(at) / rate;
    outline_.fraction = 1.0;
    outline_.firstLook = true;
    outline_.done = true;
    if (file.Failed()) outline_.error = file.Error();
  }
  news_();
}

}  // namespace quillon::board
