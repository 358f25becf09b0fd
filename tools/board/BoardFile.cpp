#include "board/BoardFile.h"

#include "board/BoardJson.h"
#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"

#include <windows.h>
#include <shlobj.h>

#include <cwchar>

namespace quillon::board {
namespace {

using tools::SystemText;
using tools::Utf8;

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// Reads the whole file; false with the system's error code.
bool ReadWhole(const std::wstring& path, std::string& text, DWORD& error) {
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    error = GetLastError();
    return false;
  }
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file.Get(), &size) || size.QuadPart > 64 * 1024 * 1024) {
    error = size.QuadPart > 64 * 1024 * 1024 ? ERROR_FILE_TOO_LARGE : GetLastError();
    return false;
  }
  text.resize(static_cast<size_t>(size.QuadPart));
  DWORD read = 0;
  if (!text.empty() && (!ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr) ||
                        read != text.size())) {
    error = GetLastError();
    return false;
  }
  return true;
}

std::wstring FolderOf(const std::wstring& path) {
  const size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring::npos ? L"." : path.substr(0, slash);
}

}  // namespace

std::wstring DefaultBoardPath() {
  wchar_t* appData = nullptr;
  std::wstring path;
  if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &appData))) path = appData;
  CoTaskMemFree(appData);
  return path + L"\\Quillon\\board.json";
}

std::wstring DamagedName(const std::wstring& path) {
  SYSTEMTIME t{};
  GetLocalTime(&t);
  wchar_t stamp[32];
  std::swprintf(stamp, 32, L".damaged-%04u%02u%02u-%02u%02u%02u", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                t.wSecond);
  std::wstring name = path + stamp;
  for (int n = 2; Exists(name); ++n) name = path + stamp + L"-" + std::to_wstring(n);
  return name;
}

LoadedBoard LoadBoard(const std::wstring& path) {
  LoadedBoard loaded;
  std::string text;
  DWORD error = 0;
  if (!ReadWhole(path, text, error)) {
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return loaded;
    loaded.state = LoadedBoard::State::Locked;
    loaded.problem = "cannot read " + Utf8(path) + ": " + SystemText(error);
    return loaded;
  }
  std::string why;
  if (std::optional<Board> board = FromJson(text, why, &loaded.mistakes)) {
    loaded.board = std::move(*board);
    loaded.state = LoadedBoard::State::Read;
    return loaded;
  }
  loaded.mistakes.clear();
  loaded.problem = Utf8(path) + " is not a board that can be read (" + why + ")";
  const std::wstring aside = DamagedName(path);
  if (!MoveFileExW(path.c_str(), aside.c_str(), MOVEFILE_WRITE_THROUGH)) {
    loaded.state = LoadedBoard::State::Locked;
    loaded.problem += "; it cannot be moved aside: " + SystemText(GetLastError());
    return loaded;
  }
  loaded.state = LoadedBoard::State::Damaged;
  loaded.keptAs = aside;
  return loaded;
}

namespace {
constexpr int kMoveAttempts = 11;
constexpr DWORD kMoveRetryMs = 100;
}  // namespace

bool SaveBoard(const Board& board, const std::wstring& path, std::string& error) {
  return SaveBoardText(ToJson(board), path, error);
}

bool SaveBoardText(const std::string& text, const std::wstring& path, std::string& error) {
  const std::wstring folder = FolderOf(path);
  const int made = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  if (made != ERROR_SUCCESS && made != ERROR_ALREADY_EXISTS && made != ERROR_FILE_EXISTS) {
    error = "cannot make " + Utf8(folder) + ": " + SystemText(static_cast<DWORD>(made));
    return false;
  }
  const std::wstring temporary = path + L".saving";
  {
    UniqueHandle file(CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
      error = "cannot write " + Utf8(temporary) + ": " + SystemText(GetLastError());
      return false;
    }
    DWORD written = 0;
    if (!WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ||
        written != text.size() || !FlushFileBuffers(file.Get())) {
      error = "cannot write " + Utf8(temporary) + ": " + SystemText(GetLastError());
      file.Reset();
      DeleteFileW(temporary.c_str());
      return false;
    }
  }
  // Another program (an antivirus, a sync client) may hold the file for a
  // moment: the move is tried again for about a second.
  DWORD moveError = ERROR_SUCCESS;
  for (int attempt = 0; attempt < kMoveAttempts; ++attempt) {
    if (attempt > 0) Sleep(kMoveRetryMs);
    if (MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      moveError = ERROR_SUCCESS;
      break;
    }
    moveError = GetLastError();
    if (moveError != ERROR_SHARING_VIOLATION && moveError != ERROR_ACCESS_DENIED && moveError != ERROR_LOCK_VIOLATION) {
      break;
    }
  }
  if (moveError != ERROR_SUCCESS) {
    error = "cannot replace " + Utf8(path) + ": " + SystemText(moveError);
    DeleteFileW(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace quillon::board
