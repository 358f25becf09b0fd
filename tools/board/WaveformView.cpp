#include "board/WaveformView.h"

#include <windowsx.h>

#include <algorithm>
#include <cstdio>

namespace quillon::board {
namespace {

constexpr const wchar_t* kClassName = L"QuillonWaveform";
constexpr size_t kStretches = 2048;
constexpr uint64_t kSmallStep = 10, kBigStep = 100, kLeastPart = 10;

}  // namespace

void WaveformView::Create(HWND parent, const RECT& place, int id, const std::wstring& file) {
  Register(kClassName);
  CreateWindowExW(WS_EX_CLIENTEDGE, kClassName, L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP, place.left, place.top,
                  place.right - place.left, place.bottom - place.top, parent,
                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), this);
  const HWND self = hwnd_;
  peaks_ = std::make_unique<WaveformPeaks>(file, kStretches, [self] { PostMessageW(self, kNews, 0, 0); });
  Describe();
}

void WaveformView::SetPart(uint64_t startMs, uint64_t endMs) {
  startMs_ = startMs;
  endMs_ = endMs;
  InvalidateRect(hwnd_, nullptr, FALSE);
  Describe();
}

uint64_t WaveformView::LengthMs() const { return static_cast<uint64_t>(outline_.seconds * 1000.0 + 0.5); }

int WaveformView::XOf(uint64_t ms, int width) const {
  const uint64_t length = std::max<uint64_t>(LengthMs(), 1);
  return static_cast<int>(static_cast<double>(std::min(ms, length)) * (width - 1) / static_cast<double>(length));
}

uint64_t WaveformView::MsAt(int x, int width) const {
  x = std::clamp(x, 0, std::max(width - 1, 1));
  return static_cast<uint64_t>(static_cast<double>(x) * static_cast<double>(LengthMs()) / std::max(width - 1, 1) + 0.5);
}

void WaveformView::Move(uint64_t ms) {
  const uint64_t length = LengthMs();
  if (length == 0) return;
  const uint64_t end = endMs_ == 0 ? length : endMs_;
  if (endChosen_) {
    const uint64_t to = std::clamp<uint64_t>(ms, std::min(startMs_ + kLeastPart, length), length);
    endMs_ = to >= length ? 0 : to;  // at the sound's end: to its end, whatever its length turns out to be
  } else {
    startMs_ = std::min(ms, end > kLeastPart ? end - kLeastPart : 0);
  }
  InvalidateRect(hwnd_, nullptr, FALSE);
  Describe();
  SendMessageW(GetParent(hwnd_), WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(hwnd_), kMoved), reinterpret_cast<LPARAM>(hwnd_));
}

void WaveformView::Describe() {
  wchar_t text[160];
  if (!outline_.error.empty()) {
    std::swprintf(text, 160, L"The sound cannot be read: %hs", outline_.error.c_str());
  } else if (!outline_.firstLook) {
    std::swprintf(text, 160, L"Reading the sound\u2026 %d%%", static_cast<int>(outline_.fraction * 100));
  } else {
    const double end = endMs_ == 0 ? outline_.seconds : static_cast<double>(endMs_) / 1000.0;
    const int n = std::swprintf(text, 160, L"Waveform, %.1f s; plays %.3f s to %.3f s", outline_.seconds,
                                static_cast<double>(startMs_) / 1000.0, end);
    if (!outline_.done && n > 0) {
      std::swprintf(text + n, 160 - n, L"; a first look, reading it all\u2026 %d%%",
                    static_cast<int>(outline_.fraction * 100));
    }
  }
  SetWindowTextW(hwnd_, text);
}

