// Splitting a file path into root, folders, base name and extension, with the
// validity rules of Windows file names.
#pragma once

#include "diag/WideString.h"

#include <vector>

namespace quillon {

struct SplitPathResult {
  WideString root;                  // drive ("C:") or UNC server; may be empty
  std::vector<WideString> folders;  // folder components between root and file name
  WideString baseName;              // last component up to its last dot
  WideString extension;             // after the last dot, without it
  bool valid = false;
};

// Backslash and forward slash both separate components.
SplitPathResult SplitPath(const WideString& path);

// CON, PRN, AUX, NUL, COM1-COM9, LPT1-LPT9 in any letter case.
bool IsReservedDeviceName(const WideString& name);

}  // namespace quillon
