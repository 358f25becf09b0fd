// Registration of a locked effect instance with the player application: a slot
// in the machine-wide register, the slot's transfer mapping and events, and the
// two worker threads. Registration never fails the lock.
#include "effect/Quillon.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "transfer/MemMappingRegister.h"
#include "transfer/WinUtils.h"

#include <system_error>

namespace quillon {
namespace {

HANDLE CreateSlotEvent(const wchar_t* prefix, int32_t slot, SECURITY_ATTRIBUTES* attributes) {
  return CreateEventExW(attributes, WinUtils::PerInstanceName(prefix, slot).c_str(), CREATE_EVENT_MANUAL_RESET,
                        EVENT_ALL_ACCESS);
}

}  // namespace

void Quillon::RegisterApoInstanceInMemMapping(const UNCOMPRESSEDAUDIOFORMAT& outputFormat) {
  constexpr const wchar_t* kFunction = L"Quillon::RegisterApoInstanceInMemMapping";
  QLOG(LOG_TRACE, kFunction, L"Register APO instance in memory mapping (Device %s)", endpointId.c_str());
  if (!memMappingRegister) memMappingRegister = std::make_unique<MemMappingRegister>();
  controlView = nullptr;

  LineResult result = memMappingRegister->RegisterApo(endpointId, outputFormat);
  if (!result.Ok()) {
    // No events and no threads: this lock period receives no sound.
    QLOG(LOG_ERROR, kFunction, L"Cannot register APO instance [Code=%x: %s]", result.code,
         GetErrorDescription(static_cast<uint32_t>(result.code)).c_str());
    QLOG(LOG_TRACE, kFunction, L"Register APO instance completed");
    return;
  }

  instanceIndex = memMappingRegister->Slot();
  controlView = memMappingRegister->Control();
  instanceName = Format(L"APO[%d]%s", instanceIndex, endpointId.c_str()).Data();

  SECURITY_ATTRIBUTES* shared = WinUtils::GetNullDaclSecurityAttributes();
  chunkConsumedEvent.Reset(CreateSlotEvent(kChunkConsumedEventPrefix, instanceIndex, shared));
  if (chunkConsumedEvent) SetEvent(chunkConsumedEvent.Get());  // the receiver looks at the mapping once at start
  controlCallbackEvent.Reset(CreateSlotEvent(kControlEventPrefix, instanceIndex, shared));
  configChangedEvent.Reset(CreateSlotEvent(kConfigChangedEventPrefix, instanceIndex, nullptr));
  stopEvent.Reset(CreateEventExW(shared, kStopEventName, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));

  QLOG(LOG_DEBUG, kFunction, L"Registered APO instance with ID=%d", instanceIndex);
  try {
    receiverRunning = true;
    soundReceiverThread = std::thread(SoundReceiverTask, this);
    listenerRunning = true;
    configListenerThread = std::thread(ConfigChangeListenerTask, this);
  } catch (const std::system_error& e) {
    // No exception may cross the COM boundary: without its threads the
    // instance stays locked and passes audio, receiving nothing.
    QLOG(LOG_ERROR, kFunction, L"Cannot start worker threads [Code=%x: %s]", static_cast<uint32_t>(e.code().value()),
         GetErrorDescription(static_cast<uint32_t>(e.code().value())).c_str());
    UnregisterApoInstanceInMemMapping();
  }
  QLOG(LOG_TRACE, kFunction, L"Register APO instance completed");
}

void Quillon::UnregisterApoInstanceInMemMapping() {
  constexpr const wchar_t* kFunction = L"Quillon::UnregisterApoInstanceInMemMapping";
  if (memMappingRegister) {
    QLOG(LOG_TRACE, kFunction, L"%s: Unregister APO instance in memory mapping", instanceName.c_str());
  }
  receiverRunning = false;
  listenerRunning = false;
  if (chunkConsumedEvent) SetEvent(chunkConsumedEvent.Get());
  if (soundReceiverThread.joinable()) {
    QLOG(LOG_TRACE, kFunction, L"%s: Waiting for sound receiver thread to finish", instanceName.c_str());
    soundReceiverThread.join();
    QLOG(LOG_TRACE, kFunction, L"%s: Sound receiver thread finished", instanceName.c_str());
  }
  if (controlCallbackEvent && controlView != nullptr) {
    // Tell the player at once that this instance is gone.
    *static_cast<volatile uint32_t*>(&controlView->Block()->instanceClosed) = 1;
    SetEvent(controlCallbackEvent.Get());
  }
  // Without its event the listener's first wait fails and it ends by itself,
  // so it is joined either way: no thread outlives the unlock.
  if (configChangedEvent) SetEvent(configChangedEvent.Get());
  if (configListenerThread.joinable()) {
    QLOG(LOG_TRACE, kFunction, L"%s: Waiting for config change listener to finish", instanceName.c_str());
    configListenerThread.join();
  }
  if (memMappingRegister) {
    memMappingRegister.reset();
    QLOG(LOG_TRACE, kFunction, L"Unregister APO instance completed");
  }
  controlView = nullptr;
  stopEvent.Reset();
  // Sound left over from this lock period is not played in the next one.
  pendingSamples.Reset();
  chunkBuffer.reset();
  chunkSize.store(0, std::memory_order_release);
  chunkPos = 0;
  chunkActive = false;
}

}  // namespace quillon
