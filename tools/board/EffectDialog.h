// The effect's settings on a microphone: its gain, and whether a sound played
// mutes the voice (for every microphone). They belong to the computer, so the
// window changes them through the elevation prompt once the dialog closes.
#pragma once

#include "board/DialogClass.h"
#include "system/EffectSettings.h"

#include <string>

namespace quillon::board {

class EffectDialog : public DialogClass<EffectDialog> {
 public:
  EffectDialog(std::wstring microphone, const system::EffectSettings& now)
      : microphone_(std::move(microphone)), chosen_(now) {}
  // True when it ended with OK; then Chosen() holds the values.
  bool Edit(HWND owner) { return Run(owner, IDD_EFFECT); }
  const system::EffectSettings& Chosen() const { return chosen_; }

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int, int) { return FALSE; }

 private:
  std::wstring microphone_;
  system::EffectSettings chosen_;
};

}  // namespace quillon::board
