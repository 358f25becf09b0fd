#include "com/ClassFactory.h"

#include "platform/ModuleCounters.h"
#include "effect/QuillonAggregate.h"

namespace quillon {

ClassFactory::ClassFactory() { ++objectCount; }

HRESULT ClassFactory::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_INVALIDARG;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG ClassFactory::AddRef() { return ++refCount; }

ULONG ClassFactory::Release() {
  ULONG left = --refCount;
  if (left == 0) {
    --objectCount;
    delete this;
  }
  return left;
}

HRESULT ClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) {
  return QuillonAggregate::Create(pUnkOuter, riid, ppv);
}

HRESULT ClassFactory::LockServer(BOOL fLock) {
  if (fLock) {
    ++lockCount;
  } else {
    --lockCount;
  }
  return S_OK;
}

}  // namespace quillon
