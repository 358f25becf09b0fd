// The board on disk. Saving writes a temporary file beside the board file,
// flushes it to the disk and moves it over the old one, so that a crash or a
// power cut leaves either the old board or the new one, whole. A file that
// cannot be read as a board is moved aside, never written over.
#pragma once

#include "board/Board.h"

#include <string>
#include <vector>

namespace quillon::board {

// %APPDATA%\Quillon\board.json.
std::wstring DefaultBoardPath();

struct LoadedBoard {
  enum class State {
    Read,     // the file's board
    New,      // there was no file: an empty board
    Damaged,  // the file was no board: moved aside, and an empty board
    Locked,   // the file could not be read, or the damaged one not moved: an empty board that must not be saved
  };
  Board board;
  State state = State::New;
  std::wstring keptAs;  // Damaged: where the file is now
  std::string problem;  // Damaged, Locked: what was wrong, one line
  std::vector<Mistake> mistakes;  // Read: the mistakes in the file that loading put right
};

LoadedBoard LoadBoard(const std::wstring& path);

// Writes the board to `path`; on failure the old file is as it was and
// `error` says why.
bool SaveBoard(const Board& board, const std::wstring& path, std::string& error);
// The same, for a board already written as text (ToJson).
bool SaveBoardText(const std::string& text, const std::wstring& path, std::string& error);

// The name a damaged board file is moved to: "<path>.damaged-YYYYMMDD-HHMMSS",
// with "-2", "-3"... when that is taken.
std::wstring DamagedName(const std::wstring& path);

}  // namespace quillon::board
