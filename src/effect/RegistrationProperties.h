// The effect's version and registration record, shared by the base object
// (GetRegistrationProperties) and the registry registration.
#pragma once

#include "effect/ClassId.h"
#include "platform/ApoInterfaces.h"

namespace quillon {

constexpr unsigned kVersionMajor = 1;
constexpr unsigned kVersionMinor = 8;
constexpr unsigned kVersionPatch = 0;

const APO_REG_PROPERTIES& QuillonRegistrationProperties();

}  // namespace quillon
