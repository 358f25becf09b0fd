// The loops of the real-time routine that write a period's output. Each takes
// `n` samples from its inputs and writes `n` samples to `out`, nothing beyond;
// `out` may be the microphone buffer itself.
#pragma once

#include "platform/RealTime.h"

#include <cstddef>

namespace quillon {

// Wait-free, no allocation (real-time code): out = sound + gain * mic (sound + mic at gain 1).
void MixSound(float* out, const float* mic, const float* sound, size_t n, float gain);

// Wait-free, no allocation: out = gain * mic (a copy at gain 1).
void ApplyGain(float* out, const float* mic, size_t n, float gain);

}  // namespace quillon
