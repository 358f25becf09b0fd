#include "effect/Quillon.h"

#include "com/ModuleCounters.h"
#include "com/RegistrationProperties.h"
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
  QLOG(LOG_TRACE, L"Quillon::~Quillon", L"%s: ~Quillon Begin", instanceName.c_str());
  UnregisterApoInstanceInMemMapping();
  ReleaseDeviceEffect();
  --objectCount;
  QLOG(LOG_TRACE, L"Quillon::~Quillon", L"%s: ~Quillon End", instanceName.c_str());
  // Close the events in the order the player application expects them to vanish.
  configChangedEvent.Reset();
  controlCallbackEvent.Reset();
  chunkConsumedEvent.Reset();
}

HRESULT Quillon::QueryInterface(REFIID riid, void** ppv) { return outerUnknown->QueryInterface(riid, ppv); }
ULONG Quillon::AddRef() { return outerUnknown->AddRef(); }
ULONG Quillon::Release() { return outerUnknown->Release(); }

HRESULT Quillon::Reset() { return S_OK; }

HRESULT Quillon::GetLatency(HNSTIME* pTime) {
  if (pTime == nullptr) return E_POINTER;
  *pTime = 0;
  // The effect adds no latency of its own: report exactly the device effect's.
  if (deviceEffect != nullptr) deviceEffect->GetLatency(pTime);
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
    InitializeOriginalApo(cbDataSize, pbyData);
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

bool Quillon::AcceptReceivedBlock(const float* samples, size_t count) {
  const size_t chunk = ChunkSize();
  if (pendingSamples.Size() >= chunk) return false;
  count = std::min(count, TransferBlock::kMaxSamples);
  // The queue never holds more than chunk - 1 + one block; sized once per lock period.
  if (!pendingSamples.Reserve(chunk - 1 + TransferBlock::kMaxSamples)) return false;
  return pendingSamples.Push(samples, count);
}

}  // namespace quillon
