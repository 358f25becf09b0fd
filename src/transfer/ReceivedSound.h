// What the sound receiver thread hands to the real-time routine: the queue of
// received samples and the chunk size that bounds how much may wait in it.
#pragma once

#include "transfer/SampleQueue.h"
#include "transfer/SharedLayout.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace quillon {

struct ReceivedSound {
  // Samples in one chunk (eight processing periods). Set by the real-time
  // routine in the first period of a lock period; 0 before and between them.
  std::atomic<uint32_t> chunkSize{0};
  SampleQueue queue;

  uint32_t ChunkSize() const { return chunkSize.load(std::memory_order_acquire); }

  // Receiver side: appends a received block (at most one transfer block's
  // worth) while the queue holds less than one chunk, so it never holds more
  // than chunkSize - 1 + TransferBlock::kMaxSamples samples. Returns whether
  // the block was taken.
  bool Accept(const float* samples, size_t count) {
    const size_t chunk = ChunkSize();
    if (queue.Size() >= chunk) return false;
    count = std::min(count, TransferBlock::kMaxSamples);
    // Sized once per lock period.
    if (!queue.Reserve(chunk - 1 + TransferBlock::kMaxSamples)) return false;
    return queue.Push(samples, count);
  }

  // Control thread, while neither side runs: sound left over from a lock
  // period is not played in the next one.
  void Reset() {
    queue.Reset();
    chunkSize.store(0, std::memory_order_release);
  }
};

}  // namespace quillon
