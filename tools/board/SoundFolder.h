// What a drop or a command line adds: files as they are, and the sound files
// inside folders (and their folders), in name order.
#pragma once

#include <string>
#include <vector>

namespace quillon::board {

// True for the file name endings the player reads (".wav", ".mp3"...).
bool LooksLikeSound(const std::wstring& path);
std::vector<std::wstring> ExpandFolders(const std::vector<std::wstring>& paths);

}  // namespace quillon::board
