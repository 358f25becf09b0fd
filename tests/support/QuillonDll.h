// Quillon.dll loaded the way the COM runtime loads it, with its four exports.
#pragma once

#include "effect/ClassId.h"
#include "platform/ApoInterfaces.h"
#include "platform/ComPtr.h"
#include "platform/UniqueResource.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <string>

namespace quillon::test {

// Quillon's class and its registration with the audio engine, under HKLM.
inline const std::wstring kQuillonClassKey = std::wstring(L"SOFTWARE\\Classes\\CLSID\\") + kQuillonClsidText;
inline const std::wstring kQuillonEngineKey =
    std::wstring(L"SOFTWARE\\Classes\\AudioEngine\\AudioProcessingObjects\\") + kQuillonClsidText;

inline std::wstring QuillonDllPath() { return ExecutableFolder() + L"Quillon.dll"; }

class QuillonDll {
 public:
  QuillonDll() : module_(LoadLibraryW(QuillonDllPath().c_str())) {
    if (const HMODULE m = module_.Get()) {
      GetClassObject = reinterpret_cast<decltype(GetClassObject)>(GetProcAddress(m, "DllGetClassObject"));
      CanUnloadNow = reinterpret_cast<decltype(CanUnloadNow)>(GetProcAddress(m, "DllCanUnloadNow"));
      RegisterServer = reinterpret_cast<decltype(RegisterServer)>(GetProcAddress(m, "DllRegisterServer"));
      UnregisterServer = reinterpret_cast<decltype(UnregisterServer)>(GetProcAddress(m, "DllUnregisterServer"));
    }
  }

  bool Loaded() const { return GetClassObject && CanUnloadNow && RegisterServer && UnregisterServer; }

  // An effect created through the library's class factory.
  ComPtr<IAudioProcessingObject> CreateEffect() {
    ComPtr<IClassFactory> factory;
    ComPtr<IAudioProcessingObject> apo;
    EXPECT_EQ(S_OK, GetClassObject(CLSID_Quillon, IID_IClassFactory, factory.PutVoid()));
    if (factory) EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IAudioProcessingObject, apo.PutVoid()));
    return apo;
  }

  HRESULT(STDAPICALLTYPE* GetClassObject)(REFCLSID, REFIID, void**) = nullptr;
  HRESULT(STDAPICALLTYPE* CanUnloadNow)() = nullptr;
  HRESULT(STDAPICALLTYPE* RegisterServer)() = nullptr;
  HRESULT(STDAPICALLTYPE* UnregisterServer)() = nullptr;

 private:
  UniqueModule module_;
};

}  // namespace quillon::test
