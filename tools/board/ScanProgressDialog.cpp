#include "board/ScanProgressDialog.h"

#include <commctrl.h>

#include <string>

namespace quillon::board {

void ScanProgressDialog::Show(HWND owner) {
  TASKDIALOGCONFIG config{sizeof(config)};
  config.hwndParent = owner;
  config.dwFlags = TDF_SHOW_PROGRESS_BAR | TDF_CALLBACK_TIMER | TDF_ALLOW_DIALOG_CANCELLATION | TDF_POSITION_RELATIVE_TO_WINDOW;
  config.dwCommonButtons = TDCBF_CANCEL_BUTTON;
  config.pszWindowTitle = L"Adding sounds";
  config.pszMainInstruction = L"Adding sounds";
  config.pszContent = L"Looking at the files\u2026";
  config.pfCallback = &ScanProgressDialog::Callback;
  config.lpCallbackData = reinterpret_cast<LONG_PTR>(this);
  TaskDialogIndirect(&config, nullptr, nullptr, nullptr);
}

HRESULT CALLBACK ScanProgressDialog::Callback(HWND dialog, UINT notification, WPARAM wParam, LPARAM, LONG_PTR data) {
  auto* self = reinterpret_cast<ScanProgressDialog*>(data);
  switch (notification) {
    case TDN_CREATED:
    case TDN_TIMER: self->Update(dialog); return S_OK;
    case TDN_BUTTON_CLICKED:
      // Cancel by the user (not the close below once the scan is done): the scan stops at its next file.
      if (static_cast<int>(wParam) == IDCANCEL && !self->closing_) self->scan_.Cancel();
      return S_OK;
    default: return S_OK;
  }
}

void ScanProgressDialog::Update(HWND dialog) {
  const FolderScan::Progress now = scan_.Now();
  if (now.stage == FolderScan::Stage::Done) {
    closing_ = true;
    SendMessageW(dialog, TDM_CLICK_BUTTON, IDCANCEL, 0);
    return;
  }
  const size_t total = now.found > 0 ? now.found : 1;
  SendMessageW(dialog, TDM_SET_PROGRESS_BAR_RANGE, 0, MAKELPARAM(0, 1000));
  SendMessageW(dialog, TDM_SET_PROGRESS_BAR_POS, static_cast<WPARAM>(now.read * 1000 / total), 0);
  const std::wstring text = L"Looked at " + std::to_wstring(now.read) + L" of " + std::to_wstring(now.found) +
                            L" files; only those that open as sound are added.";
  SendMessageW(dialog, TDM_SET_ELEMENT_TEXT, TDE_CONTENT, reinterpret_cast<LPARAM>(text.c_str()));
}

}  // namespace quillon::board
