#include "transfer/MemMappingRegister.h"

#include "diag/Logger.h"
#include "platform/NamedMutexLock.h"
#include "transfer/WinUtils.h"

#include <cstring>
#include <cwchar>

namespace quillon {

MemMappingRegister::MemMappingRegister() {
  // The lock is best effort: the wait's result is not examined.
  NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
  WinUtils::CreateMemoryMappingFile(view, sizeof(RegisterBlock), kRegisterMappingName);
}

MemMappingRegister::~MemMappingRegister() {
  // The views themselves are unmapped and closed by their owners.
  if (!view) return;
  NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
  if (static_cast<uint32_t>(slot) < static_cast<uint32_t>(kMaxInstances)) Register()->inUse[slot] = 0;
}

LineResult MemMappingRegister::RegisterApo(const std::wstring& endpointId, const UNCOMPRESSEDAUDIOFORMAT& format) {
  constexpr const wchar_t* kFunction = L"MemMappingRegister::RegisterApo";
  NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
  if (!view) {
    QLOG(LOG_ERROR, kFunction, L"APO mem map register was not created.");
    return {1, __LINE__};
  }
  RegisterBlock* reg = Register();
  int32_t free = -1;
  for (int32_t i = 0; i < kMaxInstances && free < 0; ++i) {
    if (reg->inUse[i] == 0) free = i;
  }
  if (free < 0) {
    QLOG(LOG_ERROR, kFunction, L"Cannot register APO instance. The amount is limited to %d", kMaxInstances);
    return {1, __LINE__};
  }
  // An endpoint text that does not fit the slot is refused cleanly.
  if (endpointId.size() >= kEndpointIdChars) return {static_cast<int32_t>(E_INVALIDARG), __LINE__};

  slot = free;
  const std::wstring name = WinUtils::PerInstanceName(kTransferMappingPrefix, slot);
  LineResult result = WinUtils::CreateMemoryMappingFile(transfer.view, sizeof(TransferBlock), name.c_str());
  if (!result.Ok()) {
    slot = -1;
    return result;
  }
  // The format first: a player treats a slot as ready once it is in use.
  std::memcpy(&transfer.Block()->format, &format, sizeof(format));
  reg->inUse[slot] = 1;
  reg->slotWordA[slot] = kSlotWordA;
  reg->slotWordB[slot] = kSlotWordB;
  wcsncpy(reg->endpointIds[slot], endpointId.c_str(), kEndpointIdChars - 1);
  reg->endpointIds[slot][kEndpointIdChars - 1] = L'\0';
  return {0, __LINE__};
}

}  // namespace quillon
