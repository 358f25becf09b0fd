#include "system/ProtectedAudio.h"

#include "platform/RegistrySettings.h"

#include <winternl.h>

namespace quillon::system {

namespace {

constexpr wchar_t kDisableValue[] = L"DisableProtectedAudioDG";
// Beside Quillon's settings: 1 while the value above is Quillon's doing.
constexpr wchar_t kSetByQuillonValue[] = L"SetDisableProtectedAudioDG";

bool IsOne(const std::optional<RegValue>& value) {
  return value && value->type == REG_DWORD && value->data.size() == 4 &&
         *reinterpret_cast<const DWORD*>(value->data.data()) == 1;
}

}  // namespace

DWORD WindowsBuild() {
  using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOW*);
  const auto getVersion = reinterpret_cast<RtlGetVersionFn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  OSVERSIONINFOW info{};
  info.dwOSVersionInfoSize = sizeof(info);
  if (getVersion == nullptr || getVersion(&info) != 0) return 0;
  return info.dwBuildNumber;
}

bool NeedsProtectedAudioOff(DWORD build) { return build != 0 && build < kFirstBuildWithoutProtectedAudio; }

std::wstring ProtectedAudioKey() { return L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Audio"; }

bool ProtectedAudioIsOff() { return IsOne(ReadValue(ProtectedAudioKey(), kDisableValue)); }

std::vector<RegChange> TurnOffProtectedAudio() {
  return {RegChange::Set(kSettingsKey, kSetByQuillonValue, RegValue::Dword(1)),
          RegChange::Set(ProtectedAudioKey(), kDisableValue, RegValue::Dword(1))};
}

std::vector<RegChange> RestoreProtectedAudio() {
  if (!IsOne(ReadValue(kSettingsKey, kSetByQuillonValue))) return {};
  return {RegChange::Delete(ProtectedAudioKey(), kDisableValue), RegChange::Delete(kSettingsKey, kSetByQuillonValue)};
}

}  // namespace quillon::system
