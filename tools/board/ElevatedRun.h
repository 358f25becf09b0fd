// Runs quillon.exe (beside this program) as Administrator, through the
// elevation prompt and without a console window, for what lives in HKLM:
// attaching to a microphone and the effect's settings. The window hears that
// the run ended by a message, so the UI thread never waits for it.
#pragma once

#include "platform/UniqueResource.h"

#include <windows.h>

#include <string>

namespace quillon::board {

// A wait registered with the thread pool. Unregistering waits for a callback
// under way, so that none runs after its owner is gone.
struct PoolWaitTraits {
  using Type = HANDLE;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type w) { return w != nullptr; }
  static void Close(Type w) { UnregisterWaitEx(w, INVALID_HANDLE_VALUE); }
};

class ElevatedRun {
 public:
  // `message` is posted to `window` when a run ends.
  ElevatedRun(HWND window, UINT message) : window_(window), message_(message) {}
  ElevatedRun(const ElevatedRun&) = delete;
  ElevatedRun& operator=(const ElevatedRun&) = delete;
  // Stops watching (wait_ goes first); a run still going goes on by itself.
  ~ElevatedRun() = default;

  // Starts `quillon <arguments>`. False when it did not start, with the
  // system's code in `error` (ERROR_CANCELLED: the prompt was declined).
  bool Start(const std::wstring& arguments, DWORD& error);
  bool Running() const;
  // After the message: the exit code of the run that ended. Forgets the run.
  DWORD Finish();

 private:
  static void CALLBACK Ended(void* self, BOOLEAN timedOut);

  HWND window_;
  UINT message_;
  UniqueHandle process_;
  UniqueResource<PoolWaitTraits> wait_;  // on process_; declared after it, so released before it
};

}  // namespace quillon::board
