// The real-time routine: runs once per processing period on the audio engine's
// real-time thread. It takes no lock, waits on nothing, logs nothing and
// allocates nothing: the chunk buffer and the stop event are made at lock time.
#include "effect/Quillon.h"

#include "effect/RealTime.h"
#include "transfer/WinUtils.h"

#include <algorithm>
#include <cstring>

namespace quillon {
namespace {

QUILLON_RT_CODE bool StopRequested(const TransferMapping* control) {
  if (control == nullptr || !control->view) return false;
  // Written by the player application in another process.
  return *static_cast<const volatile uint8_t*>(&control->Block()->stopRequest) != 0;
}

}  // namespace

QUILLON_RT_CODE void Quillon::APOProcess(UINT32 u32NumInputConnections, APO_CONNECTION_PROPERTY** ppInputConnections,
                                         UINT32 u32NumOutputConnections,
                                         APO_CONNECTION_PROPERTY** ppOutputConnections) {
  if (deviceEffectRT != nullptr) {
    deviceEffectRT->APOProcess(u32NumInputConnections, ppInputConnections, u32NumOutputConnections,
                               ppOutputConnections);
  }
  APO_CONNECTION_PROPERTY* input = ppInputConnections[0];
  APO_CONNECTION_PROPERTY* output = ppOutputConnections[0];
  const UINT32 flags = input->u32BufferFlags;
  if (flags != BUFFER_VALID && flags != BUFFER_SILENT) return;

  // Never touch more than the locked connection buffers hold.
  const UINT32 frames = std::min(input->u32ValidFrameCount, maxFramesPerPeriod);
  const size_t samples = static_cast<size_t>(frames) * samplesPerFrame_;
  auto* in = reinterpret_cast<float*>(input->pBuffer);
  auto* out = reinterpret_cast<float*>(output->pBuffer);

  float* work;
  bool silentUnmixed = false;
  if (flags == BUFFER_SILENT) {
    // The device effect's output is discarded: silent input stays silent unless sound is mixed in.
    std::memset(in, 0, samples * sizeof(float));
    work = in;
    silentUnmixed = true;
  } else {
    work = (deviceEffectRT != nullptr && out != in) ? out : in;
  }

  if (instanceIndex != -1 && MixReceivedSound(work, samples)) silentUnmixed = false;

  if (work != out) std::memcpy(out, work, samples * sizeof(float));
  output->u32BufferFlags = (flags == BUFFER_SILENT && !silentUnmixed) ? BUFFER_VALID : flags;
  output->u32ValidFrameCount = input->u32ValidFrameCount;
}

// Mixes one period of received sound, chunk by chunk, into `work` and
// applies the gain to what is left unmixed.
// Returns whether received sound was mixed.
QUILLON_RT_CODE bool Quillon::MixReceivedSound(float* work, size_t samples) {
  uint32_t chunk = chunkSize.load(std::memory_order_relaxed);
  if (chunk == 0 && samples > 0 && chunkBuffer) {
    // First period of the lock period: one chunk holds eight periods (the
    // buffer, made at lock time, has room for eight of the longest).
    chunk = static_cast<uint32_t>(kPeriodsPerChunk * samples);
    chunkSize.store(chunk, std::memory_order_release);
  }
  if (chunk == 0) return false;  // empty period, or no chunk could be had

  if (StopRequested(controlView)) {
    // Tells the player application that its sound was stopped.
    if (stopEvent) SetEvent(stopEvent.Get());
    pendingSamples.Clear();
    chunkPos = 0;
  }
  const float gain = micGain.load(std::memory_order_relaxed);
  const bool replace = blockVoice.load(std::memory_order_relaxed);
  size_t mixed = 0;
  // The frame count may vary, so a chunk can end inside a period: the next
  // chunk goes on in the same call, and queued sound never leaves a gap.
  while (mixed < samples) {
    if (chunkPos == 0 || chunkPos == chunk) TakeNextChunk();
    if (!chunkActive || chunkPos >= chunk) break;  // nothing queued: the rest is unmixed
    const size_t n = std::min<size_t>(samples - mixed, chunk - chunkPos);
    float* out = work + mixed;
    const float* sound = chunkBuffer.get() + chunkPos;
    if (replace) {
      std::memcpy(out, sound, n * sizeof(float));
    } else if (gain == 1.0f) {
      for (size_t i = 0; i < n; ++i) out[i] = sound[i] + out[i];
    } else {
      for (size_t i = 0; i < n; ++i) out[i] = sound[i] + gain * out[i];
    }
    chunkPos += static_cast<uint32_t>(n);
    mixed += n;
  }
  if (gain != 1.0f) {
    for (size_t i = mixed; i < samples; ++i) work[i] = gain * work[i];
  }
  return mixed > 0;
}

// At a chunk boundary: moves the next chunk of received sound out of the queue
// and wakes the receiver thread so that it can queue the next block.
QUILLON_RT_CODE void Quillon::TakeNextChunk() {
  const size_t queued = pendingSamples.Size();
  if (queued == 0) {
    chunkActive = false;
    return;
  }
  const uint32_t chunk = chunkSize.load(std::memory_order_relaxed);
  chunkActive = true;
  if (queued < chunk) {
    std::memset(chunkBuffer.get(), 0, chunk * sizeof(float));
    pendingSamples.Pop(chunkBuffer.get(), queued);
  } else {
    pendingSamples.Pop(chunkBuffer.get(), chunk);
  }
  chunkPos = 0;
  if (chunkConsumedEvent) SetEvent(chunkConsumedEvent.Get());
}

}  // namespace quillon
