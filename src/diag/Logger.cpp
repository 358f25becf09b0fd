#include "diag/Logger.h"

#include "diag/WideString.h"

#include <cstdarg>
#include <cwchar>

namespace quillon {

const wchar_t* const kLogLevelLabels[6] = {L"TRACE", L"DEBUG", L"INFO", L"WARNING", L"ERROR", L"NOLOG"};

int32_t ParseLogLevel(const wchar_t* text) {
  static const wchar_t* const names[] = {L"trace", L"debug", L"info", L"warn", L"error", L"nolog"};
  if (text == nullptr) return LOG_INFO;
  for (int32_t level = 0; level < 6; ++level) {
    if (_wcsicmp(text, names[level]) == 0) return level;
  }
  return LOG_INFO;
}

Logger& Logger::Instance() {
  static Logger logger;
  return logger;
}

void Logger::Log(int32_t level, uint32_t /*line*/, const wchar_t* /*function*/, const wchar_t* format, ...) {
  if (level < Instance().Level()) return;
  va_list args;
  va_start(args, format);
  WideString message = FormatV(format, args);
  va_end(args);
  (void)message;  // Not written anywhere yet.
}

}  // namespace quillon
