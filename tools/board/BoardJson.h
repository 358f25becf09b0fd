// The board as JSON text, both ways. The file's schema is in the README:
//   { "version": 1,
//     "pages": [ { "name": "...", "sounds": [ { "file": "...", "name": "...",
//                  "hotkey": "Ctrl+Alt+1", "volumeDb": 0 } ] } ],
//     "settings": { ... } }
// Members a reader does not know are ignored; a missing one takes its default.
#pragma once

#include "board/Board.h"

#include <optional>
#include <string>
#include <vector>

namespace quillon::board {

constexpr int kBoardFileVersion = 1;

// Pretty-printed UTF-8, ending in a newline.
std::string ToJson(const Board& board);

// The board the text describes; nullopt when the text is not JSON, does not
// follow the schema, or breaks a rule of the board, and `error` says where.
// Given `mistakes`, a rule broken (or a key or setting that is no key or
// setting) is put right and listed there instead (see Board::From); a file
// with no pages is still refused.
std::optional<Board> FromJson(const std::string& text, std::string& error,
                              std::vector<Mistake>* mistakes = nullptr);

}  // namespace quillon::board
