// What the effect of a microphone applies, as the registry holds it now: the
// microphone's gain and whether a sound played replaces the voice. Reading
// needs no rights; writing goes through `quillon set`, as Administrator.
#pragma once

#include <cstdint>
#include <string>

namespace quillon::system {

struct EffectSettings {
  uint32_t gainDb = 0;  // as the effect applies it: at most kMaxMicGainDb
  bool blockVoice = false;
  bool gainSet = false, blockVoiceSet = false;  // false: no value, the default holds

  bool SameValues(const EffectSettings& other) const {
    return gainDb == other.gainDb && blockVoice == other.blockVoice;
  }
};

EffectSettings ReadEffectSettings(const std::wstring& endpointId);

// The arguments of `quillon set` that change `from` into `to` for the
// microphone `endpointId`; empty when nothing changes.
std::wstring SetArguments(const EffectSettings& from, const EffectSettings& to, const std::wstring& endpointId);

}  // namespace quillon::system
