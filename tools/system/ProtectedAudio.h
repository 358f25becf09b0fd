// Protected audio: Windows 10 before version 1607 (build 14393), like the
// Windows before it, loads only signed effects into the audio engine unless
// DisableProtectedAudioDG is 1. Quillon turns it off there, and notes that it
// did, so that it turns it back on only when it was the one to turn it off.
#pragma once

#include "system/RegistryEdit.h"

#include <windows.h>

#include <vector>

namespace quillon::system {

constexpr DWORD kFirstBuildWithoutProtectedAudio = 14393;

// The build number of the Windows this runs on (RtlGetVersion: the real one,
// whatever the program's manifest says).
DWORD WindowsBuild();
bool NeedsProtectedAudioOff(DWORD build);
// DisableProtectedAudioDG is 1.
bool ProtectedAudioIsOff();
// HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Audio
std::wstring ProtectedAudioKey();

// Sets DisableProtectedAudioDG to 1 and notes that Quillon set it.
std::vector<RegChange> TurnOffProtectedAudio();
// Deletes DisableProtectedAudioDG when Quillon set it; nothing otherwise.
std::vector<RegChange> RestoreProtectedAudio();

}  // namespace quillon::system
