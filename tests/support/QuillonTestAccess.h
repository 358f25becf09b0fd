// White-box access to the effect's state for the pieces that have no outside
// view yet: the registration state and the wrapped device effect.
#pragma once

#include "effect/Quillon.h"

namespace quillon {

class QuillonTestAccess {
 public:
  static Quillon* From(IAudioProcessingObject* apo) { return static_cast<Quillon*>(apo); }

  // Makes a registered instance behave as an unregistered one (as after a refused registration).
  static void SetInstanceIndex(Quillon* q, int32_t index) { q->instanceIndex = index; }
  static TransferBlock* Control(Quillon* q) { return q->controlView ? q->controlView->Block() : nullptr; }
  // Ends the configuration listener, so that block voice and gain keep the
  // values a test sets instead of following the registry.
  static void StopConfigListener(Quillon* q) {
    q->listenerRunning = false;
    if (q->configChangedEvent) SetEvent(q->configChangedEvent.Get());
    if (q->configListenerThread.joinable()) q->configListenerThread.join();
  }
  static void SetBlockVoice(Quillon* q, bool on) { q->blockVoice = on; }
  static void SetMicGain(Quillon* q, float gain) { q->micGain = gain; }
  static int32_t InstanceIndex(Quillon* q) { return q->instanceIndex; }
  static float MicGain(Quillon* q) { return q->micGain; }
  static size_t Queued(Quillon* q) { return q->pendingSamples.Size(); }
};

}  // namespace quillon
