// The library's exported COM entry points (named in Quillon.def).
#include "com/ApoRegistration.h"
#include "com/ClassFactory.h"
#include "platform/ModuleCounters.h"
#include "effect/RegistrationProperties.h"

using namespace quillon;

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
  if (!IsEqualCLSID(rclsid, CLSID_Quillon)) return CLASS_E_CLASSNOTAVAILABLE;
  ClassFactory* factory = new ClassFactory();
  // The factory survives only if the query handed out a reference.
  HRESULT hr = factory->QueryInterface(riid, ppv);
  factory->Release();
  return hr;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() {
  return lockCount.load() != 0 || objectCount.load() != 0 ? S_FALSE : S_OK;
}

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
  HRESULT hr = WriteApoRegistration(&QuillonRegistrationProperties());
  if (FAILED(hr)) RemoveApoRegistration(CLSID_Quillon);  // no half-written registration stays behind
  return hr;
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
  HRESULT hr = RemoveApoRegistration(CLSID_Quillon);
  return hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) ? S_OK : hr;
}
