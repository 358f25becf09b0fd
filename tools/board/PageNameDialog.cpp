#include "board/PageNameDialog.h"

#include "board/BoardResources.h"
#include "common/ToolSupport.h"

namespace quillon::board {

bool PageNameDialog::Ask(HWND owner) { return Run(owner, IDD_PAGE_NAME); }

BOOL PageNameDialog::OnInit() {
  SetWindowTextW(hwnd_, title_.c_str());
  SetDlgItemTextW(hwnd_, IDC_PAGE_NAME, name_.c_str());
  SendDlgItemMessageW(hwnd_, IDC_PAGE_NAME, EM_SETSEL, 0, -1);
  CheckDlgButton(hwnd_, IDC_PAGE_ONLY_SHOWN, onlyWhenShown_ ? BST_CHECKED : BST_UNCHECKED);
  return TRUE;
}

bool PageNameDialog::OnOk() {
  const bool only = IsDlgButtonChecked(hwnd_, IDC_PAGE_ONLY_SHOWN) == BST_CHECKED;
  if (const Refusal refused = apply_(tools::Utf8(ItemText(IDC_PAGE_NAME)), only)) {
    Refuse(tools::Wide(*refused), refused->rfind("page \u201C", 0) == 0 ? IDC_PAGE_ONLY_SHOWN : IDC_PAGE_NAME);
    return false;
  }
  return true;
}

}  // namespace quillon::board
