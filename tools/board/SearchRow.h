// The row above the pages where a sound is found by its name: "Find:" and a
// box that filters the grid as one types, and "All pages" to look on every
// page instead of the one shown. Ctrl+F puts the focus in the box (kFind).
// In the box Enter plays the first sound found and Esc empties it; the main
// window hears of both, and of every change, as WM_COMMAND from kBoxId with
// the codes below.
#pragma once

#include "board/UiFont.h"

#include <windows.h>

#include <string>

namespace quillon::board {

class SearchRow {
 public:
  static constexpr int kBoxId = 13, kAllPagesId = 14;
  static constexpr UINT kChanged = EN_CHANGE, kEnter = 0x7001, kEscape = 0x7002;

  void Create(HWND parent);
  // Lays the row out at `top`, `width` wide from `left`; returns its height.
  int Layout(const UiFont& font, int left, int top, int width);
  std::wstring Text() const;
  bool AllPages() const;
  bool Active() const { return !Text().empty(); }
  void Clear();
  // The focus to the box, its text selected, so that typing replaces it.
  void Focus();
  HWND Box() const { return box_; }

 private:
  static LRESULT CALLBACK BoxProcedure(HWND box, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR, DWORD_PTR);

  HWND label_ = nullptr, box_ = nullptr, allPages_ = nullptr;
};

}  // namespace quillon::board
