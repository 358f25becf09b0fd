// The player application's part in the transfer tests, as a separate process.
//
//   send <endpoint> <samples> <blockSamples>   sends samples k = (k + 1) / 65536 in blocks;
//                                              signals "QuillonTestFirstBlock" when the first is ready
//   raw <endpoint> <byteCount>                 one block with this byte count
//   stop <endpoint>                            raises the stop request, waits for the stop event
//   wait-closed <endpoint>                     waits until the instance unregisters
//   hold <endpoint> <ms>                       holds the transfer mutex for <ms>
//   die-holding <endpoint>                     takes the transfer mutex and exits owning it
//   watch-format                               see WatchFormat()
// Exit codes: 0 done, 3 instance closed, 4 timed out, 5 no such instance, 6 mutex busy, 2 bad call.
// "QuillonTestPlayerReady" is signalled once the player has found its instance.
#include "player/PlayerClient.h"
#include "platform/NamedMutexLock.h"
#include "transfer/WinUtils.h"

#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstring>
#include <cstdio>
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

int ExitCodeOf(PlayerStatus s) {
  switch (s) {
    case PlayerStatus::Ok: return 0;
    case PlayerStatus::Closed: return 3;
    case PlayerStatus::Timeout: return 4;
    case PlayerStatus::MutexBusy: return 6;
    default: return 7;
  }
}

// A block with any byte count, as a player that does not keep to whole
// samples writes it; waits until the effect took it.
int SendRaw(PlayerClient& player, uint32_t bytes) {
  std::vector<float> data(TransferBlock::kMaxSamples);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<float>(i + 1) / 65536.0f;
  TransferBlock* block = player.Block();
  {
    NamedMutexLock lock(player.TransferMutexName().c_str(), kSharedMutexWaitMs);
    std::memcpy(block->samples, data.data(), std::min(bytes, TransferBlock::kMaxBytes));
    block->byteCount = bytes;
    block->dataReady = 1;
  }
  const UniqueHandle look(OpenEventW(EVENT_MODIFY_STATE, FALSE,
                                     WinUtils::PerInstanceName(kChunkConsumedEventPrefix, player.Slot()).c_str()));
  for (int i = 0; i < 3000 && *static_cast<volatile uint32_t*>(&block->dataReady) != 0; ++i) {
    SetEvent(look.Get());
    Sleep(10);
  }
  return block->dataReady == 0 ? 0 : 4;
}

// Watches slot 0 as a player that polls the register does: each time the
// slot is seen in use, its mapping must already hold a usable format. The
// watcher holds the mapping itself (so it outlives every registration) and
// clears the format while the slot is free, so that each registration's own
// write is what it sees. Ends when "QuillonTestWatchEnd" is set.
int WatchFormat() {
  MappedView reg, transfer;
  SECURITY_ATTRIBUTES* shared = WinUtils::GetNullDaclSecurityAttributes();
  auto map = [&](MappedView& view, const std::wstring& name, DWORD size) {
    return view.Map(UniqueHandle(CreateFileMappingW(INVALID_HANDLE_VALUE, shared, PAGE_READWRITE, 0, size,
                                                    name.c_str())),
                    size);
  };
  if (!map(reg, kRegisterMappingName, sizeof(RegisterBlock)) ||
      !map(transfer, WinUtils::PerInstanceName(kTransferMappingPrefix, 0), sizeof(TransferBlock))) {
    return 3;
  }
  const auto* slots = reinterpret_cast<const RegisterBlock*>(reg.Get());
  auto* block = reinterpret_cast<TransferBlock*>(transfer.Get());
  UniqueHandle end(CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestWatchEnd"));
  Signal(L"QuillonTestPlayerReady");
  long inUse = 0, withoutFormat = 0;
  while (WaitForSingleObject(end.Get(), 0) == WAIT_TIMEOUT) {
    NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
    if (*static_cast<const volatile uint8_t*>(&slots->inUse[0]) != 0) {
      ++inUse;
      if (!IsUsableFormat(block->format)) ++withoutFormat;
    } else {
      std::memset(&block->format, 0, sizeof(block->format));
    }
  }
  std::printf("slot 0 seen in use %ld times, %ld of them without a format\n", inUse, withoutFormat);
  return inUse > 0 && withoutFormat == 0 ? 0 : 1;
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argc < 2) return 2;
  const std::wstring mode = argv[1];
  if (mode == L"watch-format") return WatchFormat();
  PlayerClient player;
  if (argc < 3) return 2;
  if (player.Connect(argv[2], 20000) != PlayerStatus::Ok) return 5;
  Signal(L"QuillonTestPlayerReady");

  if (mode == L"send" && argc == 5) {
    const size_t total = wcstoul(argv[3], nullptr, 10);
    const size_t blockSamples = wcstoul(argv[4], nullptr, 10);
    HANDLE first = CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestFirstBlock");
    std::vector<float> block(blockSamples);
    for (size_t sent = 0; sent < total;) {
      const size_t n = std::min(blockSamples, total - sent);
      for (size_t i = 0; i < n; ++i) block[i] = static_cast<float>(sent + i + 1) / 65536.0f;
      PlayerStatus r = player.Send(block.data(), n, 30000, sent == 0 ? first : nullptr);
      if (r != PlayerStatus::Ok) return ExitCodeOf(r);
      sent += n;
    }
    CloseHandle(first);
    return 0;
  }
  if (mode == L"raw" && argc == 4) return SendRaw(player, wcstoul(argv[3], nullptr, 10));
  if (mode == L"stop") return ExitCodeOf(player.Stop(30000));
  if (mode == L"wait-closed") return player.WaitClosed(30000) == PlayerStatus::Closed ? 0 : 4;
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
