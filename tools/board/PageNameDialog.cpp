#include "board/PageNameDialog.h"

#include "board/BoardResources.h"
#include "common/ToolSupport.h"

namespace quillon::board {

bool PageNameDialog::Ask(HWND owner) { return Run(owner, IDD_PAGE_NAME); }

BOOL PageNameDialog::OnInit() {
  SetWindowTextW(hwnd_, title_.c_str());
  SetDlgItemTextW(hwnd_, IDC_PAGE_NAME, name_.c_str());
  SendDlgItemMessageW(hwnd_, IDC_PAGE_NAME, EM_SETSEL, 0, -1);
  return TRUE;
}

bool PageNameDialog::OnOk() {
  if (const Refusal refused = apply_(tools::Utf8(ItemText(IDC_PAGE_NAME)))) {
    Refuse(tools::Wide(*refused), IDC_PAGE_NAME);
    return false;
  }
  return true;
}

}  // namespace quillon::board
