// Windows' own file dialog (IFileOpenDialog) for what the board asks of the
// file system: sound files to add (several at once, with no limit on how
// many or on the length of their names), a board file to open, and a folder
// to export the board to. Each returns full paths; nothing when the dialog
// was cancelled. A dialog that could not be shown leaves `error` saying why.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::board {

std::vector<std::wstring> ChooseSoundFiles(HWND owner, std::wstring& error);
std::wstring ChooseBoardFile(HWND owner, std::wstring& error);
std::wstring ChooseFolder(HWND owner, const wchar_t* title, std::wstring& error);

}  // namespace quillon::board
