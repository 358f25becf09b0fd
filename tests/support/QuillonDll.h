// Quillon.dll loaded the way the COM runtime loads it, with its four exports.
#pragma once

#include "platform/ApoInterfaces.h"
#include "platform/ComPtr.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <string>

namespace quillon::test {

// {27384E53-9860-0AC3-9519-C60EBCAA2C71}
inline const CLSID kQuillonClsid = {0x27384E53, 0x9860, 0x0AC3, {0x95, 0x19, 0xC6, 0x0E, 0xBC, 0xAA, 0x2C, 0x71}};
inline const wchar_t* const kQuillonClsidText = L"{27384E53-9860-0AC3-9519-C60EBCAA2C71}";
// Its class and its registration with the audio engine, under HKLM.
inline const std::wstring kQuillonClassKey = L"SOFTWARE\\Classes\\CLSID\\{27384E53-9860-0AC3-9519-C60EBCAA2C71}";
inline const std::wstring kQuillonEngineKey =
    L"SOFTWARE\\Classes\\AudioEngine\\AudioProcessingObjects\\{27384E53-9860-0AC3-9519-C60EBCAA2C71}";

inline std::wstring QuillonDllPath() { return ExecutableFolder() + L"Quillon.dll"; }

class QuillonDll {
 public:
  QuillonDll() : module_(LoadLibraryW(QuillonDllPath().c_str())) {
    if (module_ != nullptr) {
      GetClassObject = reinterpret_cast<decltype(GetClassObject)>(GetProcAddress(module_, "DllGetClassObject"));
      CanUnloadNow = reinterpret_cast<decltype(CanUnloadNow)>(GetProcAddress(module_, "DllCanUnloadNow"));
      RegisterServer = reinterpret_cast<decltype(RegisterServer)>(GetProcAddress(module_, "DllRegisterServer"));
      UnregisterServer = reinterpret_cast<decltype(UnregisterServer)>(GetProcAddress(module_, "DllUnregisterServer"));
    }
  }
  QuillonDll(const QuillonDll&) = delete;
  QuillonDll& operator=(const QuillonDll&) = delete;
  ~QuillonDll() {
    if (module_ != nullptr) FreeLibrary(module_);
  }

  bool Loaded() const {
    return GetClassObject != nullptr && CanUnloadNow != nullptr && RegisterServer != nullptr &&
           UnregisterServer != nullptr;
  }

  // An effect created through the library's class factory.
  ComPtr<IAudioProcessingObject> CreateEffect() {
    ComPtr<IClassFactory> factory;
    ComPtr<IAudioProcessingObject> apo;
    EXPECT_EQ(S_OK, GetClassObject(kQuillonClsid, IID_IClassFactory, factory.PutVoid()));
    if (factory) EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IAudioProcessingObject, apo.PutVoid()));
    return apo;
  }

  HRESULT(STDAPICALLTYPE* GetClassObject)(REFCLSID, REFIID, void**) = nullptr;
  HRESULT(STDAPICALLTYPE* CanUnloadNow)() = nullptr;
  HRESULT(STDAPICALLTYPE* RegisterServer)() = nullptr;
  HRESULT(STDAPICALLTYPE* UnregisterServer)() = nullptr;

 private:
  HMODULE module_;
};

}  // namespace quillon::test
