// An effect of an older version, as a separate process: it marks its slot in
// use with its endpoint text first and writes the stream format only after
// `delayMs` (float32, 48 kHz, stereo). Then it takes every block at once
// until it received `expected` samples, checks them against the counting
// ramp the player sends ((k + 1) / 65536), and unregisters.
//
//   quillon_test_old_effect <endpoint> <delayMs> <expected>
//
// "QuillonTestPublished" is signalled once the slot is in use without a
// format. Exit codes: 0 all received and right, 1 wrong samples, 4 timed out.
#include "platform/AudioMediaType.h"
#include "platform/MappedView.h"
#include "platform/NamedMutexLock.h"
#include "transfer/SharedLayout.h"
#include "transfer/WinUtils.h"

#include <windows.h>
#include <shellapi.h>

#include <cwchar>
#include <string>

using namespace quillon;

namespace {

HANDLE CreateShared(const wchar_t* prefix, int32_t slot) {
  return CreateEventExW(WinUtils::GetNullDaclSecurityAttributes(), WinUtils::PerInstanceName(prefix, slot).c_str(),
                        CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS);
}

bool MapShared(MappedView& view, const std::wstring& name, size_t size) {
  return view.Map(UniqueHandle(CreateFileMappingW(INVALID_HANDLE_VALUE, WinUtils::GetNullDaclSecurityAttributes(),
                                                  PAGE_READWRITE, 0, static_cast<DWORD>(size), name.c_str())),
                  size);
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argc != 4) return 2;
  const std::wstring endpoint = argv[1];
  const DWORD delayMs = wcstoul(argv[2], nullptr, 10);
  const size_t expected = wcstoul(argv[3], nullptr, 10);

  MappedView registerView, transferView;
  if (!MapShared(registerView, kRegisterMappingName, sizeof(RegisterBlock))) return 3;
  auto* reg = reinterpret_cast<RegisterBlock*>(registerView.Get());
  int32_t slot = -1;
  {
    NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
    for (int32_t i = 0; i < kMaxInstances && slot < 0; ++i) {
      if (reg->inUse[i] == 0) slot = i;
    }
    if (slot < 0 || !MapShared(transferView, WinUtils::PerInstanceName(kTransferMappingPrefix, slot),
                               sizeof(TransferBlock))) {
      return 3;
    }
    reg->inUse[slot] = 1;
    wcsncpy(reg->endpointIds[slot], endpoint.c_str(), kEndpointIdChars - 1);
  }
  auto* block = reinterpret_cast<TransferBlock*>(transferView.Get());
  UniqueHandle look(CreateShared(kChunkConsumedEventPrefix, slot));
  UniqueHandle looked(CreateShared(kControlEventPrefix, slot));
  UniqueHandle published(CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestPublished"));
  SetEvent(published.Get());

  Sleep(delayMs);
  block->format = MakeFloatFormat(2, 48000.0f);

  size_t received = 0;
  bool right = true;
  const std::wstring mutexName = WinUtils::PerInstanceName(kTransferMutexPrefix, slot);
  while (received < expected && WaitForSingleObject(look.Get(), 20000) == WAIT_OBJECT_0) {
    ResetEvent(look.Get());
    {
      NamedMutexLock lock(mutexName.c_str(), kSharedMutexWaitMs);
      if (block->dataReady == 1) {
        const size_t n = block->byteCount / sizeof(float);
        for (size_t i = 0; i < n; ++i) right = right && block->samples[i] == (received + i + 1) / 65536.0f;
        received += n;
        block->dataReady = 0;
      }
    }
    SetEvent(looked.Get());
  }
  {
    NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
    block->instanceClosed = 1;
    reg->inUse[slot] = 0;
  }
  SetEvent(looked.Get());
  if (received != expected) return 4;
  return right ? 0 : 1;
}
