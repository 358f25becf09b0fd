#include "diag/WideString.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <string>

namespace quillon {
namespace {

wchar_t* AllocateText(uint64_t length) {
  auto* block = static_cast<wchar_t*>(std::calloc(static_cast<size_t>(length) + 1, sizeof(wchar_t)));
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

WideString::WideString(const wchar_t* text) : WideString(text, text != nullptr ? std::wcslen(text) : 0) {}

WideString::WideString(const wchar_t* text, uint64_t length) : length_(text != nullptr ? length : 0) {
  data_ = AllocateText(length_);
  if (length_ > 0) std::memcpy(data_, text, static_cast<size_t>(length_) * sizeof(wchar_t));
}

WideString::WideString(const WideString& other) : WideString(other.data_, other.length_) {}

WideString::WideString(WideString&& other) noexcept : length_(0), data_(nullptr), extra_(nullptr) { Swap(other); }

WideString::~WideString() {
  std::free(data_);
  std::free(extra_);
}

WideString& WideString::operator=(const wchar_t* text) {
  WideString copy(text);
  Swap(copy);
  return *this;
}

WideString& WideString::operator=(const WideString& other) {
  if (this != &other) {
    WideString copy(other);
    Swap(copy);
  }
  return *this;
}

WideString& WideString::operator=(WideString&& other) noexcept {
  // Take over the other's blocks; what this held is released with `old`.
  WideString old(std::move(*this));
  Swap(other);
  return *this;
}

bool WideString::operator==(const WideString& other) const {
  return length_ == other.length_ && std::wmemcmp(data_, other.data_, static_cast<size_t>(length_)) == 0;
}

void WideString::Swap(WideString& other) noexcept {
  std::swap(length_, other.length_);
  std::swap(data_, other.data_);
  std::swap(extra_, other.extra_);
}

WideString Concat(const WideString& first, const WideString& second) {
  uint64_t length = first.Length() + second.Length();
  std::unique_ptr<wchar_t[]> buffer(new wchar_t[static_cast<size_t>(length) + 1]);
  std::memcpy(buffer.get(), first.Data(), static_cast<size_t>(first.Length()) * sizeof(wchar_t));
  std::memcpy(buffer.get() + first.Length(), second.Data(), static_cast<size_t>(second.Length()) * sizeof(wchar_t));
  return WideString(buffer.get(), length);
}

WideString Trim(const WideString& text) {
  uint64_t begin = 0;
  while (begin < text.Length() && text[begin] <= 0x20) ++begin;
  if (begin == text.Length()) return WideString();
  uint64_t end = text.Length();
  while (end > begin && text[end - 1] <= 0x20) --end;
  return WideString(text.Data() + begin, end - begin);
}

WideString Substring(const WideString& text, uint64_t from, uint64_t to) {
  uint64_t low = from < to ? from : to;
  uint64_t high = from < to ? to : from;
  if (high > text.Length()) high = text.Length();
  if (high == 0 || text.Length() < low || high <= low) return WideString();
  return WideString(text.Data() + low, high - low);
}

uint64_t FindLast(const WideString& text, const WideString& needle) {
  if (needle.Length() > text.Length()) return WideString::npos;
  for (uint64_t pos = text.Length() - needle.Length() + 1; pos-- > 0;) {
    if (text[pos] == needle[0] &&
        std::wmemcmp(text.Data() + pos, needle.Data(), static_cast<size_t>(needle.Length())) == 0) {
      return pos;
    }
  }
  return WideString::npos;
}

std::vector<WideString> Split(const WideString& text, const WideString& delimiter) {
  std::vector<WideString> pieces;
  if (delimiter.Empty()) {
    pieces.push_back(text);
    return pieces;
  }
  uint64_t start = 0;
  for (uint64_t pos = 0; pos + delimiter.Length() <= text.Length();) {
    if (std::wmemcmp(text.Data() + pos, delimiter.Data(), static_cast<size_t>(delimiter.Length())) == 0) {
      pieces.emplace_back(text.Data() + start, pos - start);
      pos += delimiter.Length();
      start = pos;
    } else {
      ++pos;
    }
  }
  pieces.emplace_back(text.Data() + start, text.Length() - start);
  return pieces;
}

namespace {

// The library's formats follow the Windows wide printf convention, where "%s"
// and "%c" take wide text. They are formatted by the runtime's own C99
// formatter, compiled into this library, because the system C runtime's
// va_list functions are not usable on every platform the library runs on
// (emulated ARM64 Wine passes va_list differently). The C99 formatter wants
// "%ls" and "%lc" for wide text, so those conversions get the "l" added.
std::wstring ToC99Format(const wchar_t* format) {
  std::wstring out;
  for (const wchar_t* p = format; *p != L'\0';) {
    out += *p;
    if (*p++ != L'%') continue;
    if (*p == L'%') {
      out += *p++;
      continue;
    }
    while (*p != L'\0' && std::wcschr(L"-+ #0", *p) != nullptr) out += *p++;  // flags
    while (*p == L'*' || (*p >= L'0' && *p <= L'9')) out += *p++;               // width
    if (*p == L'.') {
      out += *p++;
      while (*p == L'*' || (*p >= L'0' && *p <= L'9')) out += *p++;  // precision
    }
    bool sized = false;
    while (*p != L'\0' && std::wcschr(L"hlLqjztwI", *p) != nullptr) {
      sized = true;
      out += *p++;
      while (*p >= L'0' && *p <= L'9') out += *p++;  // I32, I64
    }
    if (*p == L'\0') break;
    if (!sized && (*p == L's' || *p == L'c')) out += L'l';
    if (*p == L'S' || *p == L'C') {
      out += L'h';  // the Windows wide convention: narrow text
      out += static_cast<wchar_t>(*p++ == L'S' ? L's' : L'c');
      continue;
    }
    out += *p++;
  }
  return out;
}

}  // namespace

WideString FormatV(const wchar_t* format, va_list args) {
  if (format == nullptr) return WideString();
  const std::wstring c99 = ToC99Format(format);
  va_list measure;
  va_copy(measure, args);
  int count = __mingw_vsnwprintf(nullptr, 0, c99.c_str(), measure);
  va_end(measure);
  if (count <= 0) return WideString();
  std::unique_ptr<wchar_t[]> buffer(new wchar_t[static_cast<size_t>(count) + 1]());
  int written = __mingw_vsnwprintf(buffer.get(), static_cast<size_t>(count) + 1, c99.c_str(), args);
  if (written < 0) return WideString();
  return WideString(buffer.get(), static_cast<uint64_t>(written));
}

WideString Format(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  WideString result = FormatV(format, args);
  va_end(args);
  return result;
}

}  // namespace quillon
