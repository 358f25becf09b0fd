#include "player/PlayerClient.h"

#include "transfer/NamedMutex.h"
#include "transfer/WinUtils.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace quillon::player {
namespace {

using Clock = std::chrono::steady_clock;
constexpr DWORD kAskAgainMs = 50;

DWORD Remaining(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<DWORD>(left) : 0;
}

}  // namespace

std::vector<RegisterEntry> ReadRegister() {
  std::vector<RegisterEntry> entries;
  MappedView view;
  if (!view.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kRegisterMappingName)),
                sizeof(RegisterBlock))) {
    return entries;
  }
  const auto* reg = reinterpret_cast<const RegisterBlock*>(view.Get());
  NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
  for (int32_t slot = 0; slot < kMaxInstances; ++slot) {
    const wchar_t* text = reg->endpointIds[slot];
    entries.push_back({slot, reg->inUse[slot] != 0, std::wstring(text, wcsnlen(text, kEndpointIdChars))});
  }
  return entries;
}

bool PlayerClient::Connect(const std::wstring& endpoint, DWORD timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  do {
    int32_t found = -1, inUse = 0;
    for (const RegisterEntry& e : ReadRegister()) {
      if (!e.inUse) continue;
      ++inUse;
      if (endpoint.empty() || e.endpoint == endpoint) found = e.slot;
    }
    if (found >= 0 && (!endpoint.empty() || inUse == 1)) {
      slot_ = found;
      SECURITY_ATTRIBUTES* shared = WinUtils::GetNullDaclSecurityAttributes();
      const std::wstring name = WinUtils::PerInstanceName(kTransferMappingPrefix, slot_);
      if (!view_.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str())),
                     sizeof(TransferBlock))) {
        return false;
      }
      controlEvent_.Reset(CreateEventExW(shared, WinUtils::PerInstanceName(kControlEventPrefix, slot_).c_str(),
                                         CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
      chunkConsumedEvent_.Reset(CreateEventExW(shared,
                                               WinUtils::PerInstanceName(kChunkConsumedEventPrefix, slot_).c_str(),
                                               CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
      stopEvent_.Reset(CreateEventExW(shared, kStopEventName, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
      return controlEvent_ && stopEvent_;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  } while (Clock::now() < deadline);
  return false;
}

std::wstring PlayerClient::TransferMutexName() const {
  return WinUtils::PerInstanceName(kTransferMutexPrefix, slot_);
}

bool PlayerClient::InstanceClosed() const {
  if (*static_cast<volatile uint32_t*>(&Block()->instanceClosed) != 1) return false;
  // A slot taken again keeps the old mark until its first block: ask the register too.
  for (const RegisterEntry& e : ReadRegister()) {
    if (e.slot == slot_) return !e.inUse;
  }
  return true;
}

SendResult PlayerClient::Send(const void* data, uint32_t byteCount, DWORD timeoutMs, HANDLE written) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  {
    NamedMutexLock lock(TransferMutexName().c_str(), kSharedMutexWaitMs);
    if (lock.WaitResult() == WAIT_TIMEOUT) return SendResult::MutexBusy;
    std::memcpy(Block()->samples, data, std::min(byteCount, TransferBlock::kMaxBytes));
    Block()->byteCount = byteCount;
    Block()->dataReady = 1;
  }
  if (written != nullptr) SetEvent(written);
  SetEvent(chunkConsumedEvent_.Get());
  while (true) {
    // The effect sets the control event after every look at the mapping. A look
    // that left the block waiting (the queue held a chunk) is followed by
    // another at the next chunk taken, so only a silent effect is asked again:
    // asking after every look would keep both sides busy while the queue is full.
    const bool looked =
        WaitForSingleObject(controlEvent_.Get(), std::min<DWORD>(kAskAgainMs, Remaining(deadline))) == WAIT_OBJECT_0;
    ResetEvent(controlEvent_.Get());
    {
      NamedMutexLock lock(TransferMutexName().c_str(), kSharedMutexWaitMs);
      if (Block()->dataReady == 0) return SendResult::Accepted;
    }
    if (InstanceClosed()) return SendResult::Closed;
    if (Remaining(deadline) == 0) return SendResult::Timeout;
    // Nobody looked for a while (the stream had not started yet): ask again.
    if (!looked) SetEvent(chunkConsumedEvent_.Get());
  }
}

bool PlayerClient::Stop(DWORD timeoutMs) {
  ResetEvent(stopEvent_.Get());
  Block()->stopRequest = 1;
  const bool stopped = WaitForSingleObject(stopEvent_.Get(), timeoutMs) == WAIT_OBJECT_0;
  Block()->stopRequest = 0;
  return stopped;
}

bool PlayerClient::WaitClosed(DWORD timeoutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!InstanceClosed()) {
    if (Remaining(deadline) == 0) return false;
    WaitForSingleObject(controlEvent_.Get(), std::min<DWORD>(50, Remaining(deadline)));
  }
  return true;
}

}  // namespace quillon::player
