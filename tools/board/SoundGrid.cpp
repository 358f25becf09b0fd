#include "board/SoundGrid.h"

#include "board/BoardCommands.h"

#include <uxtheme.h>
#include <vssym32.h>
#include <windowsx.h>

#include <algorithm>

namespace quillon::board {
namespace {

constexpr const wchar_t* kClassName = L"QuillonSoundGrid";

// The button's name, which a screen reader reads: the sound's name, and
// whether it plays or what is wrong with it.
std::wstring ButtonText(const SoundView& sound, bool playing) {
  if (playing) return sound.name + L" (playing)";
  return sound.problem ? sound.name + L" (" + sound.detail + L")" : sound.name;
}

}  // namespace

void SoundGrid::Create(HWND parent, const UiFont& font) {
  font_ = &font;
  Register(kClassName);
  CreateWindowExW(WS_EX_CONTROLPARENT | WS_EX_CLIENTEDGE, kClassName, L"Sounds",
                  WS_CHILD | WS_VISIBLE | WS_VSCROLL | WS_CLIPCHILDREN | WS_CLIPSIBLINGS,
                  0, 0, 0, 0, parent, nullptr, GetModuleHandleW(nullptr), this);
}

void SoundGrid::Show(const std::vector<SoundView>& sounds) {
  for (HWND b : buttons_) DestroyWindow(b);
  buttons_.clear();
  sounds_ = sounds;
  std::map<uint32_t, double> kept;
  for (const SoundView& s : sounds_) {
    if (progress_.count(s.id)) kept[s.id] = progress_[s.id];
    HWND button = CreateWindowExW(0, L"BUTTON", ButtonText(s, kept.count(s.id) != 0).c_str(),
                                  WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_OWNERDRAW | BS_NOTIFY, 0, 0, 0, 0, hwnd_,
                                  reinterpret_cast<HMENU>(static_cast<UINT_PTR>(PlayCommandOf(s.id))),
                                  GetModuleHandleW(nullptr), nullptr);
    SendMessageW(button, WM_SETFONT, reinterpret_cast<WPARAM>(font_->Normal()), FALSE);
    buttons_.push_back(button);
  }
  progress_ = std::move(kept);
  if (std::none_of(sounds_.begin(), sounds_.end(), [&](const SoundView& s) { return s.id == focused_; })) {
    focused_ = sounds_.empty() ? 0 : sounds_.front().id;
  }
  Layout();
}

void SoundGrid::SetProgress(uint32_t id, double fraction) {
  const bool wasPlaying = progress_.count(id) != 0;
  if (fraction < 0) {
    progress_.erase(id);
  } else {
    progress_[id] = std::min(fraction, 1.0);
  }
  const bool playing = progress_.count(id) != 0;
  for (size_t i = 0; i < sounds_.size(); ++i) {
    if (sounds_[i].id != id) continue;
    // The button's name says whether it plays, for a screen reader.
    if (playing != wasPlaying) SetWindowTextW(buttons_[i], ButtonText(sounds_[i], playing).c_str());
    InvalidateRect(buttons_[i], nullptr, FALSE);
  }
}

uint32_t SoundGrid::Focused() const { return focused_; }

void SoundGrid::FocusSound(uint32_t id) {
  for (size_t i = 0; i < sounds_.size(); ++i) {
    if (sounds_[i].id == id) SetFocus(buttons_[i]);
  }
}

void SoundGrid::SetSize(int size) {
  size_ = std::clamp(size, 0, 2);
  Layout();
}

void SoundGrid::Layout() {
  if (!hwnd_) return;
  RECT client{};
  GetClientRect(hwnd_, &client);
  const int gap = font_->Scale(6);
  // Small, medium and large, in the font's measures, so that they follow the DPI.
  static constexpr int kColumns[] = {13, 18, 25}, kLines[] = {3, 3, 4}, kPadding[] = {14, 24, 32};
  const int cellWidth = font_->CharWidth() * kColumns[size_];
  const int cellHeight = font_->LineHeight() * kLines[size_] + font_->Scale(kPadding[size_]);
  const int width = std::max<int>(client.right - gap, cellWidth + gap);
  const int columns = std::max(1, (width - gap) / (cellWidth + gap));
  const int rows = (static_cast<int>(buttons_.size()) + columns - 1) / columns;
  contentHeight_ = gap + rows * (cellHeight + gap);
  SCROLLINFO si{sizeof(si), SIF_RANGE | SIF_PAGE | SIF_POS, 0, std::max(0, contentHeight_ - 1),
                static_cast<UINT>(client.bottom), 0};
  scroll_ = std::clamp(scroll_, 0, std::max(0, contentHeight_ - static_cast<int>(client.bottom)));
  si.nPos = scroll_;
  SetScrollInfo(hwnd_, SB_VERT, &si, TRUE);
  HDWP moves = BeginDeferWindowPos(static_cast<int>(buttons_.size()));
  for (size_t i = 0; i < buttons_.size(); ++i) {
    const int column = static_cast<int>(i) % columns, row = static_cast<int>(i) / columns;
    moves = DeferWindowPos(moves, buttons_[i], nullptr, gap + column * (cellWidth + gap),
                           gap + row * (cellHeight + gap) - scroll_, cellWidth, cellHeight,
                           SWP_NOZORDER | SWP_NOACTIVATE);
  }
  EndDeferWindowPos(moves);
}

void SoundGrid::Scroll(int to) {
  RECT client{};
  GetClientRect(hwnd_, &client);
  const int limit = std::max(0, contentHeight_ - static_cast<int>(client.bottom));
  to = std::clamp(to, 0, limit);
  if (to == scroll_) return;
  scroll_ = to;
  Layout();
}

void SoundGrid::Draw(const DRAWITEMSTRUCT& item) {
  const auto index = static_cast<size_t>(
      std::find(buttons_.begin(), buttons_.end(), item.hwndItem) - buttons_.begin());
  if (index >= sounds_.size()) return;
  const SoundView& sound = sounds_[index];
  HDC dc = item.hDC;
  RECT r = item.rcItem;
  const bool pressed = item.itemState & ODS_SELECTED;
  // A sound's colour, unless high contrast asks for the system's colours only.
  HIGHCONTRASTW contrast{sizeof(contrast)};
  const bool highContrast =
      SystemParametersInfoW(SPI_GETHIGHCONTRAST, sizeof(contrast), &contrast, 0) && (contrast.dwFlags & HCF_HIGHCONTRASTON);
  const bool colored = sound.color && !highContrast;
  const COLORREF fill = colored ? RGB(*sound.color >> 16, (*sound.color >> 8) & 0xFF, *sound.color & 0xFF) : 0;
  // Dark text on a light colour, light text on a dark one (by perceived brightness).
  const bool lightFill = colored && (GetRValue(fill) * 299 + GetGValue(fill) * 587 + GetBValue(fill) * 114) / 1000 >= 140;
  if (colored) {
    FillRect(dc, &r, GetSysColorBrush(COLOR_WINDOW));
    HBRUSH brush = CreateSolidBrush(fill);
    HPEN pen = CreatePen(PS_SOLID, 1, pressed ? GetSysColor(COLOR_HIGHLIGHT) : GetSysColor(COLOR_BTNSHADOW));
    const HGDIOBJ oldBrush = SelectObject(dc, brush), oldPen = SelectObject(dc, pen);
    const int round = font_->Scale(6);
    RoundRect(dc, r.left, r.top, r.right, r.bottom, round, round);
    SelectObject(dc, oldBrush);
    SelectObject(dc, oldPen);
    DeleteObject(brush);
    DeleteObject(pen);
  } else if (HTHEME theme = OpenThemeData(item.hwndItem, L"BUTTON")) {
    const int state = pressed ? PBS_PRESSED : (item.itemState & ODS_FOCUS) ? PBS_DEFAULTED : PBS_NORMAL;
    FillRect(dc, &r, GetSysColorBrush(COLOR_WINDOW));  // the grid's own background around the rounded corners
    DrawThemeBackground(theme, dc, BP_PUSHBUTTON, state, &r, nullptr);
    CloseThemeData(theme);
  } else {
    DrawFrameControl(dc, &r, DFC_BUTTON, DFCS_BUTTONPUSH | (pressed ? DFCS_PUSHED : 0));
  }
  const int pad = font_->Scale(6);
  const int lineHeight = font_->LineHeight();
  // From the bottom: the progress bar, the detail line, then the name.
  RECT bar{r.left + pad, r.bottom - pad - font_->Scale(4), r.right - pad, r.bottom - pad};
  if (const auto p = progress_.find(sound.id); p != progress_.end()) {
    bar.right = bar.left + static_cast<int>((r.right - r.left - 2 * pad) * p->second);
    FillRect(dc, &bar, GetSysColorBrush(COLOR_HIGHLIGHT));
  }
  SetBkMode(dc, TRANSPARENT);
  RECT detail{r.left + pad, bar.top - font_->Scale(2) - lineHeight, r.right - pad, bar.top - font_->Scale(2)};
  RECT name{r.left + pad, r.top + pad, r.right - pad, detail.top};
  HGDIOBJ old = SelectObject(dc, font_->Bold());
  const COLORREF text = !colored ? GetSysColor(COLOR_BTNTEXT) : lightFill ? RGB(0x10, 0x10, 0x10) : RGB(0xFF, 0xFF, 0xFF);
  SetTextColor(dc, text);
  DrawTextW(dc, sound.name.c_str(), -1, &name, DT_CENTER | DT_WORDBREAK | DT_END_ELLIPSIS | DT_NOPREFIX | DT_EDITCONTROL);
  SelectObject(dc, font_->Normal());
  SetTextColor(dc, colored ? text
                   : sound.problem ? RGB(0xB0, 0x20, 0x20)
                                   : GetSysColor(COLOR_GRAYTEXT));
  DrawTextW(dc, sound.detail.c_str(), -1, &detail, DT_CENTER | DT_SINGLELINE | DT_END_ELLIPSIS | DT_NOPREFIX);
  SelectObject(dc, old);
  if (item.itemState & ODS_FOCUS) {
    RECT focus = r;
    InflateRect(&focus, -font_->Scale(3), -font_->Scale(3));
    DrawFocusRect(dc, &focus);
  }
}

LRESULT SoundGrid::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_SIZE: Layout(); return 0;
    case WM_DRAWITEM: Draw(*reinterpret_cast<const DRAWITEMSTRUCT*>(lParam)); return TRUE;
    case WM_COMMAND: {
      const UINT id = GET_WM_COMMAND_ID(wParam, lParam);
      if (GET_WM_COMMAND_CMD(wParam, lParam) == BN_SETFOCUS && IsPlayCommand(id)) {
        focused_ = SoundOfCommand(id);
        // A focused button out of view is scrolled into it.
        RECT b{}, client{};
        GetWindowRect(GET_WM_COMMAND_HWND(wParam, lParam), &b);
        MapWindowPoints(nullptr, hwnd_, reinterpret_cast<POINT*>(&b), 2);
        GetClientRect(hwnd_, &client);
        if (b.top < 0) Scroll(scroll_ + b.top - font_->Scale(6));
        if (b.bottom > client.bottom) Scroll(scroll_ + b.bottom - client.bottom + font_->Scale(6));
        return 0;
      }
      if (GET_WM_COMMAND_CMD(wParam, lParam) == BN_CLICKED) {
        return SendMessageW(GetParent(hwnd_), WM_COMMAND, wParam, lParam);
      }
      return 0;
    }
    case WM_CONTEXTMENU: return SendMessageW(GetParent(hwnd_), WM_CONTEXTMENU, wParam, lParam);
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
