#include "quillon/Console.h"

#include "common/ToolSupport.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace quillon::cli {
namespace {

bool IsConsole(HANDLE handle) {
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) != FALSE;
}

std::string FormatV(const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

void Write(DWORD which, const std::string& text) {
  HANDLE handle = GetStdHandle(which);
  std::fflush(which == STD_OUTPUT_HANDLE ? stdout : stderr);
  if (IsConsole(handle)) {
    const std::wstring wide = tools::Wide(text);
    DWORD written = 0;
    WriteConsoleW(handle, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
  } else {
    FILE* stream = which == STD_OUTPUT_HANDLE ? stdout : stderr;
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
  }
}

}  // namespace

void Print(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Write(STD_OUTPUT_HANDLE, FormatV(format, args));
  va_end(args);
}

void Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Write(STD_ERROR_HANDLE, "quillon: " + FormatV(format, args) + "\n");
  va_end(args);
}

bool OutputIsConsole() { return IsConsole(GetStdHandle(STD_OUTPUT_HANDLE)); }

}  // namespace quillon::cli
