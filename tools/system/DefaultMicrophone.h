// The microphone Windows records from by default.
#pragma once

#include <string>

namespace quillon::system {

// The default capture endpoint's GUID ("{...}"), or "" with `error` saying why.
std::wstring DefaultMicrophoneGuid(std::string& error);

}  // namespace quillon::system
