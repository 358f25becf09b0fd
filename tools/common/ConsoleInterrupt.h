// Ctrl+C, Ctrl+Break and a closing console window, turned into one event that
// a tool waits on beside its other work, so that it can clean up and exit 130.
#pragma once

#include <windows.h>

namespace quillon::tools {

constexpr int kExitInterrupted = 130;

class ConsoleInterrupt {
 public:
  // Installs the console handler for this process (one at a time).
  ConsoleInterrupt();
  // Lets a handler that holds a closing console open return, and removes it.
  ~ConsoleInterrupt();
  ConsoleInterrupt(const ConsoleInterrupt&) = delete;
  ConsoleInterrupt& operator=(const ConsoleInterrupt&) = delete;

  // Manual-reset event, set once the user interrupted.
  HANDLE Event() const;
  bool Raised() const { return WaitForSingleObject(Event(), 0) == WAIT_OBJECT_0; }
};

}  // namespace quillon::tools
