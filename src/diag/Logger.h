// The process-wide logger. Every log call of the library goes through QLOG or
// QLOG_LINE, which pass level, source line and the caller's "Class::Method" name.
//
// This version only applies the level threshold: lines that pass it are
// formatted and dropped. Writing to the shared log file comes later.
#pragma once

#include <atomic>
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

// Labels shown in log lines, indexed by level.
extern const wchar_t* const kLogLevelLabels[6];

// Maps a registry text to a level: "trace", "debug", "info", "warn", "error",
// "nolog" (any case); anything else gives INFO.
int32_t ParseLogLevel(const wchar_t* text);

class Logger {
 public:
  static Logger& Instance();

  // Writes one line when `level` is not below the threshold.
  static void Log(int32_t level, uint32_t line, const wchar_t* function, const wchar_t* format, ...);

  int32_t Level() const { return level_.load(std::memory_order_relaxed); }
  void SetLevel(int32_t level) { level_.store(level, std::memory_order_relaxed); }

 private:
  Logger() = default;
  std::atomic<int32_t> level_{LOG_ERROR};
};

}  // namespace quillon

#define QLOG_LINE(level, line, function, ...) ::quillon::Logger::Log((level), (line), (function), __VA_ARGS__)
#define QLOG(level, function, ...) QLOG_LINE((level), __LINE__, (function), __VA_ARGS__)
