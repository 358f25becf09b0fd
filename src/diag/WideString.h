// The library's own wide-character string: exact-size storage, always
// NUL-terminated, and the few operations that the logger and the path code use.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillon {

class WideString {
 public:
  static constexpr uint64_t npos = UINT64_MAX;

  WideString() : WideString(nullptr) {}
  WideString(const wchar_t* text);  // NOLINT: implicit from literals is the common use
  WideString(const wchar_t* text, uint64_t length);
  WideString(const WideString& other);
  WideString(WideString&& other) noexcept;
  ~WideString();

  WideString& operator=(const wchar_t* text);
  WideString& operator=(const WideString& other);
  WideString& operator=(WideString&& other) noexcept;

  uint64_t Length() const { return length_; }
  bool Empty() const { return length_ == 0; }
  const wchar_t* Data() const { return data_; }
  const wchar_t* c_str() const { return data_; }
  wchar_t operator[](uint64_t i) const { return data_[i]; }
  bool operator==(const WideString& other) const;
  bool operator!=(const WideString& other) const { return !(*this == other); }

 private:
  void Swap(WideString& other) noexcept;

  uint64_t length_ = 0;
  wchar_t* data_ = nullptr;
  void* extra_ = nullptr;
};

WideString Concat(const WideString& first, const WideString& second);
// Removes leading and trailing characters of code 0x20 or below.
WideString Trim(const WideString& text);
// Characters from the smaller of the two positions up to (not including) the larger.
WideString Substring(const WideString& text, uint64_t from, uint64_t to);
// Position of the last occurrence of `needle`, or WideString::npos.
uint64_t FindLast(const WideString& text, const WideString& needle);
// Pieces between delimiters; empty pieces are kept, also a final one after a trailing delimiter.
std::vector<WideString> Split(const WideString& text, const WideString& delimiter);

// printf-style formatting with the Windows conventions of the wide printf
// family: "%s" takes a wide string. Any length; a bad format gives "".
WideString Format(const wchar_t* format, ...);
WideString FormatV(const wchar_t* format, va_list args);

}  // namespace quillon
