// Placement of code that runs on the audio engine's real-time thread. It goes
// into a section of its own, as real-time code of an audio effect does, so it
// can be kept resident apart from the rest of the library. Loops in it are
// never turned into calls of the C library's memcpy or memset, which live
// outside that section.
#pragma once

#include <cstddef>

#define QUILLON_RT_CODE __attribute__((section("RT_CODE"), no_builtin("memcpy", "memset", "memmove")))

namespace quillon {

// Wait-free, no allocation: copies `n` samples.
QUILLON_RT_CODE inline void CopySamples(float* __restrict out, const float* __restrict from, size_t n) {
  for (size_t i = 0; i < n; ++i) out[i] = from[i];
}

// Wait-free, no allocation: writes `n` zero samples.
QUILLON_RT_CODE inline void FillSilence(float* out, size_t n) {
  for (size_t i = 0; i < n; ++i) out[i] = 0.0f;
}

}  // namespace quillon
