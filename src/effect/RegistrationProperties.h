// The effect's class identifier and its registration record, shared by the
// base object (GetRegistrationProperties) and the registry registration.
#pragma once

#include "platform/ApoInterfaces.h"

namespace quillon {

// {27384E53-9860-0AC3-9519-C60EBCAA2C71}
extern const CLSID CLSID_Quillon;

constexpr unsigned kVersionMajor = 1;
constexpr unsigned kVersionMinor = 8;
constexpr unsigned kVersionPatch = 0;

const APO_REG_PROPERTIES& QuillonRegistrationProperties();

}  // namespace quillon
