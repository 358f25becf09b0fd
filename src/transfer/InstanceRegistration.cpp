#include "transfer/InstanceRegistration.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "transfer/WinUtils.h"

namespace quillon {
namespace {

constexpr const wchar_t* kFunction = L"Quillon::RegisterApoInstanceInMemMapping";

HANDLE CreateSlotEvent(const wchar_t* prefix, int32_t slot, SECURITY_ATTRIBUTES* attributes) {
  return CreateEventExW(attributes, WinUtils::PerInstanceName(prefix, slot).c_str(), CREATE_EVENT_MANUAL_RESET,
                        EVENT_ALL_ACCESS);
}

}  // namespace

bool InstanceRegistration::Register(const std::wstring& endpointId, const UNCOMPRESSEDAUDIOFORMAT& format) {
  QLOG(LOG_TRACE, kFunction, L"Register APO instance in memory mapping (Device %s)", endpointId.c_str());
  if (!memMappingRegister) memMappingRegister = std::make_unique<MemMappingRegister>();
  controlView = nullptr;

  LineResult result = memMappingRegister->RegisterApo(endpointId, format);
  if (!result.Ok()) {
    // No events and no threads: this lock period receives no sound.
    QLOG(LOG_ERROR, kFunction, L"Cannot register APO instance [Code=%x: %s]", result.code,
         GetErrorDescription(static_cast<uint32_t>(result.code)).c_str());
    return false;
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
  return true;
}

void InstanceRegistration::AnnounceClosed() {
  if (controlCallbackEvent && controlView != nullptr) {
    *static_cast<volatile uint32_t*>(&controlView->Block()->instanceClosed) = 1;
    SetEvent(controlCallbackEvent.Get());
  }
}

void InstanceRegistration::Release() {
  if (memMappingRegister) {
    memMappingRegister.reset();
    QLOG(LOG_TRACE, L"Quillon::UnregisterApoInstanceInMemMapping", L"Unregister APO instance completed");
  }
  controlView = nullptr;
  stopEvent.Reset();
}

}  // namespace quillon
