// Bounded polling for what another thread or process does.
#pragma once

#include <windows.h>

#include <chrono>

namespace quillon::test {

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
