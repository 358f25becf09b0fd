#include "common/ConsoleInterrupt.h"

#include "platform/UniqueResource.h"

namespace quillon::tools {
namespace {

UniqueHandle g_interrupted;
UniqueHandle g_cleanedUp;

// Windows ends the process as soon as this returns for a closing console, a
// log-off or a shutdown: it then holds on until the tool has cleaned up.
BOOL WINAPI OnConsoleEvent(DWORD type) {
  SetEvent(g_interrupted.Get());
  if (type == CTRL_CLOSE_EVENT || type == CTRL_LOGOFF_EVENT || type == CTRL_SHUTDOWN_EVENT) {
    WaitForSingleObject(g_cleanedUp.Get(), 4000);
  }
  return TRUE;
}

}  // namespace

ConsoleInterrupt::ConsoleInterrupt() {
  g_interrupted.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  g_cleanedUp.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  // A parent that started this tool in a process group of its own turned
  // Ctrl+C off for it; a person at the console still expects it to work.
  SetConsoleCtrlHandler(nullptr, FALSE);
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
}

ConsoleInterrupt::~ConsoleInterrupt() {
  SetEvent(g_cleanedUp.Get());
  SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
}

HANDLE ConsoleInterrupt::Event() const { return g_interrupted.Get(); }

}  // namespace quillon::tools
