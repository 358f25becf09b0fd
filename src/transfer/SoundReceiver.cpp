#include "transfer/SoundReceiver.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "platform/NamedMutexLock.h"
#include "transfer/WinUtils.h"

#include <algorithm>

namespace quillon {
namespace {
constexpr const wchar_t* kFunction = L"Quillon::SoundReceiverTask";
}  // namespace

void SoundReceiver::Start(const InstanceRegistration& owner, ReceivedSound& received) {
  registration = &owner;
  sound = &received;
  receiverRunning = true;
  thread = std::thread(&SoundReceiver::Run, this);
}

void SoundReceiver::RequestStop() {
  receiverRunning = false;
  if (registration != nullptr && registration->ChunkConsumedEvent() != nullptr) {
    SetEvent(registration->ChunkConsumedEvent());
  }
}

void SoundReceiver::Join() {
  if (thread.joinable()) thread.join();
}

void SoundReceiver::Run() {
  const wchar_t* name = registration->InstanceName().c_str();
  const HANDLE chunkConsumed = registration->ChunkConsumedEvent();
  QLOG(LOG_TRACE, kFunction, L"%s: Sound receiver thread started", name);
  const std::wstring mutexName = WinUtils::PerInstanceName(kTransferMutexPrefix, registration->Slot());
  while (receiverRunning) {
    const DWORD wait = WaitForSingleObject(chunkConsumed, INFINITE);
    if (!receiverRunning) break;
    if (wait == WAIT_OBJECT_0) {
      ResetEvent(chunkConsumed);
      ReceiveOnce(mutexName);
    } else if (wait != WAIT_TIMEOUT) {
      QLOG(LOG_TRACE, kFunction, L"%s: wait failed [Code = %x:%s]", name, wait, GetErrorDescription(wait).c_str());
      receiverRunning = false;
      break;
    }
  }
  QLOG(LOG_TRACE, kFunction, L"%s: Sound receiver thread finished", name);
}

// One look at the mapping.
void SoundReceiver::ReceiveOnce(const std::wstring& mutexName) {
  const wchar_t* name = registration->InstanceName().c_str();
  bool lookedAt = false;
  {
    NamedMutexLock lock(mutexName.c_str(), kSharedMutexWaitMs);
    if (lock.WaitResult() == WAIT_TIMEOUT) {
      // The block stays in the mapping until the next chunk is taken.
      QLOG(LOG_ERROR, kFunction, L"%s: Failed to open transfer mutex [Code=%x: %s]", name, 0,
           GetErrorDescription(0).c_str());
    } else {
      // Owned or abandoned: the mapping is ours to read.
      lookedAt = true;
      TransferMapping* control = registration->Control();
      TransferBlock* block = control != nullptr ? control->Block() : nullptr;
      if (block != nullptr && block->dataReady == 1) {
        const uint32_t bytes = std::min(block->byteCount, TransferBlock::kMaxBytes);
        if (sound->Accept(block->samples, bytes / sizeof(float))) {
          block->instanceClosed = 0;
          block->dataReady = 0;
          QLOG(LOG_TRACE, kFunction, L"%s: Received %d bytes", name, bytes);
        }
      }
    }
  }
  if (lookedAt) SetEvent(registration->ControlCallbackEvent());
}

}  // namespace quillon
