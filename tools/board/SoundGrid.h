// The grid of sound buttons of one page. Each button is owner-drawn: the
// sound's name, its hotkey (or why it has none working, or that its file is
// missing), and a bar of its progress while it plays. A button's text is the
// sound's name, which is what a screen reader reads; its id is the command
// that plays the sound, and its clicks go to the main window as commands.
#pragma once

#include "board/UiFont.h"
#include "board/WindowClass.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::board {

struct SoundView {
  uint32_t id;
  std::wstring name;
  std::wstring detail;  // the second line: the hotkey, or a problem
  bool problem = false;  // the detail is a problem (drawn as a warning)
  std::optional<uint32_t> color;  // 0xRRGGBB the button is drawn in, or the theme's
};

class SoundGrid : public WindowClass<SoundGrid> {
 public:
  SoundGrid() = default;
  SoundGrid(const SoundGrid&) = delete;
  SoundGrid& operator=(const SoundGrid&) = delete;

  void Create(HWND parent, const UiFont& font);
  // Shows these sounds, in order, keeping the progress of those still shown.
  void Show(const std::vector<SoundView>& sounds);
  // 0 to 1 while the sound plays; below 0 when it does not.
  void SetProgress(uint32_t id, double fraction);
  // The sound whose button has (or last had) the focus, or 0.
  uint32_t Focused() const;
  void FocusSound(uint32_t id);
  // Places the buttons for the grid's size and the font.
  void Layout();
  // The buttons' size: 0 small, 1 medium, 2 large; laid out again.
  void SetSize(int size);
  LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);

 private:
  void Draw(const DRAWITEMSTRUCT& item);
  void Scroll(int to);

  const UiFont* font_ = nullptr;
  std::vector<SoundView> sounds_;
  std::vector<HWND> buttons_;
  std::map<uint32_t, double> progress_;
  uint32_t focused_ = 0;
  int scroll_ = 0, contentHeight_ = 0;
  int size_ = 1;
};

}  // namespace quillon::board
