// Quillon.dll loaded the way the COM runtime loads it, with its four exports.
#pragma once

#include "effect/ClassId.h"
#include "platform/ApoInterfaces.h"
#include "platform/ComPtr.h"
#include "platform/UniqueResource.h"
#include "support/ChildProcess.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace quillon::test {

// Quillon's class and its registration with the audio engine, under HKLM.
inline const std::wstring kQuillonClassKey = std::wstring(L"SOFTWARE\\Classes\\CLSID\\") + kQuillonClsidText;
inline const std::wstring kQuillonEngineKey =
    std::wstring(L"SOFTWARE\\Classes\\AudioEngine\\AudioProcessingObjects\\") + kQuillonClsidText;

inline std::wstring QuillonDllPath() { return ExecutableFolder() + L"Quillon.dll"; }

// The offset of a PE file's Machine field.
inline size_t MachineOffset(const std::string& bytes) {
  return *reinterpret_cast<const uint32_t*>(bytes.data() + 0x3C) + 4;
}

// A copy of Quillon.dll as `folder`\Quillon.dll with `change` made to its bytes.
template <typename Change>
std::wstring ChangedDllCopy(const std::wstring& folder, Change change) {
  CreateDirectoryW(folder.c_str(), nullptr);
  std::string bytes = ReadText(QuillonDllPath());
  change(bytes);
  const std::wstring path = folder + L"Quillon.dll";
  std::ofstream(path.c_str(), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return path;
}

// Makes its header name the other architecture: x64 for ARM64 and back.
inline void FlipMachine(std::string& bytes) {
  uint16_t& machine = *reinterpret_cast<uint16_t*>(bytes.data() + MachineOffset(bytes));
  machine = machine == IMAGE_FILE_MACHINE_AMD64 ? IMAGE_FILE_MACHINE_ARM64 : IMAGE_FILE_MACHINE_AMD64;
}

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
