// Which files the board takes for sound by their name.
#pragma once

#include <string>

namespace quillon::board {

// True for the file name endings the player reads (".wav", ".mp3"...).
bool LooksLikeSound(const std::wstring& path);

}  // namespace quillon::board
