#include "board/SoundFolder.h"

#include <windows.h>

#include <algorithm>
#include <cwctype>

namespace quillon::board {
namespace {

void Collect(const std::wstring& folder, std::vector<std::wstring>& out, int depth) {
  if (depth > 8) return;  // a link back up the tree ends here
  std::vector<std::wstring> files, folders;
  WIN32_FIND_DATAW found;
  HANDLE find = FindFirstFileW((folder + L"\\*").c_str(), &found);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      folders.push_back(folder + L"\\" + name);
    } else if (LooksLikeSound(name)) {
      files.push_back(folder + L"\\" + name);
    }
  } while (FindNextFileW(find, &found));
  FindClose(find);
  std::sort(files.begin(), files.end());
  std::sort(folders.begin(), folders.end());
  out.insert(out.end(), files.begin(), files.end());
  for (const std::wstring& sub : folders) Collect(sub, out, depth + 1);
}

}  // namespace

bool LooksLikeSound(const std::wstring& path) {
  static const wchar_t* const kEndings[] = {L".wav", L".flac", L".mp3", L".ogg", L".oga", L".opus",
                                            L".aif", L".aiff", L".au",  L".caf", L".w64"};
  std::wstring lower = path;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](wchar_t c) { return std::towlower(c); });
  return std::any_of(std::begin(kEndings), std::end(kEndings), [&](const wchar_t* ending) {
    const size_t n = wcslen(ending);
    return lower.size() > n && lower.compare(lower.size() - n, n, ending) == 0;
  });
}

std::vector<std::wstring> ExpandFolders(const std::vector<std::wstring>& paths) {
  std::vector<std::wstring> out;
  for (const std::wstring& path : paths) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
      Collect(path, out, 0);
    } else {
      out.push_back(path);
    }
  }
  return out;
}

}  // namespace quillon::board
