// The sound's waveform in its editor, with the part played between two
// markers: the start and the end. The outline is read by WaveformPeaks on a
// thread of its own and drawn as it comes (a long file shows its progress).
// A marker is dragged with the mouse; with the keyboard, Home chooses the
// start marker and End the end marker, and the arrows move the chosen one by
// 10 ms (with Shift, 100 ms). Each move reaches the parent as WM_COMMAND from
// the view's id with kMoved. The window's text says what it shows, for tests
// and screen readers: "Reading the sound… 40%" or "Waveform, 2.0 s; plays
// 0.500 s to 1.200 s".
#pragma once

#include "board/WaveformPeaks.h"
#include "board/WindowClass.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quillon::board {

class WaveformView : public WindowClass<WaveformView> {
 public:
  static constexpr UINT kMoved = 0x7101;  // WM_COMMAND's code

  // A child of `parent` in `place` (its client coordinates), with the id `id`, showing `file`.
  void Create(HWND parent, const RECT& place, int id, const std::wstring& file);
  // The part played, in ms (end 0: to the sound's end).
  void SetPart(uint64_t startMs, uint64_t endMs);
  uint64_t StartMs() const { return startMs_; }
  uint64_t EndMs() const { return endMs_; }
  LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);

 private:
  static constexpr UINT kNews = WM_APP + 1;
  uint64_t LengthMs() const;
  int XOf(uint64_t ms, int width) const;
  uint64_t MsAt(int x, int width) const;
  // Moves the chosen marker to `ms`, kept inside the sound and 10 ms from the other.
  void Move(uint64_t ms);
  void Paint(HDC dc);
  void Describe();

  std::unique_ptr<WaveformPeaks> peaks_;
  WaveformPeaks::Outline outline_;
  uint64_t startMs_ = 0, endMs_ = 0;
  bool endChosen_ = false;  // the marker the keys move
  bool dragging_ = false;
};

}  // namespace quillon::board
