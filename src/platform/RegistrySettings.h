// Quillon's settings in the registry: the key, the names of its values and
// the limit on the gain. The effect reads them while audio runs; the programs
// write them. Both sides take the names from here, so that neither can drift.
#pragma once

#include <cstdint>
#include <string>

namespace quillon {

#define QUILLON_SETTINGS_KEY L"SOFTWARE\\Marrowin\\Quillon"
// The settings key below HKEY_LOCAL_MACHINE, without a trailing backslash.
inline constexpr wchar_t kSettingsKey[] = QUILLON_SETTINGS_KEY;
// The same key as a full path text ending in a backslash: value names and
// per-endpoint subkeys are appended to it.
inline constexpr wchar_t kSettingsPath[] = L"HKEY_LOCAL_MACHINE\\" QUILLON_SETTINGS_KEY L"\\";
#undef QUILLON_SETTINGS_KEY

// REG_DWORD in the settings key: non-zero lets received sound replace the voice.
inline constexpr wchar_t kBlockVoiceValue[] = L"FilterBlockVoice";
// REG_SZ in the settings key: the log level's registry text (see kLogLevels).
inline constexpr wchar_t kLogLevelValue[] = L"LogLevel";
// REG_DWORD in an endpoint's gain key: the microphone's gain in whole decibels.
inline constexpr wchar_t kMicGainValue[] = L"MicAmpInDb";
// REG_SZ in an endpoint's key: the class id of the effect that Quillon wraps.
inline constexpr wchar_t kOriginalApoValue[] = L"Original-Apo";

// Gains above this many decibels are applied as this many.
inline constexpr uint32_t kMaxMicGainDb = 30;

// An endpoint's key below the settings key: its id as the effect knows it.
inline std::wstring EndpointSettingsKey(const std::wstring& endpointId) {
  return std::wstring(kSettingsKey) + L"\\" + endpointId;
}
// The key of an endpoint's gain below the settings key: "<endpoint id>,1".
inline constexpr wchar_t kMicGainKeySuffix[] = L",1";
inline std::wstring MicGainSubkey(const std::wstring& endpointId) { return endpointId + kMicGainKeySuffix; }
// The full path of an endpoint's gain value, as the registry routines take it.
inline std::wstring MicGainPath(const std::wstring& endpointId) {
  return kSettingsPath + MicGainSubkey(endpointId) + L"\\" + kMicGainValue;
}

}  // namespace quillon
