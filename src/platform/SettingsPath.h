// The one registry key that holds Quillon's settings, as a full path text
// ending in a backslash: value names and per-endpoint subkeys are appended.
#pragma once

namespace quillon {

inline constexpr wchar_t kSettingsPath[] = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Marrowin\\Quillon\\";

}  // namespace quillon
