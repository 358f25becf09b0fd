#include "board/MicrophoneRow.h"

#include "board/BoardCommands.h"
#include "common/ToolSupport.h"
#include "system/EffectCheck.h"
#include "system/ProtectedAudio.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>

namespace quillon::board {

std::wstring DescribeEffect(const system::EffectSettings& effect) {
  return L"Gain " + std::to_wstring(effect.gainDb) + L" dB" +
         (effect.blockVoice ? L"; your voice is muted while a sound plays" : L"");
}

void MicrophoneRow::Create(HWND parent) {
  const HINSTANCE instance = GetModuleHandleW(nullptr);
  const auto make = [&](const wchar_t* type, const wchar_t* text, DWORD style, int id) {
    return CreateWindowExW(0, type, text, WS_CHILD | style, 0, 0, 0, 0, parent, reinterpret_cast<HMENU>(id),
                           instance, nullptr);
  };
  label_ = make(WC_STATICW, L"&Microphone:", WS_VISIBLE | SS_CENTERIMAGE, 0);
  list_ = make(WC_COMBOBOXW, L"", WS_VISIBLE | WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST, kListId);
  effectText_ = make(WC_STATICW, L"", SS_CENTERIMAGE | SS_NOPREFIX | SS_ENDELLIPSIS, 0);
  effectButton_ = make(WC_BUTTONW, L"&Effect\u2026", WS_TABSTOP | BS_PUSHBUTTON, kEffect);
  attachButton_ = make(WC_BUTTONW, L"&Attach\u2026", WS_TABSTOP | BS_PUSHBUTTON, kAttach);
  fixButton_ = make(WC_BUTTONW, L"F&ix\u2026", WS_TABSTOP | BS_PUSHBUTTON, kFix);
  // They change what belongs to the computer.
  for (HWND button : {effectButton_, attachButton_, fixButton_}) Button_SetElevationRequiredState(button, TRUE);
}

int MicrophoneRow::Layout(const UiFont& font, int left, int top, int width) {
  const int gap = font.Scale(8);
  const int height = font.LineHeight() + font.Scale(10);
  const int labelWidth = font.CharWidth() * 12;
  const int buttonWidth = font.CharWidth() * 12 + font.Scale(24);  // room for the shield
  int effectWidth = 0;
  if (IsWindowVisible(effectText_)) {
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(effectText_)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(effectText_, text.data(), static_cast<int>(text.size()))));
    const HDC dc = GetDC(effectText_);
    const HGDIOBJ old = SelectObject(dc, font.Normal());
    SIZE size{};
    GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
    SelectObject(dc, old);
    ReleaseDC(effectText_, dc);
    effectWidth = size.cx + font.Scale(4);
  }
  const int buttons = (IsWindowVisible(effectButton_) || IsWindowVisible(attachButton_) ? 1 : 0) +
                      (IsWindowVisible(fixButton_) ? 1 : 0);
  const int right = buttons * (buttonWidth + gap) + (effectWidth ? effectWidth + gap : 0);
  // The list keeps room for a name; the effect's words give way first.
  const int listWidth = std::max(font.CharWidth() * 24, width - labelWidth - right);
  effectWidth = std::max(0, std::min(effectWidth, width - labelWidth - listWidth - gap - buttons * (buttonWidth + gap)));
  int x = left;
  MoveWindow(label_, x, top, labelWidth, height, TRUE);
  x += labelWidth;
  MoveWindow(list_, x, top, listWidth, height * 8, TRUE);
  x += listWidth + gap;
  MoveWindow(effectText_, x, top, effectWidth, height, TRUE);
  if (effectWidth > 0) x += effectWidth + gap;
  MoveWindow(effectButton_, x, top, buttonWidth, height, TRUE);
  MoveWindow(attachButton_, x, top, buttonWidth, height, TRUE);
  if (IsWindowVisible(effectButton_) || IsWindowVisible(attachButton_)) x += buttonWidth + gap;
  MoveWindow(fixButton_, x, top, buttonWidth, height, TRUE);
  return height;
}

void MicrophoneRow::Show(const std::wstring& chosen) {
  mics_ = ListMicChoices();
  ComboBox_ResetContent(list_);
  int selected = -1;
  for (size_t i = 0; i < mics_.size(); ++i) {
    const MicChoice& mic = mics_[i];
    const wchar_t* state = mic.state == MicChoice::State::Running    ? L""
                           : mic.state == MicChoice::State::Attached ? L" (not recording now)"
                                                                     : L" (not attached)";
    ComboBox_AddString(list_, (mic.name + state).c_str());
    if (_wcsicmp(mic.id.c_str(), chosen.c_str()) == 0 || _wcsicmp(mic.guid.c_str(), chosen.c_str()) == 0) {
      selected = static_cast<int>(i);
    }
  }
  // With none chosen yet, the first running one.
  if (selected < 0 && chosen.empty() && !mics_.empty() && mics_.front().state == MicChoice::State::Running) selected = 0;
  ComboBox_SetCurSel(list_, selected);

  const MicChoice* mic = Selected();
  const bool attached = mic != nullptr && mic->state != MicChoice::State::NotAttached;
  effect_ = system::ReadEffectSettings(attached ? mic->id : L"");
  SetWindowTextW(effectText_, attached ? DescribeEffect(effect_).c_str() : L"");
  ShowWindow(effectText_, attached ? SW_SHOW : SW_HIDE);
  ShowWindow(effectButton_, attached ? SW_SHOW : SW_HIDE);
  ShowWindow(attachButton_, mic != nullptr && !attached ? SW_SHOW : SW_HIDE);
  // A microphone whose effect runs now needs no check: the audio engine runs Quillon for it.
  Check(mic != nullptr && mic->state == MicChoice::State::Attached ? mic : nullptr);
}

void MicrophoneRow::Check(const MicChoice* mic) {
  problem_.clear();
  fixable_ = false;
  for (const system::Endpoint& endpoint : mic ? system::ReadEndpoints(system::Flow::kCapture)
                                              : std::vector<system::Endpoint>()) {
    if (system::Lowercase(endpoint.guid) != system::Lowercase(mic->guid)) continue;
    // Without recording: whether the effect runs is read from the running effects only.
    const system::CheckReport report =
        system::CheckEffect({endpoint}, QUILLON_VERSION_TEXT, system::WindowsBuild(), false);
    if (!system::Passed(report)) problem_ = tools::Wide(system::Verdict(report));
    fixable_ = system::CountProblems(report, true) > 0;
  }
  ShowWindow(fixButton_, fixable_ ? SW_SHOW : SW_HIDE);
}

const MicChoice* MicrophoneRow::Selected() const {
  const int selected = ComboBox_GetCurSel(list_);
  return selected >= 0 && static_cast<size_t>(selected) < mics_.size() ? &mics_[static_cast<size_t>(selected)] : nullptr;
}

}  // namespace quillon::board
