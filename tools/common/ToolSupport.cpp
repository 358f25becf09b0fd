#include "common/ToolSupport.h"

#include "diag/ErrorDescription.h"

#include <windows.h>

namespace quillon::tools {

int64_t MonotonicMicroseconds() {
  LARGE_INTEGER frequency, now;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&now);
  return static_cast<int64_t>(now.QuadPart / static_cast<double>(frequency.QuadPart) * 1e6);
}

std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (wchar_t c : text) narrow += c < 128 ? static_cast<char>(c) : '?';
  return narrow;
}

std::string SystemText(unsigned long code) {
  const std::wstring wide = GetErrorDescription(static_cast<uint32_t>(code));
  std::string text(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
  while (!text.empty() && (text.back() == '\0' || text.back() == '.' || text.back() == '\n' || text.back() == '\r')) {
    text.pop_back();
  }
  return text;
}

}  // namespace quillon::tools
