// Asks for a page's name, and stays open with the board's reason while the
// name is refused (empty, or taken by another page).
#pragma once

#include "board/Board.h"
#include "board/DialogClass.h"

#include <functional>

namespace quillon::board {

class PageNameDialog : public DialogClass<PageNameDialog> {
 public:
  // `apply` makes the change, or says why not.
  PageNameDialog(std::wstring title, std::wstring name, std::function<Refusal(const std::string&)> apply)
      : title_(std::move(title)), name_(std::move(name)), apply_(std::move(apply)) {}
  bool Ask(HWND owner);

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int, int) { return FALSE; }

 private:
  std::wstring title_, name_;
  std::function<Refusal(const std::string&)> apply_;
};

}  // namespace quillon::board
