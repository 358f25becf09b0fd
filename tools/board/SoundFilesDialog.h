// The dialog that chooses sound files to add: Windows' own file dialog
// (IFileOpenDialog), several files at once, with no limit on how many or on
// the length of their names.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::board {

// The files chosen, as full paths; none when the dialog was cancelled. A
// dialog that could not be shown leaves `error` saying why.
std::vector<std::wstring> ChooseSoundFiles(HWND owner, std::wstring& error);

}  // namespace quillon::board
