#include "effect/Mixing.h"

namespace quillon {

QUILLON_RT_CODE void MixSound(float* out, const float* mic, const float* sound, size_t n, float gain) {
  if (gain == 1.0f) {
    for (size_t i = 0; i < n; ++i) out[i] = sound[i] + mic[i];
  } else {
    for (size_t i = 0; i < n; ++i) out[i] = sound[i] + gain * mic[i];
  }
}

QUILLON_RT_CODE void ApplyGain(float* out, const float* mic, size_t n, float gain) {
  if (gain == 1.0f) {
    if (out != mic) CopySamples(out, mic, n);
  } else {
    for (size_t i = 0; i < n; ++i) out[i] = gain * mic[i];
  }
}

}  // namespace quillon
