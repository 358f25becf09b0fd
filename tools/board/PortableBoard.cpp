#include "board/PortableBoard.h"

#include "board/BoardFile.h"
#include "common/ToolSupport.h"

#include <windows.h>
#include <shlwapi.h>

#include <algorithm>
#include <cwctype>
#include <set>

namespace quillon::board {
namespace {

using tools::Utf8;
using tools::FullPath;
using tools::Wide;

std::wstring FolderOf(const std::wstring& path) {
  const size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring::npos ? L"." : path.substr(0, slash);
}

std::wstring Lower(std::wstring text) {
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towlower(c); });
  return text;
}

// "name.wav", or "name (2).wav"... when the name (case aside) is taken.
std::wstring UniqueName(const std::wstring& name, std::set<std::wstring>& taken) {
  const size_t dot = name.rfind(L'.');
  const std::wstring stem = dot == std::wstring::npos || dot == 0 ? name : name.substr(0, dot);
  const std::wstring ending = stem.size() == name.size() ? L"" : name.substr(stem.size());
  std::wstring candidate = name;
  for (int n = 2; !taken.insert(Lower(candidate)).second; ++n) {
    candidate = stem + L" (" + std::to_wstring(n) + L")" + ending;
  }
  return candidate;
}

}  // namespace

std::wstring SoundPath(const std::string& file, const std::wstring& boardPath) {
  const std::wstring path = Wide(file);
  if (path.empty() || !PathIsRelativeW(path.c_str())) return path;
  return FullPath(FolderOf(FullPath(boardPath)) + L"\\" + path);
}

ExportResult ExportBoard(const Board& board, const std::wstring& boardPath, const std::wstring& folder) {
  ExportResult result;
  const std::wstring sounds = folder + L"\\sounds", boardFile = folder + L"\\board.json";
  if (!CreateDirectoryW(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    result.error = "the folder " + Utf8(folder) + " cannot be made: " + tools::SystemText(GetLastError());
    return result;
  }
  if (GetFileAttributesW(boardFile.c_str()) != INVALID_FILE_ATTRIBUTES) {
    result.error = Utf8(folder) + " holds a board.json already; choose an empty folder";
    return result;
  }
  if (!CreateDirectoryW(sounds.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    result.error = "the folder " + Utf8(sounds) + " cannot be made: " + tools::SystemText(GetLastError());
    return result;
  }
  // The copy of the board, each file pointing at its copy.
  std::vector<Page> pages = board.Pages();
  std::set<std::wstring> taken;
  std::vector<std::wstring> written;
  const auto undo = [&] {
    for (const std::wstring& file : written) DeleteFileW(file.c_str());
    RemoveDirectoryW(sounds.c_str());
  };
  // A file used by several sounds is copied once.
  std::vector<std::pair<std::wstring, std::string>> copiedFrom;  // (source, relative name), lower-case source
  for (Page& page : pages) {
    for (Sound& sound : page.sounds) {
      const std::wstring source = SoundPath(sound.file, boardPath);
      if (GetFileAttributesW(source.c_str()) == INVALID_FILE_ATTRIBUTES) {
        result.missing.push_back(sound.name + " (" + sound.file + ")");
        sound.file = Utf8(source);
        continue;
      }
      const auto same = std::find_if(copiedFrom.begin(), copiedFrom.end(),
                                     [&](const auto& c) { return c.first == Lower(source); });
      if (same != copiedFrom.end()) {
        sound.file = same->second;
        continue;
      }
      const size_t slash = source.find_last_of(L"\\/");
      const std::wstring name = UniqueName(source.substr(slash + 1), taken);
      const std::wstring target = sounds + L"\\" + name;
      if (!CopyFileW(source.c_str(), target.c_str(), TRUE)) {
        result.error = "copying " + Utf8(source) + " failed: " + tools::SystemText(GetLastError());
        undo();
        return result;
      }
      written.push_back(target);
      ++result.copied;
      sound.file = "sounds\\" + Utf8(name);
      copiedFrom.emplace_back(Lower(source), sound.file);
    }
  }
  // The microphone and the playback device are this PC's: on another the board chooses again.
  Settings settings = board.GetSettings();
  settings.microphone.clear();
  settings.monitorDevice.clear();
  std::string error;
  const std::optional<Board> copy = Board::From(std::move(pages), settings, error);
  if (!copy || !SaveBoard(*copy, boardFile, error)) {
    result.error = "the board file cannot be written: " + error;
    undo();
    return result;
  }
  result.boardFile = boardFile;
  return result;
}

}  // namespace quillon::board
