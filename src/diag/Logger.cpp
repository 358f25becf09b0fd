#include "diag/Logger.h"

#include "platform/Registry.h"
#include "platform/RegistrySettings.h"
#include "diag/LogFolder.h"
#include "platform/NamedMutexLock.h"

#include <codecvt>
#include <cwchar>
#include <fstream>
#include <locale>

namespace quillon {

namespace {

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
// The default locale with a UTF-8 converter for wide characters; each 16-bit
// character is converted by itself. Built once when the library loads.
const std::locale utf8Locale(std::locale(), new std::codecvt_utf8<wchar_t, 0x10FFFF>);
#pragma clang diagnostic pop

uint64_t FileSize(const WideString& path, bool& exists) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  exists = GetFileAttributesExW(path.Data(), GetFileExInfoStandard, &data) != FALSE;
  return exists ? (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow : 0;
}

}  // namespace

int32_t ParseLogLevel(const wchar_t* text) {
  if (text == nullptr) return LOG_INFO;
  for (int32_t level = 0; level < 6; ++level) {
    if (_wcsicmp(text, kLogLevels[level].text) == 0) return level;
  }
  return LOG_INFO;
}

Logger::Logger() {
  WideString folder = GetLogFolder();
  DWORD attributes = GetFileAttributesW(folder.Data());
  if (attributes != INVALID_FILE_ATTRIBUTES) {
    attributes = GetFileAttributesW(folder.Data());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      level_ = LOG_NOLOG;  // a file stands where the folder must be
      return;
    }
  } else if (!CreateDirectoryW(folder.Data(), nullptr)) {
    level_ = LOG_NOLOG;
    return;
  }
  if (folder.Empty() || (folder[folder.Length() - 1] != L'\\' && folder[folder.Length() - 1] != L'/')) {
    folder = Concat(folder, L"\\");
  }
  logFileName_ = kLogFileName;
  logFolder_ = folder;
  logFilePath_ = Concat(logFolder_, logFileName_);
  if (!logFilePath_.Empty()) oldLogFilePath_ = Concat(logFilePath_, L"-old");

  std::wstring text;
  if (ReadRegistryString(std::wstring(kSettingsPath) + kLogLevelValue, text).Ok()) level_ = ParseLogLevel(text.c_str());
}

Logger& Logger::Instance() {
  static Logger logger;
  return logger;
}

void Logger::Log(int32_t level, uint32_t line, const wchar_t* function, const wchar_t* format, ...) {
  Logger& logger = Instance();
  if (level < logger.Level()) return;
  va_list args;
  va_start(args, format);
  logger.Write(level, line, function, format, args);
  va_end(args);
}

void Logger::Write(int32_t level, uint32_t line, const wchar_t* function, const wchar_t* format, va_list args) {
  // Abandoned and failed waits (no mutex at all) still write; only a busy mutex drops the line.
  NamedMutexLock lock(L"Global\\QuillonLoggerMutex", kMutexWaitMs);
  if (lock.WaitResult() == WAIT_TIMEOUT) return;

  bool exists = false;
  if (FileSize(logFilePath_, exists) > kRotateAboveBytes && exists) {
    MoveFileExW(logFilePath_.Data(), oldLogFilePath_.Data(), MOVEFILE_REPLACE_EXISTING);
  }

  std::wofstream file(logFilePath_.Data(), std::ios::out | std::ios::app);
  file.imbue(utf8Locale);
  if (!file.is_open() || !file.good()) return;

  SYSTEMTIME now{};
  GetLocalTime(&now);
  const WideString prefix = Format(
      L"[# %-5s | %04d-%02d-%02d | %02d:%02d:%02d.%03d | PID=%4d | ThreadId=%4d | %s:%d | ", kLogLevels[level].label,
      now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
      static_cast<int>(GetCurrentProcessId()), static_cast<int>(GetCurrentThreadId()), function, line);
  file << prefix.Data();

  // A message that formats to nothing (or fails to format) still completes the line.
  const WideString message = FormatV(format, args);
  file << message.Data();
  file << L" #]\n";
}

}  // namespace quillon
