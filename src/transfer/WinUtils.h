// Utilities for the named kernel objects shared with the player application.
#pragma once

#include <windows.h>

namespace quillon::WinUtils {

// Security attributes with a null DACL (open to every account) and inheritable
// handles, used for every named object the library creates so that the audio
// service and a non-elevated player can open each other's objects. Filled once
// when the library loads; afterwards only read, from any thread.
SECURITY_ATTRIBUTES* GetNullDaclSecurityAttributes();

}  // namespace quillon::WinUtils
