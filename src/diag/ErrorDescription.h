// Readable text for Win32 error codes and HRESULTs, for the "[Code=%x: %s]" part
// of error log lines.
#pragma once

#include <cstdint>
#include <string>

namespace quillon {

// The system's message for `code`, without trailing line ends, or
// "No error description" when the system has none.
std::wstring GetErrorDescription(uint32_t code);

// A Win32 error code as HRESULT: zero and negative values stay as they are,
// a positive code c becomes 0x80070000 | (c & 0xFFFF).
int32_t HresultFromWin32(int32_t code);

}  // namespace quillon
