#include "transfer/SampleQueue.h"

#include "platform/RealTime.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace quillon {

bool SampleQueue::Reserve(size_t capacity) {
  if (capacity <= capacity_) return true;
  if (Size() != 0) return false;
  std::unique_ptr<float[]> storage(new (std::nothrow) float[capacity]);
  if (!storage) return false;
  storage_ = std::move(storage);
  capacity_ = capacity;
  return true;
}

bool SampleQueue::Push(const float* samples, size_t count) {
  const uint64_t write = written_.load(std::memory_order_relaxed);
  const uint64_t read = read_.load(std::memory_order_acquire);
  if (count > capacity_ - static_cast<size_t>(write - read)) return false;
  if (count == 0) return true;
  const size_t start = static_cast<size_t>(write % capacity_);
  const size_t first = std::min(count, capacity_ - start);
  std::memcpy(storage_.get() + start, samples, first * sizeof(float));
  std::memcpy(storage_.get(), samples + first, (count - first) * sizeof(float));
  written_.store(write + count, std::memory_order_release);
  return true;
}

QUILLON_RT_CODE size_t SampleQueue::Pop(float* dest, size_t max) {
  const uint64_t read = read_.load(std::memory_order_relaxed);
  const uint64_t write = written_.load(std::memory_order_acquire);
  const size_t count = std::min(max, static_cast<size_t>(write - read));
  if (count == 0) return 0;
  const size_t start = static_cast<size_t>(read % capacity_);
  const size_t first = std::min(count, capacity_ - start);
  CopySamples(dest, storage_.get() + start, first);
  CopySamples(dest + first, storage_.get(), count - first);
  read_.store(read + count, std::memory_order_release);
  return count;
}

void SampleQueue::Reset() {
  storage_.reset();
  capacity_ = 0;
  written_.store(0, std::memory_order_relaxed);
  read_.store(0, std::memory_order_relaxed);
}

}  // namespace quillon
