// The class factory that the library hands out for the effect's class.
#pragma once

#include <unknwn.h>

#include <atomic>

namespace quillon {

class ClassFactory final : public IClassFactory {
 public:
  ClassFactory();  // one reference, counted as a live object

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override;

 private:
  ~ClassFactory() = default;
  std::atomic<ULONG> refCount{1};
};

}  // namespace quillon
