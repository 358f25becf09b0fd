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
  static void SetDeviceEffect(Quillon* q, IAudioProcessingObject* effect) {
    effect->AddRef();
    q->deviceEffect = effect;
    effect->QueryInterface(IID_IAudioProcessingObjectRT, reinterpret_cast<void**>(&q->deviceEffectRT));
    effect->QueryInterface(IID_IAudioProcessingObjectConfiguration, reinterpret_cast<void**>(&q->deviceEffectConfig));
  }
  static bool HasDeviceEffect(Quillon* q) { return q->deviceEffect != nullptr; }
  static void SetBlockVoice(Quillon* q, bool on) { q->blockVoice = on; }
  static void SetMicGain(Quillon* q, float gain) { q->micGain = gain; }
  static int32_t InstanceIndex(Quillon* q) { return q->instanceIndex; }
  static float MicGain(Quillon* q) { return q->micGain; }
  static size_t Queued(Quillon* q) { return q->pendingSamples.Size(); }
};

}  // namespace quillon
