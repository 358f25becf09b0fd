// A board that moves with its sounds. A sound's file may be written relative
// to the board file's folder; Export writes a folder that holds a board.json
// whose sounds' files are relative ("sounds\Air horn.wav") and a copy of
// every sound under sounds\, so that the folder can be copied to another PC
// and opened there.
#pragma once

#include "board/Board.h"

#include <string>
#include <vector>

namespace quillon::board {

// The sound's file as a full path: as written when it is absolute, else
// relative to the folder of the board file at `boardPath`.
std::wstring SoundPath(const std::string& file, const std::wstring& boardPath);

struct ExportResult {
  std::wstring boardFile;             // <folder>\board.json, once written
  size_t copied = 0;                  // sound files copied
  std::vector<std::string> missing;   // sounds whose file was not there: kept with its path as it was
  std::string error;                  // why nothing (or not all) was written; empty when it was
};

// Exports `board` (read from `boardPath`, for its relative files) into
// `folder`, made if absent; a folder that holds a board.json already is
// refused. Copies keep their file's name, made unique with " (2)", " (3)"...
// when two sounds' files share one. A copy that fails stops the export and
// removes what it wrote.
ExportResult ExportBoard(const Board& board, const std::wstring& boardPath, const std::wstring& folder);

}  // namespace quillon::board
