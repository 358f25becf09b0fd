// Whether the audio engine runs Quillon for a microphone: its instance in the
// shared register, looked for while the microphone records.
#pragma once

#include "system/Endpoints.h"
#include "system/Microphones.h"

#include <windows.h>

#include <string>

namespace quillon::system {

struct EffectProbe {
  bool found = false;
  Microphone instance;        // when found: its slot and stream format
  bool alreadyRunning = false;  // found before this probe recorded anything
  std::string streamError;    // why no capture stream could be opened, or ""
};

// The endpoint's effect instance, when one is registered now. Otherwise
// records from the microphone in shared mode through WASAPI, so that the
// audio engine builds its effect chain, and watches the register for up to
// `timeoutMs` (0: only the register is looked at). The calling thread must
// have entered COM.
EffectProbe ProbeEffect(const Endpoint& endpoint, DWORD timeoutMs);

}  // namespace quillon::system
