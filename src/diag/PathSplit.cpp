#include "diag/PathSplit.h"

#include <cwchar>
#include <cwctype>

namespace quillon {
namespace {

constexpr wchar_t kForbidden[] = {L'<', L'>', L':', L'"', L'/', L'\\', L'|', L'?', L'*'};

bool HasForbiddenCharacter(const WideString& name) {
  for (wchar_t c : kForbidden) {
    if (std::wcschr(name.Data(), c) != nullptr) return true;
  }
  return false;
}

}  // namespace

bool IsReservedDeviceName(const WideString& name) {
  static const wchar_t* const kReserved[] = {L"CON",  L"PRN",  L"AUX",  L"NUL",  L"COM1", L"COM2", L"COM3", L"COM4",
                                             L"COM5", L"COM6", L"COM7", L"COM8", L"COM9", L"LPT1", L"LPT2", L"LPT3",
                                             L"LPT4", L"LPT5", L"LPT6", L"LPT7", L"LPT8", L"LPT9"};
  if (name.Length() != 3 && name.Length() != 4) return false;
  for (const wchar_t* reserved : kReserved) {
    if (_wcsicmp(name.Data(), reserved) == 0) return true;
  }
  return false;
}

SplitPathResult SplitPath(const WideString& path) {
  SplitPathResult result;
  std::vector<WideString> parts;
  uint64_t start = 0;
  for (uint64_t i = 0; i <= path.Length(); ++i) {
    if (i == path.Length() || path[i] == L'\\' || path[i] == L'/') {
      parts.emplace_back(path.Data() + start, i - start);
      start = i + 1;
    }
  }

  size_t first = 0;
  if (path.Length() >= 2 && path[0] == L'\\' && path[1] == L'\\') {
    // A network path: \\server\share\... (two empty pieces before the server).
    if (parts.size() > 2) {
      result.root = parts[2];
      first = 3;
    }
  } else if (!parts.empty() && parts[0].Length() == 2 && parts[0][1] == L':' &&
             std::towupper(parts[0][0]) >= L'A' && std::towupper(parts[0][0]) <= L'Z') {
    result.root = parts[0];
    first = 1;
  }

  const WideString fileName = parts.empty() ? WideString() : parts.back();
  for (size_t i = first; i + 1 < parts.size(); ++i) result.folders.push_back(parts[i]);

  const uint64_t dot = FindLast(fileName, L".");
  if (dot != WideString::npos && dot >= 1) {
    result.baseName = Substring(fileName, 0, dot);
    result.extension = Substring(fileName, dot + 1, fileName.Length());
  } else {
    result.baseName = fileName;
  }

  // Folder components after the first may not hold forbidden characters or be
  // device names (the first may hold a drive colon).
  bool valid = !HasForbiddenCharacter(result.baseName);
  for (size_t i = 1; valid && i < result.folders.size(); ++i) valid = !HasForbiddenCharacter(result.folders[i]);
  valid = valid && !IsReservedDeviceName(result.baseName);
  for (size_t i = 1; valid && i < result.folders.size(); ++i) valid = !IsReservedDeviceName(result.folders[i]);
  result.valid = valid;
  return result;
}

}  // namespace quillon
