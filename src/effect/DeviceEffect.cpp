// The endpoint's own effect, which the effect wraps and lets act first.
#include "effect/Quillon.h"

namespace quillon {

void Quillon::InitializeOriginalApo(UINT32 /*cbDataSize*/, BYTE* /*pbyData*/) {
  // The device effect is named by the endpoint's "Original-Apo" registry
  // setting. Reading it needs the registry layer, which is not part of the
  // library yet; until it is, every endpoint runs without a device effect.
}

void Quillon::ReleaseDeviceEffect() {
  if (deviceEffectConfig != nullptr) deviceEffectConfig->Release();
  if (deviceEffectRT != nullptr) deviceEffectRT->Release();
  if (deviceEffect != nullptr) deviceEffect->Release();
  deviceEffectConfig = nullptr;
  deviceEffectRT = nullptr;
  deviceEffect = nullptr;
}

}  // namespace quillon
