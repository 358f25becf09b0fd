// The real-time routine: runs once per processing period on the audio engine's
// real-time thread. It takes no lock, waits on nothing, logs nothing and
// allocates nothing: the chunk buffer and the events are made at lock time.
// The only call that leaves its code section, besides the device effect's own
// routine, is SetEvent.
#include "effect/Quillon.h"

#include "effect/Mixing.h"
#include "platform/RealTime.h"

#include <algorithm>

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
  IAudioProcessingObjectRT* deviceRT = deviceEffect.RT();
  if (deviceRT != nullptr) {
    deviceRT->APOProcess(u32NumInputConnections, ppInputConnections, u32NumOutputConnections, ppOutputConnections);
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

  const float* mic;
  if (flags == BUFFER_SILENT) {
    // The device effect's output is discarded: silent input stays silent unless sound is mixed in.
    FillSilence(in, samples);
    mic = in;
  } else {
    mic = (deviceRT != nullptr && out != in) ? out : in;
  }

  size_t mixed = 0;
  if (registration.Registered() && mixer.SizeChunk(samples)) {
    if (StopRequested(registration.Control())) {
      // Tells the player application that its sound was stopped.
      if (registration.StopEvent() != nullptr) SetEvent(registration.StopEvent());
      mixer.DropQueued();
    }
    mixed = mixer.Mix(out, mic, samples, settings.micGain.load(std::memory_order_relaxed),
                      settings.blockVoice.load(std::memory_order_relaxed));
  } else if (out != mic) {
    CopySamples(out, mic, samples);
  }
  output->u32BufferFlags = (flags == BUFFER_SILENT && mixed > 0) ? BUFFER_VALID : flags;
  output->u32ValidFrameCount = input->u32ValidFrameCount;
}

}  // namespace quillon
