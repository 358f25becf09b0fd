#include "system/EffectSettings.h"

#include "platform/Registry.h"
#include "platform/RegistrySettings.h"

#include <algorithm>

namespace quillon::system {

EffectSettings ReadEffectSettings(const std::wstring& endpointId) {
  EffectSettings settings;
  uint32_t value = 0;
  settings.blockVoiceSet = ReadRegistryDword(kSettingsPath + std::wstring(kBlockVoiceValue), value).Ok();
  settings.blockVoice = settings.blockVoiceSet && value != 0;
  value = 0;
  settings.gainSet = !endpointId.empty() && ReadRegistryDword(MicGainPath(endpointId), value).Ok();
  settings.gainDb = settings.gainSet ? std::min(value, kMaxMicGainDb) : 0;
  return settings;
}

std::wstring SetArguments(const EffectSettings& from, const EffectSettings& to, const std::wstring& endpointId) {
  std::wstring arguments;
  if (from.blockVoice != to.blockVoice) arguments += to.blockVoice ? L" block-voice on" : L" block-voice off";
  if (from.gainDb != to.gainDb) arguments += L" gain " + std::to_wstring(to.gainDb) + L" --mic \"" + endpointId + L"\"";
  return arguments.empty() ? arguments : L"set" + arguments;
}

}  // namespace quillon::system
