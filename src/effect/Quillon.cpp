#include "effect/Quillon.h"

#include "platform/ModuleCounters.h"
#include "effect/RegistrationProperties.h"
#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "transfer/MemMappingRegister.h"

#include <algorithm>

namespace quillon {
namespace {

// {1DA5D803-D492-4EDD-8C23-E0C0FFEE7F0E}, 4: the endpoint's GUID text.
const PROPERTYKEY kEndpointGuidKey = {
    {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}}, 4};

}  // namespace

Quillon::Quillon(IUnknown* outer) : BaseAudioProcessingObject(QuillonRegistrationProperties()), outerUnknown(outer) {
  QLOG(LOG_TRACE, L"Quillon::Quillon", L"Quillon v%d.%d.%d", kVersionMajor, kVersionMinor, kVersionPatch);
  ++objectCount;
}

Quillon::~Quillon() {
  const wchar_t* name = registration.InstanceName().c_str();
  QLOG(LOG_TRACE, L"Quillon::~Quillon", L"%s: ~Quillon Begin", name);
  UnregisterApoInstanceInMemMapping();
  deviceEffect.Release();
  --objectCount;
  QLOG(LOG_TRACE, L"Quillon::~Quillon", L"%s: ~Quillon End", name);
  // The registration's events close after this, in the order the player
  // application expects them to vanish.
}

HRESULT Quillon::QueryInterface(REFIID riid, void** ppv) { return outerUnknown->QueryInterface(riid, ppv); }
ULONG Quillon::AddRef() { return outerUnknown->AddRef(); }
ULONG Quillon::Release() { return outerUnknown->Release(); }

HRESULT Quillon::Reset() { return S_OK; }

HRESULT Quillon::GetLatency(HNSTIME* pTime) {
  if (pTime == nullptr) return E_POINTER;
  *pTime = 0;
  // The effect adds no latency of its own: report exactly the device effect's.
  if (deviceEffect) deviceEffect.Apo()->GetLatency(pTime);
  return S_OK;
}

HRESULT Quillon::Initialize(UINT32 cbDataSize, BYTE* pbyData) {
  constexpr const wchar_t* kFunction = L"Quillon::Initialize";
  QLOG(LOG_TRACE, kFunction, L"Initialize(%d, %s)", cbDataSize, pbyData != nullptr ? L"byteData" : L"null");

  const bool knownSize = cbDataSize == sizeof(APOInitSystemEffects) || cbDataSize == sizeof(APOInitSystemEffects2);
  IPropertyStore* endpointProperties =
      pbyData != nullptr && knownSize ? reinterpret_cast<APOInitSystemEffects*>(pbyData)->pAPOEndpointProperties
                                      : nullptr;
  if (endpointProperties == nullptr) {
    QLOG(LOG_ERROR, kFunction, L"Failed in Initialize [Code=%x: %s]", E_INVALIDARG,
         GetErrorDescription(E_INVALIDARG).c_str());
    return E_INVALIDARG;
  }

  PROPVARIANT value;
  PropVariantInit(&value);
  if (SUCCEEDED(endpointProperties->GetValue(kEndpointGuidKey, &value))) {
    if (value.vt == VT_LPWSTR && value.pwszVal != nullptr) endpointId = value.pwszVal;
    PropVariantClear(&value);
    deviceEffect.Create(endpointId, cbDataSize, pbyData);
  }

  HRESULT hr = BaseAudioProcessingObject::Initialize(cbDataSize, pbyData);
  if (SUCCEEDED(hr)) {
    QLOG(LOG_TRACE, kFunction, L"Initialize completed successfully");
  } else {
    // Logged but not passed on: the engine gets a working effect either way.
    QLOG(LOG_ERROR, kFunction, L"Failed in Initialize [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
  }
  return S_OK;
}

void Quillon::RegisterApoInstanceInMemMapping(const UNCOMPRESSEDAUDIOFORMAT& outputFormat) {
  constexpr const wchar_t* kFunction = L"Quillon::RegisterApoInstanceInMemMapping";
  if (registration.Register(endpointId, outputFormat)) {
    try {
      receiver.Start(registration, received);
      listener.Start(registration.InstanceName(), endpointId, registration.ConfigChangedEvent(), settings);
    } catch (const std::system_error& e) {
      // No exception may cross the COM boundary: without its threads the
      // instance stays locked and passes audio, receiving nothing.
      const auto code = static_cast<uint32_t>(e.code().value());
      QLOG(LOG_ERROR, kFunction, L"Cannot start worker threads [Code=%x: %s]", code,
           GetErrorDescription(code).c_str());
      UnregisterApoInstanceInMemMapping();
    }
  }
  QLOG(LOG_TRACE, kFunction, L"Register APO instance completed");
}

void Quillon::UnregisterApoInstanceInMemMapping() {
  constexpr const wchar_t* kFunction = L"Quillon::UnregisterApoInstanceInMemMapping";
  const wchar_t* name = registration.InstanceName().c_str();
  if (registration.HasRegister()) QLOG(LOG_TRACE, kFunction, L"%s: Unregister APO instance in memory mapping", name);
  listener.RequestStop();
  receiver.RequestStop();
  if (receiver.Joinable()) {
    QLOG(LOG_TRACE, kFunction, L"%s: Waiting for sound receiver thread to finish", name);
    receiver.Join();
    QLOG(LOG_TRACE, kFunction, L"%s: Sound receiver thread finished", name);
  }
  // Tell the player at once that this instance is gone.
  registration.AnnounceClosed();
  if (listener.Joinable()) QLOG(LOG_TRACE, kFunction, L"%s: Waiting for config change listener to finish", name);
  listener.Stop();
  registration.Release();
  // Sound left over from this lock period is not played in the next one.
  received.Reset();
  mixer.Free();
}

}  // namespace quillon
