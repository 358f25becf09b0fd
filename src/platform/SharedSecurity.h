// The security attributes under which every named object of the library is
// created, so that the audio service and a non-elevated player application can
// open each other's objects.
#pragma once

#include <windows.h>

namespace quillon::WinUtils {

// A null DACL (open to every account) and inheritable handles. Filled once when
// the library loads; afterwards only read, from any thread.
SECURITY_ATTRIBUTES* GetNullDaclSecurityAttributes();

}  // namespace quillon::WinUtils
