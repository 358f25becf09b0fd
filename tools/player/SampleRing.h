// Samples handed from one thread to one other without a lock: a decoder
// writes what it decoded ahead, a mixing thread takes it. Neither side ever
// waits; a writer finds less room, a reader fewer samples, and that is all.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillon::player {

class SampleRing {
 public:
  explicit SampleRing(size_t capacity) : buffer_(capacity) {}
  SampleRing(const SampleRing&) = delete;
  SampleRing& operator=(const SampleRing&) = delete;

  size_t Capacity() const { return buffer_.size(); }

  // The writer's side.
  size_t Room() const { return buffer_.size() - static_cast<size_t>(written_.load(std::memory_order_relaxed) - read_.load(std::memory_order_acquire)); }
  // Copies as many of `count` samples as there is room for; returns how many.
  size_t Write(const float* samples, size_t count) {
    const uint64_t w = written_.load(std::memory_order_relaxed);
    const size_t n = std::min(count, buffer_.size() - static_cast<size_t>(w - read_.load(std::memory_order_acquire)));
    const size_t at = static_cast<size_t>(w % buffer_.size());
    const size_t first = std::min(n, buffer_.size() - at);
    std::copy_n(samples, first, buffer_.data() + at);
    std::copy_n(samples + first, n - first, buffer_.data());
    written_.store(w + n, std::memory_order_release);
    return n;
  }

  // The reader's side.
  size_t Available() const { return static_cast<size_t>(written_.load(std::memory_order_acquire) - read_.load(std::memory_order_relaxed)); }
  // Adds up to `count` samples to `into`; returns how many.
  size_t AddTo(float* into, size_t count) {
    const uint64_t r = read_.load(std::memory_order_relaxed);
    const size_t n = std::min(count, static_cast<size_t>(written_.load(std::memory_order_acquire) - r));
    const size_t at = static_cast<size_t>(r % buffer_.size());
    const size_t first = std::min(n, buffer_.size() - at);
    const float* from = buffer_.data() + at;
    for (size_t i = 0; i < first; ++i) into[i] += from[i];
    for (size_t i = first; i < n; ++i) into[i] += buffer_[i - first];
    read_.store(r + n, std::memory_order_release);
    return n;
  }

 private:
  std::vector<float> buffer_;
  std::atomic<uint64_t> written_{0}, read_{0};  // samples since the start, each side's own
};

}  // namespace quillon::player
