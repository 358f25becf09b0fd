// quillon log: the shared log file (UTF-8 lines written by every process
// that runs the effect), its last lines or everything added while it runs.
#include "common/ConsoleInterrupt.h"
#include "common/ToolSupport.h"
#include "diag/LogFolder.h"
#include "platform/UniqueResource.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace quillon::cli {

using tools::Utf8;

namespace {

// The bytes of `path` from `offset` on; false when it cannot be opened.
// The logger appends while others read: every share mode is allowed.
bool ReadFrom(const std::wstring& path, long long offset, std::string& text, long long& size) {
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER length{};
  if (!file || !GetFileSizeEx(file.Get(), &length)) return false;
  size = length.QuadPart;
  text.clear();
  if (offset >= size) return true;
  LARGE_INTEGER at{};
  at.QuadPart = offset;
  SetFilePointerEx(file.Get(), at, nullptr, FILE_BEGIN);
  text.resize(static_cast<size_t>(size - offset));
  DWORD got = 0;
  if (!ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &got, nullptr)) return false;
  text.resize(got);
  return true;
}

// The last `lines` lines of `text` (all of it for 0).
std::string Tail(const std::string& text, long long lines) {
  if (lines == 0) return text;
  size_t at = text.size();
  if (at > 0 && text[at - 1] == '\n') --at;
  for (long long n = 0; n < lines; ++n) {
    const size_t nl = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
    if (nl == std::string::npos) return text;
    at = nl;
  }
  return text.substr(at + 1);
}

long long CountLines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

}  // namespace

int RunLog(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("log takes no arguments", "log");
  long long lines = 20;
  if (args.Has("--lines") && !ParseWhole(args.Value("--lines"), 0, 100000000, lines)) {
    return UsageError("--lines " + Utf8(args.Value("--lines")) + ": give a whole number, 0 for all", "log");
  }
  const std::wstring path = GetLogFilePath().Data();
  std::string text, older;
  long long size = 0, oldSize = 0;
  const bool exists = ReadFrom(path, 0, text, size);
  if (!exists && !args.Has("--follow")) {
    Fail("%s: no log file (nothing was logged yet)", Utf8(path).c_str());
    return kExitFailed;
  }
  // A file that was just rotated holds few lines: the rest are in the old one.
  if (lines == 0 || CountLines(text) < lines) {
    if (ReadFrom(path + L"-old", 0, older, oldSize)) {
      text = Tail(older, lines == 0 ? 0 : lines - CountLines(text)) + text;
    }
  }
  Print("%s", Tail(text, lines).c_str());
  if (!args.Has("--follow")) return kExitDone;

  tools::ConsoleInterrupt interrupt;
  long long offset = exists ? size : 0;
  while (WaitForSingleObject(interrupt.Event(), 250) == WAIT_TIMEOUT) {
    std::string added;
    if (!ReadFrom(path, offset, added, size)) continue;
    if (size < offset) {  // rotated: the new file starts from its beginning
      offset = 0;
      continue;
    }
    // Whole lines only, so that no character is cut in two.
    const size_t end = added.rfind('\n');
    if (end == std::string::npos) continue;
    Print("%s", added.substr(0, end + 1).c_str());
    offset += static_cast<long long>(end + 1);
  }
  return kExitInterrupted;
}

}  // namespace quillon::cli
