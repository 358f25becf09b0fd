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

// The same, handling this thread's window messages meanwhile, so that its
// windows get their input as a running program's do.
template <typename Condition>
bool PumpUntil(Condition condition, DWORD timeoutMs = 30000) {
  return PollUntil(
      [&] {
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
          TranslateMessage(&msg);
          DispatchMessageW(&msg);
        }
        return condition();
      },
      timeoutMs);
}

}  // namespace quillon::test
