// The sound receiver thread: each time the real-time routine has taken a chunk,
// it looks at the slot's transfer mapping under the transfer mutex and moves a
// waiting block into the queue while the queue holds less than one chunk.
#include "effect/Quillon.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "transfer/NamedMutex.h"
#include "transfer/WinUtils.h"

#include <algorithm>

namespace quillon {
namespace {
constexpr const wchar_t* kFunction = L"Quillon::SoundReceiverTask";
}  // namespace

void Quillon::SoundReceiverTask(Quillon* effect) {
  QLOG(LOG_TRACE, kFunction, L"%s: Sound receiver thread started", effect->instanceName.c_str());
  const std::wstring mutexName = WinUtils::PerInstanceName(kTransferMutexPrefix, effect->instanceIndex);
  while (effect->receiverRunning) {
    const DWORD wait = WaitForSingleObject(effect->chunkConsumedEvent.Get(), INFINITE);
    if (!effect->receiverRunning) break;
    if (wait == WAIT_OBJECT_0) {
      ResetEvent(effect->chunkConsumedEvent.Get());
      effect->ReceiveOnce(mutexName);
    } else if (wait != WAIT_TIMEOUT) {
      QLOG(LOG_TRACE, kFunction, L"%s: wait failed [Code = %x:%s]", effect->instanceName.c_str(), wait,
           GetErrorDescription(wait).c_str());
      effect->receiverRunning = false;
      break;
    }
  }
  QLOG(LOG_TRACE, kFunction, L"%s: Sound receiver thread finished", effect->instanceName.c_str());
}

// One look at the mapping.
void Quillon::ReceiveOnce(const std::wstring& mutexName) {
  bool lookedAt = false;
  {
    NamedMutexLock lock(mutexName.c_str(), kSharedMutexWaitMs);
    if (lock.WaitResult() == WAIT_TIMEOUT) {
      // The block stays in the mapping until the next chunk is taken.
      QLOG(LOG_ERROR, kFunction, L"%s: Failed to open transfer mutex [Code=%x: %s]", instanceName.c_str(), 0,
           GetErrorDescription(0).c_str());
    } else {
      // Owned or abandoned: the mapping is ours to read.
      lookedAt = true;
      TransferBlock* block = controlView != nullptr ? controlView->Block() : nullptr;
      if (block != nullptr && block->dataReady == 1) {
        const uint32_t bytes = std::min(block->byteCount, TransferBlock::kMaxBytes);
        if (AcceptReceivedBlock(block->samples, bytes / sizeof(float))) {
          block->instanceClosed = 0;
          block->dataReady = 0;
          QLOG(LOG_TRACE, kFunction, L"%s: Received %d bytes", instanceName.c_str(), bytes);
        }
      }
    }
  }
  if (lookedAt) SetEvent(controlCallbackEvent.Get());
}

}  // namespace quillon
