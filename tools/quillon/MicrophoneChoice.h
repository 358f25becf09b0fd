// The capture endpoint a command line names: by its id, its GUID or its
// friendly name, exactly or by a unique part.
#pragma once

#include "system/Endpoints.h"

#include <string>
#include <vector>

namespace quillon::cli {

// The one endpoint of `captures` that `text` names, or null with `error`
// saying why (no match, several, or a playback endpoint) and listing them.
const system::Endpoint* ResolveMicrophone(const std::vector<system::Endpoint>& captures, const std::wstring& text,
                                          std::string& error);

}  // namespace quillon::cli
