// Whether the account the audio engine runs under, LOCAL SERVICE, may load a
// file: the file's access list evaluated the way Windows evaluates it, for
// the groups a LOCAL SERVICE token carries.
#pragma once

#include <windows.h>

#include <string>

namespace quillon::system {

// True when LOCAL SERVICE may read and execute `path` (a file, or a folder to
// list and pass through). Otherwise `why` says what stands in the way.
bool LocalServiceMayRun(const std::wstring& path, std::string& why);
// The same for a file's security descriptor.
bool LocalServiceMayRun(PSECURITY_DESCRIPTOR descriptor, std::string& why);

}  // namespace quillon::system
