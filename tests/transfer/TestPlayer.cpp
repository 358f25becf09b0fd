// The player application's part in the transfer tests, as a separate process.
//
//   send <endpoint> <samples> <blockSamples>   sends samples k = (k + 1) / 65536 in blocks;
//                                              signals "QuillonTestFirstBlock" when the first is ready
//   raw <endpoint> <byteCount>                 one block with this byte count
//   stop <endpoint>                            raises the stop request, waits for the stop event
//   wait-closed <endpoint>                     waits until the instance unregisters
//   hold <endpoint> <ms>                       holds the transfer mutex for <ms>
//   die-holding <endpoint>                     takes the transfer mutex and exits owning it
// Exit codes: 0 done, 3 instance closed, 4 timed out, 5 no such instance, 6 mutex busy, 2 bad call.
// "QuillonTestPlayerReady" is signalled once the player has found its instance.
#include "player/PlayerClient.h"

#include <windows.h>
#include <shellapi.h>

#include <cwchar>
#include <string>
#include <vector>

using namespace quillon;
using namespace quillon::player;

namespace {

void Signal(const wchar_t* name) {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, name);
  SetEvent(event);
  CloseHandle(event);
}

int ExitCodeOf(SendResult r) {
  switch (r) {
    case SendResult::Accepted: return 0;
    case SendResult::Closed: return 3;
    case SendResult::Timeout: return 4;
    case SendResult::MutexBusy: return 6;
  }
  return 2;
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argc < 3) return 2;
  const std::wstring mode = argv[1];
  PlayerClient player;
  if (!player.Connect(argv[2], 20000)) return 5;
  Signal(L"QuillonTestPlayerReady");

  if (mode == L"send" && argc == 5) {
    const size_t total = wcstoul(argv[3], nullptr, 10);
    const size_t blockSamples = wcstoul(argv[4], nullptr, 10);
    HANDLE first = CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestFirstBlock");
    std::vector<float> block(blockSamples);
    for (size_t sent = 0; sent < total;) {
      const size_t n = std::min(blockSamples, total - sent);
      for (size_t i = 0; i < n; ++i) block[i] = static_cast<float>(sent + i + 1) / 65536.0f;
      SendResult r = player.Send(block.data(), static_cast<uint32_t>(n * sizeof(float)), 30000,
                                 sent == 0 ? first : nullptr);
      if (r != SendResult::Accepted) return ExitCodeOf(r);
      sent += n;
    }
    CloseHandle(first);
    return 0;
  }
  if (mode == L"raw" && argc == 4) {
    const uint32_t bytes = wcstoul(argv[3], nullptr, 10);
    std::vector<float> data(TransferBlock::kMaxSamples);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<float>(i + 1) / 65536.0f;
    return ExitCodeOf(player.Send(data.data(), bytes, 30000));
  }
  if (mode == L"stop") return player.Stop(30000) ? 0 : 4;
  if (mode == L"wait-closed") return player.WaitClosed(30000) ? 0 : 4;
  if (mode == L"hold" && argc == 4) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, player.TransferMutexName().c_str());
    WaitForSingleObject(mutex, 10000);
    Signal(L"QuillonTestPlayerHolding");
    Sleep(wcstoul(argv[3], nullptr, 10));
    ReleaseMutex(mutex);
    CloseHandle(mutex);
    return 0;
  }
  if (mode == L"die-holding") {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, player.TransferMutexName().c_str());
    WaitForSingleObject(mutex, 10000);
    Signal(L"QuillonTestPlayerHolding");
    ExitProcess(0);  // the mutex is left owned: the receiver sees it abandoned
  }
  return 2;
}
