#include "board/SoundGrid.h"

#include "board/SoundGridAccessible.h"

#include <uxtheme.h>
#include <vssym32.h>
#include <windowsx.h>

#include <algorithm>

namespace quillon::board {
namespace {

constexpr const wchar_t* kClassName = L"QuillonSoundGrid";
constexpr size_t kNone = static_cast<size_t>(-1);

// A bitmap to draw into off screen, selected into a DC compatible with the window's.
class OffScreen {
 public:
  OffScreen(HDC target, int width, int height)
      : dc_(CreateCompatibleDC(target)), bitmap_(CreateCompatibleBitmap(target, width, height)) {
    if (dc_ && bitmap_) old_ = SelectObject(dc_, bitmap_);
  }
  ~OffScreen() {
    if (old_) SelectObject(dc_, old_);
    if (bitmap_) DeleteObject(bitmap_);
    if (dc_) DeleteDC(dc_);
  }
  OffScreen(const OffScreen&) = delete;
  OffScreen& operator=(const OffScreen&) = delete;
  HDC Dc() const { return old_ ? dc_ : nullptr; }

 private:
  HDC dc_;
  HBITMAP bitmap_;
  HGDIOBJ old_ = nullptr;
};

}  // namespace

SoundGrid::SoundGrid() = default;

SoundGrid::~SoundGrid() {
  if (accessible_) accessible_->Disconnect();
}

void SoundGrid::Create(HWND parent, const UiFont& font) {
  font_ = &font;
  Register(kClassName);
  CreateWindowExW(WS_EX_CLIENTEDGE, kClassName, L"Sounds", WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL,
                  0, 0, 0, 0, parent, nullptr, GetModuleHandleW(nullptr), this);
}

std::wstring SoundGrid::NameOf(size_t index) const {
  const SoundView& sound = sounds_[index];
  if (progress_.count(sound.id)) return sound.name + L" (playing)";
  return sound.problem ? sound.name + L" (" + sound.detail + L")" : sound.name;
}

void SoundGrid::Show(std::vector<SoundView> sounds) {
  const uint32_t focusedId = Focused();
  sounds_ = std::move(sounds);
  indexOf_.clear();
  indexOf_.reserve(sounds_.size());
  std::map<uint32_t, double> kept;
  for (size_t i = 0; i < sounds_.size(); ++i) {
    indexOf_[sounds_[i].id] = i;
    if (const auto p = progress_.find(sounds_[i].id); p != progress_.end()) kept.insert(*p);
  }
  progress_ = std::move(kept);
  const auto stays = indexOf_.find(focusedId);
  focus_ = stays != indexOf_.end() ? stays->second : 0;
  pressed_ = kNone;
  Layout();
  if (hwnd_) InvalidateRect(hwnd_, nullptr, FALSE);
  NotifyWinEvent(EVENT_OBJECT_REORDER, hwnd_, OBJID_CLIENT, CHILDID_SELF);
}

void SoundGrid::SetProgress(uint32_t id, double fraction) {
  const bool wasPlaying = progress_.count(id) != 0;
  if (fraction < 0) {
    progress_.erase(id);
  } else {
    progress_[id] = std::min(fraction, 1.0);
  }
  const auto at = indexOf_.find(id);
  if (at == indexOf_.end()) return;
  Invalidate(at->second);
  // The button's name says whether it plays, for a screen reader.
  if (wasPlaying != (progress_.count(id) != 0)) Announce(EVENT_OBJECT_NAMECHANGE, at->second);
}

uint32_t SoundGrid::Focused() const { return focus_ < sounds_.size() ? sounds_[focus_].id : 0; }

void SoundGrid::FocusSound(uint32_t id) {
  const auto at = indexOf_.find(id);
  if (at != indexOf_.end()) MoveFocus(at->second);
  SetFocus(hwnd_);
}

void SoundGrid::FocusIndexFromOutside(size_t index) {
  SetFocus(hwnd_);
  MoveFocus(index);
}

void SoundGrid::Press(size_t index) {
  if (index < sounds_.size()) PostMessageW(hwnd_, kPressLater, sounds_[index].id, 0);
}

void SoundGrid::SetSize(int size) {
  size_ = std::clamp(size, 0, 2);
  Layout();
  if (hwnd_) InvalidateRect(hwnd_, nullptr, FALSE);
}

RECT SoundGrid::CellRect(size_t index) const {
  const int column = static_cast<int>(index % static_cast<size_t>(columns_));
  const int row = static_cast<int>(index / static_cast<size_t>(columns_));
  const int left = gap_ + column * (cellWidth_ + gap_), top = gap_ + row * (cellHeight_ + gap_) - scroll_;
  return RECT{left, top, left + cellWidth_, top + cellHeight_};
}

int SoundGrid::HitTest(POINT client) const {
  if (cellWidth_ <= 0 || cellHeight_ <= 0 || client.x < gap_) return -1;
  const int y = client.y + scroll_ - gap_;
  if (y < 0) return -1;
  const int column = (client.x - gap_) / (cellWidth_ + gap_), row = y / (cellHeight_ + gap_);
  if (column >= columns_) return -1;
  const size_t index = static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
  if (index >= sounds_.size()) return -1;
  const RECT cell = CellRect(index);
  return PtInRect(&cell, client) ? static_cast<int>(index) : -1;
}

void SoundGrid::Layout() {
  if (!hwnd_) return;
  RECT client{};
  GetClientRect(hwnd_, &client);
  gap_ = font_->Scale(6);
  // Small, medium and large, in the font's measures, so that they follow the DPI.
  static constexpr int kColumns[] = {13, 18, 25}, kLines[] = {3, 3, 4}, kPadding[] = {14, 24, 32};
  cellWidth_ = font_->CharWidth() * kColumns[size_];
  cellHeight_ = font_->LineHeight() * kLines[size_] + font_->Scale(kPadding[size_]);
  const int width = std::max<int>(client.right - gap_, cellWidth_ + gap_);
  columns_ = std::max(1, (width - gap_) / (cellWidth_ + gap_));
  const int rows = static_cast<int>((sounds_.size() + static_cast<size_t>(columns_) - 1) / static_cast<size_t>(columns_));
  contentHeight_ = gap_ + rows * (cellHeight_ + gap_);
  scroll_ = std::clamp(scroll_, 0, std::max(0, contentHeight_ - static_cast<int>(client.bottom)));
  SCROLLINFO si{sizeof(si), SIF_RANGE | SIF_PAGE | SIF_POS, 0, std::max(0, contentHeight_ - 1),
                static_cast<UINT>(client.bottom), scroll_};
  SetScrollInfo(hwnd_, SB_VERT, &si, TRUE);
}

void SoundGrid::Scroll(int to) {
  RECT client{};
  GetClientRect(hwnd_, &client);
  to = std::clamp(to, 0, std::max(0, contentHeight_ - static_cast<int>(client.bottom)));
  if (to == scroll_) return;
  ScrollWindowEx(hwnd_, 0, scroll_ - to, nullptr, nullptr, nullptr, nullptr, SW_INVALIDATE);
  scroll_ = to;
  SCROLLINFO si{sizeof(si), SIF_POS};
  si.nPos = scroll_;
  SetScrollInfo(hwnd_, SB_VERT, &si, TRUE);
}

void SoundGrid::ScrollIntoView(size_t index) {
  RECT client{};
  GetClientRect(hwnd_, &client);
  const RECT cell = CellRect(index);
  if (cell.top < 0) Scroll(scroll_ + cell.top - gap_);
  if (cell.bottom > client.bottom) Scroll(scroll_ + cell.bottom - client.bottom + gap_);
}

void SoundGrid::Invalidate(size_t index) {
  if (!hwnd_ || index >= sounds_.size()) return;
  const RECT cell = CellRect(index);
  InvalidateRect(hwnd_, &cell, FALSE);
}

void SoundGrid::MoveFocus(size_t index) {
  if (sounds_.empty()) return;
  index = std::min(index, sounds_.size() - 1);
  if (index != focus_) {
    Invalidate(focus_);
    focus_ = index;
    Invalidate(focus_);
  }
  ScrollIntoView(focus_);
  if (HasKeyboardFocus()) Announce(EVENT_OBJECT_FOCUS, focus_);
}

void SoundGrid::Announce(DWORD event, size_t index) const {
  if (hwnd_) NotifyWinEvent(event, hwnd_, OBJID_CLIENT, static_cast<LONG>(index + 1));
}

void SoundGrid::OnKey(WPARAM key) {
  if (sounds_.empty()) return;
  const size_t columns = static_cast<size_t>(columns_), last = sounds_.size() - 1;
  RECT client{};
  GetClientRect(hwnd_, &client);
  const size_t rowsInView = std::max<size_t>(1, static_cast<size_t>(client.bottom / std::max(1, cellHeight_ + gap_)));
  switch (key) {
    case VK_LEFT: MoveFocus(focus_ > 0 ? focus_ - 1 : 0); break;
    case VK_RIGHT: MoveFocus(std::min(focus_ + 1, last)); break;
    case VK_UP: MoveFocus(focus_ >= columns ? focus_ - columns : focus_); break;
    case VK_DOWN: MoveFocus(focus_ + columns <= last ? focus_ + columns : focus_); break;
    case VK_PRIOR: MoveFocus(focus_ >= rowsInView * columns ? focus_ - rowsInView * columns : focus_ % columns); break;
    case VK_NEXT: {
      size_t to = focus_ + rowsInView * columns;
      while (to > last && to >= columns) to -= columns;  // the last row, in the same column where it reaches
      MoveFocus(std::min(to, last));
      break;
    }
    case VK_HOME: MoveFocus(0); break;
    case VK_END: MoveFocus(last); break;
    case VK_SPACE: Press(focus_); break;
    default: break;
  }
}

void SoundGrid::ForwardContextMenu(LPARAM lParam) {
  POINT at{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
  if (at.x == -1 && at.y == -1) {  // from the keyboard: below the focused button
    if (sounds_.empty()) return;
    ScrollIntoView(focus_);
    const RECT cell = CellRect(focus_);
    at = POINT{cell.left, cell.bottom};
    ClientToScreen(hwnd_, &at);
  } else {
    POINT client = at;
    ScreenToClient(hwnd_, &client);
    const int index = HitTest(client);
    if (index < 0) return;  // no sound there: no sound's menu
    MoveFocus(static_cast<size_t>(index));
  }
  SendMessageW(GetParent(hwnd_), WM_CONTEXTMENU, reinterpret_cast<WPARAM>(hwnd_), MAKELPARAM(at.x, at.y));
}

void SoundGrid::Paint(HDC target, const RECT& dirty) {
  const int width = dirty.right - dirty.left, height = dirty.bottom - dirty.top;
  if (width <= 0 || height <= 0) return;
  // Drawn off screen, then copied at once: no flicker while progress bars move.
  OffScreen off(target, width, height);
  HDC dc = off.Dc() ? off.Dc() : target;
  if (off.Dc()) SetViewportOrgEx(dc, -dirty.left, -dirty.top, nullptr);
  FillRect(dc, &dirty, GetSysColorBrush(COLOR_WINDOW));
  if (!sounds_.empty() && cellHeight_ > 0) {
    HTHEME theme = OpenThemeData(hwnd_, L"BUTTON");
    const int rowHeight = cellHeight_ + gap_;
    const int firstRow = std::max<int>(0, (dirty.top + scroll_ - gap_) / rowHeight);
    const int lastRow = std::max<int>(0, (dirty.bottom + scroll_) / rowHeight);
    for (int row = firstRow; row <= lastRow; ++row) {
      for (int column = 0; column < columns_; ++column) {
        const size_t index = static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
        if (index >= sounds_.size()) break;
        const RECT cell = CellRect(index);
        RECT overlap{};
        if (IntersectRect(&overlap, &cell, &dirty)) DrawCell(dc, theme, index, cell);
      }
    }
    if (theme) CloseThemeData(theme);
  }
  if (off.Dc()) {
    SetViewportOrgEx(dc, 0, 0, nullptr);
    BitBlt(target, dirty.left, dirty.top, width, height, dc, 0, 0, SRCCOPY);
  }
}

void SoundGrid::DrawCell(HDC dc, HANDLE themeHandle, size_t index, const RECT& r) {
  const SoundView& sound = sounds_[index];
  HTHEME theme = static_cast<HTHEME>(themeHandle);
  const bool pressed = index == pressed_ && pressedShown_;
  const bool focused = index == focus_ && HasKeyboardFocus();
  // A sound's colour, unless high contrast asks for the system's colours only.
  HIGHCONTRASTW contrast{sizeof(contrast)};
  const bool highContrast = SystemParametersInfoW(SPI_GETHIGHCONTRAST, sizeof(contrast), &contrast, 0) &&
                            (contrast.dwFlags & HCF_HIGHCONTRASTON);
  const bool colored = sound.color && !highContrast;
  const COLORREF fill = colored ? RGB(*sound.color >> 16, (*sound.color >> 8) & 0xFF, *sound.color & 0xFF) : 0;
  // Dark text on a light colour, light text on a dark one (by perceived brightness).
  const bool lightFill =
      colored && (GetRValue(fill) * 299 + GetGValue(fill) * 587 + GetBValue(fill) * 114) / 1000 >= 140;
  if (colored) {
    HBRUSH brush = CreateSolidBrush(fill);
    HPEN pen = CreatePen(PS_SOLID, 1, pressed ? GetSysColor(COLOR_HIGHLIGHT) : GetSysColor(COLOR_BTNSHADOW));
    const HGDIOBJ oldBrush = SelectObject(dc, brush), oldPen = SelectObject(dc, pen);
    const int round = font_->Scale(6);
    RoundRect(dc, r.left, r.top, r.right, r.bottom, round, round);
    SelectObject(dc, oldBrush);
    SelectObject(dc, oldPen);
    DeleteObject(brush);
    DeleteObject(pen);
  } else if (theme) {
    const int state = pressed ? PBS_PRESSED : focused ? PBS_DEFAULTED : PBS_NORMAL;
    DrawThemeBackground(theme, dc, BP_PUSHBUTTON, state, &r, nullptr);
  } else {
    RECT frame = r;
    DrawFrameControl(dc, &frame, DFC_BUTTON, DFCS_BUTTONPUSH | (pressed ? DFCS_PUSHED : 0));
  }
  const int pad = font_->Scale(6);
  const int lineHeight = font_->LineHeight();
  const COLORREF text = !colored ? GetSysColor(COLOR_BTNTEXT) : lightFill ? RGB(0x10, 0x10, 0x10) : RGB(0xFF, 0xFF, 0xFF);
  // From the bottom: the progress bar, the detail line, then the name. On a
  // coloured button the bar is drawn in the text's colour, which stands out from it.
  RECT bar{r.left + pad, r.bottom - pad - font_->Scale(4), r.right - pad, r.bottom - pad};
  if (const auto p = progress_.find(sound.id); p != progress_.end()) {
    bar.right = bar.left + static_cast<int>((r.right - r.left - 2 * pad) * p->second);
    if (colored) {
      HBRUSH brush = CreateSolidBrush(text);
      FillRect(dc, &bar, brush);
      DeleteObject(brush);
    } else {
      FillRect(dc, &bar, GetSysColorBrush(COLOR_HIGHLIGHT));
    }
  }
  SetBkMode(dc, TRANSPARENT);
  RECT detail{r.left + pad, bar.top - font_->Scale(2) - lineHeight, r.right - pad, bar.top - font_->Scale(2)};
  RECT name{r.left + pad, r.top + pad, r.right - pad, detail.top};
  HGDIOBJ old = SelectObject(dc, font_->Bold());
  SetTextColor(dc, text);
  DrawTextW(dc, sound.name.c_str(), -1, &name, DT_CENTER | DT_WORDBREAK | DT_END_ELLIPSIS | DT_NOPREFIX | DT_EDITCONTROL);
  SelectObject(dc, font_->Normal());
  SetTextColor(dc, colored ? text : sound.problem ? RGB(0xB0, 0x20, 0x20) : GetSysColor(COLOR_GRAYTEXT));
  DrawTextW(dc, sound.detail.c_str(), -1, &detail, DT_CENTER | DT_SINGLELINE | DT_END_ELLIPSIS | DT_NOPREFIX);
  SelectObject(dc, old);
  if (focused) {
    RECT focus = r;
    InflateRect(&focus, -font_->Scale(3), -font_->Scale(3));
    SetTextColor(dc, colored ? text : GetSysColor(COLOR_BTNTEXT));
    DrawFocusRect(dc, &focus);
  }
}

LRESULT SoundGrid::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_SIZE:
      Layout();
      InvalidateRect(hwnd_, nullptr, FALSE);
      return 0;
    case WM_ERASEBKGND: return 1;  // the paint fills every pixel
    case WM_PAINT: {
      PAINTSTRUCT ps{};
      HDC dc = BeginPaint(hwnd_, &ps);
      Paint(dc, ps.rcPaint);
      EndPaint(hwnd_, &ps);
      return 0;
    }
    case WM_GETDLGCODE: return DLGC_WANTARROWS | DLGC_WANTCHARS;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
      Invalidate(focus_);
      if (message == WM_SETFOCUS && !sounds_.empty()) {
        ScrollIntoView(focus_);
        Announce(EVENT_OBJECT_FOCUS, focus_);
      }
      return 0;
    case WM_KEYDOWN: OnKey(wParam); return 0;
    case WM_CHAR: return 0;  // Space is handled as a key; no beep for the others
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK: {
      SetFocus(hwnd_);
      const int index = HitTest(POINT{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)});
      if (index < 0) return 0;
      MoveFocus(static_cast<size_t>(index));
      pressed_ = static_cast<size_t>(index);
      pressedShown_ = true;
      SetCapture(hwnd_);
      Invalidate(pressed_);
      return 0;
    }
    case WM_MOUSEMOVE:
      if (pressed_ != kNone) {
        const bool over = HitTest(POINT{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)}) == static_cast<int>(pressed_);
        if (over != pressedShown_) {
          pressedShown_ = over;
          Invalidate(pressed_);
        }
      }
      return 0;
    case WM_LBUTTONUP: {
      const size_t was = pressed_;
      const bool over = pressedShown_;
      ReleaseCapture();  // WM_CAPTURECHANGED lets go of the press
      if (was != kNone && over) Press(was);
      return 0;
    }
    case WM_CAPTURECHANGED:
      if (pressed_ != kNone) {
        Invalidate(pressed_);
        pressed_ = kNone;
        pressedShown_ = false;
      }
      return 0;
    case WM_RBUTTONDOWN: {
      SetFocus(hwnd_);
      const int index = HitTest(POINT{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)});
      if (index >= 0) MoveFocus(static_cast<size_t>(index));
      return 0;
    }
    case WM_CONTEXTMENU: ForwardContextMenu(lParam); return 0;
    case kPressLater: {
      const auto at = indexOf_.find(static_cast<uint32_t>(wParam));
      if (at == indexOf_.end()) return 0;  // gone meanwhile
      PressNotice notice{{hwnd_, 0, kPressed}, static_cast<uint32_t>(wParam)};
      SendMessageW(GetParent(hwnd_), WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&notice));
      return 0;
    }
    case WM_GETOBJECT:
      if (static_cast<long>(lParam) == static_cast<long>(OBJID_CLIENT)) {
        if (!accessible_) accessible_ = SoundGridAccessible::Make(*this, hwnd_);
        return LresultFromObject(IID_IAccessible, wParam, static_cast<IAccessible*>(accessible_.Get()));
      }
      return DefWindowProcW(hwnd_, message, wParam, lParam);
    case WM_DESTROY:
      if (accessible_) {
        accessible_->Disconnect();
        accessible_.Reset();
      }
      return 0;
    case WM_VSCROLL: {
      SCROLLINFO si{sizeof(si), SIF_ALL};
      GetScrollInfo(hwnd_, SB_VERT, &si);
      const int line = font_->LineHeight() * 2;
      switch (LOWORD(wParam)) {
        case SB_LINEUP: Scroll(scroll_ - line); break;
        case SB_LINEDOWN: Scroll(scroll_ + line); break;
        case SB_PAGEUP: Scroll(scroll_ - static_cast<int>(si.nPage)); break;
        case SB_PAGEDOWN: Scroll(scroll_ + static_cast<int>(si.nPage)); break;
        case SB_THUMBTRACK: Scroll(si.nTrackPos); break;
        case SB_TOP: Scroll(0); break;
        case SB_BOTTOM: Scroll(contentHeight_); break;
        default: break;
      }
      return 0;
    }
    case WM_MOUSEWHEEL:
      Scroll(scroll_ - GET_WHEEL_DELTA_WPARAM(wParam) * font_->LineHeight() * 3 / WHEEL_DELTA);
      return 0;
    default: return DefWindowProcW(hwnd_, message, wParam, lParam);
  }
}

}  // namespace quillon::board
