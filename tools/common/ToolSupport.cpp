#include "common/ToolSupport.h"

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

}  // namespace quillon::tools
