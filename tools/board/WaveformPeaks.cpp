#include "board/WaveformPeaks.h"

#include "audio/SoundFile.h"

#include <algorithm>
#include <chrono>

namespace quillon::board {

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
    outline_.done = true;
    if (file.Failed()) outline_.error = file.Error();
  }
  news_();
}

}  // namespace quillon::board
