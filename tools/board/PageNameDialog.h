// Asks for a page's name and whether its hotkeys work only while it is
// shown, and stays open with the board's reason while they are refused (an
// empty name or one taken by another page; a key another page shares).
#pragma once

#include "board/Board.h"
#include "board/DialogClass.h"

#include <functional>

namespace quillon::board {

class PageNameDialog : public DialogClass<PageNameDialog> {
 public:
  // `apply` makes the change (the name, the page's hotkeys only while shown), or says why not.
  PageNameDialog(std::wstring title, std::wstring name, bool onlyWhenShown,
                 std::function<Refusal(const std::string&, bool)> apply)
      : title_(std::move(title)), name_(std::move(name)), onlyWhenShown_(onlyWhenShown), apply_(std::move(apply)) {}
  bool Ask(HWND owner);

  BOOL OnInit();
  bool OnOk();
  BOOL OnCommand(int, int) { return FALSE; }

 private:
  std::wstring title_, name_;
  bool onlyWhenShown_;
  std::function<Refusal(const std::string&, bool)> apply_;
};

}  // namespace quillon::board
