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

std::string Utf8(const std::wstring& text) {
  if (text.empty()) return {};
  const int n = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(n), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n, nullptr, nullptr);
  return out;
}

std::wstring Wide(const std::string& utf8) {
  if (utf8.empty()) return {};
  const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), out.data(), n);
  return out;
}

std::wstring FullPath(const std::wstring& path) {
  const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  if (size == 0) return path;
  std::wstring full(size, L'\0');
  const DWORD length = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
  if (length == 0 || length >= size) return path;
  full.resize(length);
  return full;
}

std::wstring PathBesideThisProgram(const wchar_t* name) {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) {
      path.resize(length);
      break;
    }
    path.resize(path.size() * 2);
  }
  return path.substr(0, path.find_last_of(L"\\/") + 1) + name;
}

std::string SystemText(unsigned long code) {
  std::string text = Utf8(GetErrorDescription(static_cast<uint32_t>(code)));
  while (!text.empty() && (text.back() == '\0' || text.back() == '.' || text.back() == '\n' || text.back() == '\r')) {
    text.pop_back();
  }
  return text;
}

}  // namespace quillon::tools
