// The progress of adding folders of sounds: Windows' task dialog with a
// progress bar and Cancel, shown while a FolderScan reads its files. It
// closes itself when the scan is done; Cancel cancels the scan.
#pragma once

#include "board/FolderScan.h"

#include <windows.h>

namespace quillon::board {

class ScanProgressDialog {
 public:
  explicit ScanProgressDialog(FolderScan& scan) : scan_(scan) {}
  // Until the scan is done or cancelled.
  void Show(HWND owner);

 private:
  static HRESULT CALLBACK Callback(HWND dialog, UINT notification, WPARAM wParam, LPARAM lParam, LONG_PTR self);
  void Update(HWND dialog);

  FolderScan& scan_;
  bool closing_ = false;
};

}  // namespace quillon::board
