// The machine-wide folder of the shared log file:
// <common application data>\Marrowin\Brisvale\, created when missing and
// opened to the local users; a plain file standing in its way is removed or
// moved aside. Nothing here logs: the logger is not usable yet.
#pragma once

#include "diag/LineResult.h"
#include "diag/WideString.h"

namespace quillon {

// The log folder's two levels below the common application data folder, and
// the log file's name in it. The programs find the log through GetLogFilePath.
inline constexpr wchar_t kLogMakerFolder[] = L"Marrowin";
inline constexpr wchar_t kLogProductFolder[] = L"Brisvale";
inline constexpr wchar_t kLogFileName[] = L"Quillon.log";

// The common application data folder with a trailing backslash, or "" on failure.
WideString GetCommonAppDataFolder();

// The log folder, always ending in a backslash (never empty).
WideString GetLogFolder();

// Where the log file is, found without creating or changing anything.
WideString GetLogFilePath();

// Deletes the file at `path`, or moves it aside to the first free name
// "<base> (<n>).<ext>" and schedules it for deletion at restart. True when
// nothing is left in the way.
bool RemoveBlockingFile(const WideString& path);

// Gives BUILTIN\Users full access to `folder`, inherited by its contents.
LineResult GrantUsersFullAccess(const WideString& folder);

}  // namespace quillon
