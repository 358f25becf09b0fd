// Quillon's class id: what the audio engine creates, what the registration
// writes, and what the programs put into an endpoint's effect slot.
#pragma once

#include "platform/GuidText.h"

namespace quillon {

inline constexpr wchar_t kQuillonClsidText[] = L"{27384E53-9860-0AC3-9519-C60EBCAA2C71}";
inline constexpr CLSID CLSID_Quillon = GuidFromText(kQuillonClsidText);

}  // namespace quillon
