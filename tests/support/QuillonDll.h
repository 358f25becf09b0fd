// Quillon.dll loaded the way the COM runtime loads it, with its four exports.
#pragma once

#include "support/ChildProcess.h"

#include <windows.h>
#include <unknwn.h>

#include <string>

namespace quillon::test {

// {27384E53-9860-0AC3-9519-C60EBCAA2C71}
inline const CLSID kQuillonClsid = {0x27384E53, 0x9860, 0x0AC3, {0x95, 0x19, 0xC6, 0x0E, 0xBC, 0xAA, 0x2C, 0x71}};
inline const wchar_t* const kQuillonClsidText = L"{27384E53-9860-0AC3-9519-C60EBCAA2C71}";

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

  // Creates an effect through the library's class factory.
  HRESULT CreateEffect(REFIID riid, void** ppv) {
    IClassFactory* factory = nullptr;
    HRESULT hr = GetClassObject(kQuillonClsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (FAILED(hr)) return hr;
    hr = factory->CreateInstance(nullptr, riid, ppv);
    factory->Release();
    return hr;
  }

  HRESULT(STDAPICALLTYPE* GetClassObject)(REFCLSID, REFIID, void**) = nullptr;
  HRESULT(STDAPICALLTYPE* CanUnloadNow)() = nullptr;
  HRESULT(STDAPICALLTYPE* RegisterServer)() = nullptr;
  HRESULT(STDAPICALLTYPE* UnregisterServer)() = nullptr;

 private:
  HMODULE module_;
};

// The COM class key an installer writes.
class ScopedComClass {
 public:
  ScopedComClass(const std::wstring& clsidText, const std::wstring& dllPath) : key_(L"CLSID\\" + clsidText) {
    const std::wstring server = key_ + L"\\InprocServer32";
    RegSetKeyValueW(HKEY_CLASSES_ROOT, server.c_str(), nullptr, REG_SZ, dllPath.c_str(),
                    static_cast<DWORD>((dllPath.size() + 1) * sizeof(wchar_t)));
    RegSetKeyValueW(HKEY_CLASSES_ROOT, server.c_str(), L"ThreadingModel", REG_SZ, L"Both", 5 * sizeof(wchar_t));
  }
  ScopedComClass(const ScopedComClass&) = delete;
  ScopedComClass& operator=(const ScopedComClass&) = delete;
  ~ScopedComClass() { RegDeleteTreeW(HKEY_CLASSES_ROOT, key_.c_str()); }

 private:
  std::wstring key_;
};

}  // namespace quillon::test
