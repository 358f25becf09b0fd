#include "board/SettingsDialog.h"

#include "board/BoardResources.h"
#include "board/SoundDialog.h"
#include "common/ToolSupport.h"

#include <windowsx.h>

#include <cwchar>

namespace quillon::board {
namespace {

bool ReadNumber(const std::wstring& text, double& value) {
  wchar_t* end = nullptr;
  value = std::wcstod(text.c_str(), &end);
  return !text.empty() && *end == L'\0';
}

std::wstring NumberText(double value) {
  wchar_t text[32];
  std::swprintf(text, 32, L"%g", value);
  return text;
}

}  // namespace

bool SettingsDialog::Edit(HWND owner) { return Run(owner, IDD_SETTINGS); }

BOOL SettingsDialog::OnInit() {
  const Settings& s = board_.GetSettings();
  CheckDlgButton(hwnd_, IDC_SET_OVERLAP, s.overlap ? BST_CHECKED : BST_UNCHECKED);
  HWND pressAgain = GetDlgItem(hwnd_, IDC_SET_PRESS_AGAIN);
  ComboBox_AddString(pressAgain, L"Plays it again from the start");
  ComboBox_AddString(pressAgain, L"Stops it");
  ComboBox_SetCurSel(pressAgain, s.pressAgain == PressAgain::Stop ? 1 : 0);
  ShowHotkey(GetDlgItem(hwnd_, IDC_SET_STOP_HOTKEY), s.stopAllHotkey);
  ShowHotkey(GetDlgItem(hwnd_, IDC_SET_NEXT_PAGE), s.nextPageHotkey);
  ShowHotkey(GetDlgItem(hwnd_, IDC_SET_PREVIOUS_PAGE), s.previousPageHotkey);
  CheckDlgButton(hwnd_, IDC_SET_MONITOR, s.monitor ? BST_CHECKED : BST_UNCHECKED);
  HWND devices = GetDlgItem(hwnd_, IDC_SET_MONITOR_DEVICE);
  ComboBox_AddString(devices, L"The default playback device");
  std::string error;
  devices_ = player::ListPlaybackDevices(error);
  int selected = 0;
  for (size_t i = 0; i < devices_.size(); ++i) {
    ComboBox_AddString(devices, devices_[i].name.c_str());
    if (!s.monitorDevice.empty() &&
        (tools::Wide(s.monitorDevice) == devices_[i].id || tools::Wide(s.monitorDevice) == devices_[i].name)) {
      selected = static_cast<int>(i) + 1;
    }
  }
  ComboBox_SetCurSel(devices, selected);
  SetDlgItemTextW(hwnd_, IDC_SET_MONITOR_VOLUME, NumberText(s.monitorVolumeDb).c_str());
  CheckDlgButton(hwnd_, IDC_SET_PTT, s.pushToTalkKey ? BST_CHECKED : BST_UNCHECKED);
  ShowHotkey(GetDlgItem(hwnd_, IDC_SET_PTT_KEY), s.pushToTalkKey);
  SetDlgItemInt(hwnd_, IDC_SET_PTT_TAIL, s.pushToTalkTailMs, FALSE);
  CheckDlgButton(hwnd_, IDC_SET_TRAY, s.keepInTray ? BST_CHECKED : BST_UNCHECKED);
  HWND sizes = GetDlgItem(hwnd_, IDC_SET_BUTTON_SIZE);
  for (const wchar_t* size : {L"Small", L"Medium", L"Large"}) ComboBox_AddString(sizes, size);
  ComboBox_SetCurSel(sizes, static_cast<int>(s.buttonSize));
  CheckDlgButton(hwnd_, IDC_SET_EVEN, s.evenLoudness ? BST_CHECKED : BST_UNCHECKED);
  SetDlgItemTextW(hwnd_, IDC_SET_EVEN_TARGET, NumberText(s.loudnessTargetLufs).c_str());
  EnableParts();
  return TRUE;
}

void SettingsDialog::EnableParts() {
  const bool monitor = IsDlgButtonChecked(hwnd_, IDC_SET_MONITOR) == BST_CHECKED;
  EnableWindow(GetDlgItem(hwnd_, IDC_SET_MONITOR_DEVICE), monitor);
  EnableWindow(GetDlgItem(hwnd_, IDC_SET_MONITOR_VOLUME), monitor);
  const bool ptt = IsDlgButtonChecked(hwnd_, IDC_SET_PTT) == BST_CHECKED;
  EnableWindow(GetDlgItem(hwnd_, IDC_SET_PTT_KEY), ptt);
  EnableWindow(GetDlgItem(hwnd_, IDC_SET_PTT_TAIL), ptt);
  EnableWindow(GetDlgItem(hwnd_, IDC_SET_EVEN_TARGET), IsDlgButtonChecked(hwnd_, IDC_SET_EVEN) == BST_CHECKED);
}

BOOL SettingsDialog::OnCommand(int id, int code) {
  if ((id == IDC_SET_MONITOR || id == IDC_SET_PTT || id == IDC_SET_EVEN) && code == BN_CLICKED) {
    EnableParts();
    return TRUE;
  }
  return FALSE;
}

bool SettingsDialog::OnOk() {
  Settings s = board_.GetSettings();
  s.overlap = IsDlgButtonChecked(hwnd_, IDC_SET_OVERLAP) == BST_CHECKED;
  s.pressAgain = ComboBox_GetCurSel(GetDlgItem(hwnd_, IDC_SET_PRESS_AGAIN)) == 1 ? PressAgain::Stop : PressAgain::Restart;
  s.stopAllHotkey = HotkeyOf(GetDlgItem(hwnd_, IDC_SET_STOP_HOTKEY));
  s.nextPageHotkey = HotkeyOf(GetDlgItem(hwnd_, IDC_SET_NEXT_PAGE));
  s.previousPageHotkey = HotkeyOf(GetDlgItem(hwnd_, IDC_SET_PREVIOUS_PAGE));
  s.monitor = IsDlgButtonChecked(hwnd_, IDC_SET_MONITOR) == BST_CHECKED;
  const int device = ComboBox_GetCurSel(GetDlgItem(hwnd_, IDC_SET_MONITOR_DEVICE));
  s.monitorDevice = device > 0 ? tools::Utf8(devices_[static_cast<size_t>(device - 1)].id) : "";
  if (!ReadNumber(ItemText(IDC_SET_MONITOR_VOLUME), s.monitorVolumeDb)) {
    Refuse(L"The volume is a number of dB, such as -6.", IDC_SET_MONITOR_VOLUME);
    return false;
  }
  const bool ptt = IsDlgButtonChecked(hwnd_, IDC_SET_PTT) == BST_CHECKED;
  s.pushToTalkKey = ptt ? HotkeyOf(GetDlgItem(hwnd_, IDC_SET_PTT_KEY)) : std::nullopt;
  if (ptt && !s.pushToTalkKey) {
    Refuse(L"Press the key that talks in your call or game.", IDC_SET_PTT_KEY);
    return false;
  }
  BOOL numeric = FALSE;
  s.pushToTalkTailMs = GetDlgItemInt(hwnd_, IDC_SET_PTT_TAIL, &numeric, FALSE);
  if (!numeric) {
    Refuse(L"The tail is a number of milliseconds, such as 300.", IDC_SET_PTT_TAIL);
    return false;
  }
  s.keepInTray = IsDlgButtonChecked(hwnd_, IDC_SET_TRAY) == BST_CHECKED;
  const int size = ComboBox_GetCurSel(GetDlgItem(hwnd_, IDC_SET_BUTTON_SIZE));
  if (size >= 0 && size <= 2) s.buttonSize = static_cast<ButtonSize>(size);
  s.evenLoudness = IsDlgButtonChecked(hwnd_, IDC_SET_EVEN) == BST_CHECKED;
  if (!ReadNumber(ItemText(IDC_SET_EVEN_TARGET), s.loudnessTargetLufs)) {
    Refuse(L"The loudness is a number of LUFS, such as -16.", IDC_SET_EVEN_TARGET);
    return false;
  }
  if (const Refusal refused = board_.SetSettings(s)) {
    // The focus goes to the key the refusal names first.
    const int control = refused->rfind("next page", 0) == 0       ? IDC_SET_NEXT_PAGE
                        : refused->rfind("previous page", 0) == 0 ? IDC_SET_PREVIOUS_PAGE
                        : refused->rfind("push-to-talk", 0) == 0  ? IDC_SET_PTT_KEY
                        : refused->rfind("even loudness", 0) == 0 ? IDC_SET_EVEN_TARGET
                                                                  : IDC_SET_STOP_HOTKEY;
    Refuse(tools::Wide(*refused), control);
    return false;
  }
  return true;
}

}  // namespace quillon::board
