// The queue of received samples between the sound receiver thread (the only
// producer) and the real-time routine (the only consumer).
//
// A ring buffer with monotonically increasing read and write counters: the
// producer publishes samples with a release store of the write counter, the
// consumer frees them with a release store of the read counter. Neither side
// ever waits or locks. Storage is (re)allocated only by the producer and only
// while the queue is empty, so the consumer never reads memory that is being
// replaced; the consumer never allocates.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace quillon {

class SampleQueue {
 public:
  // Either side: samples queued right now.
  size_t Size() const {
    return static_cast<size_t>(written_.load(std::memory_order_acquire) - read_.load(std::memory_order_acquire));
  }
  size_t Capacity() const { return capacity_; }

  // Producer: makes room for `capacity` samples. Storage can only be replaced
  // while the queue is empty; returns whether the capacity is available.
  bool Reserve(size_t capacity);
  // Producer: appends `count` samples; false (nothing appended) without room.
  bool Push(const float* samples, size_t count);

  // Consumer: moves up to `max` samples from the front into `dest`; returns how many.
  size_t Pop(float* dest, size_t max);
  // Consumer: drops everything queued so far.
  void Clear() { read_.store(written_.load(std::memory_order_acquire), std::memory_order_release); }

  // Control thread, while neither producer nor consumer runs: empty and free.
  void Reset();

 private:
  std::unique_ptr<float[]> storage_;
  size_t capacity_ = 0;
  std::atomic<uint64_t> written_{0};
  std::atomic<uint64_t> read_{0};
};

}  // namespace quillon
