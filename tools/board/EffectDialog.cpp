#include "board/EffectDialog.h"

#include "board/BoardResources.h"
#include "platform/RegistrySettings.h"

#include <commctrl.h>
#include <windowsx.h>

namespace quillon::board {

BOOL EffectDialog::OnInit() {
  SetDlgItemTextW(hwnd_, IDC_EFFECT_MIC, microphone_.c_str());
  SendDlgItemMessageW(hwnd_, IDC_EFFECT_GAIN_SPIN, UDM_SETRANGE32, 0, kMaxMicGainDb);
  SendDlgItemMessageW(hwnd_, IDC_EFFECT_GAIN_SPIN, UDM_SETPOS32, 0, static_cast<LPARAM>(chosen_.gainDb));
  CheckDlgButton(hwnd_, IDC_EFFECT_BLOCK, chosen_.blockVoice ? BST_CHECKED : BST_UNCHECKED);
  Button_SetElevationRequiredState(GetDlgItem(hwnd_, IDOK), TRUE);
  return TRUE;
}

bool EffectDialog::OnOk() {
  BOOL numeric = FALSE;
  const UINT gain = GetDlgItemInt(hwnd_, IDC_EFFECT_GAIN, &numeric, FALSE);
  if (!numeric || gain > kMaxMicGainDb) {
    Refuse(L"The gain is a whole number of dB from 0 to " + std::to_wstring(kMaxMicGainDb) + L".", IDC_EFFECT_GAIN);
    return false;
  }
  chosen_.gainDb = gain;
  chosen_.blockVoice = IsDlgButtonChecked(hwnd_, IDC_EFFECT_BLOCK) == BST_CHECKED;
  return true;
}

}  // namespace quillon::board
