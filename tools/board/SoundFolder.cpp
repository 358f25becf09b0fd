#include "board/SoundFolder.h"

#include <algorithm>
#include <cwctype>

namespace quillon::board {

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

}  // namespace quillon::board