void WaveformView::Paint(HDC target) {
  RECT r{};
  GetClientRect(hwnd_, &r);
  const int width = r.right, height = r.bottom;
  if (width <= 0 || height <= 0) return;
  // Off screen, then copied at once.
  HDC dc = CreateCompatibleDC(target);
  HBITMAP bitmap = CreateCompatibleBitmap(target, width, height);
  const HGDIOBJ oldBitmap = SelectObject(dc, bitmap);
  FillRect(dc, &r, GetSysColorBrush(COLOR_WINDOW));
  const UINT dpi = GetDpiForWindow(hwnd_);
  const int middle = height / 2, half = std::max(1, height / 2 - MulDiv(4, static_cast<int>(dpi), 96));
  const int from = XOf(startMs_, width), to = endMs_ == 0 ? width - 1 : XOf(endMs_, width);
  // Each column: the lowest and highest of the stretches under it; the part not played is greyed.
  const size_t stretches = outline_.low.size();
  HPEN played = CreatePen(PS_SOLID, 1, GetSysColor(COLOR_HIGHLIGHT));
  HPEN unplayed = CreatePen(PS_SOLID, 1, GetSysColor(COLOR_GRAYTEXT));
  const HGDIOBJ oldPen = SelectObject(dc, played);
  for (int x = 0; x < width && stretches > 0; ++x) {
    const size_t a = static_cast<size_t>(x) * stretches / static_cast<size_t>(width);
    const size_t b = std::max(a + 1, static_cast<size_t>(x + 1) * stretches / static_cast<size_t>(width));
    float low = 0, high = 0;
    for (size_t s = a; s < b && s < stretches; ++s) {
      low = std::min(low, outline_.low[s]);
      high = std::max(high, outline_.high[s]);
    }
    SelectObject(dc, x >= from && x <= to ? played : unplayed);
    MoveToEx(dc, x, middle - static_cast<int>(high * static_cast<float>(half)), nullptr);
    LineTo(dc, x, middle - static_cast<int>(low * static_cast<float>(half)) + 1);
  }
  // The markers: the chosen one thicker.
  for (const bool isEnd : {false, true}) {
    const int x = isEnd ? to : from;
    const int thickness = MulDiv(isEnd == endChosen_ ? 3 : 1, static_cast<int>(dpi), 96);
    RECT line{x - thickness / 2, 0, x - thickness / 2 + std::max(thickness, 1), height};
    FillRect(dc, &line, GetSysColorBrush(COLOR_WINDOWTEXT));
  }
  if (outline_.firstLook && !outline_.done) {
    // Reading through after the first look: a thin bar along the bottom says how far.
    RECT bar{0, height - MulDiv(3, static_cast<int>(dpi), 96), static_cast<int>(outline_.fraction * width), height};
    FillRect(dc, &bar, GetSysColorBrush(COLOR_HIGHLIGHT));
  } else if (!outline_.done || !outline_.error.empty()) {
    wchar_t text[160];
    GetWindowTextW(hwnd_, text, 160);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, GetSysColor(COLOR_WINDOWTEXT));
    const HGDIOBJ oldFont = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(GetParent(hwnd_), WM_GETFONT, 0, 0)));
    DrawTextW(dc, text, -1, &r, DT_CENTER | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
    SelectObject(dc, oldFont);
  }
  if (GetFocus() == hwnd_) {
    RECT focus = r;
    InflateRect(&focus, -1, -1);
    DrawFocusRect(dc, &focus);
  }
  SelectObject(dc, oldPen);
  DeleteObject(played);
  DeleteObject(unplayed);
  BitBlt(target, 0, 0, width, height, dc, 0, 0, SRCCOPY);
  SelectObject(dc, oldBitmap);
  DeleteObject(bitmap);
  DeleteDC(dc);
}

LRESULT WaveformView::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case kNews:
      if (peaks_) outline_ = peaks_->Take();
      Describe();
      InvalidateRect(hwnd_, nullptr, FALSE);
      return 0;
    case WM_ERASEBKGND: return 1;
    case WM_PAINT: {
      PAINTSTRUCT ps{};
      HDC dc = BeginPaint(hwnd_, &ps);
      Paint(dc);
      EndPaint(hwnd_, &ps);
      return 0;
    }
    case WM_GETDLGCODE: return DLGC_WANTARROWS;
    case WM_SETFOCUS:
    case WM_KILLFOCUS: InvalidateRect(hwnd_, nullptr, FALSE); return 0;
    case WM_KEYDOWN: {
      const uint64_t step = GetKeyState(VK_SHIFT) < 0 ? kBigStep : kSmallStep;
      const uint64_t at = endChosen_ ? (endMs_ == 0 ? LengthMs() : endMs_) : startMs_;
      switch (wParam) {
        case VK_HOME: endChosen_ = false; InvalidateRect(hwnd_, nullptr, FALSE); break;
        case VK_END: endChosen_ = true; InvalidateRect(hwnd_, nullptr, FALSE); break;
        case VK_LEFT: Move(at > step ? at - step : 0); break;
        case VK_RIGHT: Move(at + step); break;
        default: break;
      }
      return 0;
    }
    case WM_LBUTTONDOWN: {
      SetFocus(hwnd_);
      RECT r{};
      GetClientRect(hwnd_, &r);
      const int x = GET_X_LPARAM(lParam);
      const int from = XOf(startMs_, r.right), to = endMs_ == 0 ? r.right - 1 : XOf(endMs_, r.right);
      endChosen_ = std::abs(x - to) < std::abs(x - from);  // the nearer marker
      dragging_ = true;
      SetCapture(hwnd_);
      Move(MsAt(x, r.right));
      return 0;
    }
    case WM_MOUSEMOVE:
      if (dragging_) {
        RECT r{};
        GetClientRect(hwnd_, &r);
        Move(MsAt(GET_X_LPARAM(lParam), r.right));
      }
      return 0;
    case WM_LBUTTONUP: ReleaseCapture(); return 0;
    case WM_CAPTURECHANGED: dragging_ = false; return 0;
    case WM_DESTROY: peaks_.reset(); return 0;
    default: return DefWindowProcW(hwnd_, message, wParam, lParam);
  }
}

}  // namespace quillon::board
