// The system's message font at a window's DPI, remade when the DPI changes,
// and the sizes the layout derives from it (never fixed pixels).
#pragma once

#include <windows.h>

namespace quillon::board {

class UiFont {
 public:
  UiFont() = default;
  ~UiFont() { Free(); }
  UiFont(const UiFont&) = delete;
  UiFont& operator=(const UiFont&) = delete;

  // Makes the fonts for `dpi`.
  void Make(UINT dpi);
  HFONT Normal() const { return normal_; }
  HFONT Bold() const { return bold_; }
  // The height of a line of text and the average width of a character, in pixels.
  int LineHeight() const { return lineHeight_; }
  int CharWidth() const { return charWidth_; }
  UINT Dpi() const { return dpi_; }
  // `points` of a 96-DPI layout at this DPI.
  int Scale(int pixelsAt96) const { return MulDiv(pixelsAt96, static_cast<int>(dpi_), 96); }

 private:
  void Free();
  HFONT normal_ = nullptr, bold_ = nullptr;
  int lineHeight_ = 16, charWidth_ = 7;
  UINT dpi_ = 96;
};

// Sets `font` on the window and on all its children.
void ApplyFont(HWND window, HFONT font);

}  // namespace quillon::board
