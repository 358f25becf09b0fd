// The microphones the board offers: those whose effect runs now, then every
// capture endpoint Windows knows, each with whether Quillon is attached to it.
#pragma once

#include <string>
#include <vector>

namespace quillon::board {

struct MicChoice {
  enum class State { Running, Attached, NotAttached } state;
  std::wstring id;    // what the board file keeps and the player looks for
  std::wstring guid;  // what `quillon attach` takes
  std::wstring name;  // the friendly name, or the id
};

std::vector<MicChoice> ListMicChoices();

// The status bar's words for a chosen microphone that does not play yet.
std::wstring Explain(const MicChoice& mic);

}  // namespace quillon::board
