// A GUID from its registry text "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", at
// compile time, so that a class id is written once, as the text that the
// registry and the programs use, and its binary form cannot differ from it.
#pragma once

#include <windows.h>

#include <cstddef>

namespace quillon {
namespace guid_text {

constexpr unsigned HexDigit(wchar_t c) {
  if (c >= L'0' && c <= L'9') return static_cast<unsigned>(c - L'0');
  if (c >= L'a' && c <= L'f') return static_cast<unsigned>(c - L'a' + 10);
  if (c >= L'A' && c <= L'F') return static_cast<unsigned>(c - L'A' + 10);
  throw "not a hexadecimal digit";  // in a constant expression: a compile error
}

constexpr unsigned long Hex(const wchar_t* text, int digits) {
  unsigned long value = 0;
  for (int i = 0; i < digits; ++i) value = value * 16 + HexDigit(text[i]);
  return value;
}

}  // namespace guid_text

template <size_t N>
constexpr GUID GuidFromText(const wchar_t (&text)[N]) {
  static_assert(N == 39, "a GUID text has 38 characters");
  if (text[0] != L'{' || text[9] != L'-' || text[14] != L'-' || text[19] != L'-' || text[24] != L'-' ||
      text[37] != L'}') {
    throw "not a GUID text";
  }
  using guid_text::Hex;
  GUID guid{};
  guid.Data1 = Hex(text + 1, 8);
  guid.Data2 = static_cast<unsigned short>(Hex(text + 10, 4));
  guid.Data3 = static_cast<unsigned short>(Hex(text + 15, 4));
  guid.Data4[0] = static_cast<unsigned char>(Hex(text + 20, 2));
  guid.Data4[1] = static_cast<unsigned char>(Hex(text + 22, 2));
  for (int i = 0; i < 6; ++i) guid.Data4[2 + i] = static_cast<unsigned char>(Hex(text + 25 + 2 * i, 2));
  return guid;
}

}  // namespace quillon
