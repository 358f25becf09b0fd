// The row above the pages: the list of microphones, what the effect does on
// the chosen one (its gain, and whether a sound played mutes the voice), and a
// button that attaches Quillon to it or changes those settings, and one that
// fixes what keeps Quillon from running on it. The buttons send their command
// (kAttach, kEffect, kFix) to the main window.
#pragma once

#include "board/MicrophoneChoices.h"
#include "board/UiFont.h"
#include "system/EffectSettings.h"

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::board {

class MicrophoneRow {
 public:
  static constexpr int kListId = 10;

  void Create(HWND parent);
  // Lays the row out at `top`, `width` wide from `left`; returns its height.
  int Layout(const UiFont& font, int left, int top, int width);
  // Reads the microphones and the effect's settings again and shows them, the
  // one `chosen` names (id or GUID) selected, or else the first running one.
  // The row is to be laid out again after.
  void Show(const std::wstring& chosen);
  // The microphone selected in the list, or null.
  const MicChoice* Selected() const;
  bool HasNone() const { return mics_.empty(); }
  // The effect's settings on the selected microphone, as last read.
  const system::EffectSettings& Effect() const { return effect_; }
  bool CanAttach() const { return IsWindowVisible(attachButton_) != FALSE; }
  bool CanChangeEffect() const { return IsWindowVisible(effectButton_) != FALSE; }
  // (Whether its button is shown, even before the window is.)
  bool CanFix() const { return fixable_; }
  // What the check of the selected microphone found wrong, in one sentence;
  // empty when nothing is, when Quillon is not attached to it (Attach… is
  // offered) or when its effect runs now.
  const std::wstring& Problem() const { return problem_; }
  HWND List() const { return list_; }

 private:
  // Checks Quillon on the selected microphone, from the registry and the running effects.
  void Check(const MicChoice* mic);

  HWND label_ = nullptr, list_ = nullptr, effectText_ = nullptr, attachButton_ = nullptr, effectButton_ = nullptr,
       fixButton_ = nullptr;
  std::wstring problem_;
  bool fixable_ = false;
  std::vector<MicChoice> mics_;
  system::EffectSettings effect_;
};

// "Gain 6 dB" and, with block voice on, "; your voice is muted while a sound plays".
std::wstring DescribeEffect(const system::EffectSettings& effect);

}  // namespace quillon::board
