// The grid of sound buttons of one page, as one control that draws the
// buttons in view: no window per sound, so that a page of ten thousand sounds
// costs a few USER objects. Each button shows the sound's name, its hotkey
// (or why it has none working, or that its file is missing), and a bar of its
// progress while it plays. The keyboard moves among the buttons (arrows, Home,
// End, Page Up and Down) and Space presses one; a press reaches the parent as
// a WM_NOTIFY of kPressed with the sound's id. Screen readers see each
// button, its name and its state through SoundGridAccessible.
#pragma once

#include "board/UiFont.h"
#include "board/WindowClass.h"
#include "platform/ComPtr.h"

#include <commctrl.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillon::board {

class SoundGridAccessible;

struct SoundView {
  uint32_t id;
  std::wstring name;
  std::wstring detail;  // the second line: the hotkey, or a problem
  bool problem = false;  // the detail is a problem (drawn as a warning)
  std::optional<uint32_t> color;  // 0xRRGGBB the button is drawn in, or the theme's
};

class SoundGrid : public WindowClass<SoundGrid> {
 public:
  // WM_NOTIFY's code when a button was pressed (clicked, Space, or its
  // accessible default action); the header is a PressNotice.
  static constexpr UINT kPressed = 0x5147;  // outside the common controls' ranges
  struct PressNotice {
    NMHDR header;
    uint32_t sound;
  };

  SoundGrid();
  ~SoundGrid();
  SoundGrid(const SoundGrid&) = delete;
  SoundGrid& operator=(const SoundGrid&) = delete;

  void Create(HWND parent, const UiFont& font);
  // Shows these sounds, in order, keeping the progress of those still shown.
  void Show(std::vector<SoundView> sounds);
  // 0 to 1 while the sound plays; below 0 when it does not.
  void SetProgress(uint32_t id, double fraction);
  // The sound whose button has (or last had) the focus, or 0.
  uint32_t Focused() const;
  // Gives the sound's button the focus, and the grid the keyboard's.
  void FocusSound(uint32_t id);
  // Places the buttons for the grid's size and the font.
  void Layout();
  // The buttons' size: 0 small, 1 medium, 2 large; laid out again.
  void SetSize(int size);
  LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);

  // The buttons as SoundGridAccessible reads them, by index.
  size_t Count() const { return sounds_.size(); }
  const SoundView& At(size_t index) const { return sounds_[index]; }
  // What a screen reader reads: the name, and whether it plays or what is wrong.
  std::wstring NameOf(size_t index) const;
  bool HasKeyboardFocus() const { return GetFocus() == hwnd_; }
  size_t FocusIndex() const { return focus_; }
  // The button's rectangle in the grid's client area (it may be out of view).
  RECT CellRect(size_t index) const;
  // The button at a point of the client area, or -1.
  int HitTest(POINT client) const;
  int Columns() const { return columns_; }
  void FocusIndexFromOutside(size_t index);
  // Presses the button: its notice is posted, so that a caller (a screen
  // reader's call included) never waits for the sound to start.
  void Press(size_t index);

 private:
  static constexpr UINT kPressLater = WM_APP + 1;
  void Paint(HDC dc, const RECT& dirty);
  void DrawCell(HDC dc, HANDLE theme, size_t index, const RECT& r);
  void Scroll(int to);
  void MoveFocus(size_t index);
  void ScrollIntoView(size_t index);
  void Invalidate(size_t index);
  void OnKey(WPARAM key);
  void ForwardContextMenu(LPARAM lParam);
  // Tells screen readers what changed: a button's name, the focus, the list.
  void Announce(DWORD event, size_t index) const;

  const UiFont* font_ = nullptr;
  std::vector<SoundView> sounds_;
  std::unordered_map<uint32_t, size_t> indexOf_;
  std::map<uint32_t, double> progress_;
  size_t focus_ = 0;                          // the button with the focus (while there are any)
  size_t pressed_ = static_cast<size_t>(-1);  // the button held down by the mouse
  bool pressedShown_ = false;                 // the mouse is over it: drawn pressed
  int scroll_ = 0, contentHeight_ = 0;
  int size_ = 1, columns_ = 1, cellWidth_ = 0, cellHeight_ = 0, gap_ = 0;
  ComPtr<SoundGridAccessible> accessible_;
};

}  // namespace quillon::board
