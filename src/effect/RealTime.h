// Placement of code that runs on the audio engine's real-time thread. It goes
// into a section of its own, as real-time code of an audio effect does, so it
// can be kept resident apart from the rest of the library.
#pragma once

#define QUILLON_RT_CODE __attribute__((section("RT_CODE")))
