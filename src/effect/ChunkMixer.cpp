#include "effect/ChunkMixer.h"

#include "effect/Mixing.h"

#include <algorithm>
#include <new>

namespace quillon {

void ChunkMixer::Prepare(ReceivedSound& sound, HANDLE chunkTaken, size_t maxSamplesPerPeriod) {
  sound_ = &sound;
  chunkTaken_ = chunkTaken;
  capacity_ = kPeriodsPerChunk * maxSamplesPerPeriod;
  chunk_.reset(new (std::nothrow) float[capacity_]());
  if (!chunk_) capacity_ = 0;
  sound.chunkSize.store(0, std::memory_order_release);
  pos_ = 0;
  active_ = false;
}

void ChunkMixer::Free() {
  chunk_.reset();
  capacity_ = 0;
  pos_ = 0;
  active_ = false;
  chunkTaken_ = nullptr;
}

QUILLON_RT_CODE bool ChunkMixer::SizeChunk(size_t samples) {
  if (sound_ == nullptr) return false;
  uint32_t chunk = sound_->chunkSize.load(std::memory_order_relaxed);
  if (chunk == 0 && samples > 0 && chunk_ && kPeriodsPerChunk * samples <= capacity_) {
    chunk = static_cast<uint32_t>(kPeriodsPerChunk * samples);
    sound_->chunkSize.store(chunk, std::memory_order_release);
  }
  return chunk != 0;
}

QUILLON_RT_CODE void ChunkMixer::DropQueued() {
  sound_->queue.Clear();
  pos_ = 0;
}

QUILLON_RT_CODE size_t ChunkMixer::Mix(float* out, const float* mic, size_t samples, float gain, bool replace) {
  const uint32_t chunk = sound_->chunkSize.load(std::memory_order_relaxed);
  size_t mixed = 0;
  while (mixed < samples) {
    if (pos_ == 0 || pos_ == chunk) TakeNextChunk(chunk);
    if (!active_ || pos_ >= chunk) break;  // nothing queued: the rest is the microphone alone
    const size_t n = std::min<size_t>(samples - mixed, chunk - pos_);
    if (replace) {
      CopySamples(out + mixed, chunk_.get() + pos_, n);
    } else {
      MixSound(out + mixed, mic + mixed, chunk_.get() + pos_, n, gain);
    }
    pos_ += static_cast<uint32_t>(n);
    mixed += n;
  }
  ApplyGain(out + mixed, mic + mixed, samples - mixed, gain);
  return mixed;
}

// At a chunk boundary: moves the next chunk of received sound out of the queue
// (zero-padded when less is queued) and wakes the receiver thread so that it
// can queue the next block.
QUILLON_RT_CODE void ChunkMixer::TakeNextChunk(uint32_t chunk) {
  const size_t queued = sound_->queue.Size();
  if (queued == 0) {
    active_ = false;
    return;
  }
  active_ = true;
  if (queued < chunk) FillSilence(chunk_.get(), chunk);
  sound_->queue.Pop(chunk_.get(), std::min<size_t>(queued, chunk));
  pos_ = 0;
  if (chunkTaken_ != nullptr) SetEvent(chunkTaken_);
}

}  // namespace quillon
