// The real-time side of received sound. Sound is taken from the queue one
// chunk (eight processing periods) at a time, so the receiver thread is woken
// once per chunk rather than once per period, and mixed into the periods'
// output. The chunk buffer is made at lock time; the real-time calls only compute.
#pragma once

#include "platform/RealTime.h"
#include "transfer/ReceivedSound.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace quillon {

class ChunkMixer {
 public:
  static constexpr uint32_t kPeriodsPerChunk = 8;

  // Control thread, at lock: room (zeroed) for eight periods of up to
  // `maxSamplesPerPeriod`, fed from `sound`; `chunkTaken` (may be null) is set
  // each time a chunk is taken. Without memory nothing is ever mixed.
  void Prepare(ReceivedSound& sound, HANDLE chunkTaken, size_t maxSamplesPerPeriod);
  // Control thread, at unlock: frees the chunk.
  void Free();

  // Real time: in the first period of a lock period, fixes the chunk at eight
  // periods of this one's length. Returns whether a chunk is in use.
  bool SizeChunk(size_t samples);
  // Real time: drops every queued sample and the rest of the current chunk.
  void DropQueued();
  // Real time: writes one period of `samples` to `out`: received sound mixed
  // with (or, with `replace`, in place of) the microphone at `gain`, and the
  // microphone at `gain` where nothing is queued. Returns the number of
  // samples that carry received sound. When a chunk ends inside the period
  // and sound is queued, the next chunk follows in the same period.
  size_t Mix(float* out, const float* mic, size_t samples, float gain, bool replace);

 private:
  void TakeNextChunk(uint32_t chunk);

  ReceivedSound* sound_ = nullptr;
  HANDLE chunkTaken_ = nullptr;
  std::unique_ptr<float[]> chunk_;
  size_t capacity_ = 0;
  uint32_t pos_ = 0;
  bool active_ = false;
};

}  // namespace quillon
