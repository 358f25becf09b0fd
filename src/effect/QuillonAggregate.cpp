#include "effect/QuillonAggregate.h"

#include "platform/ModuleCounters.h"
#include "effect/RegistrationProperties.h"
#include "diag/Logger.h"

#include <new>

namespace quillon {

HRESULT QuillonAggregate::Create(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_INVALIDARG;
  if (outer != nullptr && !IsEqualIID(riid, IID_IUnknown)) return E_NOINTERFACE;
  auto* aggregate = new (std::nothrow) QuillonAggregate();
  if (aggregate == nullptr) return E_OUTOFMEMORY;
  QLOG_LINE(LOG_TRACE, 14, L"QuillonAggregate::QuillonAggregate", L"QuillonAggregate v%d.%d.%d", kVersionMajor,
            kVersionMinor, kVersionPatch);
  aggregate->inner = new Quillon(outer != nullptr ? outer : aggregate);
  ++objectCount;
  HRESULT hr = aggregate->QueryInterface(riid, ppv);
  if (FAILED(hr)) {
    // Nobody holds a reference: take one and let it go to free both objects.
    aggregate->AddRef();
    aggregate->Release();
  }
  return hr;
}

HRESULT QuillonAggregate::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  IUnknown* found = nullptr;
  if (IsEqualIID(riid, IID_IUnknown)) {
    found = this;
  } else if (IsEqualIID(riid, IID_IAudioProcessingObject)) {
    found = static_cast<IAudioProcessingObject*>(inner);
  } else if (IsEqualIID(riid, IID_IAudioProcessingObjectRT)) {
    found = static_cast<IAudioProcessingObjectRT*>(inner);
  } else if (IsEqualIID(riid, IID_IAudioProcessingObjectConfiguration)) {
    found = static_cast<IAudioProcessingObjectConfiguration*>(inner);
  } else if (IsEqualIID(riid, IID_IAudioSystemEffects)) {
    found = static_cast<IAudioSystemEffects*>(inner);
  }
  if (found == nullptr) {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  found->AddRef();
  *ppv = found;
  return S_OK;
}

ULONG QuillonAggregate::AddRef() { return ++refCount; }

ULONG QuillonAggregate::Release() {
  ULONG left = --refCount;
  if (left == 0) {
    QLOG(LOG_TRACE, L"QuillonAggregate::~QuillonAggregate", L"~QuillonAggregate");
    delete inner;
    --objectCount;
    delete this;
  }
  return left;
}

}  // namespace quillon
