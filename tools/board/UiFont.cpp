#include "board/UiFont.h"

namespace quillon::board {

void UiFont::Make(UINT dpi) {
  Free();
  dpi_ = dpi;
  NONCLIENTMETRICSW metrics{sizeof(metrics)};
  if (!SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, dpi)) {
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0);
    metrics.lfMessageFont.lfHeight = MulDiv(metrics.lfMessageFont.lfHeight, static_cast<int>(dpi), 96);
  }
  normal_ = CreateFontIndirectW(&metrics.lfMessageFont);
  LOGFONTW bold = metrics.lfMessageFont;
  bold.lfWeight = FW_BOLD;
  bold_ = CreateFontIndirectW(&bold);
  HDC dc = GetDC(nullptr);
  HGDIOBJ old = SelectObject(dc, normal_);
  TEXTMETRICW tm{};
  GetTextMetricsW(dc, &tm);
  SelectObject(dc, old);
  ReleaseDC(nullptr, dc);
  lineHeight_ = tm.tmHeight + tm.tmExternalLeading;
  charWidth_ = tm.tmAveCharWidth;
}

void UiFont::Free() {
  if (normal_) DeleteObject(normal_);
  if (bold_) DeleteObject(bold_);
  normal_ = bold_ = nullptr;
}

void ApplyFont(HWND window, HFONT font) {
  SendMessageW(window, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  EnumChildWindows(
      window,
      [](HWND child, LPARAM f) {
        SendMessageW(child, WM_SETFONT, static_cast<WPARAM>(f), TRUE);
        return TRUE;
      },
      reinterpret_cast<LPARAM>(font));
}

}  // namespace quillon::board
