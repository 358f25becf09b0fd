// Registration of the effect with the audio engine, below
// HKEY_CLASSES_ROOT\AudioEngine\AudioProcessingObjects. Neither operation logs.
#pragma once

#include "platform/ApoInterfaces.h"

namespace quillon {

// Writes the record's values under the key named by its class id (replacing a
// stale key without subkeys).
HRESULT WriteApoRegistration(const APO_REG_PROPERTIES* record);

// Deletes the key named by `clsid`.
HRESULT RemoveApoRegistration(REFCLSID clsid);

}  // namespace quillon
