// The process-wide logger. Every log call of the library goes through QLOG or
// QLOG_LINE, which pass level, source line and the caller's "Class::Method" name.
//
// Each line that passes the level threshold is appended to the log file shared
// by every process on the machine, under the named mutex
// "Global\QuillonLoggerMutex" (waited for 100 ms, then the line is dropped).
// The file is UTF-8 without byte-order mark with CR LF line ends, and is moved
// aside to a single "-old" generation when it grows past 2 MiB.
#pragma once

#include "diag/WideString.h"

#include <windows.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>

namespace quillon {

enum LogLevel : int32_t {
  LOG_TRACE = 0,
  LOG_DEBUG = 1,
  LOG_INFO = 2,
  LOG_WARNING = 3,
  LOG_ERROR = 4,
  LOG_NOLOG = 5,
};

// Each level's label in log lines and its text in the registry setting,
// indexed by level. The programs write and show levels with these texts.
struct LogLevelName {
  const wchar_t* label;
  const wchar_t* text;
};
inline constexpr LogLevelName kLogLevels[6] = {{L"TRACE", L"trace"}, {L"DEBUG", L"debug"}, {L"INFO", L"info"},
                                               {L"WARNING", L"warn"}, {L"ERROR", L"error"}, {L"NOLOG", L"nolog"}};

// Maps a registry text to the level whose text it is, in any case; anything
// else, "warning" included, gives INFO.
int32_t ParseLogLevel(const wchar_t* text);

class Logger {
 public:
  static constexpr uint64_t kRotateAboveBytes = 2097152;
  static constexpr DWORD kMutexWaitMs = 100;

  // The singleton, initialised on first use: log folder checked, threshold read from the registry.
  static Logger& Instance();

  // Whether a line of `level` is written now.
  static bool Enabled(int32_t level) { return level >= Instance().Level(); }

  // Writes one line when `level` is not below the threshold.
  static void Log(int32_t level, uint32_t line, const wchar_t* function, const wchar_t* format, ...);

  int32_t Level() const { return level_.load(std::memory_order_relaxed); }
  void SetLevel(int32_t level) { level_.store(level, std::memory_order_relaxed); }
  const WideString& LogFilePath() const { return logFilePath_; }
  const WideString& OldLogFilePath() const { return oldLogFilePath_; }

 private:
  Logger();
  void Write(int32_t level, uint32_t line, const wchar_t* function, const wchar_t* format, va_list args);

  std::atomic<int32_t> level_{LOG_ERROR};
  WideString logFilePath_;
  WideString logFolder_;
  WideString logFileName_;
  WideString oldLogFilePath_;
};

}  // namespace quillon

// The arguments are evaluated only for a line that will be written, so that an
// error description (FormatMessage, whose buffer is never released) costs
// nothing on a line below the threshold.
#define QLOG_LINE(level, line, function, ...)                                          \
  do {                                                                                 \
    if (::quillon::Logger::Enabled(level)) {                                           \
      ::quillon::Logger::Log((level), (line), (function), __VA_ARGS__);               \
    }                                                                                  \
  } while (false)
#define QLOG(level, function, ...) QLOG_LINE((level), __LINE__, (function), __VA_ARGS__)
