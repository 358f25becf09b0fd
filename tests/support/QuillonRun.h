// Running the tools as a user does, in processes of their own: `quillon`
// commands with their output and exit code, and quillon-host as the engine.
#pragma once

#include "player/PlayerClient.h"
#include "support/ChildProcess.h"
#include "support/SharedFiles.h"

#include <chrono>
#include <string>

namespace quillon::test {

struct CommandResult {
  long exit = -1;
  std::string text;  // standard output and error together, LF line ends
};

// `quillon <args>`, waited for at most `timeoutMs`.
// `program` may name another copy of quillon.exe; `token` runs it as another user.
inline CommandResult RunQuillon(const std::wstring& args, DWORD timeoutMs = 60000,
                                const std::wstring& program = L"quillon.exe", HANDLE token = nullptr) {
  const std::wstring output = ExecutableFolder() + L"quillon-command-out.txt";
  CommandResult result;
  {
    ChildProcess quillon(program, args, output, 0, token);
    result.exit = quillon.Wait(timeoutMs);
  }
  // Lines end in CR LF, as Windows text does; the tests compare LF lines.
  for (char c : ReadText(output)) {
    if (c != '\r') result.text += c;
  }
  return result;
}

// The slot an endpoint's instance holds now, or -1.
inline int32_t SlotOf(const std::wstring& endpoint) {
  for (const player::RegisterEntry& e : player::ReadRegister()) {
    if (e.inUse && e.endpoint == endpoint) return e.slot;
  }
  return -1;
}

// Polls `condition` every 2 ms until it holds or `timeoutMs` passed.
template <typename Condition>
bool PollUntil(Condition condition, DWORD timeoutMs = 30000) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    Sleep(2);
  }
  return true;
}

}  // namespace quillon::test
