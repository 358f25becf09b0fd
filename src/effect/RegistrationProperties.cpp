#include "effect/RegistrationProperties.h"

#include <cwchar>

namespace quillon {

namespace {

APO_REG_PROPERTIES MakeRegistrationProperties() {
  APO_REG_PROPERTIES props{};
  props.clsid = CLSID_Quillon;
  props.Flags = APO_FLAG_DEFAULT;
  // Texts longer than the fields are cut; the last character stays the terminator.
  wcsncpy(props.szFriendlyName, L"Quillon", 255);
  wcsncpy(props.szCopyrightInfo, L"Copyright (c) Marrowin", 255);
  props.u32MajorVersion = kVersionMajor;
  props.u32MinorVersion = kVersionMinor;
  props.u32MinInputConnections = 1;
  props.u32MaxInputConnections = 1;
  props.u32MinOutputConnections = 1;
  props.u32MaxOutputConnections = 1;
  props.u32MaxInstances = 0xFFFFFFFF;
  props.u32NumAPOInterfaces = 1;
  props.iidAPOInterfaceList[0] = IID_IAudioProcessingObject;
  return props;
}

// Filled when the library loads, before any object exists.
const APO_REG_PROPERTIES registrationProperties = MakeRegistrationProperties();

}  // namespace

const APO_REG_PROPERTIES& QuillonRegistrationProperties() { return registrationProperties; }

}  // namespace quillon
